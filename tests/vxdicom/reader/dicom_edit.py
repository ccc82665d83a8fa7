#!/usr/bin/python3
"""Copies a DICOM file with pydicom, changing a few attributes on the way.

    dicom_edit.py IN OUT [--set KEY=VALUE]... [--delete KEY]...
                         [--pixels V,V,...] [--transfer-syntax UID]

KEY is a keyword (Columns) or a tag (0028,0011). VALUE is converted to the
dictionary VR of the attribute (integers for US/SS/UL/SL/IS, floats for
FL/FD, text otherwise); several values are separated by a backslash.
--pixels replaces the pixel data by these values, repeated to fill every
frame (the sample type follows Bits Allocated and Pixel Representation as
they stand after --set). --transfer-syntax only rewrites the UID in the file
meta group, leaving the data set encoded as it was.
"""
import argparse
import sys

import numpy as np
import pydicom
from pydicom.datadict import dictionary_VR, tag_for_keyword
from pydicom.tag import Tag

INTS = {"US", "SS", "UL", "SL", "IS"}
FLOATS = {"FL", "FD"}


def tag_of(key):
    if key.startswith("("):
        g, e = key.strip("()").split(",")
        return Tag(int(g, 16), int(e, 16))
    t = tag_for_keyword(key)
    if t is None:
        raise SystemExit("unknown keyword " + key)
    return Tag(t)


def typed(vr, text):
    parts = text.split("\\") if text != "" else []
    if vr in INTS:
        vals = [int(p) for p in parts]
    elif vr in FLOATS:
        vals = [float(p) for p in parts]
    else:
        vals = parts
    if not vals:
        return None
    return vals[0] if len(vals) == 1 else vals


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("src")
    ap.add_argument("dst")
    ap.add_argument("--set", action="append", default=[], metavar="KEY=VALUE")
    ap.add_argument("--delete", action="append", default=[], metavar="KEY")
    ap.add_argument("--pixels", default=None)
    ap.add_argument("--transfer-syntax", default=None)
    args = ap.parse_args()

    ds = pydicom.dcmread(args.src)
    for item in args.set:
        key, _, value = item.partition("=")
        tag = tag_of(key)
        vr = ds[tag].VR if tag in ds else dictionary_VR(tag)
        if vr in ("US or SS", "OB or OW", "US or SS or OW"):
            vr = "US"
        ds.add_new(tag, vr, typed(vr, value))
    for key in args.delete:
        tag = tag_of(key)
        if tag in ds:
            del ds[tag]
    if args.pixels is not None:
        values = [int(v) for v in args.pixels.split(",")]
        frames = int(ds.get("NumberOfFrames", 1) or 1)
        count = int(ds.Rows) * int(ds.Columns) * int(ds.get("SamplesPerPixel", 1)) * frames
        bits = int(ds.BitsAllocated)
        signed = int(ds.get("PixelRepresentation", 0)) == 1
        dtype = {8: np.uint8, 16: np.int16 if signed else np.uint16,
                 32: np.int32 if signed else np.uint32}[bits]
        data = np.resize(np.array(values, dtype=np.int64), count).astype(dtype)
        if not ds.file_meta.TransferSyntaxUID.is_little_endian:
            data = data.byteswap()
        ds.PixelData = data.tobytes()
        ds["PixelData"].VR = "OB" if bits == 8 else "OW"
    if args.transfer_syntax:
        ds.file_meta.TransferSyntaxUID = args.transfer_syntax
    ds.save_as(args.dst, write_like_original=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
