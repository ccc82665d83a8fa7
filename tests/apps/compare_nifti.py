#!/usr/bin/python3
"""Compares two NIfTI files voxel by voxel in world space (nibabel).

    compare_nifti.py A.nii[.gz] B.nii[.gz] [--tolerance-mm T]

Every voxel of A is placed in the world with A's affine and looked up in B
with B's inverse affine; the two must land on a voxel centre (within T mm,
default 0.01) and hold the same value, for every volume of a 4D file. So two
tools that store the same volume with different axis directions compare
equal. Exit status 0 when equal, 1 with the first differences printed, 77
when nibabel is missing.
"""
import argparse
import sys

try:
    import nibabel as nib
    import numpy as np
except ImportError:
    sys.exit(77)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("a")
    ap.add_argument("b")
    ap.add_argument("--tolerance-mm", type=float, default=0.01)
    args = ap.parse_args()
    a, b = nib.load(args.a), nib.load(args.b)
    da, db = np.asarray(a.dataobj), np.asarray(b.dataobj)
    if da.shape[3:] != db.shape[3:] or da.ndim != db.ndim:
        print("shapes differ: %s and %s" % (da.shape, db.shape))
        return 1
    if sorted(da.shape[:3]) != sorted(db.shape[:3]):
        print("3D sizes differ: %s and %s" % (da.shape[:3], db.shape[:3]))
        return 1
    ijk = np.indices(da.shape[:3]).reshape(3, -1)
    world = a.affine @ np.vstack([ijk, np.ones(ijk.shape[1])])
    other = np.linalg.inv(b.affine) @ world
    nearest = np.rint(other[:3]).astype(int)
    offset_mm = np.abs(b.affine[:3, :3] @ (other[:3] - nearest)).max()
    if offset_mm > args.tolerance_mm:
        print("voxel centres of A miss those of B by %.4f mm" % offset_mm)
        return 1
    for axis in range(3):
        if nearest[axis].min() < 0 or nearest[axis].max() >= db.shape[axis]:
            print("A reaches outside B along B's axis %d" % axis)
            return 1
    va = da.reshape(-1, *da.shape[3:]) if da.ndim > 3 else da.reshape(-1)
    vb = db[nearest[0], nearest[1], nearest[2]]
    slope = a.dataobj.slope, a.dataobj.inter, b.dataobj.slope, b.dataobj.inter
    if slope[0] != slope[2] or slope[1] != slope[3]:
        print("scaling differs: A %s %s, B %s %s" % slope)
        return 1
    differ = np.argwhere(va != vb)
    if len(differ):
        print("%d of %d samples differ; first at A voxel %s: %s vs %s"
              % (len(differ), va.size, np.unravel_index(differ[0][0], da.shape[:3]),
                 va[tuple(differ[0])], vb[tuple(differ[0])]))
        return 1
    print("equal: %d voxels of %s" % (ijk.shape[1], da.shape))
    return 0


if __name__ == "__main__":
    sys.exit(main())
