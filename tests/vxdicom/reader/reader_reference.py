#!/usr/bin/python3
"""Prints, as JSON, what pydicom finds in DICOM image files (null: absent).

    reader_reference.py [--pixels] FILE...

Besides the attributes: unit row, column and normal directions, slicePosition
(normal . position), each frame's per-frame or shared Plane Position, and
obliqueAt003/020 (row, column or normal at least that far from every axis).
--pixels: the range of the first frame's uncompressed 16-bit samples masked
below High Bit, and for signed data sign-extended from the top stored bit.
"""
import json
import sys

import numpy as np
import pydicom

AXES = [np.array(v, dtype=float) for v in
        ((1, 0, 0), (-1, 0, 0), (0, 1, 0), (0, -1, 0), (0, 0, 1), (0, 0, -1))]


def floats(value):
    if value is None:
        return None
    if isinstance(value, (list, tuple, pydicom.multival.MultiValue)):
        return [float(v) for v in value]
    return float(value)


def unit(v):
    v = np.array(v, dtype=float)
    return v / np.linalg.norm(v) if np.linalg.norm(v) > 0 else v


def pixel_ranges(ds):
    if int(ds.BitsAllocated) != 16 or ds.file_meta.TransferSyntaxUID.is_compressed:
        return None
    raw = np.frombuffer(ds.PixelData, dtype="<u2" if ds.file_meta.TransferSyntaxUID.is_little_endian
                        else ">u2")
    raw = raw[:int(ds.Rows) * int(ds.Columns) * int(ds.get("SamplesPerPixel", 1))].astype(np.int64)
    stored = int(ds.BitsStored)
    masked = (raw >> (int(ds.HighBit) + 1 - stored)) & ((1 << stored) - 1)
    out = {"masked": [int(masked.min()), int(masked.max())]}
    if int(ds.PixelRepresentation) == 1:
        ext = np.where(masked >= (1 << (stored - 1)), masked - (1 << stored), masked)
        out["signExtended"] = [int(ext.min()), int(ext.max())]
    return out


def frame_positions(ds):
    out = []
    shared = list(ds.get("SharedFunctionalGroupsSequence", []))
    for item in ds.get("PerFrameFunctionalGroupsSequence", []):
        found = None
        for source in [item] + shared:
            planes = source.get("PlanePositionSequence")
            if planes and "ImagePositionPatient" in planes[0]:
                found = floats(planes[0].ImagePositionPatient)
                break
        out.append(found)
    return out


def describe(path, with_pixels):
    try:
        ds = pydicom.dcmread(path)
    except Exception:
        return None
    if "PixelData" not in ds or "Rows" not in ds:
        return None
    r = {
        "file": path,
        "frames": int(ds.get("NumberOfFrames", 1) or 1),
        "mosaic": "MOSAIC" in [str(v).upper() for v in ds.get("ImageType", [])],
        "framePositions": frame_positions(ds),
        "rows": int(ds.Rows),
        "columns": int(ds.Columns),
        "bitsAllocated": int(ds.BitsAllocated),
        "bitsStored": int(ds.get("BitsStored", 0) or 0),
        "signed": int(ds.get("PixelRepresentation", 0) or 0) != 0,
        "samplesPerPixel": int(ds.get("SamplesPerPixel", 1) or 1),
        "instanceNumber": int(ds.get("InstanceNumber", 0) or 0),
        "modality": str(ds.get("Modality", "")),
        "pixelSpacing": floats(ds.get("PixelSpacing")),
        "sliceThickness": floats(ds.get("SliceThickness")),
        "position": floats(ds.get("ImagePositionPatient")),
        "sliceLocationElement": floats(ds.get("SliceLocation")),
        "slope": floats(ds.get("RescaleSlope")),
        "intercept": floats(ds.get("RescaleIntercept")),
        "slicePosition": None, "obliqueAt003": False, "obliqueAt020": False,
    }
    iop = ds.get("ImageOrientationPatient")
    if iop is not None and len(iop) == 6:
        row, col = unit(floats(iop[:3])), unit(floats(iop[3:]))
        normal = unit(np.cross(row, col))
        r["rowDirection"], r["columnDirection"], r["normal"] = row.tolist(), col.tolist(), normal.tolist()
        for tol, key in ((0.03, "obliqueAt003"), (0.2, "obliqueAt020")):
            r[key] = not all(any(np.linalg.norm(v - a) < tol for a in AXES) for v in (row, col, normal))
        if r["position"] is not None and len(r["position"]) == 3:
            r["slicePosition"] = float(np.dot(normal, r["position"]))
    if with_pixels:
        r["pixels"] = pixel_ranges(ds)
    return r


if __name__ == "__main__":
    args = sys.argv[1:]
    with_pixels = bool(args) and args[0] == "--pixels"
    json.dump([d for d in (describe(p, with_pixels) for p in args[with_pixels:]) if d], sys.stdout)
