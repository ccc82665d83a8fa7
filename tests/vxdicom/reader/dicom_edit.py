#!/usr/bin/python3
"""dicom_edit.py IN OUT [--set KEY=V\\V...] [--delete KEY] [--pixels V,...] [--transfer-syntax UID]:
a pydicom copy with attributes set (keyword or "(0028,0011)"), deleted, pixels refilled."""
import argparse

import numpy as np
import pydicom
from pydicom.datadict import dictionary_VR; from pydicom.tag import Tag


def tag_of(key):
    return Tag(key.strip("()").replace(",", ""))


ap = argparse.ArgumentParser()
for name in ("src", "dst", "--pixels", "--transfer-syntax"):
    ap.add_argument(name)
ap.add_argument("--set", action="extend", nargs="+", default=[])
ap.add_argument("--delete", action="append", default=[])
args = ap.parse_args()

ds = pydicom.dcmread(args.src)
for key, _, text in (item.partition("=") for item in args.set):
    tag = tag_of(key)
    vr = ds[tag].VR if tag in ds else dictionary_VR(tag)
    vr = "US" if vr in ("US or SS", "OB or OW", "US or SS or OW") else vr
    kind = int if vr in ("US", "SS", "UL", "SL", "IS") else float if vr in ("FL", "FD") else str
    values = [kind(p) for p in text.split("\\")] if text else []
    ds.add_new(tag, vr, None if not values else values[0] if len(values) == 1 else values)
for tag in (tag_of(key) for key in args.delete):
    ds.pop(tag, None)
if args.pixels is not None:
    count = int(ds.Rows) * int(ds.Columns) * int(ds.get("SamplesPerPixel", 1)) * int(ds.get("NumberOfFrames", 1) or 1)
    bits, signed = int(ds.BitsAllocated), int(ds.get("PixelRepresentation", 0)) == 1
    dtype = {8: np.uint8, 16: np.int16 if signed else np.uint16, 32: np.int32 if signed else np.uint32}[bits]
    data = np.resize(np.array([int(v) for v in args.pixels.split(",")], dtype=np.int64), count).astype(dtype)
    ds.PixelData = (data if ds.file_meta.TransferSyntaxUID.is_little_endian else data.byteswap()).tobytes()
    ds["PixelData"].VR = "OB" if bits == 8 else "OW"
if args.transfer_syntax:
    ds.file_meta.TransferSyntaxUID = args.transfer_syntax
ds.save_as(args.dst, write_like_original=True)
