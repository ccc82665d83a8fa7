#!/usr/bin/python3
"""Prints, as JSON, what pydicom finds in DICOM files for the image record.

    reader_reference.py [--pixels] FILE...

One object per file that pydicom reads as an image (files without pixel data,
DICOMDIRs and non-DICOM files are left out):
  file, frames, rows, columns, bitsAllocated, bitsStored, highBit, signed,
  samplesPerPixel, planarConfig, instanceNumber, modality,
  pixelSpacing [row, column] (null when absent), sliceThickness (null),
  spacingBetweenSlices (null), position (null), rowDirection, columnDirection,
  normal (null without an orientation; unit vectors), slicePosition (the
  distance of the position along the normal: normal . position; null without
  both), sliceLocationElement ((0020,1041), null), slope, intercept (null when
  absent), tilt ((0018,1120), null), patientName,
  obliqueAt003 / obliqueAt020: whether row, column or normal is at least that
  Euclidean distance from every one of the six axis directions.
With --pixels also: the minimum and maximum stored value of the first frame,
masked to Bits Stored below High Bit ("masked") and, for signed data, that
value sign-extended from its top stored bit ("signExtended").
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
    n = np.linalg.norm(v)
    return v / n if n > 0 else v


def near_axis(v, tol):
    return any(np.linalg.norm(v - a) < tol for a in AXES)


def pixel_ranges(ds):
    bits = int(ds.BitsAllocated)
    if bits != 16:
        return None
    raw = np.frombuffer(ds.PixelData, dtype="<u2" if ds.file_meta.TransferSyntaxUID.is_little_endian
                        else ">u2")
    frame = int(ds.Rows) * int(ds.Columns) * int(ds.get("SamplesPerPixel", 1))
    raw = raw[:frame].astype(np.int64)
    stored = int(ds.BitsStored)
    high = int(ds.HighBit)
    masked = (raw >> (high + 1 - stored)) & ((1 << stored) - 1)
    out = {"masked": [int(masked.min()), int(masked.max())]}
    if int(ds.PixelRepresentation) == 1:
        ext = np.where(masked >= (1 << (stored - 1)), masked - (1 << stored), masked)
        out["signExtended"] = [int(ext.min()), int(ext.max())]
    return out


def frame_positions(ds):
    """Image Position (Patient) of every frame of an enhanced object: its
    Per-frame Functional Groups item, else the Shared one (PS3.3 C.7.6.16)."""
    out = []
    shared = ds.get("SharedFunctionalGroupsSequence")
    for item in ds.get("PerFrameFunctionalGroupsSequence", []):
        found = None
        for source in [item] + (list(shared) if shared else []):
            planes = source.get("PlanePositionSequence")
            if planes and "ImagePositionPatient" in planes[0]:
                found = [float(v) for v in planes[0].ImagePositionPatient]
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
        "highBit": int(ds.get("HighBit", -1)),
        "signed": int(ds.get("PixelRepresentation", 0) or 0) != 0,
        "samplesPerPixel": int(ds.get("SamplesPerPixel", 1) or 1),
        "planarConfig": int(ds.get("PlanarConfiguration", 0) or 0),
        "instanceNumber": int(ds.get("InstanceNumber", 0) or 0),
        "modality": str(ds.get("Modality", "")),
        "pixelSpacing": floats(ds.get("PixelSpacing")),
        "sliceThickness": floats(ds.get("SliceThickness")),
        "spacingBetweenSlices": floats(ds.get("SpacingBetweenSlices")),
        "position": floats(ds.get("ImagePositionPatient")),
        "sliceLocationElement": floats(ds.get("SliceLocation")),
        "slope": floats(ds.get("RescaleSlope")),
        "intercept": floats(ds.get("RescaleIntercept")),
        "tilt": floats(ds.get("GantryDetectorTilt")),
        "patientName": str(ds.get("PatientName", "")),
        "rowDirection": None, "columnDirection": None, "normal": None,
        "slicePosition": None, "obliqueAt003": False, "obliqueAt020": False,
    }
    iop = ds.get("ImageOrientationPatient")
    if iop is not None and len(iop) == 6:
        row, col = unit(floats(iop[:3])), unit(floats(iop[3:]))
        normal = unit(np.cross(row, col))
        r["rowDirection"], r["columnDirection"], r["normal"] = (
            row.tolist(), col.tolist(), normal.tolist())
        for tol, key in ((0.03, "obliqueAt003"), (0.2, "obliqueAt020")):
            r[key] = not all(near_axis(v, tol) for v in (row, col, normal))
        if r["position"] is not None and len(r["position"]) == 3:
            r["slicePosition"] = float(np.dot(normal, r["position"]))
    if with_pixels:
        r["pixels"] = pixel_ranges(ds)
    return r


def main():
    args = sys.argv[1:]
    with_pixels = False
    if args and args[0] == "--pixels":
        with_pixels = True
        args = args[1:]
    out = [d for d in (describe(p, with_pixels) for p in args) if d is not None]
    json.dump(out, sys.stdout)
    return 0


if __name__ == "__main__":
    sys.exit(main())
