#!/usr/bin/python3
"""pydicom's view of files for the DICOM writer tests.

check DTYPE RAW FILE...
    Reads every FILE with pydicom (strictly: no force) and compares its pixel
    array with the samples in RAW, which holds one slice per FILE in order
    (DTYPE: a numpy type name such as uint8, int16, uint16). Prints one JSON
    object per file with the attributes the tests look at. Exits 1 with a
    message on the first file that cannot be read or whose pixels differ.

nifti NII DTYPE RAW COLUMNS ROWS SLICES
    Loads a NIfTI file made from written files (by dcm2niix) with nibabel and
    prints one JSON object with its shape, voxel size and affine, and whether
    its samples equal RAW read as a volume of SLICES x ROWS x COLUMNS (rows
    run the other way in NIfTI's frame).

extract OUT FILE...
    Writes the stored pixel values of every FILE to OUT, slice after slice, as
    uint16 or int16 (whichever the first file uses), and prints one JSON
    object with rows, columns and that type.
"""

import json
import sys

import numpy as np
import pydicom


def text(ds, keyword):
    value = ds.get(keyword)
    return None if value is None else str(value)


def check(dtype, raw, files):
    samples = np.fromfile(raw, dtype=np.dtype(dtype))
    offset = 0
    for path in files:
        try:
            ds = pydicom.dcmread(path)
            pixels = ds.pixel_array
        except Exception as e:  # report which file and why
            print(f"{path}: pydicom cannot read it: {e}", file=sys.stderr)
            return 1
        count = pixels.size
        expected = samples[offset:offset + count].reshape(pixels.shape)
        offset += count
        if not np.array_equal(pixels.astype(np.int64), expected.astype(np.int64)):
            diff = np.argwhere(pixels.astype(np.int64) != expected.astype(np.int64))[0]
            print(f"{path}: pixel {tuple(diff)} is {pixels[tuple(diff)]}, "
                  f"expected {expected[tuple(diff)]}", file=sys.stderr)
            return 1
        print(json.dumps({
            "file": path,
            "transferSyntax": str(ds.file_meta.TransferSyntaxUID),
            "mediaClass": text(ds.file_meta, "MediaStorageSOPClassUID"),
            "mediaInstance": text(ds.file_meta, "MediaStorageSOPInstanceUID"),
            "sopClass": text(ds, "SOPClassUID"),
            "sopInstance": text(ds, "SOPInstanceUID"),
            "series": text(ds, "SeriesInstanceUID"),
            "study": text(ds, "StudyInstanceUID"),
            "modality": text(ds, "Modality"),
            "instance": text(ds, "InstanceNumber"),
            "shape": list(pixels.shape),
            "dtype": str(pixels.dtype),
        }))
    if offset != samples.size:
        print(f"{samples.size - offset} expected samples left over", file=sys.stderr)
        return 1
    return 0


def extract(out, files):
    slices = [pydicom.dcmread(path).pixel_array for path in files]
    dtype = slices[0].dtype
    if dtype not in (np.uint16, np.int16):
        print(f"{files[0]}: {dtype} samples, 16-bit expected", file=sys.stderr)
        return 1
    np.concatenate([s.astype(dtype).ravel() for s in slices]).tofile(out)
    print(json.dumps({"rows": int(slices[0].shape[0]), "columns": int(slices[0].shape[1]),
                      "dtype": str(dtype)}))
    return 0


def nifti(path, dtype, raw, columns, rows, slices):
    import nibabel
    image = nibabel.load(path)
    data = np.asanyarray(image.dataobj)
    expected = np.fromfile(raw, dtype=np.dtype(dtype)).reshape(slices, rows, columns)
    same = data.shape == (columns, rows, slices) and np.array_equal(
        data[:, ::-1, :].transpose(2, 1, 0).astype(np.int64), expected.astype(np.int64))
    print(json.dumps({"shape": list(data.shape),
                      "zooms": [float(z) for z in image.header.get_zooms()],
                      "affine": [[float(v) for v in row] for row in image.affine[:3]],
                      "samplesEqual": bool(same)}))
    return 0


def main(argv):
    if len(argv) == 8 and argv[1] == "nifti":
        return nifti(argv[2], argv[3], argv[4], int(argv[5]), int(argv[6]), int(argv[7]))
    if len(argv) >= 4 and argv[1] == "check":
        return check(argv[2], argv[3], argv[4:])
    if len(argv) >= 4 and argv[1] == "extract":
        return extract(argv[2], argv[3:])
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
