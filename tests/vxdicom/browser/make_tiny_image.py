#!/usr/bin/python3
"""Writes one small single-frame MR image with pydicom (a tool other than ours).

    make_tiny_image.py OUT --bits 8|16 --signed 0|1 --values V,V,... --columns C
                       [--slope S --intercept I] [--center C --width W]

The values fill the image row by row; the rows follow from the count.
"""
import argparse

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

ap = argparse.ArgumentParser()
ap.add_argument("out")
ap.add_argument("--bits", type=int, choices=[8, 16], required=True)
ap.add_argument("--signed", type=int, choices=[0, 1], default=0)
ap.add_argument("--values", required=True)
ap.add_argument("--columns", type=int, required=True)
ap.add_argument("--slope")
ap.add_argument("--intercept")
ap.add_argument("--center")
ap.add_argument("--width")
a = ap.parse_args()

values = [int(v) for v in a.values.split(",")]
dtype = {(8, 0): np.uint8, (16, 0): np.uint16, (16, 1): np.int16}[(a.bits, a.signed)]
pixels = np.array(values, dtype=dtype).reshape(len(values) // a.columns, a.columns)

meta = FileMetaDataset()
meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.4"
meta.MediaStorageSOPInstanceUID = generate_uid()
meta.TransferSyntaxUID = ExplicitVRLittleEndian
ds = FileDataset(a.out, {}, file_meta=meta, preamble=b"\0" * 128)
ds.SOPClassUID = meta.MediaStorageSOPClassUID
ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
ds.Modality = "MR"
ds.PatientName = "Tiny^Image"
ds.SeriesInstanceUID = generate_uid()
ds.InstanceNumber = 1
ds.Rows, ds.Columns = pixels.shape
ds.SamplesPerPixel = 1
ds.PhotometricInterpretation = "MONOCHROME2"
ds.BitsAllocated = ds.BitsStored = a.bits
ds.HighBit = a.bits - 1
ds.PixelRepresentation = a.signed
ds.PixelSpacing = [1, 1]
if a.slope is not None:
    ds.RescaleSlope = a.slope
    ds.RescaleIntercept = a.intercept
if a.center is not None:
    ds.WindowCenter = a.center
    ds.WindowWidth = a.width
ds.PixelData = pixels.tobytes()
ds.save_as(a.out, write_like_original=False)
