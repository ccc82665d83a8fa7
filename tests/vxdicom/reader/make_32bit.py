#!/usr/bin/python3
"""Writes small 32-bit DICOM files with pydicom.

    make_32bit.py dose OUT [--signed]  |  make_32bit.py rgb OUT STORED PLANAR

dose: RT Dose, 3 frames of 4 x 3 samples holding 3000000000 + 1000000 k +
1000 r + c, Grid Frame Offset Vector 0\\2.5\\5, Dose Grid Scaling 0.0001, axial
at -10\\-20\\30, Pixel Spacing 2\\3; --signed: 1000000 k + 1000 r + c - 2000000
without a scaling. rgb: 3 x 2 pixels whose component s of pixel p holds
(p + 1) * 4096 + s in its top 16 stored bits, 7 in the bits below, bit 31 set
when not stored.
"""
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

kind, out = sys.argv[1], sys.argv[2]
meta = FileMetaDataset()
meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.481.2" if kind == "dose" else \
    "1.2.840.10008.5.1.4.1.1.7"
meta.MediaStorageSOPInstanceUID = generate_uid()
meta.TransferSyntaxUID = ExplicitVRLittleEndian
ds = FileDataset(out, {}, file_meta=meta, preamble=b"\0" * 128)
ds.SOPClassUID, ds.SOPInstanceUID = meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID
ds.SeriesInstanceUID = generate_uid()
ds.BitsAllocated = 32
if kind == "dose":
    k, r, c = np.mgrid[0:3, 0:3, 0:4]
    values = 1000000 * k + 1000 * r + c
    ds.Modality, ds.PatientName = "RTDOSE", "Dose^Grid"
    ds.Rows, ds.Columns, ds.SamplesPerPixel, ds.NumberOfFrames = 3, 4, 1, 3
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.BitsStored, ds.HighBit = 32, 31
    ds.ImagePositionPatient = [-10, -20, 30]
    ds.ImageOrientationPatient = [1, 0, 0, 0, 1, 0]
    ds.PixelSpacing = [2, 3]
    ds.FrameIncrementPointer = (0x3004, 0x000C)
    ds.GridFrameOffsetVector = [0, 2.5, 5]
    signed = "--signed" in sys.argv
    ds.PixelRepresentation = int(signed)
    if signed:
        ds.PixelData = (values - 2000000).astype(np.int32).tobytes()
    else:
        ds.DoseGridScaling, ds.DoseUnits = 0.0001, "GY"
        ds.PixelData = (values + 3000000000).astype(np.uint32).tobytes()
else:
    stored, planar = int(sys.argv[3]), int(sys.argv[4])
    p, s = np.mgrid[0:6, 0:3]
    values = (((p + 1) << 12) | s).astype(np.uint64) << (stored - 16)
    values += 7 if stored > 16 else 0
    values |= (1 << 31) if stored < 32 else 0
    ds.Modality, ds.PatientName = "OT", "Colour^Wide"
    ds.Rows, ds.Columns, ds.SamplesPerPixel = 2, 3, 3
    ds.PhotometricInterpretation = "RGB"
    ds.PlanarConfiguration = planar
    ds.BitsStored, ds.HighBit, ds.PixelRepresentation = stored, stored - 1, 0
    ds.PixelData = (values.T if planar else values).astype(np.uint32).tobytes()
ds.save_as(out, write_like_original=False)
