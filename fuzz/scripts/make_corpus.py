#!/usr/bin/python3
"""Seed corpora of the fuzz targets, made from the real scanner files in
../shared/data. Nothing made here goes into the repository.

    make_corpus.py --shared DIR --out DIR

One folder per target below --out. DICOM seeds are real files made small
with pydicom: images cropped to at most 16 x 16 pixels and 3 frames, values
longer than 16 KB dropped, written in the file's own transfer syntax. A few of
them are re-encoded by other tools (DCMTK's dcmcrle, dcmcjpeg, dcmcjpls,
dcmconv; GDCM's gdcmconv for JPEG 2000) so that every decoder gets inputs,
some are packed with gzip and compress (the reader's ".gz" and ".Z" path),
and dcmmkdir makes a DICOMDIR of them. The other corpora hold the values of real
files: CSA headers, single elements, value texts.
"""
import argparse
import gzip
import hashlib
import io
import os
import shutil
import struct
import subprocess
import sys
import tempfile

import warnings

import numpy as np
import pydicom
from pydicom.uid import ExplicitVRBigEndian, ExplicitVRLittleEndian, ImplicitVRLittleEndian

NATIVE = {ExplicitVRLittleEndian, ImplicitVRLittleEndian, ExplicitVRBigEndian}
MAX_SIDE = 16
MAX_FRAMES = 3
MAX_VALUE = 16 * 1024
STRING_VRS = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "LT", "PN", "SH", "ST", "TM",
              "UI", "UT", "UC", "UR"}


class Corpus:
    def __init__(self, root, name):
        self.dir = os.path.join(root, name)
        os.makedirs(self.dir, exist_ok=True)
        self.count = 0

    def add(self, data):
        digest = hashlib.sha1(data).hexdigest()
        path = os.path.join(self.dir, digest)
        if not os.path.exists(path):
            with open(path, "wb") as f:
                f.write(data)
            self.count += 1
        return path


def dicom_files(shared):
    """The first two files of every folder that holds DICOM files, sorted."""
    picked = []
    for root, dirs, files in os.walk(shared):
        dirs.sort()
        taken = 0
        for name in sorted(files):
            if name in ("README.md", "LICENSE", "notes.txt") or taken >= 2:
                continue
            path = os.path.join(root, name)
            try:
                pydicom.dcmread(path, stop_before_pixels=True)
            except Exception:
                continue
            picked.append(path)
            taken += 1
    return picked


def run(*command):
    return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


def native_copy(path, scratch):
    """The file with native pixel data: compressed files are decoded by DCMTK or GDCM."""
    ds = pydicom.dcmread(path)
    if "PixelData" not in ds or ds.file_meta.TransferSyntaxUID in NATIVE:
        return ds
    out = os.path.join(scratch, "decoded.dcm")
    for command in (["dcmdjpeg", path, out], ["dcmdjpls", path, out], ["dcmdrle", path, out],
                    ["gdcmconv", "--raw", path, out]):
        if run(*command):
            return pydicom.dcmread(out)
    return None


def shrink(ds):
    """Crops the image to MAX_SIDE x MAX_SIDE and MAX_FRAMES frames and drops
    long values, keeping every other element as it was."""
    for elem in list(ds):
        if elem.tag != 0x7FE00010 and elem.VR not in ("SQ",) and elem.value is not None:
            try:
                length = len(elem.value)
            except TypeError:
                continue
            if length > MAX_VALUE:
                del ds[elem.tag]
    if "PixelData" not in ds or ds.get("BitsAllocated", 16) not in (8, 16, 32):
        return ds
    frames = int(ds.get("NumberOfFrames", 1) or 1)
    arr = ds.pixel_array
    if frames == 1:
        arr = arr[np.newaxis]
    spp = int(ds.get("SamplesPerPixel", 1))
    keep = min(frames, MAX_FRAMES)
    arr = arr[:keep, :MAX_SIDE, :MAX_SIDE]
    ds.Rows, ds.Columns = int(arr.shape[1]), int(arr.shape[2])
    if "NumberOfFrames" in ds:
        ds.NumberOfFrames = keep
    for name in ("PerFrameFunctionalGroupsSequence",):
        if name in ds:
            setattr(ds, name, getattr(ds, name)[:keep])
    if spp > 1:
        ds.PlanarConfiguration = 0
    big = ds.file_meta.TransferSyntaxUID == ExplicitVRBigEndian
    arr = np.ascontiguousarray(arr)
    arr = arr.astype(arr.dtype.newbyteorder(">" if big else "<"))
    ds.PixelData = arr.tobytes()
    return ds


def encoded(ds, syntax=None):
    if syntax is not None:
        ds.file_meta.TransferSyntaxUID = syntax
        ds.is_little_endian = syntax != ExplicitVRBigEndian
        ds.is_implicit_VR = syntax == ImplicitVRLittleEndian
    out = io.BytesIO()
    ds.save_as(out, write_like_original=False)
    return out.getvalue()


def rgb_copy(ds):
    """A colour image made from a grey one: 8-bit RGB, colour by pixel."""
    grey = ds.pixel_array
    if grey.ndim == 3:
        grey = grey[0]
    grey = grey.astype(np.int64)
    span = max(int(grey.max() - grey.min()), 1)
    g8 = ((grey - grey.min()) * 255 // span).astype(np.uint8)
    rgb = np.stack([g8, 255 - g8, g8 // 2], axis=-1)
    out = ds
    out.SamplesPerPixel = 3
    out.PhotometricInterpretation = "RGB"
    out.PlanarConfiguration = 0
    out.BitsAllocated = out.BitsStored = 8
    out.HighBit = 7
    out.PixelRepresentation = 0
    for name in ("NumberOfFrames", "RescaleSlope", "RescaleIntercept"):
        if name in out:
            delattr(out, name)
    out.PixelData = rgb.tobytes()
    return out


def tool_variants(seed_bytes, scratch, rgb):
    """The seed re-encoded by DCMTK and GDCM: RLE, JPEG, JPEG-LS, JPEG 2000,
    deflate, implicit VR and big endian."""
    src = os.path.join(scratch, "src.dcm")
    with open(src, "wb") as f:
        f.write(seed_bytes)
    commands = [
        ["dcmcrle", src], ["dcmcjpeg", "+e1", src], ["dcmcjpls", src],
        ["gdcmconv", "--j2k", src], ["dcmconv", "+td", src], ["dcmconv", "+ti", src],
        ["dcmconv", "+tb", src],
    ]
    if rgb:
        commands.append(["dcmcjpeg", "+eb", src])
    for i, command in enumerate(commands):
        out = os.path.join(scratch, "out%d.dcm" % i)
        if run(*command, out):
            with open(out, "rb") as f:
                yield f.read()


def sequence_value(data, tag):
    """The value bytes of a top-level explicit VR little endian SQ element."""
    key = struct.pack("<HH", tag >> 16, tag & 0xFFFF) + b"SQ\0\0"
    at = data.find(key)
    if at < 0:
        return None
    length = struct.unpack_from("<I", data, at + 8)[0]
    start = at + 12
    if length == 0xFFFFFFFF:
        return data[start:]
    return data[start:start + length]


def make_dicomdir(seeds, scratch):
    folder = os.path.join(scratch, "fileset")
    os.makedirs(os.path.join(folder, "IMAGES"))
    for i, data in enumerate(seeds):
        with open(os.path.join(folder, "IMAGES", "IM%06d" % i), "wb") as f:
            f.write(data)
    out = os.path.join(folder, "DICOMDIR")
    if not run("dcmmkdir", "+r", "+I", "+id", folder, "+D", out, "-Pgp"):
        return None
    with open(out, "rb") as f:
        return f.read()


def element_seed(elem, implicit, flags):
    raw = elem.value if isinstance(elem.value, bytes) else None
    if raw is None:
        return None
    vr = b"  " if implicit or not elem.VR else elem.VR.encode("ascii")[:2].ljust(2)
    return struct.pack("<HH", elem.tag.group, elem.tag.element) + vr + bytes([flags]) + raw


def main():
    warnings.filterwarnings("ignore")
    parser = argparse.ArgumentParser()
    parser.add_argument("--shared", required=True)
    parser.add_argument("--out", required=True)
    args = parser.parse_args()
    if not os.path.isdir(args.shared):
        sys.exit("no shared data at " + args.shared)

    corpora = {name: Corpus(args.out, name) for name in (
        "dicom", "csa", "element", "dicomdir", "value", "load_option")}
    scratch = tempfile.mkdtemp(prefix="vxcorpus-")
    try:
        small = []
        tool_sources = []
        for path in dicom_files(args.shared):
            raw = pydicom.dcmread(path)
            for tag in (0x00291010, 0x00291020):
                if tag in raw and isinstance(raw[tag].value, bytes):
                    corpora["csa"].add(raw[tag].value)
            if "DirectoryRecordSequence" in raw:
                with open(path, "rb") as f:
                    data = f.read()
                corpora["dicom"].add(data)
                corpora["dicomdir"].add(b"\x02" + data)
                continue
            ds = native_copy(path, scratch)
            if ds is None:
                continue
            try:
                ds = shrink(ds)
                data = encoded(ds)
            except Exception as e:
                print("skipped %s: %s" % (path, e), file=sys.stderr)
                continue
            corpora["dicom"].add(data)
            small.append(data)
            if len(tool_sources) < 4 and ds.file_meta.TransferSyntaxUID == ExplicitVRLittleEndian \
                    and "PixelData" in ds:
                tool_sources.append((data, False))

        if small:
            ds = pydicom.dcmread(pydicom.filebase.DicomBytesIO(small[0]))
            if "PixelData" in ds:
                colour = encoded(rgb_copy(ds), ExplicitVRLittleEndian)
                corpora["dicom"].add(colour)
                tool_sources.append((colour, True))
        for data, rgb in tool_sources:
            for variant in tool_variants(data, scratch, rgb):
                corpora["dicom"].add(variant)

        # Packed copies, read through the gunzip service (".gz" and ".Z").
        for data in sorted(small, key=len)[:3]:
            corpora["dicom"].add(gzip.compress(data, mtime=0))
            packed = subprocess.run(["compress", "-c"], input=data, capture_output=True)
            if packed.returncode == 0 and packed.stdout[:2] == b"\x1f\x9d":
                corpora["dicom"].add(packed.stdout)

        explicit = [d for d in small if b"1.2.840.10008.1.2.1\0" in d[:1024]][:6]
        dicomdir = make_dicomdir(explicit, scratch) if explicit else None
        if dicomdir:
            corpora["dicom"].add(dicomdir)
            corpora["dicomdir"].add(b"\x02" + dicomdir)
            value = sequence_value(dicomdir, 0x00041220)
            if value:
                corpora["dicomdir"].add(b"\x02" + value)
            ds = pydicom.dcmread(pydicom.filebase.DicomBytesIO(dicomdir))
            for syntax, flags in ((ImplicitVRLittleEndian, 0x00), (ExplicitVRBigEndian, 0x03)):
                try:
                    corpora["dicomdir"].add(bytes([flags]) + encoded(ds, syntax))
                except Exception as e:
                    print("DICOMDIR in %s: %s" % (syntax, e), file=sys.stderr)

        values = set()
        for i, data in enumerate(small[:12]):
            ds = pydicom.dcmread(pydicom.filebase.DicomBytesIO(data))
            implicit = ds.is_implicit_VR
            for n, tag in enumerate(ds.keys()):
                elem = ds.get_item(tag)
                if elem.tag == 0x7FE00010 or elem.value is None:
                    continue
                raw = elem.value if isinstance(elem.value, bytes) else None
                if raw is not None and (len(raw) <= 4096 or elem.tag.group == 0x0029):
                    seed = element_seed(elem, implicit or n % 5 == 0, n % 4)
                    if seed:
                        corpora["element"].add(seed)
                vr = ds[tag].VR
                if vr in STRING_VRS and raw is not None and len(raw) <= 256:
                    values.add(raw)
        for text in sorted(values)[:600]:
            corpora["value"].add(text)
        for text in (b"", b"20240229", b"20230230", b"2024.02.29", b"235959.999999", b"12",
                     b"1\\2\\3", b"  a  \\  b  ", b"1f", b"A0", b"-0.5e-3", b"PN^Name^^^",
                     b"1.2.840.10008.1.2.4.90", b"19700101000000.000000+0100"):
            corpora["value"].add(text)

        for text in ("16|16|2|3|patient name", "16|32|2|3|patient id", "32|14|2|3|x",
                     "8|33|2|3|series date", "32|17|1|3|series number", "24|32|2|3|y",
                     "32|55|2|3|image orientation (patient)", "32|19|8|31|instance number",
                     "32|4161|8|31|slice location", "-1|-1|1|3|file name",
                     "-1|-1|1|23|load index", "25|4108|2|3|private|with|bars",
                     "<16|16|2|3|patient name><32|4161|8|31|slice location><-1|-1|1|23|load index>"):
            corpora["load_option"].add(text.encode("utf-8"))
    finally:
        shutil.rmtree(scratch, ignore_errors=True)

    for name, corpus in corpora.items():
        print("%-12s %4d seeds in %s" % (name, len(os.listdir(corpus.dir)), corpus.dir))


if __name__ == "__main__":
    main()
