#!/usr/bin/python3
"""Round trip through our writer: load a series, save it as DICOM, load the
written files again, and compare the two fields.

    roundtrip_save_dicom.py --vxdicom BIN [--modality CT] SERIES_DIR...

Both loads are saved as NIfTI and read with nibabel. The written files carry
the fixed orientation 1\\0\\0\\0\\1\\0 and, as Image Position (Patient) of slice
k, the world position of voxel (0, 0, k) of the first field. What must survive:
  - the dimensions and every voxel value,
  - the in-plane voxel size, and the written Pixel Spacing as pydicom reads
    it: the distance between rows (along y) first, between columns second,
  - the written positions (read with pydicom) equal the first field's,
  - the second field's first voxel and the z of every slice equal the first
    field's; so does its slice distance, measured along z.
An oblique field (the gantry-tilted CT) loses its rotation on the way by
design: its slices, written as axial ones, are read back as an axial stack
whose in-plane position follows the first slice. pydicom must read every
written file (exit 77 when nibabel or pydicom is missing).
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


def load(vx, series, out, env):
    r = subprocess.run([vx, "load", "-nodialog", "-q", "--format", "nii", "-o", out, series],
                       env=env, capture_output=True, text=True)
    if r.returncode != 0:
        raise SystemExit("load of %s failed:\n%s%s" % (series, r.stdout, r.stderr))
    files = sorted(glob.glob(os.path.join(out, "*.nii")))
    return [nib.load(f) for f in files]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--modality", default=None)
    ap.add_argument("--generate-ct", metavar="ROWSxCOLUMNSxSLICES",
                    help="also a CT series written by tests/support/make_series.py (as the load "
                         "benchmark makes it), e.g. 128x96x40")
    ap.add_argument("series", nargs="*")
    args = ap.parse_args()
    work = tempfile.mkdtemp(prefix="vxround-")
    if args.generate_ct:
        rows, cols, slices = args.generate_ct.split("x")
        made = os.path.join(work, "generated-ct")
        maker = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support",
                             "make_series.py")
        subprocess.run(["/usr/bin/python3", maker, made, "--rows", rows, "--columns", cols,
                        "--slices", slices, "--modality", "CT"], check=True,
                       stderr=subprocess.DEVNULL)
        args.series.append(made)
        # Pixels that are not square: rows 1.1 mm apart, columns 0.8 mm.
        oblong = os.path.join(work, "generated-oblong-mr")
        subprocess.run(["/usr/bin/python3", maker, oblong, "--rows", "48", "--columns", "64",
                        "--slices", "6", "--modality", "MR", "--spacing", "0.8",
                        "--row-spacing", "1.1"], check=True, stderr=subprocess.DEVNULL)
        args.series.append(oblong)
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen",
               VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
    failures = 0
    try:
        for n, series in enumerate(args.series):
            first = load(args.vxdicom, series, os.path.join(work, "a%d" % n), env)
            written = os.path.join(work, "dicom%d" % n)
            cmd = [args.vxdicom, "save-dicom", series, "-o", written]
            if args.modality:
                cmd += ["--modality", args.modality]
            r = subprocess.run(cmd, env=env, capture_output=True, text=True)
            if r.returncode != 0:
                print("FAIL %s: save-dicom exited %d\n%s%s" % (series, r.returncode, r.stdout, r.stderr))
                failures += 1
                continue
            files = sorted(glob.glob(os.path.join(written, "**", "*.dcm"), recursive=True))
            positions, spacings = {}, set()
            for f in files:
                ds = pydicom.dcmread(f)
                ds.pixel_array  # raises on a file pydicom cannot read
                positions[(os.path.dirname(f), int(ds.InstanceNumber))] = \
                    np.array([float(v) for v in ds.ImagePositionPatient])
                spacings.add(tuple(round(float(v), 4) for v in ds.PixelSpacing))
            second = load(args.vxdicom, written, os.path.join(work, "b%d" % n), env)
            if len(first) != len(second):
                print("FAIL %s: %d fields, %d after the round trip" % (series, len(first), len(second)))
                failures += 1
                continue
            for a, b in zip(first, second):
                da, db = a.get_fdata(), b.get_fdata()
                problems = []
                if da.shape != db.shape:
                    problems.append("dimensions %s, then %s" % (da.shape, db.shape))
                else:
                    sa = np.linalg.norm(a.affine[:3, :3], axis=0)
                    sb = np.linalg.norm(b.affine[:3, :3], axis=0)
                    if np.max(np.abs(sa[:2] - sb[:2])) > 1e-3:
                        problems.append("in-plane voxel size %s, then %s" % (sa[:2], sb[:2]))
                    # Written axial (rows along x): Pixel Spacing is y step, x step.
                    if len(first) == 1 and spacings != {(round(sa[1], 4), round(sa[0], 4))}:
                        problems.append("Pixel Spacing written %s for voxels %g x %g" %
                                        (sorted(spacings), sa[0], sa[1]))
                    lps = np.diag([-1.0, -1.0, 1.0])  # NIfTI (RAS) to DICOM patient axes
                    folder = os.path.dirname(files[0]) if len(first) == 1 else None
                    za = []
                    for k in range(da.shape[2]):
                        pa = lps @ (a.affine @ np.array([0, 0, k, 1.0]))[:3]
                        pb = lps @ (b.affine @ np.array([0, 0, k, 1.0]))[:3]
                        za.append(pa[2])
                        written_pos = positions.get((folder, k)) if folder else None
                        if written_pos is not None and np.max(np.abs(written_pos - pa)) > 1e-3:
                            problems.append("slice %d written at %s, field at %s" % (k, written_pos, pa))
                            break
                        if (k == 0 and np.max(np.abs(pa - pb)) > 1e-3) or abs(pa[2] - pb[2]) > 1e-3:
                            problems.append("slice %d at %s, then %s" % (k, pa, pb))
                            break
                    if len(za) > 1 and abs(abs(za[1] - za[0]) - sb[2]) > 1e-3:
                        problems.append("slice distance along z %g, then %g" % (abs(za[1] - za[0]), sb[2]))
                    if not np.array_equal(da, db):
                        problems.append("values differ by up to %g" % np.max(np.abs(da - db)))
                status = "FAIL" if problems else "ok  "
                failures += 1 if problems else 0
                print("%s %s: %s, %d files%s" % (status, series, da.shape, len(files),
                                                 "; " + "; ".join(problems) if problems else ""))
    finally:
        shutil.rmtree(work, ignore_errors=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
