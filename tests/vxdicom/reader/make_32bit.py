#!/usr/bin/python3
"""make_32bit.py OUT STORED PLANAR: a 3 x 2 RGB file, 32 bits allocated, whose
component s of pixel p holds (p + 1) * 4096 + s in its top 16 stored bits, 7
in the bits below, bit 31 set when not stored.
"""
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

out, stored, planar = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
meta = FileMetaDataset()
meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID = "1.2.840.10008.5.1.4.1.1.7", generate_uid()
meta.TransferSyntaxUID = ExplicitVRLittleEndian
ds = FileDataset(out, {}, file_meta=meta, preamble=b"\0" * 128)
ds.SOPClassUID, ds.SOPInstanceUID = meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID
ds.SeriesInstanceUID, ds.Modality, ds.PatientName = generate_uid(), "OT", "Colour^Wide"
ds.Rows, ds.Columns, ds.SamplesPerPixel, ds.PlanarConfiguration = 2, 3, 3, planar
ds.PhotometricInterpretation, ds.PixelRepresentation = "RGB", 0
ds.BitsAllocated, ds.BitsStored, ds.HighBit = 32, stored, stored - 1
p, s = np.mgrid[0:6, 0:3]
values = (((p + 1) << 12) | s).astype(np.uint64) << (stored - 16)
values += 7 if stored > 16 else 0
values |= (1 << 31) if stored < 32 else 0
ds.PixelData = (values.T if planar else values).astype(np.uint32).tobytes()
ds.save_as(out, write_like_original=False)
