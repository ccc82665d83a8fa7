#!/usr/bin/python3
"""dicom3_check.py MANIFEST: pydicom's and nibabel's view of written files against what the
manifest expects; one line per entry, exit 1 with the differences. Entries: {"files", "raw",
"dtype", "shape", "sopClass", "modality"} (each file, read without force, holds the next samples
of raw) or a dcm2niix volume {"nifti", "raw", "dtype", "shape", "zooms", "affine"}."""

import json
import os
import sys

import numpy as np
import pydicom

EXPLICIT_LE = "1.2.840.10008.1.2.1"

def files(entry, fail):
    samples = np.fromfile(entry["raw"], dtype=np.dtype(entry["dtype"]))
    offset, instances, first = 0, set(), None
    for k, path in enumerate(entry["files"]):
        try:
            ds = pydicom.dcmread(path)
            pixels = ds.pixel_array
        except Exception as e:
            sys.exit(f"{path}: pydicom cannot read it: {e}")
        expected = samples[offset:offset + pixels.size].reshape(pixels.shape)
        offset += pixels.size
        fail(path, "pixels equal", bool(np.array_equal(pixels.astype(np.int64), expected.astype(np.int64))), True)
        fail(path, "sorted name", os.path.basename(path), f"IM{k + 1:05d}.dcm")
        meta, ids = ds.file_meta, (ds.SeriesInstanceUID, ds.StudyInstanceUID)
        first = first or ids
        seen = [str(meta.TransferSyntaxUID), str(meta.MediaStorageSOPClassUID), str(ds.SOPClassUID),
                str(ds.Modality), str(ds.InstanceNumber), list(pixels.shape), str(pixels.dtype),
                str(meta.MediaStorageSOPInstanceUID), ids]
        fail(path, "syntax, classes, modality, instance (from 0), shape, type, instance UID, "
             "series and study", seen, [EXPLICIT_LE, entry["sopClass"], entry["sopClass"],
             entry["modality"], str(k), entry["shape"], entry["dtype"], str(ds.SOPInstanceUID), first])
        instances.add(ds.SOPInstanceUID)
    fail(entry["raw"], "samples left over", samples.size - offset, 0)
    fail(entry["raw"], "own SOP instance UIDs", len(instances), len(entry["files"]))


def nifti(entry, fail):
    import nibabel
    image = nibabel.load(entry["nifti"])
    data = np.asanyarray(image.dataobj)
    c, r, s = entry["shape"]
    expected = np.fromfile(entry["raw"], dtype=np.dtype(entry["dtype"])).reshape(s, r, c)
    fail(entry["nifti"], "shape", list(data.shape), entry["shape"])
    # Rows run the other way in NIfTI's frame.
    fail(entry["nifti"], "samples equal", data.shape == (c, r, s) and bool(np.array_equal(
        data[:, ::-1, :].transpose(2, 1, 0).astype(np.int64), expected.astype(np.int64))), True)
    fail(entry["nifti"], "zooms", [float(z) for z in image.header.get_zooms()], entry["zooms"])
    fail(entry["nifti"], "affine", np.round(image.affine[:3], 5).tolist(), entry["affine"])


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    failures = []
    for entry in json.load(open(sys.argv[1])):
        def fail(name, what, seen, expected):
            if seen != expected:
                failures.append(f"{name}: {what}: {seen!r}, expected {expected!r}")
        nifti(entry, fail) if "nifti" in entry else files(entry, fail)
        print(entry.get("nifti") or entry["raw"])
    sys.exit("\n".join(failures) if failures else 0)
