#!/usr/bin/python3
"""Raw data elements of a DICOM file, as pydicom reads them, for the element
conversion tests.

Usage: element_bytes.py FILE GGGGEEEE...  Prints one JSON object: for each tag
found, its VR as written in the file ("" for implicit VR), its value bytes in
base64 and its value length.
"""

import base64
import json
import sys
import warnings

warnings.simplefilter("ignore")

import pydicom  # noqa: E402


def main(path, tags):
    ds = pydicom.dcmread(path, stop_before_pixels=True)
    out = {}
    for text in tags:
        tag = pydicom.tag.Tag(int(text, 16))
        if tag not in ds:
            continue
        raw = ds.get_item(tag)
        if not hasattr(raw, "length"):  # already converted by pydicom: not raw bytes
            continue
        value = raw.value or b""
        out[text.upper()] = {
            "vr": raw.VR or "",
            "value": base64.b64encode(value).decode("ascii"),
            "length": raw.length,
        }
    json.dump(out, sys.stdout)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
