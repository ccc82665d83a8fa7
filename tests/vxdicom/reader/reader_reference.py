#!/usr/bin/python3
"""pydicom's view of DICOM image files as JSON: the record under our image record's names, frame
positions, and the masked (and sign-extended) range of uncompressed 16-bit samples."""
import json, sys

import numpy as np
import pydicom

AXES = np.vstack([np.eye(3), -np.eye(3)])


def pixel_ranges(ds):
    if int(ds.BitsAllocated) != 16 or ds.file_meta.TransferSyntaxUID.is_compressed:
        return None
    raw = np.frombuffer(ds.PixelData, dtype="<u2" if ds.file_meta.TransferSyntaxUID.is_little_endian else ">u2")
    raw = raw[:int(ds.Rows) * int(ds.Columns) * int(ds.get("SamplesPerPixel", 1))].astype(np.int64)
    stored = int(ds.BitsStored)
    masked = (raw >> (int(ds.HighBit) + 1 - stored)) & ((1 << stored) - 1)
    out = {"masked": [int(masked.min()), int(masked.max())]}
    if int(ds.PixelRepresentation) == 1:
        ext = np.where(masked >= (1 << (stored - 1)), masked - (1 << stored), masked)
        out["signExtended"] = [int(ext.min()), int(ext.max())]
    return out


def record(ds):
    """Oblique: an axis 0.03 or more from every axis; unsigned 12-bit CT unrescaled stores HU + 1000."""
    g = lambda key, default=0: float(ds.get(key, default) or default)
    signed, bits = g("PixelRepresentation") != 0, int(g("BitsAllocated"))
    slope, intercept = g("RescaleSlope", 1), g("RescaleIntercept")
    ct_rule = str(ds.get("Modality", "")).upper() == "CT" and not signed and g("BitsStored") == 12 \
        and slope == 1 and intercept == 0
    r = {"width": g("Columns"), "height": g("Rows"), "bitsStored": g("BitsStored"),
         "samplesPerPixel": g("SamplesPerPixel", 1), "bytesPerSample": (bits + 7) // 8,
         "isSigned": signed, "imageNumber": g("InstanceNumber"), "sliceThickness": g("SliceThickness", 10),
         "dataSize": g("Rows") * g("Columns") * g("SamplesPerPixel", 1) * ((bits + 7) // 8),
         "rescaleSlope": slope, "rescaleIntercept": -1000 if ct_rule else intercept}
    if "PixelSpacing" in ds:
        r["rowSpacing"], r["columnSpacing"] = (float(v) for v in ds.PixelSpacing)
    position = ds.get("ImagePositionPatient")
    r["hasPosition"] = position is not None and len(position) == 3
    iop = [float(v) for v in ds.get("ImageOrientationPatient", [])]
    axes = {}
    if len(iop) == 6:
        row, col = np.array(iop[:3]) / np.linalg.norm(iop[:3]), np.array(iop[3:]) / np.linalg.norm(iop[3:])
        axes = {"row": row, "column": col, "normal": np.cross(row, col) / np.linalg.norm(np.cross(row, col))}
        r["oblique"] = not all(min(np.linalg.norm(v - AXES, axis=1)) < 0.03 for v in axes.values())
        if r["hasPosition"]:
            r["sliceLocation"] = float(np.dot(axes["normal"], [float(v) for v in position]))
    if r["hasPosition"]:
        axes["position"] = [float(v) for v in position]
    for name, v in axes.items():
        r.update({name + str(k): v[k] for k in range(3)})
    return {k: float(v) for k, v in r.items()}


def describe(path):
    try:
        ds = pydicom.dcmread(path)
    except Exception:
        return None
    if "PixelData" not in ds or "Rows" not in ds:
        return None
    shared = list(ds.get("SharedFunctionalGroupsSequence", []))
    positions = []
    for item in ds.get("PerFrameFunctionalGroupsSequence", []):
        planes = [s.PlanePositionSequence[0] for s in [item] + shared if s.get("PlanePositionSequence")
                  and "ImagePositionPatient" in s.PlanePositionSequence[0]]
        positions.append([float(v) for v in planes[0].ImagePositionPatient] if planes else None)
    return {"file": path, "frames": int(ds.get("NumberOfFrames", 1) or 1), "framePositions": positions,
            "mosaic": "MOSAIC" in [str(v).upper() for v in ds.get("ImageType", [])],
            "record": record(ds), "pixels": pixel_ranges(ds)}


json.dump([d for d in map(describe, sys.argv[1:]) if d], sys.stdout)
