"""nibabel's and pydicom's view of files, for the field file tests.

probe FILE N [i,j,k[,t] ...]: header facts, the values at the indexes, and N
    voxels of the first volume as [x, y, z, value], x, y, z in LPS mm (RGB as
    r * 65536 + g * 256 + b; values scaled by scl_slope and scl_inter).
dicom FILE...: the same samples of DICOM images (a 5 x 5 grid of each).
make FILE KIND: nibabel writes i + 10 j + 100 k (int16) as ras-diag (3x4x5,
    diag(2, 3, 4)), oblique-qform (2x3x2, qform only, 30 degrees about z) or
    scaled (2x2x2, scl_slope 2, scl_inter -1).
"""
import json
import math
import struct
import sys

import nibabel as nib
import numpy as np


def value(v):
    if v.dtype.names:
        r, g, b = (int(v[n]) for n in v.dtype.names[:3])
        return r * 65536 + g * 256 + b
    return v.item()


def probe(path, n, points):
    img = nib.load(path)
    hdr, data = img.header, np.asanyarray(img.dataobj)
    qform, qcode = img.get_qform(coded=True)
    sform, scode = img.get_sform(coded=True)
    first = data[(...,) + (0,) * (data.ndim - 3)] if data.ndim > 3 else data
    rng = np.random.default_rng(20240607)
    samples = []
    for _ in range(n):
        idx = tuple(int(rng.integers(0, d)) for d in first.shape)
        ras = img.affine @ np.array([*idx, 1.0])
        samples.append([-ras[0], -ras[1], ras[2], value(first[idx])])
    same = qform is not None and sform is not None and bool(np.allclose(qform, sform, atol=1e-4))
    print(json.dumps({"qform_code": int(qcode), "sform_code": int(scode), "qform_is_sform": same,
                      "shape": list(data.shape), "zooms": [float(z) for z in hdr.get_zooms()],
                      "dtype": "rgb" if data.dtype.names else str(data.dtype),
                      "units": list(hdr.get_xyzt_units()),
                      "descrip": hdr["descrip"].item().decode("latin-1"),
                      "values": [value(data[tuple(int(v) for v in p.split(","))]) for p in points],
                      "samples": samples}))


def dicom(paths):
    import pydicom

    samples = []
    for p in paths:
        ds = pydicom.dcmread(p)
        ipp = np.array([float(v) for v in ds.ImagePositionPatient])
        iop = [float(v) for v in ds.ImageOrientationPatient]
        row_spacing, col_spacing = (float(v) for v in ds.PixelSpacing)
        for r in np.linspace(0, ds.Rows - 1, 5).astype(int):
            for c in np.linspace(0, ds.Columns - 1, 5).astype(int):
                pos = ipp + c * col_spacing * np.array(iop[:3]) + r * row_spacing * np.array(iop[3:])
                samples.append([*pos.tolist(), ds.pixel_array[r, c].item()])
    print(json.dumps({"samples": samples}))


def make(path, kind):
    shape = {"ras-diag": (3, 4, 5), "oblique-qform": (2, 3, 2), "scaled": (2, 2, 2)}[kind]
    i, j, k = np.meshgrid(*[np.arange(n) for n in shape], indexing="ij")
    data = (i + 10 * j + 100 * k).astype(np.int16)
    if kind == "ras-diag":
        aff = np.diag([2.0, 3.0, 4.0, 1.0])
        aff[:3, 3] = [-90, -126, -72]
        img = nib.Nifti1Image(data, aff)
        img.set_qform(aff, code=1)
        img.set_sform(aff, code=2)
    elif kind == "oblique-qform":
        c, s = math.cos(math.radians(30)), math.sin(math.radians(30))
        aff = np.eye(4)
        aff[:3, :3] = np.array([[c, -s, 0], [s, c, 0], [0, 0, 1]]) @ np.diag([1.5, 2.0, 2.5])
        aff[:3, 3] = [10, 20, 30]
        img = nib.Nifti1Image(data, None)
        img.set_qform(aff, code=1)
        img.set_sform(None, code=0)
    else:
        img = nib.Nifti1Image(data, np.eye(4))
    nib.save(img, path)
    if kind == "scaled":  # nibabel picks its own scaling; set scl_slope, scl_inter after
        with open(path, "r+b") as f:
            f.seek(112)
            f.write(struct.pack("<ff", 2.0, -1.0))


if __name__ == "__main__":
    a = sys.argv
    if len(a) >= 4 and a[1] == "probe":
        probe(a[2], int(a[3]), a[4:])
    elif len(a) >= 3 and a[1] == "dicom":
        dicom(a[2:])
    elif len(a) == 4 and a[1] == "make":
        make(a[2], a[3])
    else:
        raise SystemExit(__doc__)
