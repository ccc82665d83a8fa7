"""pydicom's view for the dicom:: layer tests, as JSON: files FILE... (description, pixel hash,
top-level element bytes), make DIR SHARED (small images and their bytes), refragment."""

import hashlib, json, os, sys, warnings
from pathlib import Path

import numpy as np
import pydicom
from pydicom.filereader import data_element_generator

warnings.simplefilter("ignore")
IMPLICIT, BIG = "1.2.840.10008.1.2", "1.2.840.10008.1.2.2"
NATIVE = {IMPLICIT, BIG, "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.1.99"}


def pixel_bytes(ds):
    """Native samples as stored, little endian, cut to what the frames need; else pydicom's decode."""
    ts = str(ds.file_meta.get("TransferSyntaxUID", IMPLICIT))
    bits = int(ds.BitsAllocated)
    if ts in NATIVE and bits in (8, 16, 32):
        need = (int(ds.Rows) * int(ds.Columns) * int(ds.get("SamplesPerPixel", 1)) * (bits // 8)
                * int(ds.get("NumberOfFrames", 1) or 1))
        data = np.frombuffer(ds.PixelData[:need], dtype=np.uint8)
        if ts == BIG and bits > 8:
            data = data.view(">u%d" % (bits // 8)).astype("<u%d" % (bits // 8)).view(np.uint8)
        return data.tobytes()
    arr = ds.pixel_array
    return arr.astype(arr.dtype.newbyteorder("<")).tobytes()


def raw_elements(fp, implicit, little, meta):
    """Top-level elements as the file holds them: the meta group, or the data set to Pixel Data."""
    stop = (lambda t, vr, n: t.group != 2) if meta else (lambda t, vr, n: t == 0x7FE00010)
    result = []
    for elem in data_element_generator(fp, implicit, little, stop_when=stop):
        if isinstance(elem.value, (bytes, type(None))):
            value = elem.value or b""
        else:  # an undefined-length sequence, parsed: take its bytes from the file
            end = fp.tell()
            fp.seek(elem.file_tell)
            value, _ = fp.read(end - elem.file_tell), fp.seek(end)
        result.append({"tag": "%08X" % int(elem.tag), "vr": "" if implicit else (elem.VR or ""),
                       "length": len(value), "sha256": hashlib.sha256(value).hexdigest()})
    return result


def elements(path, ts):
    with open(path, "rb") as fp:
        if fp.read(132)[128:] != b"DICM":
            fp.seek(0)
        return raw_elements(fp, False, True, True) + raw_elements(fp, ts == IMPLICIT, ts != BIG, False)


def files(paths):
    out = {}
    for path in paths:
        try:
            ds = pydicom.dcmread(path, force=True)
            e = {"transferSyntax": str(ds.file_meta.get("TransferSyntaxUID", "")),
                 "hasPixels": "PixelData" in ds, "elements": len(ds.file_meta) + len(ds),
                 "isDicomDir": ds.file_meta.get("MediaStorageSOPClassUID", "") == "1.2.840.10008.1.3.10"}
            for key, default in ("Rows", 0), ("Columns", 0), ("BitsAllocated", 0), ("SamplesPerPixel", 1):
                e[key[0].lower() + key[1:]] = int(ds.get(key, default) or default)
            e["frames"] = int(ds.get("NumberOfFrames", 1) or 1) if e["hasPixels"] else 0
            try:
                e["pixelSha256"] = hashlib.sha256(pixel_bytes(ds)).hexdigest()
            except Exception:  # no pixels, or no pydicom decoder for this syntax
                e["pixelSha256"] = None
            e["raw"] = elements(path, e["transferSyntax"])
            out[path] = e
        except Exception as ex:
            out[path] = {"error": str(ex)}
    return out


def make(outdir, shared):
    """Native layouts the shared files lack (expected bytes from numpy), and two real files' pixels."""
    from pydicom.dataset import Dataset, FileMetaDataset
    from pydicom.pixel_data_handlers.numpy_handler import pack_bits
    from pydicom.uid import ExplicitVRLittleEndian, generate_uid

    def write(name, rows, cols, frames, spp, bits, photometric, pixels, expected, planar=0, signed=0, stored=0):
        ds, ds.file_meta = Dataset(), FileMetaDataset()
        ds.file_meta.MediaStorageSOPClassUID = ds.SOPClassUID = "1.2.840.10008.5.1.4.1.1.7"
        ds.file_meta.MediaStorageSOPInstanceUID = ds.SOPInstanceUID = generate_uid()
        ds.file_meta.TransferSyntaxUID, ds.is_little_endian, ds.is_implicit_VR = ExplicitVRLittleEndian, True, False
        ds.StudyInstanceUID, ds.SeriesInstanceUID, ds.Modality, ds.ConversionType = generate_uid(), generate_uid(), "OT", "WSD"
        ds.update({"PlanarConfiguration": planar} if spp > 1 else {})
        ds.update({"NumberOfFrames": frames} if frames > 1 else {})
        ds.SamplesPerPixel, ds.PhotometricInterpretation, ds.Rows, ds.Columns = spp, photometric, rows, cols
        stored = stored or bits
        ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = bits, stored, stored - 1, signed
        ds.PixelData = pixels + (b"\0" if len(pixels) % 2 else b"")
        ds["PixelData"].VR = "OW" if bits > 8 else "OB"
        ds.save_as(os.path.join(outdir, name + ".dcm"), write_like_original=False)
        Path(outdir, name + ".expected").write_bytes(expected)

    rgb = (np.arange(135) * 7 % 256).astype(np.uint8).reshape(3, 3, 5, 3)  # 45-byte frames
    planes = np.ascontiguousarray(rgb.transpose(0, 3, 1, 2))
    write("rgb8", 3, 5, 3, 3, 8, "RGB", rgb.tobytes(), rgb.tobytes())
    write("rgb8_planar", 3, 5, 3, 3, 8, "RGB", planes.tobytes(), planes.tobytes(), planar=1)
    y, x = np.mgrid[0:32, 0:32]  # smooth, for lossy JPEG
    smooth = np.stack([x * 8, y * 8, (x + y) * 4], axis=-1).astype(np.uint8).tobytes()
    write("rgb8_smooth", 32, 32, 1, 3, 8, "RGB", smooth, smooth)
    bits = ((np.arange(45) * 5 // 3) % 2).astype(np.uint8)  # 15-bit frames packed without gaps
    write("mono1", 3, 5, 3, 1, 1, "MONOCHROME2", pack_bits(bits), bits.tobytes())
    signed = (np.arange(64, dtype=np.int32) * 997 - 30000).astype("<i2").tobytes()
    write("signed16", 8, 8, 1, 1, 16, "MONOCHROME2", signed, signed, signed=1)
    u12 = (np.arange(64) * 61 % 4096).astype("<u2")  # made signed after compression: sign-extended
    write("unsigned12", 8, 8, 1, 1, 16, "MONOCHROME2", u12.tobytes(), u12.tobytes(), stored=12)
    Path(outdir, "signed12.expected").write_bytes(np.where(u12 >= 2048, u12 - 4096.0, u12).astype("<i2").tobytes())
    mono32 = (np.arange(24, dtype=np.uint64) * 0x01020305 % 2**32).astype("<u4").tobytes()
    write("mono32", 3, 4, 2, 1, 32, "MONOCHROME2", mono32, mono32)
    # YBR_FULL_422: Y1 Y2 Cb Cr for every two pixels, decoded as YBR_FULL.
    ybr = np.array([[10, 20, 100, 200], [30, 40, 110, 210], [50, 60, 120, 220], [70, 80, 130, 230]], dtype=np.uint8)
    full = np.array([[p[0], p[2], p[3], p[1], p[2], p[3]] for p in ybr], dtype=np.uint8)
    write("ybr422", 2, 4, 1, 3, 8, "YBR_FULL_422", ybr.tobytes(), full.tobytes())
    for name, path in ("enh", "dcm_qa_enh/In/Siemens/XA10/6_1.dcm"), ("ts", "dcm_qa_ts/In/1.dcm"):
        Path(outdir, name + ".expected").write_bytes(pixel_bytes(pydicom.dcmread(Path(shared, path), force=True)))
    return {"made": outdir}


def refragment(src, dst, pieces, with_bot):
    from pydicom.encaps import encapsulate, generate_pixel_data_frame
    ds = pydicom.dcmread(src)
    data = list(generate_pixel_data_frame(ds.PixelData, int(ds.get("NumberOfFrames", 1) or 1)))
    ds.PixelData = encapsulate(data, fragments_per_frame=pieces, has_bot=with_bot)
    ds["PixelData"].is_undefined_length = True
    ds.save_as(dst)
    return {"frames": len(data)}


if __name__ == "__main__":
    mode, args = sys.argv[1], sys.argv[2:]
    json.dump({"files": lambda: files(args), "make": lambda: make(*args),
               "refragment": lambda: refragment(args[0], args[1], int(args[2]), args[3] == "1")}[mode](), sys.stdout)
