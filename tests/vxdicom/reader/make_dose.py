#!/usr/bin/python3
"""Writes a small RT Dose grid with pydicom: 3 frames of 4 x 3 unsigned 32-bit
samples (frame k, row r, column c holds 3000000000 + 1000000 k + 1000 r + c,
above the largest signed value), Grid Frame Offset Vector 0\\2.5\\5,
Dose Grid Scaling 0.0001, axial at Image Position -10\\-20\\30, Pixel Spacing
2\\3 (rows 2 mm apart, columns 3 mm). --signed writes signed 32-bit samples
(the values minus 2000000) without a scaling.

    make_dose.py OUT [--signed]
"""
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

out, signed = sys.argv[1], "--signed" in sys.argv
k, r, c = np.mgrid[0:3, 0:3, 0:4]
values = 1000000 * k + 1000 * r + c
meta = FileMetaDataset()
meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.481.2"
meta.MediaStorageSOPInstanceUID = generate_uid()
meta.TransferSyntaxUID = ExplicitVRLittleEndian
ds = FileDataset(out, {}, file_meta=meta, preamble=b"\0" * 128)
ds.SOPClassUID = meta.MediaStorageSOPClassUID
ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
ds.Modality = "RTDOSE"
ds.PatientName = "Dose^Grid"
ds.SeriesInstanceUID = generate_uid()
ds.NumberOfFrames = 3
ds.Rows, ds.Columns = 3, 4
ds.SamplesPerPixel = 1
ds.PhotometricInterpretation = "MONOCHROME2"
ds.BitsAllocated = ds.BitsStored = 32
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
ds.save_as(out, write_like_original=False)
