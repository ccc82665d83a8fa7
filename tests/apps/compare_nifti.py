#!/usr/bin/python3
"""compare_nifti.py A B [--scaled]: each voxel of A, placed by its affine, lands on a voxel centre of B
(0.01 mm) of the same value in every volume (nibabel); the same scaling too, unless --scaled: then
only the scaled values count. Status 0 equal, 1 different, 77 without nibabel."""
import sys

try:
    import nibabel as nib, numpy as np
except ImportError:
    sys.exit(77)


def main(a, b, scaled=False):
    a, b = nib.load(a), nib.load(b)
    da, db = np.asarray(a.dataobj), np.asarray(b.dataobj)
    if da.shape[3:] != db.shape[3:] or sorted(da.shape[:3]) != sorted(db.shape[:3]):
        return "shapes differ: %s and %s" % (da.shape, db.shape)
    if not scaled and (a.dataobj.slope, a.dataobj.inter) != (b.dataobj.slope, b.dataobj.inter):
        return "scaling differs"
    ijk = np.indices(da.shape[:3]).reshape(3, -1)
    other = np.linalg.inv(b.affine) @ a.affine @ np.vstack([ijk, np.ones(ijk.shape[1])])
    nearest = np.rint(other[:3]).astype(int)
    if np.abs(b.affine[:3, :3] @ (other[:3] - nearest)).max() > 0.01:
        return "voxel centres of A miss those of B"
    if nearest.min() < 0 or any(nearest[k].max() >= db.shape[k] for k in range(3)):
        return "A reaches outside B"
    differ = np.count_nonzero(da.reshape(-1, *da.shape[3:]) != db[nearest[0], nearest[1], nearest[2]])
    if differ:
        return "%d of %d samples differ" % (differ, da.size)
    print("equal: %d voxels of %s" % (ijk.shape[1], da.shape))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], "--scaled" in sys.argv[3:]))
