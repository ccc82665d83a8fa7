#!/usr/bin/python3
"""Loads synthetic series of every orientation with vxdicom and compares the
fields with dcm2niix's volumes voxel by voxel (compare_dcm2niix.py).

    series_geometry.py --vxdicom BIN [--keep DIR]

The series are written by tests/support/make_series.py: every orientation it
offers, with a non-square pixel (0.8 mm between columns, 1.1 mm between rows)
and in reversed file-name order, plus square-pixel CT and MR series; both
tools read the very same files. Exit status 77 (skip) when dcm2niix is not
installed.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_SERIES = os.path.join(HERE, "..", "..", "support", "make_series.py")
COMPARE = os.path.join(HERE, "..", "geometry", "compare_dcm2niix.py")
ORIENTATIONS = ["axial", "coronal", "sagittal", "axial-rev", "coronal-rev", "sagittal-rev",
                "axial-rot", "axial-tilt", "sagittal-tilt", "oblique"]


def make(outdir, *args):
    subprocess.run([sys.executable, MAKE_SERIES, outdir, "--rows", "24", "--columns", "20",
                    "--slices", "6"] + list(args), check=True, capture_output=True)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--keep", help="write the series and outputs into this folder")
    args = ap.parse_args()
    if not shutil.which("dcm2niix"):
        print("SKIP: dcm2niix is not installed")
        return 77

    work = args.keep or tempfile.mkdtemp(prefix="vxseries-")
    try:
        series = []
        for o in ORIENTATIONS:
            d = os.path.join(work, "series", o)
            make(d, "--orientation", o, "--spacing", "0.8", "--row-spacing", "1.1",
                 "--thickness", "2.0")
            series.append(d)
            d = os.path.join(work, "series", o + "-reversed-names")
            make(d, "--orientation", o, "--spacing", "0.8", "--row-spacing", "1.1",
                 "--thickness", "2.0", "--name-order", "reverse")
            series.append(d)
        for modality in ("CT", "MR"):
            d = os.path.join(work, "series", "square-" + modality)
            make(d, "--modality", modality, "--spacing", "0.7", "--thickness", "1.25",
                 "--origin=-7.35,20.5,-101.25")
            series.append(d)
        # Non-square pixels (rows 1.1 mm apart, columns 0.8 mm) in every
        # orientation, against dcm2niix on the very same files.
        r = subprocess.run([sys.executable, COMPARE, "--vxdicom", args.vxdicom,
                            "--work", os.path.join(work, "compare")] +
                           series)
        return r.returncode
    finally:
        if not args.keep:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
