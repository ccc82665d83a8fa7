#!/usr/bin/python3
"""make_32bit.py OUT STORED PLANAR: 3 x 2 RGB, 32 bits allocated, (p + 1) * 4096 + s in the top
16 stored bits. make_32bit.py OUT dose: a 4 x 3 x 3 RT Dose grid of 3e9 + 1e6 k + 1e3 r + c."""
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

out, dose = sys.argv[1], sys.argv[2] == "dose"
meta = FileMetaDataset()
meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.481.2" if dose else "1.2.840.10008.5.1.4.1.1.7"
meta.MediaStorageSOPInstanceUID = generate_uid()
meta.TransferSyntaxUID = ExplicitVRLittleEndian
ds = FileDataset(out, {}, file_meta=meta, preamble=b"\0" * 128)
ds.SOPClassUID, ds.SOPInstanceUID = meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID
ds.SeriesInstanceUID = generate_uid()
if dose:
    k, r, c = np.mgrid[0:3, 0:3, 0:4]
    ds.Modality, ds.PatientName, ds.PhotometricInterpretation = "RTDOSE", "Dose^Grid", "MONOCHROME2"
    ds.Rows, ds.Columns, ds.SamplesPerPixel, ds.NumberOfFrames = 3, 4, 1, 3
    ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 32, 32, 31, 0
    ds.ImagePositionPatient, ds.ImageOrientationPatient = [-10, -20, 30], [1, 0, 0, 0, 1, 0]
    ds.PixelSpacing, ds.GridFrameOffsetVector = [2, 3], [0, 2.5, 5]
    ds.FrameIncrementPointer, ds.DoseGridScaling, ds.DoseUnits = (0x3004, 0x000C), 0.0001, "GY"
    ds.PixelData = (3000000000 + 1000000 * k + 1000 * r + c).astype(np.uint32).tobytes()
    ds.save_as(out, write_like_original=False)
    sys.exit(0)
stored, planar = int(sys.argv[2]), int(sys.argv[3])
ds.Modality, ds.PatientName = "OT", "Colour^Wide"
ds.Rows, ds.Columns, ds.SamplesPerPixel, ds.PlanarConfiguration = 2, 3, 3, planar
ds.PhotometricInterpretation, ds.PixelRepresentation = "RGB", 0
ds.BitsAllocated, ds.BitsStored, ds.HighBit = 32, stored, stored - 1
p, s = np.mgrid[0:6, 0:3]
values = (((p + 1) << 12) | s).astype(np.uint64) << (stored - 16)
values += 7 if stored > 16 else 0
values |= (1 << 31) if stored < 32 else 0
ds.PixelData = (values.T if planar else values).astype(np.uint32).tobytes()
ds.save_as(out, write_like_original=False)
