"""nibabel's and pydicom's view of files as [x, y, z (LPS mm), value] samples: probe FILE [N],
dicom FILE... (5 x 5 of each), make FILE KIND (nibabel writes i + 10 j + 100 k)."""
import json, math, struct, sys

import nibabel as nib
import numpy as np


def value(v):
    if v.dtype.names:
        r, g, b = (int(v[n]) for n in v.dtype.names[:3])
        return r * 65536 + g * 256 + b
    return v.item()


def probe(path, n=60):
    img = nib.load(path)
    hdr, data = img.header, np.asanyarray(img.dataobj)
    (qform, qcode), (sform, scode) = img.get_qform(coded=True), img.get_sform(coded=True)
    first = data[(...,) + (0,) * (data.ndim - 3)]
    rng = np.random.default_rng(20240607)
    idxs = [tuple(int(rng.integers(0, d)) for d in first.shape) for _ in range(int(n))]
    ras = [img.affine @ np.array([*i, 1.0]) for i in idxs]
    print(json.dumps({"qform_code": int(qcode), "sform_code": int(scode),
                      "qform_is_sform": qform is not None and sform is not None
                      and bool(np.allclose(qform, sform, atol=1e-4)),
                      "zooms": [float(z) for z in hdr.get_zooms()],
                      "dtype": "rgb" if data.dtype.names else str(data.dtype),
                      "units": list(hdr.get_xyzt_units()),
                      "samples": [[-r[0], -r[1], r[2], value(first[i])] for r, i in zip(ras, idxs)]}))


def dicom(*paths):
    import pydicom

    samples = []
    for ds in map(pydicom.dcmread, paths):
        ipp = np.array([float(v) for v in ds.ImagePositionPatient])
        iop = np.array([float(v) for v in ds.ImageOrientationPatient])
        row_spacing, col_spacing = (float(v) for v in ds.PixelSpacing)
        for r in np.linspace(0, ds.Rows - 1, 5).astype(int):
            for c in np.linspace(0, ds.Columns - 1, 5).astype(int):
                pos = ipp + c * col_spacing * iop[:3] + r * row_spacing * iop[3:]
                samples.append([*pos.tolist(), ds.pixel_array[r, c].item()])
    print(json.dumps({"samples": samples}))


def make(path, kind):  # sform and qform, qform only at 30 degrees about z, or scaled (x 2 - 1)
    c, s = math.cos(math.radians(30)), math.sin(math.radians(30))
    shape, aff, origin, qcode, scode = {
        "ras-diag": ((3, 4, 5), np.diag([2.0, 3.0, 4.0]), [-90, -126, -72], 1, 2),
        "oblique-qform": ((2, 3, 2), np.array([[c, -s, 0], [s, c, 0], [0, 0, 1]])
                          @ np.diag([1.5, 2.0, 2.5]), [10, 20, 30], 1, 0),
        "scaled": ((2, 2, 2), np.eye(3), [0, 0, 0], 0, 2)}[kind]
    affine = np.eye(4)
    affine[:3, :3], affine[:3, 3] = aff, origin
    img = nib.Nifti1Image(np.fromfunction(lambda i, j, k: i + 10 * j + 100 * k, shape)
                          .astype(np.int16), None)
    img.set_qform(affine if qcode else None, code=qcode)
    img.set_sform(affine if scode else None, code=scode)
    nib.save(img, path)
    if kind == "scaled":  # nibabel picks its own scaling; set scl_slope, scl_inter after
        with open(path, "r+b") as f:
            f.seek(112)
            f.write(struct.pack("<ff", 2.0, -1.0))


if __name__ == "__main__":
    {"probe": probe, "dicom": dicom, "make": make}[sys.argv[1]](*sys.argv[2:])
