#!/usr/bin/python3
"""Reference decoding of Siemens CSA headers for the CSA decoder tests.

For each DICOM file given, prints (as one JSON document) the raw value of
(0029,1010) and (0029,1020) as read by pydicom (base64) and the tags that
nibabel's CSA parser (nibabel.nicom.csareader) finds in it.

The module reads only the low byte of every count and length, so its walk
agrees with nibabel only up to the first item longer than 255 bytes. For each
header, "exact_tags" is the number of leading tags that precede such an item
(all tags when there is none), found here by a full 32-bit walk; for the tag
holding the long item, "long_item" gives its index and its full length.
"""

import base64
import json
import struct
import sys
import warnings

warnings.simplefilter("ignore")

import pydicom  # noqa: E402
from nibabel.nicom import csareader  # noqa: E402


def first_long_item(raw):
    """(tag index, item index, length) of the first item longer than 255 bytes, or None."""
    n_tags = struct.unpack_from("<I", raw, 8)[0]
    pos = 16
    for t in range(n_tags):
        n_items = struct.unpack_from("<i", raw, pos + 76)[0]
        pos += 84
        for i in range(n_items):
            length = struct.unpack_from("<i", raw, pos + 4)[0]
            pos += 16
            if length > 255:
                return t, i, length
            pos += length + (4 - length % 4) % 4
    return None


def text(value):
    """nibabel's nt_str gives bytes when there is no NUL to cut at."""
    return value.decode("latin-1") if isinstance(value, bytes) else str(value)


def describe(raw):
    parsed = csareader.read(raw)
    tags = []
    for name, tag in parsed["tags"].items():
        items = []
        for item in tag["items"]:
            # Numbers as JSON numbers, texts as strings.
            items.append(item if isinstance(item, (int, float)) else text(item))
        tags.append({
            "name": text(name),
            "vm": tag["vm"],
            "vr": text(tag["vr"]),
            "syngodt": tag["syngodt"],
            "nitems": tag["n_items"],
            "xx": tag["last3"],
            "items": items,
        })
    tags.sort(key=lambda t: parsed["tags"][t["name"]]["tag_no"])
    long_item = first_long_item(raw)
    out = {
        "raw": base64.b64encode(raw).decode("ascii"),
        "n_tags": parsed["n_tags"],
        "tags": tags,
        "exact_tags": long_item[0] if long_item else len(tags),
    }
    if long_item:
        out["long_item"] = {"tag": long_item[0], "item": long_item[1], "length": long_item[2]}
    return out


def main(paths):
    result = {}
    for path in paths:
        ds = pydicom.dcmread(path, stop_before_pixels=True)
        entry = {}
        for key, tag in (("image", (0x0029, 0x1010)), ("series", (0x0029, 0x1020))):
            if tag in ds and isinstance(ds[tag].value, bytes):
                entry[key] = describe(ds[tag].value)
        result[path] = entry
    json.dump(result, sys.stdout)


if __name__ == "__main__":
    main(sys.argv[1:])
