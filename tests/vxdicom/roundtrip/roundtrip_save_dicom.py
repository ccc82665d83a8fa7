#!/usr/bin/python3
"""Load a series, save it with our writer, load the written files again; compare
the two fields (as NIfTI, with nibabel) and the written files (with pydicom).

    roundtrip_save_dicom.py --vxdicom BIN [--generate-ct ROWSxCOLUMNSxSLICES] SERIES_DIR...

Must survive: dimensions, values, in-plane voxel size (Pixel Spacing rows
first), slice k at voxel (0, 0, k) as written and as loaded again, the slice
distance along z (the writer's orientation is axial: an oblique field loses
its rotation). --generate-ct adds a CT as the load benchmark makes it and an
MR with non-square pixels. Exit 77 without nibabel or pydicom.
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

LPS = np.diag([-1.0, -1.0, 1.0])  # NIfTI (RAS) to DICOM patient axes


def run(cmd, env):
    r = subprocess.run(cmd, env=env, capture_output=True, text=True)
    if r.returncode != 0:
        raise SystemExit("FAIL %s exited %d:\n%s%s" % (" ".join(cmd), r.returncode, r.stdout, r.stderr))


def load(vx, series, out, env):
    run([vx, "load", "-nodialog", "-q", "--format", "nii", "-o", out, series], env)
    return [nib.load(f) for f in sorted(glob.glob(os.path.join(out, "*.nii")))]


def problems_of(a, b, positions, spacings, single):
    da, db = a.get_fdata(), b.get_fdata()
    if da.shape != db.shape:
        return ["dimensions %s, then %s" % (da.shape, db.shape)]
    sa, sb = np.linalg.norm(a.affine[:3, :3], axis=0), np.linalg.norm(b.affine[:3, :3], axis=0)
    pa, pb = ([LPS @ (x.affine @ [0, 0, k, 1.0])[:3] for k in range(da.shape[2])] for x in (a, b))
    out = ["in-plane voxel size %s, then %s" % (sa[:2], sb[:2])] if np.max(np.abs(sa[:2] - sb[:2])) > 1e-3 else []
    # Written axial (rows along x): Pixel Spacing is the y step, then the x step.
    if single and spacings != {(round(sa[1], 4), round(sa[0], 4))}:
        out.append("Pixel Spacing written %s for voxels %g x %g" % (sorted(spacings), sa[0], sa[1]))
    if single:
        out += ["slice %d written at %s, field at %s" % (k, positions[k], pa[k])
                for k in range(len(pa)) if np.max(np.abs(positions[k] - pa[k])) > 1e-3][:1]
    out += ["slice %d at %s, then %s" % (k, pa[k], pb[k]) for k in range(len(pa))
            if (k == 0 and np.max(np.abs(pa[0] - pb[0])) > 1e-3) or abs(pa[k][2] - pb[k][2]) > 1e-3][:1]
    if len(pa) > 1 and abs(abs(pa[1][2] - pa[0][2]) - sb[2]) > 1e-3:
        out.append("slice distance along z %g, then %g" % (abs(pa[1][2] - pa[0][2]), sb[2]))
    if not np.array_equal(da, db):
        out.append("values differ by up to %g" % np.max(np.abs(da - db)))
    return out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--generate-ct", metavar="ROWSxCOLUMNSxSLICES")
    ap.add_argument("series", nargs="*")
    args = ap.parse_args()
    work = tempfile.mkdtemp(prefix="vxround-")
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
    maker = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support", "make_series.py")
    failures = 0
    try:
        if args.generate_ct:
            rows, cols, slices = args.generate_ct.split("x")
            for name, extra in (("ct", "--rows %s --columns %s --slices %s --modality CT" % (rows, cols, slices)),
                                ("oblong-mr", "--rows 48 --columns 64 --slices 6 --modality MR --spacing 0.8 "
                                              "--row-spacing 1.1")):
                args.series.append(os.path.join(work, name))
                run(["/usr/bin/python3", maker, args.series[-1]] + extra.split(), env)
        for n, series in enumerate(args.series):
            written = os.path.join(work, "dicom%d" % n)
            run([args.vxdicom, "save-dicom", series, "-o", written], env)
            first, second = (load(args.vxdicom, s, os.path.join(work, o), env)
                             for s, o in ((series, "a%d" % n), (written, "b%d" % n)))
            files = sorted(glob.glob(os.path.join(written, "**", "*.dcm"), recursive=True))
            positions, spacings = {}, set()
            for ds in (pydicom.dcmread(f) for f in files):
                ds.pixel_array  # raises on a file pydicom cannot read
                positions[int(ds.InstanceNumber)] = np.array([float(v) for v in ds.ImagePositionPatient])
                spacings.add(tuple(round(float(v), 4) for v in ds.PixelSpacing))
            problems = ["%d fields, %d after the round trip" % (len(first), len(second))] \
                if len(first) != len(second) else []
            for a, b in zip(first, second):
                problems += problems_of(a, b, positions, spacings, len(first) == 1)
            failures += bool(problems)
            print("%s %s: %d files%s" % ("FAIL" if problems else "ok  ", series, len(files),
                                         "; " + "; ".join(problems) if problems else ""))
    finally:
        shutil.rmtree(work, ignore_errors=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
