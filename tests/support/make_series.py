#!/usr/bin/python3
"""make_series.py OUTDIR [--rows R] [--columns C] [--slices N] [--modality CT|MR] [--spacing MM]
[--row-spacing MM] [--thickness MM] [--orientation NAME] [--gaps K,...] [--origin X,Y,Z]
[--name-order forward|reverse]: a single-frame series written by pydicom (a neutral tool).

CT: signed 16-bit with Rescale Intercept -1024; MR: unsigned 16-bit without rescale. One explicit
VR little endian file per slice, IM00001.dcm... in acquisition order (or reversed). --gaps adds one
extra slice distance after the listed slices. Each pixel value is a function of its patient
position, so that two readers can be compared voxel by voxel."""
import argparse, math, os, sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

STORAGE = {"CT": "1.2.840.10008.5.1.4.1.1.2", "MR": "1.2.840.10008.5.1.4.1.1.4"}
COS, SIN = (lambda d: math.cos(math.radians(d))), (lambda d: math.sin(math.radians(d)))
# Row and column direction cosines (DICOM patient axes, LPS).
ORIENTATIONS = {
    "axial": ((1, 0, 0), (0, 1, 0)), "axial-rev": ((-1, 0, 0), (0, 1, 0)),  # row to the right, normal to the feet
    "axial-rot": ((0, 1, 0), (-1, 0, 0)),  # rows run posterior: an in-plane quarter turn
    "coronal": ((1, 0, 0), (0, 0, -1)), "coronal-rev": ((-1, 0, 0), (0, 0, -1)),
    "sagittal": ((0, 1, 0), (0, 0, -1)), "sagittal-rev": ((0, -1, 0), (0, 0, -1)),
    # 0.3 degrees about z (within the axis tolerance); 0.3 about y and 0.2 about z
    "axial-tilt": ((COS(0.3), SIN(0.3), 0.0), (-SIN(0.3), COS(0.3), 0.0)),
    "sagittal-tilt": ((SIN(0.2), COS(0.2), 0.0), (-SIN(0.3) * COS(0.2), SIN(0.3) * SIN(0.2), -COS(0.3))),
    "oblique": ((COS(10), SIN(10), 0.0), (-SIN(10) * COS(20), COS(10) * COS(20), -SIN(20))),  # 20 about x, 10 about z
}


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("outdir")
    for name, kind, default in (("--rows", int, 512), ("--columns", int, 512), ("--slices", int, 400),
                                ("--spacing", float, 0.7), ("--row-spacing", float, None),
                                ("--thickness", float, 1.25), ("--gaps", str, ""), ("--origin", str, None)):
        ap.add_argument(name, type=kind, default=default)  # spacing: along a row; thickness: slice distance
    ap.add_argument("--modality", choices=["CT", "MR"], default="CT")
    ap.add_argument("--orientation", choices=ORIENTATIONS, default="axial")
    ap.add_argument("--name-order", choices=["forward", "reverse"], default="forward")
    args = ap.parse_args()

    os.makedirs(args.outdir, exist_ok=True)
    row, col = (np.array(v, dtype=float) for v in ORIENTATIONS[args.orientation])
    normal, dc, dr = np.cross(row, col), args.spacing, args.row_spacing or args.spacing
    gaps = {int(g) for g in args.gaps.split(",") if g}
    origin = np.array([float(v) for v in args.origin.split(",")]) if args.origin else \
        -(row * (args.columns - 1) * dc + col * (args.rows - 1) * dr) / 2.0
    study_uid, series_uid, frame_uid = generate_uid(), generate_uid(), generate_uid()
    ct, day, time = args.modality == "CT", "20260101", "120000"
    jj, ii = np.mgrid[0:args.rows, 0:args.columns].astype(np.float64)
    offset = 0.0
    for k in range(args.slices):
        pos = origin + normal * offset
        px, py, pz = (pos[a] + ii * dc * row[a] + jj * dr * col[a] for a in range(3))  # pixel centres
        signal = 300.0 * np.sin(px / 13.0) + 200.0 * np.cos(py / 17.0) + 2.0 * pz
        stored = np.clip(np.round(signal + 1024.0), -32768, 32767).astype(np.int16) if ct else \
            np.clip(np.round(signal + 1500.0), 0, 65535).astype(np.uint16)
        meta = FileMetaDataset()
        meta.MediaStorageSOPClassUID, meta.TransferSyntaxUID = STORAGE[args.modality], ExplicitVRLittleEndian
        meta.MediaStorageSOPInstanceUID = generate_uid()
        name = os.path.join(args.outdir, "IM%05d.dcm" % (k + 1 if args.name_order == "forward" else args.slices - k))
        ds = FileDataset(name, {}, file_meta=meta, preamble=b"\0" * 128)
        ds.is_little_endian, ds.is_implicit_VR = True, False
        ds.update(dict(
            SOPClassUID=meta.MediaStorageSOPClassUID, SOPInstanceUID=meta.MediaStorageSOPInstanceUID,
            StudyDate=day, SeriesDate=day, StudyTime=time, SeriesTime=time, Modality=args.modality,
            Manufacturer="pydicom synthetic", PatientName="Synthetic^Series", PatientID="SYN001",
            StudyInstanceUID=study_uid, SeriesInstanceUID=series_uid, FrameOfReferenceUID=frame_uid,
            SeriesNumber=1, InstanceNumber=k + 1, ImagePositionPatient=[round(float(v), 5) for v in pos],
            ImageOrientationPatient=[round(float(v), 8) for v in list(row) + list(col)],
            SliceLocation=round(float(np.dot(normal, pos)), 5), SliceThickness=args.thickness,
            PixelSpacing=[dr, dc], SamplesPerPixel=1, PhotometricInterpretation="MONOCHROME2",
            Rows=args.rows, Columns=args.columns, BitsAllocated=16, BitsStored=16, HighBit=15,
            PixelRepresentation=1 if ct else 0))
        if ct:
            ds.RescaleIntercept, ds.RescaleSlope, ds.RescaleType = -1024, 1, "HU"
        ds.PixelData = stored.tobytes()
        ds.save_as(name, write_like_original=False)
        offset += args.thickness * (2.0 if k in gaps else 1.0)
    print("wrote %d files to %s" % (args.slices, args.outdir), file=sys.stderr)


if __name__ == "__main__":
    main()
