#!/usr/bin/python3
"""Writes, with pydicom, the files the `vxdicom info` tests need beyond the
scanner files:

    info_fixtures.py OUTDIR

  wide.dcm   4 x 3 YBR_FULL, 32 bits allocated: the DICOM layer reads it, the
             image record refuses it, naming what it cannot hold.
  texts.dcm  2 x 2 MR in Latin-1 (ISO_IR 100): Patient Name "Müller", Image
             Comments (LT) with CR LF and a tab, and a Siemens CSA image
             header (0029,1010) in the "SV10" layout with the tags
             "Alpha" (IS, item "42"), "Beta" (LO, item bytes 61 B5 01: not
             UTF-8, a control character) and "Gamma" (no items).
"""
import os
import struct
import sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid


def dataset(path, rows, columns, bits, pixels):
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.4"
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds = FileDataset(path, {}, file_meta=meta, preamble=b"\0" * 128)
    ds.is_little_endian, ds.is_implicit_VR = True, False
    ds.SOPClassUID, ds.SOPInstanceUID = meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID
    ds.Modality = "MR"
    ds.SamplesPerPixel = 1
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.Rows, ds.Columns = rows, columns
    ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = bits, bits, bits - 1, 0
    ds.PixelData = pixels.tobytes()
    return ds


def csa2(tags):
    """A CSA header in the "SV10" layout: tags is a list of (name, vr, [item bytes])."""
    out = b"SV10" + b"\4\3\2\1" + struct.pack("<II", len(tags), 77)
    for name, vr, items in tags:
        out += struct.pack("<64si4s3i", name.encode(), 1, vr.encode(), 6, len(items), 77)
        for item in items:
            out += struct.pack("<4i", len(item), len(item), 77, len(item))
            out += item + b"\0" * ((4 - len(item) % 4) % 4)
    return out


def main():
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)

    path = os.path.join(out, "wide.dcm")
    ds = dataset(path, 3, 4, 32, np.arange(36, dtype=np.uint32))
    ds.SamplesPerPixel, ds.PhotometricInterpretation, ds.PlanarConfiguration = 3, "YBR_FULL", 0
    ds.save_as(path, write_like_original=False)

    path = os.path.join(out, "texts.dcm")
    ds = dataset(path, 2, 2, 16, np.array([1, 2, 3, 4], dtype=np.uint16))
    ds.SpecificCharacterSet = "ISO_IR 100"
    ds.PatientName = "Müller"
    ds.ImageComments = "line one\r\nline two\ttab"
    ds.add_new((0x0029, 0x0010), "LO", "SIEMENS CSA HEADER")
    ds.add_new((0x0029, 0x1010), "OB", csa2([("Alpha", "IS", [b"42"]),
                                             ("Beta", "LO", [b"a\xb5\x01"]),
                                             ("Gamma", "DS", [])]))
    ds.save_as(path, write_like_original=False)


if __name__ == "__main__":
    main()
