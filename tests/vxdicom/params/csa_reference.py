#!/usr/bin/python3
"""csa_reference.py FILE...: per file, the raw (0029,1010) "image" and (0029,1020)
"series" values (base64) and the tags nibabel finds in them, as JSON. "exact_tags"
counts the tags before the first item longer than 255 bytes, "long_item" gives it."""

import base64, json, struct, sys, warnings

import pydicom
from nibabel.nicom import csareader

warnings.simplefilter("ignore")


def first_long_item(raw):
    pos = 16
    for t in range(struct.unpack_from("<I", raw, 8)[0]):
        n_items, pos = struct.unpack_from("<i", raw, pos + 76)[0], pos + 84
        for i in range(n_items):
            length, pos = struct.unpack_from("<i", raw, pos + 4)[0], pos + 16
            if length > 255:
                return {"tag": t, "item": i, "length": length}
            pos += length + (4 - length % 4) % 4


def text(value):  # nibabel gives bytes when there is no NUL to cut at
    return value.decode("latin-1") if isinstance(value, bytes) else str(value)


def describe(raw):
    parsed = csareader.read(raw)
    tags = sorted(parsed["tags"].items(), key=lambda kv: kv[1]["tag_no"])
    tags = [{"name": text(name), "vm": t["vm"], "vr": text(t["vr"]), "syngodt": t["syngodt"],
             "nitems": t["n_items"], "xx": t["last3"],
             "items": [i if isinstance(i, (int, float)) else text(i) for i in t["items"]]}
            for name, t in tags]
    long_item = first_long_item(raw)
    out = {"raw": base64.b64encode(raw).decode("ascii"), "tags": tags, "exact_tags": len(tags)}
    return dict(out, exact_tags=long_item["tag"], long_item=long_item) if long_item else out


result = {}
for path in sys.argv[1:]:
    ds = pydicom.dcmread(path, stop_before_pixels=True)
    result[path] = {key: describe(ds[tag].value) for key, tag in
                    (("image", (0x0029, 0x1010)), ("series", (0x0029, 0x1020)))
                    if tag in ds and isinstance(ds[tag].value, bytes)}
json.dump(result, sys.stdout)
