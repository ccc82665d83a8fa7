#!/usr/bin/python3
"""Reference values from pydicom for the dicom:: layer tests.

    pydicom_reference.py info FILE...      image description and native pixel hash
    pydicom_reference.py elements FILE...  every top-level element's bytes as stored
    pydicom_reference.py pixels FILE OUT   pixel bytes (little endian) written to OUT

Prints JSON on standard output. Files pydicom cannot read are reported with
an "error" entry instead of failing the whole run.
"""

import hashlib
import json
import sys

import numpy as np
import pydicom
from pydicom.filereader import data_element_generator

NATIVE = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2",
          "1.2.840.10008.1.2.1.99"}


def native_pixel_bytes(ds):
    """The pixel value as little-endian samples, cut to what the frames need."""
    ts = str(ds.file_meta.get("TransferSyntaxUID", "1.2.840.10008.1.2"))
    rows, cols = int(ds.Rows), int(ds.Columns)
    spp = int(ds.get("SamplesPerPixel", 1))
    bits = int(ds.BitsAllocated)
    frames = int(ds.get("NumberOfFrames", 1) or 1)
    if ts in NATIVE and bits in (8, 16, 32):
        raw = ds.PixelData
        need = rows * cols * spp * (bits // 8) * frames
        data = np.frombuffer(raw[:need], dtype=np.uint8)
        if ts == "1.2.840.10008.1.2.2" and bits > 8:
            data = data.view(">u%d" % (bits // 8)).astype("<u%d" % (bits // 8)).view(np.uint8)
        return data.tobytes()
    # Compressed or 1-bit: pydicom's own decoders (RLE here), as samples in
    # pixel order (colour interleaved).
    arr = ds.pixel_array
    return arr.astype(arr.dtype.newbyteorder("<")).tobytes()


def info(paths):
    out = {}
    for path in paths:
        try:
            ds = pydicom.dcmread(path, force=True)
            entry = {
                "transferSyntax": str(ds.file_meta.get("TransferSyntaxUID", "")),
                "rows": int(ds.get("Rows", 0) or 0),
                "columns": int(ds.get("Columns", 0) or 0),
                "bitsAllocated": int(ds.get("BitsAllocated", 0) or 0),
                "samplesPerPixel": int(ds.get("SamplesPerPixel", 1) or 1),
                "hasPixels": "PixelData" in ds,
                "elements": len(ds.file_meta) + len(ds),
            }
            entry["frames"] = int(ds.get("NumberOfFrames", 1) or 1) if entry["hasPixels"] else 0
            sop = str(ds.file_meta.get("MediaStorageSOPClassUID", ""))
            entry["isDicomDir"] = sop == "1.2.840.10008.1.3.10"
            entry["pixelSha256"] = None
            if entry["hasPixels"]:
                try:
                    entry["pixelSha256"] = hashlib.sha256(native_pixel_bytes(ds)).hexdigest()
                except Exception as e:  # no pydicom decoder for this syntax
                    entry["pixelError"] = str(e)
            out[path] = entry
        except Exception as e:
            out[path] = {"error": str(e)}
    return out


def raw_elements(fp, implicit, little, meta):
    """(tag, vr, length, bytes) of the top-level elements from the current
    position, as the file holds them: the meta group, or the data set up to
    Pixel Data. The file is left at the first element not read."""
    if meta:
        stop = lambda tag, vr, length: tag.group != 2
    else:
        stop = lambda tag, vr, length: tag == 0x7FE00010
    result = []
    for elem in data_element_generator(fp, implicit, little, stop_when=stop):
        vr = "" if implicit else (elem.VR or "")
        if isinstance(elem.value, (bytes, type(None))):
            value = elem.value or b""
        else:
            # Undefined-length sequence: pydicom parsed it, and the generator
            # stands right after its delimiter.
            end = fp.tell()
            fp.seek(elem.file_tell)
            value = fp.read(end - elem.file_tell)
            fp.seek(end)
        result.append((int(elem.tag), vr, len(value), value))
    return result


def elements(paths):
    out = {}
    for path in paths:
        try:
            with open(path, "rb") as fp:
                preamble = fp.read(132)
                if len(preamble) < 132 or preamble[128:] != b"DICM":
                    fp.seek(0)
                meta = raw_elements(fp, False, True, True)
                ts = ""
                for (t, _, _, v) in meta:
                    if t == 0x00020010:
                        ts = v.rstrip(b"\0 ").decode()
                implicit = ts == "1.2.840.10008.1.2"
                little = ts != "1.2.840.10008.1.2.2"
                data = raw_elements(fp, implicit, little, False)
            entries = []
            for (tag, vr, length, value) in meta + data:
                entries.append({"tag": "%08X" % tag, "vr": vr, "length": length,
                                "sha256": hashlib.sha256(value).hexdigest()})
            out[path] = entries
        except Exception as e:
            out[path] = {"error": str(e)}
    return out


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    mode, args = sys.argv[1], sys.argv[2:]
    if mode == "info":
        json.dump(info(args), sys.stdout)
    elif mode == "elements":
        json.dump(elements(args), sys.stdout)
    elif mode == "pixels":
        ds = pydicom.dcmread(args[0], force=True)
        with open(args[1], "wb") as f:
            f.write(native_pixel_bytes(ds))
    else:
        print(__doc__, file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main())
