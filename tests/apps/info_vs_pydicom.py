#!/usr/bin/python3
"""`vxdicom info --json` on the shared files and make_series.py's oblique non-square pixels against pydicom
(gdcmdump where it has no value, nibabel for CSA) or gdcmdump alone. Status 0 agree, 1 not, 77 skipped."""
import argparse, codecs, contextlib, json, math, os, re, shutil, struct, subprocess, sys, tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SHARED = os.path.normpath(os.path.join(HERE, "../../../shared/data"))
codecs.register_error("vx_latin1", lambda e: (e.object[e.start:e.end].decode("latin-1"), e.end))
TEXT_VRS = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "SH", "TM", "UI"}
AXES = [(1, 0, 0), (-1, 0, 0), (0, 1, 0), (0, -1, 0), (0, 0, 1), (0, 0, -1)]
GDCM_LINE = re.compile(r"^\(([0-9a-f]{4}),([0-9a-f]{4})\) (\S\S)(?: \((\S\S)\))? (.*?)\s+# (\d+|u/l),")


def collect(folder):
    return sorted(os.path.join(root, n) for root, _, names in os.walk(folder)
                  for n in names if n not in ("README.md", "LICENSE", "notes.txt"))


class Reference:  # one file's values: pydicom's, and gdcmdump's top-level lines where pydicom has none

    def __init__(self, path, mode):
        import pydicom
        self.path, self.ds, self.gdcm = path, None, None
        with contextlib.suppress(Exception):
            self.ds = pydicom.dcmread(path, force=True) if mode == "pydicom" else None

    def _gdcm(self):
        if self.gdcm is None:  # nested lines are indented; "[value]" or "(no value ...)"
            out = subprocess.run(["gdcmdump", self.path], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
            self.gdcm = {(int(m[1], 16), int(m[2], 16)): re.sub(r"^\[(.*)\]$|^\(no value.*", r"\1", m[5].strip())
                         for m in filter(None, map(GDCM_LINE.match, out.decode("latin-1").splitlines()))}
        return self.gdcm

    has = lambda self, tag: tag in (self.ds if self.ds is not None else self._gdcm())  # noqa: E731

    def text(self, tag):  # values joined with '\\'; None when absent or empty
        if self.ds is not None:
            if tag not in self.ds:
                return None
            with contextlib.suppress(Exception):  # a value pydicom cannot convert: ask gdcmdump
                v = self.ds[tag].value
                v = "\\".join(map(str, v)) if isinstance(v, (list, tuple)) or type(v).__name__ == "MultiValue" else v
                return None if v is None or isinstance(v, bytes) or v == "" else str(v)
        return self._gdcm().get(tag) or None

    def numbers(self, tag, n=1):  # the first n numbers, or None
        v = []
        with contextlib.suppress(ValueError):
            v = [float(x) for x in str(self.text(tag) or "").split("\\") if x.strip()]
        return v[:n] if len(v) >= n else None


unit = lambda v: [x / math.hypot(*v) for x in v] if any(v) else list(v)  # noqa: E731


def expected_image(ref):
    num = lambda g, e, d=0: int((ref.numbers((g, e)) or [d])[0] or d)
    e = {"rows": num(0x28, 0x10), "columns": num(0x28, 0x11), "bitsAllocated": num(0x28, 0x100),
         "bitsStored": num(0x28, 0x101), "samplesPerPixel": num(0x28, 0x2, 1), "frames": num(0x28, 0x8, 1),
         "frameSpacing": (ref.numbers((0x18, 0x88)) or [1.0])[0]}
    r, c = ref.numbers((0x28, 0x30), 2) or (0.0, 0.0)
    e["pixelSpacing"] = [r or c, c or r]  # one value 0: square pixels of the other
    position = ref.numbers((0x20, 0x32), 3) or ref.numbers((0x20, 0x30), 3)
    o = ref.numbers((0x20, 0x37), 6) or ref.numbers((0x20, 0x35), 6)
    row, col = (unit(o[:3]), unit(o[3:])) if o else ([0.0] * 3, [0.0] * 3)
    normal = unit([row[1] * col[2] - col[1] * row[2], col[0] * row[2] - row[0] * col[2],
                   row[0] * col[1] - row[1] * col[0]])
    e.update(hasPosition=position is not None, position=position, rowDirection=row, columnDirection=col,
             normal=normal, oblique=bool(o) and not all(any(math.dist(v, a) < 0.03 for a in AXES)
                                                        for v in (row, col, normal)))
    e["sliceLocation"] = sum(n * p for n, p in zip(normal, position)) if o and position else next(
        (v[0] for v in (ref.numbers((0x20, 0x1041)), ref.numbers((0x20, 0x50))) if v), (position or [0.0] * 3)[2])
    return e


def mosaic_tiles(path, ref):  # nibabel's CSA reader, else (0019,100A); None: no mosaic of tiles
    if "MOSAIC" not in (ref.text((0x0008, 0x0008)) or "").upper():
        return None
    import pydicom
    from nibabel.nicom import csareader
    n = None
    with contextlib.suppress(Exception):
        n = csareader.get_n_mosaic(csareader.read(pydicom.dcmread(path, stop_before_pixels=True)[0x0029, 0x1010].value))
    n = int(n or (ref.numbers((0x0019, 0x100A)) or [0])[0])
    return n if n > 1 else None


close = lambda a, b, absolute: abs(a - b) <= absolute + 1e-6 * abs(b)  # noqa: E731


def compare_image(check, rec, exp, placed):  # placed: a mosaic tile or an enhanced frame
    exp = dict(exp, width=exp["columns"], height=exp["rows"], bytesPerSample=max(1, (exp["bitsAllocated"] + 7) // 8))
    for key in ["width", "height", "bitsStored"] + (not placed) * ["bytesPerSample", "samplesPerPixel", "hasPosition", "oblique"]:
        check(key, rec[key], exp[key])
    if placed:
        return
    for key, tolerance in (("pixelSpacing", 0), ("position", 1e-4), ("rowDirection", 2e-6),
                           ("columnDirection", 2e-6), ("normal", 2e-6)):
        if key != "position" or (exp["hasPosition"] and rec["hasPosition"]):
            check(key, rec[key], exp[key], all(close(a, b, tolerance) for a, b in zip(rec[key], exp[key])))
    location = (rec["frame"] - 1) * exp["frameSpacing"] if exp["frames"] > 1 else exp["sliceLocation"]
    check("sliceLocation", rec["sliceLocation"], location, close(rec["sliceLocation"], location, 2e-4))
    check("valueRange", rec["valueRange"], None)


def compare_attributes(check, ds, attributes):  # every element up to Pixel Data, by name and text
    ours, expected = dict(attributes), set()
    for d in (getattr(ds, "file_meta", None), ds):
        for tag in sorted(d._dict) if d is not None else []:
            if tag == 0x7FE00010:
                break
            raw = d._dict[tag]
            if getattr(raw, "is_raw", False) and hasattr(raw, "length"):
                vr, value = raw.VR, raw.value
                has = raw.length != 0 and (value is None or len(value) > 0)
            else:  # a sequence of undefined length keeps its delimiter, items or not
                elem, value = d[tag], None
                vr, has = elem.VR, not elem.is_empty or (elem.VR == "SQ" and elem.is_undefined_length)
            name = "G%04X-%04X" % (tag.group, tag.element)
            if not has or (tag in (0x00291010, 0x00291020) and value and value[:4] == b"SV10"):
                continue  # no value, or a CSA header decoded into a bundle
            expected.add(name)
            if (text := ours.get(name)) is not None and vr in TEXT_VRS and value is not None and all(32 <= b < 127 or b == 0 for b in value):
                check(name + " value", text.split(": ", 1)[1] if ": " in text else None, value.decode("ascii").rstrip(" \0").replace("\\", " "))
    names = {n for n, v in attributes if not isinstance(v, list)}
    check("attribute parameters missing", sorted(expected - names), [])
    check("attribute parameters not in the file", sorted(names - expected), [])


def first_long_item(raw):  # the first tag with an item longer than 255 bytes, or None
    pos = 16
    for t in range(struct.unpack_from("<I", raw, 8)[0]):
        n_items, pos = struct.unpack_from("<I", raw, pos + 76)[0], pos + 84
        for _ in range(n_items):
            length, pos = struct.unpack_from("<I", raw, pos + 4)[0], pos + 16
            if length > 255:
                return t
            pos += length + (-length % 4)
    return None


# UTF-8 where the bytes are UTF-8, other bytes as Latin-1 (as vxdicom reads CSA texts).
item_text = lambda v: (v if isinstance(v, bytes) else v.encode("latin-1")).decode("utf-8", errors="vx_latin1")  # noqa


def compare_csa(check, raw, ours, name):  # every tag's fields and values against nibabel's
    from nibabel.nicom import csareader
    theirs = sorted(csareader.read(raw)["tags"].items(), key=lambda kv: kv[1]["tag_no"])
    long_at = first_long_item(raw)
    n = len(theirs) if long_at is None else long_at + 1
    check(name + " tag count", len(ours), n, len(ours) == n if long_at is None else len(ours) >= n)
    for (our_name, our_tag), (their_name, tag) in zip(ours[:n], theirs[:n]):
        their_name, fields = item_text(their_name), dict(our_tag)
        check("%s tag %d name" % (name, tag["tag_no"]), our_name, their_name)
        for key, their in zip(("vm", "vr", "syngodt", "nitems"),
                              (tag["vm"], item_text(tag["vr"]), tag["syngodt"], tag["n_items"])):
            check("%s %s %s" % (name, their_name, key), fields.get(key), their)
        if tag["tag_no"] == long_at:
            continue  # its items derail the module's walk
        our_values = [v for _, v in fields.get("values", []) if v != ""]
        their_values = [v for v in tag["items"] if v not in ("", b"")]
        same = False
        with contextlib.suppress(ValueError):
            same = len(our_values) == len(their_values) and all(
                float(ov) == float(tv) if isinstance(tv, (int, float)) else ov == item_text(tv)
                for ov, tv in zip(our_values, their_values))
        check("%s %s values" % (name, their_name), our_values, their_values, same)


def compare(args, files):
    env = {k: v for k, v in os.environ.items() if k not in ("DICOM_DELAYED_READ", "DICOM_EPS_ORIENTATION")}
    proc = subprocess.run([args.vxdicom, "info", "--json", "--no-decode", "--all-frames", "--"] + files,
                          capture_output=True, env=dict(env, QT_QPA_PLATFORM="offscreen"))
    ours = {r["file"]: r for r in json.loads(proc.stdout.decode("utf-8"))}  # invalid JSON: an exception
    problems, counts = [], dict.fromkeys(("images", "frames", "csa"), 0)

    def report(path, what, our, their, ok=None):
        if not (our == their if ok is None else ok):
            problems.append("%s: %s: vxdicom %r, reference %r" % (path, what, our, their))
    report("vxdicom info", "exit status and standard error", (proc.returncode, proc.stderr.decode(errors="replace")), (0, ""))
    for path in files:
        r = ours.get(path, {})
        check = lambda what, our, their, ok=None: report(path, what, our, their, ok)
        check("failures", r.get("failures"), [], r.get("ok") and not r["failures"])
        if not r:
            continue
        ref, attributes = Reference(path, args.reference), r.get("attributes", [])
        if ref.ds is not None:
            compare_attributes(check, ref.ds, attributes)
            bundles = {n: v for n, v in attributes if isinstance(v, list)}
            for tag, name in ((0x00291010, "CSAImageHeaderInfo"), (0x00291020, "CSASeriesHeaderInfo")):
                raw = ref.ds[tag].value if tag in ref.ds else None
                if isinstance(raw, bytes) and raw[:4] == b"SV10":
                    counts["csa"] += 1
                    check(name, sorted(bundles), name, name in bundles)
                    compare_csa(check, raw, bundles.get(name, []), name)
        if not ref.has((0x7FE0, 0x0010)):
            check("imageCount", r.get("imageCount"), 0)
            continue
        exp, images, tiles = expected_image(ref), r.get("images", []), mosaic_tiles(path, ref)
        counts["images"] += 1
        for key in ("rows", "columns", "bitsAllocated", "samplesPerPixel"):
            check("layer " + key, r.get("layer", {}).get(key), exp[key])
        if tiles:
            per_row = math.ceil(math.sqrt(tiles))
            exp["frames"], exp["rows"], exp["columns"] = tiles, exp["rows"] // per_row, exp["columns"] // per_row
        check("imageCount and image records", (r.get("imageCount"), len(images)), (exp["frames"],) * 2)
        placed = bool(tiles) or any(ref.has(t) for t in ((0x5200, 0x9229), (0x5200, 0x9230)))
        for rec in images:
            counts["frames"] += 1
            compare_image(lambda w, a, b, ok=None: check("frame %d %s" % (rec["frame"], w), a, b, ok), rec, exp, placed)
    print("%d files, %d with pixel data, %d image records, %d CSA headers; %d disagreements with %s"
          % (len(files), counts["images"], counts["frames"], counts["csa"], len(problems), args.reference))
    print("\n".join(problems[:200]))
    return 1 if problems else 0


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--vxdicom"), ap.add_argument("--reference", choices=["pydicom", "gdcmdump"], default="pydicom")
    args = ap.parse_args()
    try:
        import pydicom, numpy, nibabel.nicom.csareader  # noqa: F401
    except ImportError as e:
        return print("skipped: %s (python3-pydicom, python3-numpy, python3-nibabel)" % e) or 77
    if not shutil.which("gdcmdump") or not os.path.isdir(SHARED):
        return print("skipped: gdcmdump (Debian libgdcm-tools) or %s is missing" % SHARED) or 77
    with tempfile.TemporaryDirectory(prefix="vxinfo-") as folder:  # rows 0.5 mm apart, columns 0.8
        subprocess.run(["/usr/bin/python3", os.path.join(HERE, "../support/make_series.py"), folder] +
                       "--rows 12 --columns 16 --slices 2 --modality MR --spacing 0.8 --row-spacing 0.5 "
                       "--orientation oblique".split(), check=True, stderr=subprocess.DEVNULL)
        return compare(args, collect(SHARED) + collect(folder))


if __name__ == "__main__":
    sys.exit(main())
