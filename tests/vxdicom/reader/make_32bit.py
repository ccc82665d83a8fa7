#!/usr/bin/python3
"""Writes small 32-bit DICOM files with pydicom.

    make_32bit.py dose OUT [--signed]
    make_32bit.py rgb OUT STORED PLANAR

dose: an RT Dose grid of 3 frames of 4 x 3 unsigned samples (frame k, row r,
column c holds 3000000000 + 1000000 k + 1000 r + c, above the largest signed
value), Grid Frame Offset Vector 0\\2.5\\5, Dose Grid Scaling 0.0001, axial
at Image Position -10\\-20\\30, Pixel Spacing 2\\3 (rows 2 mm apart, columns
3 mm). --signed writes signed samples (1000000 k + 1000 r + c - 2000000)
without a scaling.

rgb: a secondary capture of 3 x 2 RGB pixels whose component s of pixel p
stores ((p + 1) << 12 | s) << (STORED - 16) in its lowest STORED bits (High
Bit STORED - 1), so that the top 16 stored bits hold (p + 1) * 4096 + s; the
stored bits below them hold 7 and bit 31, when it is not stored, is set.
Planar Configuration PLANAR.
"""
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid


def dataset(out, sop_class, modality, patient, rows, columns, samples):
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = sop_class
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds = FileDataset(out, {}, file_meta=meta, preamble=b"\0" * 128)
    ds.SOPClassUID = meta.MediaStorageSOPClassUID
    ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
    ds.Modality = modality
    ds.PatientName = patient
    ds.SeriesInstanceUID = generate_uid()
    ds.Rows, ds.Columns = rows, columns
    ds.SamplesPerPixel = samples
    ds.BitsAllocated = 32
    return ds


def dose(out, signed):
    k, r, c = np.mgrid[0:3, 0:3, 0:4]
    values = 1000000 * k + 1000 * r + c
    ds = dataset(out, "1.2.840.10008.5.1.4.1.1.481.2", "RTDOSE", "Dose^Grid", 3, 4, 1)
    ds.NumberOfFrames = 3
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.BitsStored = 32
    ds.HighBit = 31
    ds.ImagePositionPatient = [-10, -20, 30]
    ds.ImageOrientationPatient = [1, 0, 0, 0, 1, 0]
    ds.PixelSpacing = [2, 3]
    ds.FrameIncrementPointer = (0x3004, 0x000C)
    ds.GridFrameOffsetVector = [0, 2.5, 5]
    if signed:
        ds.PixelRepresentation = 1
        ds.PixelData = (values - 2000000).astype(np.int32).tobytes()
    else:
        ds.PixelRepresentation = 0
        ds.DoseGridScaling = 0.0001
        ds.DoseUnits = "GY"
        ds.PixelData = (values + 3000000000).astype(np.uint32).tobytes()
    return ds


def rgb(out, stored, planar):
    p, s = np.mgrid[0:6, 0:3]
    values = (((p + 1) << 12) | s).astype(np.uint64) << (stored - 16)
    if stored > 16:
        values += 7
    if stored < 32:
        values |= 1 << 31
    ds = dataset(out, "1.2.840.10008.5.1.4.1.1.7", "OT", "Colour^Wide", 2, 3, 3)
    ds.PhotometricInterpretation = "RGB"
    ds.PlanarConfiguration = planar
    ds.BitsStored = stored
    ds.HighBit = stored - 1
    ds.PixelRepresentation = 0
    ds.PixelData = (values.T if planar else values).astype(np.uint32).tobytes()
    return ds


def main():
    kind, out = sys.argv[1], sys.argv[2]
    if kind == "dose":
        ds = dose(out, "--signed" in sys.argv)
    elif kind == "rgb":
        ds = rgb(out, int(sys.argv[3]), int(sys.argv[4]))
    else:
        raise SystemExit(__doc__)
    ds.save_as(out, write_like_original=False)


if __name__ == "__main__":
    main()
