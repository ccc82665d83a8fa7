#!/usr/bin/python3
"""dicom3_check.py MANIFEST: pydicom's and nibabel's view of written files (each holding the
next samples of "raw") or dcm2niix volumes against the manifest; exit 1 on a difference."""
import json, os, sys

import numpy as np
import pydicom
from pydicom.filereader import data_element_generator


def group_lengths(path):
    """Bytes each group takes after its group length element, and what that element says."""
    taken, stated, starts = {}, {}, {}
    with open(path, "rb") as fp:
        fp.seek(132)
        for elem in data_element_generator(fp, False, True):
            group = elem.tag >> 16
            if elem.tag & 0xFFFF == 0:
                stated[group], starts[group] = int.from_bytes(elem.value, "little"), fp.tell()
            elif group in starts:
                taken[group] = fp.tell() - starts[group]
    return taken, stated


def files(entry, samples):
    offset, instances, first = 0, set(), None
    for k, path in enumerate(entry["files"]):
        try:
            ds = pydicom.dcmread(path)
            pixels = ds.pixel_array
        except Exception as e:
            sys.exit(f"{path}: pydicom cannot read it: {e}")
        expected = samples[offset:offset + pixels.size].reshape(pixels.shape)
        offset += pixels.size
        meta, first = ds.file_meta, first or (ds.SeriesInstanceUID, ds.StudyInstanceUID)
        instances.add(ds.SOPInstanceUID)
        yield (path, "bytes per group, as their group lengths say", *group_lengths(path))
        yield (path, "name, pixels, syntax, classes, modality, instance (from 0), shape, type, "
               "instance UID, series and study", [
                   os.path.basename(path), bool(np.array_equal(pixels.astype(np.int64), expected)),
                   str(meta.TransferSyntaxUID), str(meta.MediaStorageSOPClassUID),
                   str(ds.SOPClassUID), str(ds.Modality), str(ds.InstanceNumber),
                   list(pixels.shape), str(pixels.dtype), str(meta.MediaStorageSOPInstanceUID),
                   (ds.SeriesInstanceUID, ds.StudyInstanceUID)],
               [f"IM{k + 1:05d}.dcm", True, "1.2.840.10008.1.2.1", entry["sopClass"],
                entry["sopClass"], entry["modality"], str(k), entry["shape"], entry["dtype"],
                str(ds.SOPInstanceUID), first])
    yield (entry["raw"], "samples left over, own instance UIDs",
           [samples.size - offset, len(instances)], [0, len(entry["files"])])


def nifti(entry, samples):
    import nibabel
    image = nibabel.load(entry["nifti"])
    data = np.asanyarray(image.dataobj).astype(np.int64)
    c, r, s = entry["shape"]
    # Rows run the other way in NIfTI's frame.
    yield (entry["nifti"], "shape, samples, zooms, affine", [
        list(data.shape), data.shape == (c, r, s) and bool(np.array_equal(
            data[:, ::-1, :].transpose(2, 1, 0), samples.reshape(s, r, c))),
        [float(z) for z in image.header.get_zooms()], np.round(image.affine[:3], 5).tolist()],
        [entry["shape"], True, entry["zooms"], entry["affine"]])


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    failures = []
    for entry in json.load(open(sys.argv[1])):
        samples = np.fromfile(entry["raw"], dtype=np.dtype(entry["dtype"])).astype(np.int64)
        for name, what, seen, expected in (nifti if "nifti" in entry else files)(entry, samples):
            if seen != expected:
                failures.append(f"{name}: {what}: {seen!r}, expected {expected!r}")
        print(entry.get("nifti") or entry["raw"])
    sys.exit("\n".join(failures) if failures else 0)
