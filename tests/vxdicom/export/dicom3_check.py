#!/usr/bin/python3
"""dicom3_check.py MANIFEST: pydicom's and nibabel's view of written files.

MANIFEST lists {"dtype", "raw", "files"}: each file, read by pydicom without
force, must hold the next samples of raw; one JSON line per file. An entry
{"nifti", "dtype", "raw", "dims"} (a dcm2niix volume) gives one JSON line.
"""

import json
import sys

import numpy as np
import pydicom


def files(entry):
    samples = np.fromfile(entry["raw"], dtype=np.dtype(entry["dtype"]))
    offset = 0
    for path in entry["files"]:
        try:
            ds = pydicom.dcmread(path)
            pixels = ds.pixel_array
        except Exception as e:  # report which file and why
            sys.exit(f"{path}: pydicom cannot read it: {e}")
        expected = samples[offset:offset + pixels.size].reshape(pixels.shape)
        offset += pixels.size
        if not np.array_equal(pixels.astype(np.int64), expected.astype(np.int64)):
            sys.exit(f"{path}: pixels differ from the samples written")
        text = lambda d, k: None if d.get(k) is None else str(d.get(k))
        print(json.dumps({
            "file": path, "transferSyntax": str(ds.file_meta.TransferSyntaxUID),
            "mediaClass": text(ds.file_meta, "MediaStorageSOPClassUID"),
            "mediaInstance": text(ds.file_meta, "MediaStorageSOPInstanceUID"),
            "sopClass": text(ds, "SOPClassUID"), "sopInstance": text(ds, "SOPInstanceUID"),
            "series": text(ds, "SeriesInstanceUID"), "study": text(ds, "StudyInstanceUID"),
            "modality": text(ds, "Modality"), "instance": text(ds, "InstanceNumber"),
            "shape": list(pixels.shape), "dtype": str(pixels.dtype)}))
    if offset != samples.size:
        sys.exit(f"{entry['raw']}: {samples.size - offset} samples left over")


def nifti(entry):
    import nibabel
    image = nibabel.load(entry["nifti"])
    data = np.asanyarray(image.dataobj)
    c, r, s = entry["dims"]
    expected = np.fromfile(entry["raw"], dtype=np.dtype(entry["dtype"])).reshape(s, r, c)
    # Rows run the other way in NIfTI's frame.
    same = data.shape == (c, r, s) and np.array_equal(
        data[:, ::-1, :].transpose(2, 1, 0).astype(np.int64), expected.astype(np.int64))
    print(json.dumps({"file": entry["nifti"], "shape": list(data.shape),
                      "zooms": [float(z) for z in image.header.get_zooms()],
                      "affine": [[float(v) for v in row] for row in image.affine[:3]],
                      "samplesEqual": bool(same)}))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    for entry in json.load(open(sys.argv[1])):
        nifti(entry) if "nifti" in entry else files(entry)
