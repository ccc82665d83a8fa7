#!/usr/bin/python3
"""element_bytes.py FILE GGGGEEEE...: for each tag found, its VR as written
("" for implicit VR) and its value bytes (base64), as pydicom reads them."""

import base64
import json
import sys
import warnings

import pydicom

warnings.simplefilter("ignore")
ds = pydicom.dcmread(sys.argv[1], stop_before_pixels=True)
out = {}
for text in sys.argv[2:]:
    tag = pydicom.tag.Tag(int(text, 16))
    raw = ds.get_item(tag) if tag in ds else None
    if hasattr(raw, "length"):  # raw bytes, not converted by pydicom
        out[text.upper()] = {"vr": raw.VR or "", "value": base64.b64encode(raw.value or b"").decode()}
json.dump(out, sys.stdout)
