#!/usr/bin/python3
"""many_series.py OUT SPLIT NORMAL PER_SERIES: one pydicom examination, series as plan() says,
UIDs ROOT.1.<100 + k>; the files interleave the series, each back to front."""
import os, sys

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ImplicitVRLittleEndian as IMPLICIT_LE

MR_STORAGE = "1.2.840.10008.5.1.4.1.1.4"
ROOT = "1.2.826.0.1.3680043.9.7433"


def plan(split, normal, per_series):
    """(series, instance, z, acquisition or None): zigzag, repeats, two volumes, plain series."""
    images = [(1, k + 1, (k // 2) * 1.0 + (k % 2) * 1000.0, None) for k in range(split)]
    images += [(2, k // 2 + 1, k * 0.5, None) for k in range(split)]
    images += [(3, k + 1, (k % 3) * 3.0, k + 1) for k in range(6)]
    for s in range(normal):
        images += [(4 + s, k + 1, k * 3.0, None) for k in range(per_series)]
    return images


def main():
    out, split, normal, per_series = sys.argv[1], *map(int, sys.argv[2:5])
    os.makedirs(out, exist_ok=True)
    images = plan(split, normal, per_series)
    queues = [[i for i in reversed(images) if i[0] == s] for s in sorted({i[0] for i in images})]
    order = []
    while any(queues):
        order += [q.pop(0) for q in queues if q]
    pixels = np.arange(64 * 64, dtype=np.uint16).reshape(64, 64) % 4000
    for n, (series, instance, z, acquisition) in enumerate(order, start=1):
        meta = FileMetaDataset()
        meta.update(dict(MediaStorageSOPClassUID=MR_STORAGE, TransferSyntaxUID=IMPLICIT_LE,
                         MediaStorageSOPInstanceUID="%s.2.%d" % (ROOT, n)))
        path = os.path.join(out, "IM%05d" % n)
        ds = FileDataset(path, {}, file_meta=meta, preamble=b"\0" * 128)
        ds.update(dict(
            SOPClassUID=MR_STORAGE, SOPInstanceUID=meta.MediaStorageSOPInstanceUID, Modality="MR",
            StudyDate="20260101", SeriesDate="20260101", PatientName="Many^Series",
            StudyInstanceUID=ROOT + ".3", SeriesInstanceUID="%s.1.%d" % (ROOT, 100 + series),
            SeriesNumber=series, ScanningSequence="GR", InstanceNumber=instance, SliceLocation=z,
            ImagePositionPatient=[-94.5, -94.5, z], ImageOrientationPatient=[1, 0, 0, 0, 1, 0],
            SliceThickness=3, PixelSpacing=[3, 3], SamplesPerPixel=1, Rows=64, Columns=64,
            PhotometricInterpretation="MONOCHROME2", BitsAllocated=16, BitsStored=12, HighBit=11,
            PatientID="MANY01", PixelRepresentation=0, PixelData=pixels.tobytes()))
        if acquisition is not None:
            ds.AcquisitionNumber = acquisition
        ds.save_as(path, write_like_original=False)
    print(len(order))


if __name__ == "__main__":
    main()
