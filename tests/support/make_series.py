#!/usr/bin/python3
"""Writes a synthetic single-frame DICOM series with pydicom (a neutral tool).

    make_series.py OUTDIR [--rows R] [--columns C] [--slices N] [--modality CT|MR]
                          [--spacing MM] [--row-spacing MM] [--thickness MM]
                          [--orientation axial|coronal|sagittal|axial-rev|coronal-rev|
                                         sagittal-rev|axial-rot|axial-tilt|
                                         sagittal-tilt|oblique]
                          [--gaps K,...] [--origin X,Y,Z] [--name-order forward|reverse]

CT: signed 16-bit with Rescale Intercept -1024; MR: unsigned 16-bit without
rescale. One file per slice in explicit VR little endian, named IM00001.dcm...
(in acquisition order, or reversed with --name-order reverse). --gaps adds
one extra slice distance after the listed slice indexes (a non-uniform stack).
The pixel values are a function of the voxel's patient position, so that two
readers can be compared voxel by voxel.
"""
import argparse
import datetime
import math
import os
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

STORAGE = {"CT": "1.2.840.10008.5.1.4.1.1.2", "MR": "1.2.840.10008.5.1.4.1.1.4"}


def orientation(name):
    """Row and column direction cosines (DICOM patient axes, LPS)."""
    if name == "axial":
        return (1, 0, 0), (0, 1, 0)
    if name == "axial-rev":           # row to the right, normal to the feet
        return (-1, 0, 0), (0, 1, 0)
    if name == "axial-rot":           # rows run posterior: an in-plane quarter turn
        return (0, 1, 0), (-1, 0, 0)
    if name == "coronal":
        return (1, 0, 0), (0, 0, -1)
    if name == "coronal-rev":
        return (-1, 0, 0), (0, 0, -1)
    if name == "sagittal":
        return (0, 1, 0), (0, 0, -1)
    if name == "sagittal-rev":
        return (0, -1, 0), (0, 0, -1)
    if name == "axial-tilt":          # 0.3 degrees about z: within the axis tolerance
        b = math.radians(0.3)
        return (math.cos(b), math.sin(b), 0.0), (-math.sin(b), math.cos(b), 0.0)
    if name == "sagittal-tilt":       # 0.3 degrees about y, 0.2 about z
        a, b = math.radians(0.3), math.radians(0.2)
        return ((math.sin(b), math.cos(b), 0.0),
                (-math.sin(a) * math.cos(b), math.sin(a) * math.sin(b), -math.cos(a)))
    if name == "oblique":             # 20 degrees about x, then 10 about z
        a, b = math.radians(20), math.radians(10)
        row = (math.cos(b), math.sin(b), 0.0)
        col = (-math.sin(b) * math.cos(a), math.cos(b) * math.cos(a), -math.sin(a))
        return row, col
    raise SystemExit("unknown orientation " + name)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("outdir")
    ap.add_argument("--rows", type=int, default=512)
    ap.add_argument("--columns", type=int, default=512)
    ap.add_argument("--slices", type=int, default=400)
    ap.add_argument("--modality", choices=["CT", "MR"], default="CT")
    ap.add_argument("--spacing", type=float, default=0.7, help="column spacing (along a row), mm")
    ap.add_argument("--row-spacing", type=float, default=None, help="row spacing, mm (default: --spacing)")
    ap.add_argument("--thickness", type=float, default=1.25, help="slice distance, mm")
    ap.add_argument("--orientation", default="axial")
    ap.add_argument("--gaps", default="", help="slice indexes followed by an extra gap")
    ap.add_argument("--origin", default=None, help="first voxel position X,Y,Z in mm")
    ap.add_argument("--name-order", choices=["forward", "reverse"], default="forward")
    ap.add_argument("--series-number", type=int, default=1)
    ap.add_argument("--patient", default="Synthetic^Series")
    args = ap.parse_args()

    os.makedirs(args.outdir, exist_ok=True)
    row, col = (np.array(v, dtype=float) for v in orientation(args.orientation))
    normal = np.cross(row, col)
    dc = args.spacing
    dr = args.row_spacing if args.row_spacing else args.spacing
    gaps = {int(g) for g in args.gaps.split(",") if g}
    if args.origin:
        origin = np.array([float(v) for v in args.origin.split(",")])
    else:
        origin = -(row * (args.columns - 1) * dc + col * (args.rows - 1) * dr) / 2.0

    study_uid, series_uid, frame_uid = generate_uid(), generate_uid(), generate_uid()
    ct = args.modality == "CT"
    now = datetime.datetime(2026, 1, 1, 12, 0, 0)
    jj, ii = np.mgrid[0:args.rows, 0:args.columns].astype(np.float64)

    offset = 0.0
    for k in range(args.slices):
        pos = origin + normal * offset
        # Patient coordinates of every pixel centre of this slice.
        px = pos[0] + ii * dc * row[0] + jj * dr * col[0]
        py = pos[1] + ii * dc * row[1] + jj * dr * col[1]
        pz = pos[2] + ii * dc * row[2] + jj * dr * col[2]
        signal = 300.0 * np.sin(px / 13.0) + 200.0 * np.cos(py / 17.0) + 2.0 * pz
        if ct:
            stored = np.clip(np.round(signal + 1024.0), -32768, 32767).astype(np.int16)
        else:
            stored = np.clip(np.round(signal + 1500.0), 0, 65535).astype(np.uint16)

        meta = FileMetaDataset()
        meta.MediaStorageSOPClassUID = STORAGE[args.modality]
        meta.MediaStorageSOPInstanceUID = generate_uid()
        meta.TransferSyntaxUID = ExplicitVRLittleEndian
        number = k + 1 if args.name_order == "forward" else args.slices - k
        name = os.path.join(args.outdir, "IM%05d.dcm" % number)
        ds = FileDataset(name, {}, file_meta=meta, preamble=b"\0" * 128)
        ds.is_little_endian = True
        ds.is_implicit_VR = False
        ds.SOPClassUID = meta.MediaStorageSOPClassUID
        ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
        ds.StudyDate = ds.SeriesDate = now.strftime("%Y%m%d")
        ds.StudyTime = ds.SeriesTime = now.strftime("%H%M%S")
        ds.Modality = args.modality
        ds.Manufacturer = "pydicom synthetic"
        ds.PatientName = args.patient
        ds.PatientID = "SYN001"
        ds.StudyInstanceUID = study_uid
        ds.SeriesInstanceUID = series_uid
        ds.FrameOfReferenceUID = frame_uid
        ds.SeriesNumber = args.series_number
        ds.InstanceNumber = k + 1
        ds.ImagePositionPatient = [round(float(v), 5) for v in pos]
        ds.ImageOrientationPatient = [round(float(v), 8) for v in list(row) + list(col)]
        ds.SliceLocation = round(float(np.dot(normal, pos)), 5)
        ds.SliceThickness = args.thickness
        ds.PixelSpacing = [dr, dc]
        ds.SamplesPerPixel = 1
        ds.PhotometricInterpretation = "MONOCHROME2"
        ds.Rows = args.rows
        ds.Columns = args.columns
        ds.BitsAllocated = 16
        ds.BitsStored = 16
        ds.HighBit = 15
        ds.PixelRepresentation = 1 if ct else 0
        if ct:
            ds.RescaleIntercept = -1024
            ds.RescaleSlope = 1
            ds.RescaleType = "HU"
        ds.PixelData = stored.tobytes()
        ds.save_as(name, write_like_original=False)
        offset += args.thickness * (2.0 if k in gaps else 1.0)
    print("wrote %d files to %s" % (args.slices, args.outdir), file=sys.stderr)


if __name__ == "__main__":
    main()
