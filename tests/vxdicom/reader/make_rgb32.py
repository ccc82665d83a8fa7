#!/usr/bin/python3
"""Writes a 32-bit RGB secondary capture with pydicom: 3 x 2 pixels whose
component s of pixel p stores ((p + 1) << 12 | s) << (stored - 16) in its
lowest `stored` bits (High Bit stored - 1), so that the top 16 stored bits
hold (p + 1) * 4096 + s; the stored bits below them hold 7 and bit 31, when
it is not stored, is set.

    make_rgb32.py OUT STORED PLANAR
"""
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

out, stored, planar = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
p, s = np.mgrid[0:6, 0:3]
top = ((p + 1) << 12) | s
values = top.astype(np.uint64) << (stored - 16)
if stored > 16:
    values += 7
if stored < 32:
    values |= 1 << 31
meta = FileMetaDataset()
meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.7"
meta.MediaStorageSOPInstanceUID = generate_uid()
meta.TransferSyntaxUID = ExplicitVRLittleEndian
ds = FileDataset(out, {}, file_meta=meta, preamble=b"\0" * 128)
ds.SOPClassUID = meta.MediaStorageSOPClassUID
ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
ds.Modality = "OT"
ds.PatientName = "Colour^Wide"
ds.SeriesInstanceUID = generate_uid()
ds.Rows, ds.Columns = 2, 3
ds.SamplesPerPixel = 3
ds.PhotometricInterpretation = "RGB"
ds.PlanarConfiguration = planar
ds.BitsAllocated = 32
ds.BitsStored = stored
ds.HighBit = stored - 1
ds.PixelRepresentation = 0
layout = values.T if planar else values
ds.PixelData = layout.astype(np.uint32).tobytes()
ds.save_as(out, write_like_original=False)
