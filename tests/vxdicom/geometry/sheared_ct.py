#!/usr/bin/python3
"""The gantry-tilted CT of ../shared/data/dcm_qa_ct: it loads as one sheared
stack, warns, and lands where its headers put it as far as a rigid volume can.

    sheared_ct.py --vxdicom BIN --series DIR

Its slices step along z (the table) while their normal leans 18.5 degrees, so
no rigid grid holds them exactly. The field is a rigid volume with the image
rows, columns and normal as axes; its translation averages the offsets of the
first and last slices. So the middle of the stack is exact, and the first
slice lies half the shear away from its Image Position (Patient), which is
where dcm2niix puts it: shear = (p_last - p_first) - (n . (p_last - p_first)) n.
Checks, with positions from pydicom (not from our reader):
  - the warning "stack HEAD is sheared by -18.5 degrees!",
  - in-plane axes = row and column directions times the pixel spacing,
  - slice axis = normal times the slice distance along the normal,
  - the first slice's corner = its position + shear / 2 (within 1e-3 mm),
  - the middle of the stack exact, the values those of the files.
Exit 77 when nibabel or pydicom is missing.
"""
import argparse
import glob
import os
import shutil
import subprocess
import sys
import tempfile

try:
    import nibabel as nib
    import numpy as np
    import pydicom
except ImportError as e:
    print("SKIP: %s" % e)
    sys.exit(77)

TOL = 1e-3


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--series", required=True)
    args = ap.parse_args()

    work = tempfile.mkdtemp(prefix="vxshear-")
    try:
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen",
                   VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
        r = subprocess.run([args.vxdicom, "load", "-nodialog", "--format", "nii", "-o", work,
                            args.series], env=env, capture_output=True, text=True)
        if r.returncode != 0:
            print(r.stdout, r.stderr)
            return 1
        failures = []
        if "stack HEAD is sheared by -18.5 degrees!" not in r.stdout:
            failures.append("no shear warning in:\n" + r.stdout[-2000:])
        outputs = glob.glob(os.path.join(work, "*.nii"))
        if len(outputs) != 1:
            print("expected one field, got", outputs)
            return 1
        img = nib.load(outputs[0])
        data = img.get_fdata()
        A = img.affine.copy()
        A[:2, :] *= -1  # RAS to the DICOM patient axes (LPS)

        files = [f for f in glob.glob(os.path.join(args.series, "*"))
                 if os.path.basename(f).startswith("I") and "DIRFILE" not in f]
        ds = [pydicom.dcmread(f) for f in files]
        ds.sort(key=lambda d: float(d.ImagePositionPatient[2]))
        row = np.array([float(v) for v in ds[0].ImageOrientationPatient[:3]])
        col = np.array([float(v) for v in ds[0].ImageOrientationPatient[3:]])
        n = np.cross(row, col)
        n /= np.linalg.norm(n)
        dr, dc = (float(v) for v in ds[0].PixelSpacing)
        p0 = np.array([float(v) for v in ds[0].ImagePositionPatient])
        pN = np.array([float(v) for v in ds[-1].ImagePositionPatient])
        step = float(np.dot(n, pN - p0)) / (len(ds) - 1)
        shear = (pN - p0) - np.dot(n, pN - p0) * n

        if data.shape != (int(ds[0].Columns), int(ds[0].Rows), len(ds)):
            failures.append("shape %s" % (data.shape,))
        for name, got, want in (("row axis", A[:3, 0], row * dc), ("column axis", A[:3, 1], col * dr),
                                ("slice axis", A[:3, 2], n * step)):
            if np.max(np.abs(got - want)) > 1e-4:
                failures.append("%s %s, headers say %s" % (name, got, want))
        first = A[:3, 3]
        if np.max(np.abs(first - (p0 + shear / 2))) > TOL:
            failures.append("first slice at %s; its position %s + shear/2 %s" % (first, p0, shear / 2))
        middle_k = (len(ds) - 1) / 2.0
        middle = A[:3, :3] @ np.array([0, 0, middle_k]) + A[:3, 3]
        middle_header = (p0 + pN) / 2
        if np.max(np.abs(middle - middle_header)) > TOL:
            failures.append("middle of the stack at %s; headers %s" % (middle, middle_header))
        # Values: slice k of the field is file k rescaled (x = column, y = row).
        for k in (0, len(ds) // 2, len(ds) - 1):
            want = ds[k].pixel_array.astype(np.float64) * float(ds[k].RescaleSlope) + \
                float(ds[k].RescaleIntercept)
            got = data[:, :, k].T
            if np.max(np.abs(got - want)) > 0.5:
                failures.append("slice %d values differ by %g" % (k, np.max(np.abs(got - want))))
        print("shear of the stack: %s mm; first slice %.3f mm off its header position, "
              "as the rigid fit puts it" % (np.round(shear, 3), np.linalg.norm(shear) / 2))
        for f in failures:
            print("FAIL", f)
        return 1 if failures else 0
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
