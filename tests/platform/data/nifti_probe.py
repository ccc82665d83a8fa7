"""NIfTI cross-checks with nibabel for the field file tests.

probe FILE [i,j,k[,t] ...]
    Prints JSON: the affine nibabel uses (sform if set, else qform), the
    qform and sform with their codes, the shape, the dtype, the voxel sizes
    and the values at the given indexes as nibabel reads them (scaled by
    scl_slope and scl_inter when those are set).

samples FILE N
    Prints JSON: N voxels of the first volume spread over the file, each as
    [x, y, z, value] with x, y, z the voxel's LPS position in mm (nibabel's
    RAS affine with x and y negated).

dicom-samples FILE...
    The same for DICOM images read with pydicom: a 5 x 5 grid of pixels of
    each file, placed by ImagePositionPatient, ImageOrientationPatient and
    PixelSpacing (LPS, mm), with their stored values.

make FILE KIND
    Writes a file made by nibabel, values i + 10 j + 100 k (int16):
    ras-diag       3 x 4 x 5, RAS affine diag(2, 3, 4), offset (-90, -126, -72),
                   sform and qform set.
    oblique-qform  2 x 3 x 2, qform only (sform code 0): 30 degrees about z,
                   voxel 1.5 x 2 x 2.5 mm, offset (10, 20, 30).
    scaled         2 x 2 x 2, identity affine, scl_slope 2, scl_inter -1.
"""
import json
import math
import struct
import sys

import nibabel as nib
import numpy as np


def probe(path, points):
    img = nib.load(path)
    hdr = img.header
    data = np.asanyarray(img.dataobj)
    qform, qcode = img.get_qform(coded=True)
    sform, scode = img.get_sform(coded=True)
    values = []
    for p in points:
        idx = tuple(int(v) for v in p.split(","))
        v = data[idx]
        if data.dtype.names:  # RGB24 and RGBA32 are structured
            values.append([int(v[n]) for n in data.dtype.names])
        else:
            values.append(v.item())
    out = {
        "affine": img.affine.tolist(),
        "qform": None if qform is None else qform.tolist(),
        "qform_code": int(qcode),
        "sform": None if sform is None else sform.tolist(),
        "sform_code": int(scode),
        "shape": list(data.shape),
        "dtype": str(data.dtype) if not data.dtype.names else "rgb",
        "zooms": [float(z) for z in hdr.get_zooms()],
        "xyzt_units": list(hdr.get_xyzt_units()),
        "descrip": hdr["descrip"].item().decode("latin-1"),
        "values": values,
    }
    print(json.dumps(out))


def samples(path, n):
    img = nib.load(path)
    data = np.asanyarray(img.dataobj)
    while data.ndim > 3:
        data = data[..., 0]
    shape = data.shape
    out = []
    rng = np.random.default_rng(20240607)
    for _ in range(n):
        idx = tuple(int(rng.integers(0, d)) for d in shape)
        ras = img.affine @ np.array([*idx, 1.0])
        out.append([-ras[0], -ras[1], ras[2], data[idx].item()])
    print(json.dumps(out))


def dicom_samples(paths):
    import pydicom

    out = []
    for p in paths:
        ds = pydicom.dcmread(p)
        ipp = np.array([float(v) for v in ds.ImagePositionPatient])
        iop = [float(v) for v in ds.ImageOrientationPatient]
        row_dir, col_dir = np.array(iop[:3]), np.array(iop[3:])
        row_spacing, col_spacing = (float(v) for v in ds.PixelSpacing)
        pixels = ds.pixel_array
        for r in np.linspace(0, ds.Rows - 1, 5).astype(int):
            for c in np.linspace(0, ds.Columns - 1, 5).astype(int):
                pos = ipp + c * col_spacing * row_dir + r * row_spacing * col_dir
                out.append([*pos.tolist(), pixels[r, c].item()])
    print(json.dumps(out))


def index_volume(shape, dtype=np.int16):
    i, j, k = np.meshgrid(*[np.arange(n) for n in shape], indexing="ij")
    return (i + 10 * j + 100 * k).astype(dtype)


def make(path, kind):
    if kind == "ras-diag":
        aff = np.diag([2.0, 3.0, 4.0, 1.0])
        aff[:3, 3] = [-90, -126, -72]
        img = nib.Nifti1Image(index_volume((3, 4, 5)), aff)
        img.set_qform(aff, code=1)
        img.set_sform(aff, code=2)
    elif kind == "oblique-qform":
        c, s = math.cos(math.radians(30)), math.sin(math.radians(30))
        rot = np.array([[c, -s, 0], [s, c, 0], [0, 0, 1]])
        aff = np.eye(4)
        aff[:3, :3] = rot @ np.diag([1.5, 2.0, 2.5])
        aff[:3, 3] = [10, 20, 30]
        img = nib.Nifti1Image(index_volume((2, 3, 2)), None)
        img.set_qform(aff, code=1)
        img.set_sform(None, code=0)
    elif kind == "scaled":
        img = nib.Nifti1Image(index_volume((2, 2, 2)), np.eye(4))
    else:
        raise SystemExit("unknown kind " + kind)
    nib.save(img, path)
    if kind == "scaled":
        # nibabel chooses its own scaling when it writes an array; set the
        # header's scl_slope and scl_inter (bytes 112 to 119) afterwards.
        with open(path, "r+b") as f:
            f.seek(112)
            f.write(struct.pack("<ff", 2.0, -1.0))


def main():
    if len(sys.argv) >= 3 and sys.argv[1] == "probe":
        probe(sys.argv[2], sys.argv[3:])
    elif len(sys.argv) == 4 and sys.argv[1] == "samples":
        samples(sys.argv[2], int(sys.argv[3]))
    elif len(sys.argv) >= 3 and sys.argv[1] == "dicom-samples":
        dicom_samples(sys.argv[2:])
    elif len(sys.argv) == 4 and sys.argv[1] == "make":
        make(sys.argv[2], sys.argv[3])
    else:
        raise SystemExit(__doc__)


if __name__ == "__main__":
    main()
