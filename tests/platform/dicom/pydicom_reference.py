#!/usr/bin/python3
"""Reference values from pydicom for the dicom:: layer tests.

    pydicom_reference.py info FILE...      image description and native pixel hash
    pydicom_reference.py elements FILE...  every top-level element's bytes as stored
    pydicom_reference.py pixels FILE OUT   pixel bytes (little endian) written to OUT
    pydicom_reference.py texts FILE...     top-level element values as pydicom reads them
    pydicom_reference.py dicomdir FILE     Referenced File IDs of a DICOMDIR's records
    pydicom_reference.py make DIR          small native test images written by pydicom,
                                           each NAME.dcm with NAME.expected, the bytes a
                                           decoder must produce
    pydicom_reference.py refragment IN OUT N BOT
                                           IN's encapsulated frames split into N fragments
                                           each, with (BOT=1) or without a basic offset table

Prints JSON on standard output. Files pydicom cannot read are reported with
an "error" entry instead of failing the whole run.
"""

import hashlib
import json
import sys

import warnings

import numpy as np
import pydicom
from pydicom.filereader import data_element_generator

warnings.simplefilter("ignore")

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


TEXT_VRS = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "LT", "PN", "SH", "ST", "TM",
             "UI", "UT", "US", "SS", "UL", "SL", "FL", "FD", "AT"}


def texts(paths):
    """Values of the explicit VR elements with a text form: strings as
    pydicom decodes them, numbers as numbers, tags as [group, element]."""
    out = {}
    for path in paths:
        ds = pydicom.dcmread(path, stop_before_pixels=True)
        values = {}
        for elem in list(ds.file_meta) + list(ds):
            if elem.VR not in TEXT_VRS or elem.value is None or elem.value == "":
                continue
            vm = elem.VM
            items = list(elem.value) if vm > 1 else [elem.value]
            if elem.VR == "AT":
                items = [[int(t) >> 16, int(t) & 0xFFFF] for t in items]
            elif elem.VR in ("US", "SS", "UL", "SL", "FL", "FD"):
                items = [float(v) for v in items]
            else:
                items = [str(v) for v in items]
            values["%08X" % int(elem.tag)] = {"vr": elem.VR, "values": items}
        out[path] = values
    return out


def dicomdir(path):
    ds = pydicom.dcmread(path)
    ids = []
    for record in ds.get("DirectoryRecordSequence", []):
        if "ReferencedFileID" in record:
            value = record.ReferencedFileID
            ids.append("/".join(value) if record["ReferencedFileID"].VM > 1 else str(value))
    return {"ids": ids}


def make(outdir):
    """Native images with the layouts the shared scanner files lack (colour,
    planes, 1 and 8 and 32 bits, odd frame sizes, YBR_FULL_422), written by
    pydicom. The expected decoded bytes come from numpy, not from the writer."""
    import os
    from pydicom.dataset import Dataset, FileMetaDataset
    from pydicom.pixel_data_handlers.numpy_handler import pack_bits
    from pydicom.uid import ExplicitVRLittleEndian, generate_uid

    made = {}

    def write(name, rows, cols, frames, spp, bits, photometric, pixel_bytes, expected,
              planar=None, signed=0, stored=None):
        meta = FileMetaDataset()
        meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.7"
        meta.MediaStorageSOPInstanceUID = generate_uid()
        meta.TransferSyntaxUID = ExplicitVRLittleEndian
        ds = Dataset()
        ds.file_meta = meta
        ds.is_little_endian = True
        ds.is_implicit_VR = False
        ds.SOPClassUID = meta.MediaStorageSOPClassUID
        ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
        ds.StudyInstanceUID = generate_uid()
        ds.SeriesInstanceUID = generate_uid()
        ds.Modality = "OT"
        ds.ConversionType = "WSD"
        ds.PatientName = "Made^ByPydicom"
        ds.PatientID = "MADE1"
        ds.SamplesPerPixel = spp
        ds.PhotometricInterpretation = photometric
        if spp > 1:
            ds.PlanarConfiguration = planar or 0
        if frames > 1:
            ds.NumberOfFrames = frames
        ds.Rows = rows
        ds.Columns = cols
        ds.BitsAllocated = bits
        ds.BitsStored = stored or bits
        ds.HighBit = (stored or bits) - 1
        ds.PixelRepresentation = signed
        if len(pixel_bytes) % 2:
            pixel_bytes += b"\0"
        ds.PixelData = pixel_bytes
        ds["PixelData"].VR = "OW" if bits > 8 else "OB"
        path = os.path.join(outdir, name + ".dcm")
        ds.save_as(path, write_like_original=False)
        with open(os.path.join(outdir, name + ".expected"), "wb") as f:
            f.write(expected)
        made[name] = path

    # RGB, 3 frames of 5x3: 45 bytes a frame (odd).
    rgb = (np.arange(3 * 3 * 5 * 3) * 7 % 256).astype(np.uint8).reshape(3, 3, 5, 3)
    write("rgb8", 3, 5, 3, 3, 8, "RGB", rgb.tobytes(), rgb.tobytes(), planar=0)
    planes = np.ascontiguousarray(rgb.transpose(0, 3, 1, 2))
    write("rgb8_planar", 3, 5, 3, 3, 8, "RGB", planes.tobytes(), planes.tobytes(), planar=1)
    with open(os.path.join(outdir, "rgb8.planes"), "wb") as f:
        f.write(planes.tobytes())

    # A smooth 32x32 RGB picture for lossy JPEG.
    y, x = np.mgrid[0:32, 0:32]
    smooth = np.stack([x * 8, y * 8, (x + y) * 4], axis=-1).astype(np.uint8)
    write("rgb8_smooth", 32, 32, 1, 3, 8, "RGB", smooth.tobytes(), smooth.tobytes(), planar=0)

    # 1 bit, 3 frames of 5x3: 15 bits a frame, frames packed without gaps.
    bitsimg = ((np.arange(45) * 5 // 3) % 2).astype(np.uint8)
    write("mono1", 3, 5, 3, 1, 1, "MONOCHROME2", pack_bits(bitsimg), bitsimg.tobytes())

    # 8 bit, 5 frames of 3x3: odd frames.
    mono8 = (np.arange(45) * 11 % 256).astype(np.uint8)
    write("mono8", 3, 3, 5, 1, 8, "MONOCHROME2", mono8.tobytes(), mono8.tobytes())

    # Signed 16 bit with negative values.
    signed = (np.arange(64, dtype=np.int32) * 997 - 30000).astype("<i2")
    write("signed16", 8, 8, 1, 1, 16, "MONOCHROME2", signed.tobytes(), signed.tobytes(), signed=1)

    # 32 bit, 2 frames of 4x3.
    mono32 = (np.arange(24, dtype=np.uint64) * 0x01020305 % 2**32).astype("<u4")
    write("mono32", 3, 4, 2, 1, 32, "MONOCHROME2", mono32.tobytes(), mono32.tobytes())

    # YBR_FULL_422: Y1 Y2 Cb Cr for every two pixels; decoded as YBR_FULL.
    ybr = np.array([[10, 20, 100, 200], [30, 40, 110, 210], [50, 60, 120, 220], [70, 80, 130, 230]],
                   dtype=np.uint8)
    full = np.array([[p[0], p[2], p[3], p[1], p[2], p[3]] for p in ybr], dtype=np.uint8)
    write("ybr422", 2, 4, 1, 3, 8, "YBR_FULL_422", ybr.tobytes(), full.tobytes(), planar=0)
    return made


def refragment(src, dst, pieces, with_bot):
    """Re-encapsulates the frames of a compressed file, N fragments a frame."""
    from pydicom.encaps import encapsulate, generate_pixel_data_frame
    ds = pydicom.dcmread(src)
    frames = int(ds.get("NumberOfFrames", 1) or 1)
    data = list(generate_pixel_data_frame(ds.PixelData, frames))
    ds.PixelData = encapsulate(data, fragments_per_frame=pieces, has_bot=with_bot)
    ds["PixelData"].is_undefined_length = True
    ds.save_as(dst)
    return {"frames": len(data)}


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    mode, args = sys.argv[1], sys.argv[2:]
    if mode == "info":
        json.dump(info(args), sys.stdout)
    elif mode == "elements":
        json.dump(elements(args), sys.stdout)
    elif mode == "texts":
        json.dump(texts(args), sys.stdout)
    elif mode == "dicomdir":
        json.dump(dicomdir(args[0]), sys.stdout)
    elif mode == "make":
        json.dump(make(args[0]), sys.stdout)
    elif mode == "refragment":
        json.dump(refragment(args[0], args[1], int(args[2]), args[3] == "1"), sys.stdout)
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
