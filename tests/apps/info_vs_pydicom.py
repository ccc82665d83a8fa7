#!/usr/bin/python3
"""`vxdicom info --json` on every shared DICOM file, compared with readers that
do not share our DCMTK base.

    info_vs_pydicom.py --vxdicom BIN [--reference pydicom|gdcm] [FILE|DIR ...]

Default files: every file below ../shared/data (README.md, LICENSE and
notes.txt left out). Added to them, unless --no-synthetic, a few files that
pydicom writes here for what the scanner files lack: a series with
non-square pixels (row spacing 0.5, column spacing 0.8), 12 rows by 16
columns, oblique (tests/support/make_series.py), and a three-frame file with
Spacing Between Slices 2.5 whose position and orientation are only in the
retired (0020,0030) and (0020,0035). Exit status 0 when everything agrees, 1 on the first
report of disagreements (all of them are listed), 77 when the reference tools
or the shared data are missing.

--reference pydicom (default): the values come from pydicom; where pydicom
cannot read a file or convert a value, from GDCM's gdcmdump. Compared for
every file with Pixel Data:
  - the number of images (Number of Frames, 1 when absent),
  - rows, columns, bits allocated (the layer's and the image record's),
    bits stored, samples per pixel,
  - pixel spacing (0028,0030) [row, column]; 0 x 0 when absent,
  - position (0020,0032), else (0020,0030); hasPosition false when neither
    has three numbers,
  - orientation (0020,0037), else (0020,0035): row and column directions as
    unit vectors and their normalised cross product; all 0 when absent,
  - oblique (a direction at least 0.03 from every axis direction) and the
    slice location: normal . position for a single frame with both; for the
    k-th frame of a multi-frame file k x Spacing Between Slices (1 when
    absent); otherwise Slice Location, Location, then the third coordinate,
  - every frame's record (--all-frames) against the same top-level values,
    except the placement of what the module cuts or places itself: a Siemens
    mosaic gives one record per tile (Number of Images in Mosaic, tiles of
    the mosaic's size divided by the tiles per row) and an enhanced object
    places each frame by its functional groups; their positions are checked
    by the reader's tests against pydicom and by the dcm2niix comparison.
Also, for every file:
  - the attribute parameters: one "G%04X-%04X" per top-level element with a
    value (file meta group included, Pixel Data and what follows it left
    out); a value text of the plain text VRs equals the stored value without
    padding, '\\' shown as a blank,
  - the Siemens CSA headers (0029,1010) and (0029,1020) ("SV10" layout):
    the tag bundles of "CSAImageHeaderInfo" and "CSASeriesHeaderInfo" against
    nibabel's CSA parser (names, vm, vr, syngodt, nitems and the item texts).
    The module reads only the low byte of each count and length, so its walk
    follows the header up to the first item longer than 255 bytes (found here
    by a full 32-bit walk); the tags up to and including that item's tag are
    compared, all of them when there is none.

--reference gdcm: the image values above from gdcmdump alone (no attribute or
CSA check), a second independent reader.

What "the file has them" means: the module reads top-level elements only.
Enhanced multi-frame objects keep Pixel Spacing, Image Position and Image
Orientation in the functional groups (5200,9229)/(5200,9230), not at the top
level; for them the expected values are "absent" (no position, directions 0,
spacing 0 x 0), and the summary counts them.
"""
import argparse
import codecs
import json
import math
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import warnings

HERE = os.path.dirname(os.path.abspath(__file__))
SHARED = os.path.normpath(os.path.join(HERE, "..", "..", "..", "shared", "data"))
SKIP = 77
LEFT_OUT = {"README.md", "LICENSE", "notes.txt"}
MAKE_SERIES = os.path.join(HERE, "..", "support", "make_series.py")

# Value texts: UTF-8 where the bytes are UTF-8, each other byte as Latin-1
# (the rule of vxdicom's JSON output for CSA item texts).
codecs.register_error("vx_latin1", lambda e: (e.object[e.start:e.end].decode("latin-1"), e.end))

TEXT_VRS = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "SH", "TM", "UI"}
FUNCTIONAL_GROUPS = (0x5200, 0x9229), (0x5200, 0x9230)


def write_synthetic(folder):
    """Files pydicom writes for cases the scanner files lack; returns their paths."""
    import numpy as np
    from pydicom.dataset import FileDataset, FileMetaDataset
    from pydicom.uid import ExplicitVRLittleEndian, generate_uid

    series = os.path.join(folder, "oblique")
    subprocess.run(["/usr/bin/python3", MAKE_SERIES, series, "--rows", "12", "--columns", "16",
                    "--slices", "2", "--modality", "MR", "--spacing", "0.8", "--row-spacing", "0.5",
                    "--orientation", "oblique"], check=True, stderr=subprocess.DEVNULL)
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.4"
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    name = os.path.join(folder, "frames3.dcm")
    ds = FileDataset(name, {}, file_meta=meta, preamble=b"\0" * 128)
    ds.is_little_endian, ds.is_implicit_VR = True, False
    ds.SOPClassUID, ds.SOPInstanceUID = meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID
    ds.Modality = "MR"
    ds.add_new((0x0020, 0x0030), "DS", ["-10.5", "20", "7.25"])  # Image Position (retired)
    ds.add_new((0x0020, 0x0035), "DS", ["0", "1", "0", "0", "0", "-1"])  # Image Orientation (retired)
    ds.SpacingBetweenSlices = "2.5"
    ds.PixelSpacing = ["0.6", "0.9"]
    ds.NumberOfFrames = 3
    ds.SamplesPerPixel = 1
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.Rows, ds.Columns = 5, 7
    ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 16, 12, 11, 0
    ds.PixelData = np.arange(3 * 5 * 7, dtype=np.uint16).tobytes()
    ds.save_as(name, write_like_original=False)
    return collect([series]) + [name]


def collect(paths):
    files = []
    for p in paths:
        if os.path.isdir(p):
            for root, _, names in os.walk(p):
                files += [os.path.join(root, n) for n in names if n not in LEFT_OUT]
        else:
            files.append(p)
    return sorted(files)


def numbers(text):
    """The numbers of a backslash-separated value, or None when one does not parse."""
    if text is None:
        return None
    try:
        return [float(v) for v in str(text).split("\\") if v.strip() != ""]
    except ValueError:
        return None


# ---- references ----------------------------------------------------------

class GdcmDump:
    """Top-level elements as gdcmdump prints them: tag -> (VR, value text, length)."""

    # "(0028,0010) US 64   # 2,1 Rows"; implicit VR: "(0028,0010) ?? (US) 64 ...".
    LINE = re.compile(r"^\(([0-9a-f]{4}),([0-9a-f]{4})\) (\S\S)(?: \((\S\S)\))? (.*?)\s+# (\d+|u/l),")

    def __init__(self, path):
        self.elements = {}
        out = subprocess.run(["gdcmdump", path], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL).stdout.decode("latin-1")
        for line in out.splitlines():
            m = self.LINE.match(line)  # nested elements are indented: not matched
            if not m:
                continue
            value = m.group(5).strip()
            if value.startswith("[") and value.endswith("]"):
                value = value[1:-1]
            elif value.startswith("(no value"):
                value = ""
            tag = (int(m.group(1), 16), int(m.group(2), 16))
            self.elements[tag] = (m.group(4) or m.group(3), value)

    def text(self, tag):
        e = self.elements.get(tag)
        return e[1] if e and e[1] != "" else None

    def has(self, tag):
        return tag in self.elements


class Reference:
    """The values of one file: pydicom first, gdcmdump where pydicom lacks one."""

    def __init__(self, path, mode):
        self.path = path
        self.mode = mode
        self.ds = None
        self.gdcm = None
        self.from_gdcm = 0
        if mode == "pydicom":
            import pydicom
            try:
                with warnings.catch_warnings():
                    warnings.simplefilter("ignore")
                    self.ds = pydicom.dcmread(path, force=True)
            except Exception:
                self.ds = None

    def _gdcm(self):
        if self.gdcm is None and shutil.which("gdcmdump"):
            self.gdcm = GdcmDump(self.path)
        return self.gdcm

    def has(self, tag):
        if self.ds is not None:
            return tag in self.ds
        g = self._gdcm()
        return bool(g and g.has(tag))

    def text(self, tag):
        """The value as text (multiple values joined with '\\'), None when absent or empty."""
        if self.ds is not None and tag in self.ds:
            try:
                v = self.ds[tag].value
                if isinstance(v, (list, tuple)) or type(v).__name__ == "MultiValue":
                    return "\\".join(str(x) for x in v) if len(v) else None
                if v is None or v == "" or v == b"":
                    return None
                if isinstance(v, bytes):
                    return None
                return str(v)
            except Exception:
                pass  # a value pydicom cannot convert: ask GDCM
        elif self.ds is not None:
            return None
        g = self._gdcm()
        if g is None:
            return None
        self.from_gdcm += 1
        return g.text(tag)

    def number(self, tag, default=None):
        v = numbers(self.text(tag))
        return v[0] if v else default

    def vector(self, tag, n):
        v = numbers(self.text(tag))
        return v if v is not None and len(v) >= n else None


# ---- expectations --------------------------------------------------------

AXES = [(1, 0, 0), (-1, 0, 0), (0, 1, 0), (0, -1, 0), (0, 0, 1), (0, 0, -1)]


def unit(v):
    n = math.sqrt(sum(x * x for x in v))
    return [x / n for x in v] if n > 0 else list(v)


def cross(r, c):
    return [r[1] * c[2] - c[1] * r[2], c[0] * r[2] - r[0] * c[2], r[0] * c[1] - r[1] * c[0]]


def near_axis(v, tolerance=0.03):
    return any(math.dist(v, a) < tolerance for a in AXES)


def expected_image(ref):
    """The image record the module should report, from the top-level elements."""
    e = {
        "rows": int(ref.number((0x0028, 0x0010), 0)),
        "columns": int(ref.number((0x0028, 0x0011), 0)),
        "bitsAllocated": int(ref.number((0x0028, 0x0100), 0)),
        "bitsStored": int(ref.number((0x0028, 0x0101), 0)),
        "samplesPerPixel": int(ref.number((0x0028, 0x0002), 1)),
        "frames": int(ref.number((0x0028, 0x0008), 1) or 1),
    }
    spacing = ref.vector((0x0028, 0x0030), 2)
    if spacing:
        r, c = spacing[:2]
        # One value 0: square pixels of the other.
        e["pixelSpacing"] = [r or c, c or r]
    else:
        e["pixelSpacing"] = [0.0, 0.0]
    position = ref.vector((0x0020, 0x0032), 3) or ref.vector((0x0020, 0x0030), 3)
    e["hasPosition"] = position is not None
    e["position"] = position[:3] if position else None
    orientation = ref.vector((0x0020, 0x0037), 6) or ref.vector((0x0020, 0x0035), 6)
    if orientation:
        row, col = unit(orientation[:3]), unit(orientation[3:6])
        normal = unit(cross(row, col))
        e["rowDirection"], e["columnDirection"], e["normal"] = row, col, normal
        e["oblique"] = not all(near_axis(v) for v in (row, col, normal))
    else:
        e["rowDirection"] = e["columnDirection"] = e["normal"] = [0.0, 0.0, 0.0]
        e["oblique"] = False
    if orientation and position:
        e["sliceLocation"] = sum(n * p for n, p in zip(e["normal"], position))
    else:
        e["sliceLocation"] = 0.0
        for tag in ((0x0020, 0x1041), (0x0020, 0x0050)):
            v = ref.number(tag)
            if v is not None:
                e["sliceLocation"] = v
                break
        else:
            for tag in ((0x0020, 0x0032), (0x0020, 0x0030)):
                v = ref.vector(tag, 3)
                if v:
                    e["sliceLocation"] = v[2]
                    break
    e["frameSpacing"] = ref.number((0x0018, 0x0088), 1.0)
    return e


def mosaic_tiles(path, ref):
    """The number of images in a Siemens mosaic (nibabel reads the CSA image
    header, else (0019,100A)), or None for any other image."""
    if "MOSAIC" not in (ref.text((0x0008, 0x0008)) or "").upper():
        return None
    try:
        import pydicom
        from nibabel.nicom import csareader
        ds = pydicom.dcmread(path, stop_before_pixels=True)
        if (0x0029, 0x1010) in ds:
            n = csareader.get_n_mosaic(csareader.read(ds[0x0029, 0x1010].value))
            if n:
                return int(n)
    except Exception:
        pass
    n = ref.number((0x0019, 0x100A))
    return int(n) if n else None


def close(a, b, absolute, relative=1e-6):
    return abs(a - b) <= absolute + relative * abs(b)


class Report:
    def __init__(self):
        self.problems = []

    def check(self, path, what, ours, theirs, ok):
        if not ok:
            self.problems.append("%s: %s: vxdicom %r, reference %r" % (path, what, ours, theirs))


def compare_image(report, path, rec, exp, frame, frames, placed=False):
    ck = lambda what, ours, theirs, ok: report.check(path, "frame %d %s" % (frame, what),
                                                    ours, theirs, ok)
    ck("width", rec["width"], exp["columns"], rec["width"] == exp["columns"])
    ck("height", rec["height"], exp["rows"], rec["height"] == exp["rows"])
    ck("bitsStored", rec["bitsStored"], exp["bitsStored"], rec["bitsStored"] == exp["bitsStored"])
    if placed:
        return
    # 1-bit data are unpacked to one byte per sample.
    ck("bytesPerSample", rec["bytesPerSample"], exp["bitsAllocated"],
       rec["bytesPerSample"] == max(1, (exp["bitsAllocated"] + 7) // 8))
    ck("samplesPerPixel", rec["samplesPerPixel"], exp["samplesPerPixel"],
       rec["samplesPerPixel"] == exp["samplesPerPixel"])
    ck("pixelSpacing", rec["pixelSpacing"], exp["pixelSpacing"],
       all(close(a, b, 0) for a, b in zip(rec["pixelSpacing"], exp["pixelSpacing"])))
    ck("hasPosition", rec["hasPosition"], exp["hasPosition"],
       rec["hasPosition"] == exp["hasPosition"])
    if exp["hasPosition"] and rec["hasPosition"]:
        ck("position", rec["position"], exp["position"],
           all(close(a, b, 1e-4) for a, b in zip(rec["position"], exp["position"])))
    for key in ("rowDirection", "columnDirection", "normal"):
        ck(key, rec[key], exp[key], all(close(a, b, 2e-6) for a, b in zip(rec[key], exp[key])))
    ck("oblique", rec["oblique"], exp["oblique"], rec["oblique"] == exp["oblique"])
    location = (frame - 1) * exp["frameSpacing"] if frames > 1 else exp["sliceLocation"]
    ck("sliceLocation", rec["sliceLocation"], location, close(rec["sliceLocation"], location, 2e-4))
    ck("valueRange", rec["valueRange"], None, rec["valueRange"] is None)


# ---- attributes and CSA headers ------------------------------------------

def pairs(entries):
    return [(name, value) for name, value in entries]


def param_name(tag):
    return "G%04X-%04X" % (tag[0], tag[1])


def raw_elements(ds):
    """Top-level (tag, VR, value bytes or None, has value) of the meta group and data set."""
    out = []
    for d in (getattr(ds, "file_meta", None), ds):
        if d is None:
            continue
        for tag in sorted(d._dict):
            raw = d._dict[tag]
            if hasattr(raw, "length") and getattr(raw, "is_raw", False):
                value = raw.value
                has = raw.length != 0 and (value is None or len(value) > 0)
                out.append(((tag.group, tag.element), raw.VR, value, has))
            else:
                elem = d[tag]
                # A sequence of undefined length has a value in the file (at
                # least its delimiter), which the module keeps, items or not.
                has = not elem.is_empty or (elem.VR == "SQ" and elem.is_undefined_length)
                out.append(((tag.group, tag.element), elem.VR, None, has))
    return out


def compare_attributes(report, path, ds, attributes):
    ours = dict(pairs(attributes))
    expected = set()
    for tag, vr, value, has in raw_elements(ds):
        if tag == (0x7FE0, 0x0010):
            break  # the module lists the elements up to Pixel Data
        if not has:
            continue
        if tag in ((0x0029, 0x1010), (0x0029, 0x1020)) and value and value[:4] == b"SV10":
            continue  # decoded into a bundle instead
        expected.add(param_name(tag))
        text = ours.get(param_name(tag))
        if (text is not None and vr in TEXT_VRS and value is not None and
                all(32 <= b < 127 or b == 0 for b in value)):
            stored = value.decode("ascii").rstrip(" \0").replace("\\", " ")
            shown = text.split(": ", 1)[1] if ": " in text else None
            report.check(path, param_name(tag) + " value", shown, stored, shown == stored)
    names = {n for n, v in attributes if not isinstance(v, list)}
    missing = sorted(expected - names)
    extra = sorted(names - expected)
    report.check(path, "attribute parameters missing", missing, [], not missing)
    report.check(path, "attribute parameters not in the file", extra, [], not extra)


def first_long_item(raw):
    """Index of the first tag with an item longer than 255 bytes (full 32-bit walk), or None."""
    n_tags = struct.unpack_from("<I", raw, 8)[0]
    pos = 16
    for t in range(n_tags):
        n_items = struct.unpack_from("<I", raw, pos + 76)[0]
        pos += 84
        for _ in range(n_items):
            length = struct.unpack_from("<I", raw, pos + 4)[0]
            pos += 16
            if length > 255:
                return t
            pos += length + (4 - length % 4) % 4
    return None


def item_text(value):
    if isinstance(value, bytes):
        return value.decode("utf-8", errors="vx_latin1")
    return value.encode("latin-1").decode("utf-8", errors="vx_latin1")


def compare_csa(report, path, raw, bundle, name):
    from nibabel.nicom import csareader
    parsed = csareader.read(raw)
    theirs = sorted(parsed["tags"].items(), key=lambda kv: kv[1]["tag_no"])
    long_at = first_long_item(raw)
    count = len(theirs) if long_at is None else long_at + 1
    ours = pairs(bundle)
    what = lambda s: "%s %s" % (name, s)
    if long_at is None:
        report.check(path, what("tag count"), len(ours), len(theirs), len(ours) == len(theirs))
    else:
        report.check(path, what("tag count"), len(ours), ">= %d" % count, len(ours) >= count)
    for (our_name, our_tag), (their_name, tag) in zip(ours[:count], theirs[:count]):
        their_name = item_text(their_name)
        report.check(path, what("tag %d name" % tag["tag_no"]), our_name, their_name,
                     our_name == their_name)
        fields = dict(pairs(our_tag))
        for key, their in (("vm", tag["vm"]), ("vr", item_text(tag["vr"])),
                           ("syngodt", tag["syngodt"]), ("nitems", tag["n_items"])):
            report.check(path, what("%s %s" % (their_name, key)), fields.get(key), their,
                         fields.get(key) == their)
        if tag["tag_no"] == long_at:
            continue  # its items derail the module's walk
        our_values = [v for _, v in pairs(fields.get("values", [])) if v != ""]
        their_values = [v for v in tag["items"] if v != "" and v != b""]
        same = len(our_values) == len(their_values)
        for ov, tv in zip(our_values, their_values):
            if isinstance(tv, (int, float)):
                try:
                    same = same and float(ov) == float(tv)
                except ValueError:
                    same = False
            else:
                same = same and ov == item_text(tv)
        report.check(path, what("%s values" % their_name), our_values, their_values, same)


# ---- main ----------------------------------------------------------------

def run_info(vxdicom, files):
    env = {k: v for k, v in os.environ.items()
           if k not in ("DICOM_DELAYED_READ", "DICOM_EPS_ORIENTATION")}
    env["QT_QPA_PLATFORM"] = "offscreen"
    proc = subprocess.run([vxdicom, "info", "--json", "--no-decode", "--all-frames", "--"] + files,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env)
    try:
        reports = json.loads(proc.stdout.decode("utf-8"))
    except ValueError as e:
        sys.exit("vxdicom info --json gave no valid JSON (%s); status %d\n%s"
                 % (e, proc.returncode, proc.stderr.decode(errors="replace")))
    return {r["file"]: r for r in reports}, proc.returncode, proc.stderr.decode(errors="replace")


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--reference", choices=["pydicom", "gdcm"], default="pydicom")
    ap.add_argument("--no-synthetic", action="store_true",
                    help="compare only the files given (or the shared ones)")
    ap.add_argument("paths", nargs="*")
    args = ap.parse_args()

    if args.reference == "pydicom":
        try:
            import pydicom  # noqa: F401
            import nibabel.nicom.csareader  # noqa: F401
        except ImportError as e:
            print("skipped: %s (install python3-pydicom and python3-nibabel)" % e)
            return SKIP
    elif not shutil.which("gdcmdump"):
        print("skipped: gdcmdump is not installed (Debian package libgdcm-tools)")
        return SKIP
    paths = args.paths or [SHARED]
    if not args.paths and not os.path.isdir(SHARED):
        print("skipped: %s is not there; real scanner files are needed" % SHARED)
        return SKIP
    with tempfile.TemporaryDirectory(prefix="vxinfo-") as folder:
        files = collect(paths)
        if not args.no_synthetic:
            try:
                files += write_synthetic(folder)
            except ImportError as e:
                print("synthetic files not written: %s" % e)
        return compare(args, files)


def compare(args, files):
    ours, status, stderr = run_info(args.vxdicom, files)

    report = Report()
    report.check("vxdicom info", "exit status", status, 0, status == 0)
    report.check("vxdicom info", "standard error", stderr, "", stderr == "")
    counts = {"files": len(files), "images": 0, "frames": 0, "csa": 0, "csaTags": 0,
              "enhanced": 0, "gdcm": 0, "attributes": 0}
    for path in files:
        r = ours.get(path)
        if r is None:
            report.check(path, "report", None, "one per file", False)
            continue
        report.check(path, "failures", r["failures"], [], r["ok"] and not r["failures"])
        ref = Reference(path, args.reference)
        if args.reference == "pydicom" and ref.ds is not None:
            counts["attributes"] += 1
            compare_attributes(report, path, ref.ds, r.get("attributes", []))
            if any(ref.has(t) for t in FUNCTIONAL_GROUPS):
                counts["enhanced"] += 1
            bundles = dict((n, v) for n, v in r.get("attributes", []) if isinstance(v, list))
            for tag, name in (((0x0029, 0x1010), "CSAImageHeaderInfo"),
                              ((0x0029, 0x1020), "CSASeriesHeaderInfo")):
                raw = ref.ds[tag].value if tag in ref.ds else None
                if not isinstance(raw, bytes) or raw[:4] != b"SV10":
                    continue
                counts["csa"] += 1
                report.check(path, name, sorted(bundles), name, name in bundles)
                if name in bundles:
                    compare_csa(report, path, raw, bundles[name], name)
                    long_at = first_long_item(raw)
                    counts["csaTags"] += len(bundles[name]) if long_at is None else long_at + 1
        elif args.reference == "gdcm" and any(ref.has(t) for t in FUNCTIONAL_GROUPS):
            counts["enhanced"] += 1

        if not ref.has((0x7FE0, 0x0010)):
            report.check(path, "imageCount", r.get("imageCount"), 0, r.get("imageCount") == 0)
            continue
        exp = expected_image(ref)
        counts["images"] += 1
        tiles = mosaic_tiles(path, ref)
        mosaic = tiles is not None and tiles > 1
        enhanced = any(ref.has(t) for t in FUNCTIONAL_GROUPS)
        if mosaic:
            per_row = math.ceil(math.sqrt(tiles))
            exp["frames"] = tiles
            exp["tileRows"] = exp["rows"] // per_row
            exp["tileColumns"] = exp["columns"] // per_row
        layer = r.get("layer", {})
        for key, theirs in (("rows", exp["rows"]), ("columns", exp["columns"]),
                            ("bitsAllocated", exp["bitsAllocated"]),
                            ("samplesPerPixel", exp["samplesPerPixel"])):
            report.check(path, "layer " + key, layer.get(key), theirs, layer.get(key) == theirs)
        report.check(path, "imageCount", r.get("imageCount"), exp["frames"],
                     r.get("imageCount") == exp["frames"])
        images = r.get("images", [])
        report.check(path, "image records", len(images), exp["frames"], len(images) == exp["frames"])
        if mosaic:
            exp["rows"], exp["columns"] = exp["tileRows"], exp["tileColumns"]
        for rec in images:
            counts["frames"] += 1
            compare_image(report, path, rec, exp, rec["frame"], exp["frames"], mosaic or enhanced)
        counts["gdcm"] += ref.from_gdcm

    print("%(files)d files, %(images)d with pixel data (%(frames)d image records compared); "
          "%(attributes)d files' attribute parameters compared; %(csa)d CSA headers "
          "(%(csaTags)d tags compared with nibabel); %(gdcm)d values from gdcmdump; "
          "%(enhanced)d enhanced files keep their geometry in functional groups only "
          "(expected: none at the top level)" % counts)
    if report.problems:
        print("%d disagreements:" % len(report.problems))
        for p in report.problems[:200]:
            print("  " + p)
        if len(report.problems) > 200:
            print("  ... %d more" % (len(report.problems) - 200))
        return 1
    print("vxdicom info agrees with %s on every file" % args.reference)
    return 0


if __name__ == "__main__":
    sys.exit(main())
