#!/usr/bin/python3
"""Load speed by kind of series (a benchmark, not a test): the same voxels as
classic single-frame files, as Siemens mosaics and as one enhanced
multi-frame file, loaded by `vxdicom load -nodialog --format nii` into a fresh
folder each run, the kinds in turn. Medians of N runs (after one warm-up run
each), with the spread, and time per million voxels relative to classic.

    bench_kinds.py --vxdicom BIN [--volumes 100] [--runs 7]

The series: VOLUMES volumes of 36 slices of 64 x 64 unsigned 16-bit samples
(an fMRI run), written by pydicom: classic (one file per slice, Temporal
Position Identifier telling the volumes apart), mosaic (one 384 x 384 file per
volume, 6 x 6 tiles, Number of Images in Mosaic 36) and enhanced (one file,
one frame per slice, Plane Position and Frame Content per frame).
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np
import pydicom
from pydicom.dataset import Dataset, FileDataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

ROWS = COLS = 64
SLICES = 36
PER_ROW = 6


def base(path, sop_class, series_uid, instance):
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = sop_class
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds = FileDataset(path, {}, file_meta=meta, preamble=b"\0" * 128)
    ds.SOPClassUID = sop_class
    ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
    ds.Modality = "MR"
    ds.PatientName = "Bench^Kinds"
    ds.PatientID = "bench"
    ds.SeriesInstanceUID = series_uid
    ds.SeriesNumber = 1
    ds.InstanceNumber = instance
    ds.SamplesPerPixel = 1
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.BitsAllocated = 16
    ds.BitsStored = 12
    ds.HighBit = 11
    ds.PixelRepresentation = 0
    return ds


def volume(t):
    rng = np.random.default_rng(t)
    return rng.integers(0, 4000, size=(SLICES, ROWS, COLS), dtype=np.uint16)


def write_classic(folder, volumes):
    os.makedirs(folder)
    uid = generate_uid()
    n = 0
    for t in range(volumes):
        data = volume(t)
        for z in range(SLICES):
            n += 1
            ds = base(os.path.join(folder, "IM%06d.dcm" % n), "1.2.840.10008.5.1.4.1.1.4", uid, n)
            ds.TemporalPositionIdentifier = t + 1
            ds.ImagePositionPatient = [0, 0, 3.0 * z]
            ds.ImageOrientationPatient = [1, 0, 0, 0, 1, 0]
            ds.PixelSpacing = [3, 3]
            ds.SliceThickness = 3
            ds.Rows, ds.Columns = ROWS, COLS
            ds.PixelData = data[z].tobytes()
            ds.save_as(ds.filename, write_like_original=False)


def write_mosaic(folder, volumes):
    os.makedirs(folder)
    uid = generate_uid()
    side = PER_ROW * ROWS
    corner = -(side - ROWS) / 2 * 3.0  # the tiles' corner lies half the difference further
    for t in range(volumes):
        data = volume(t)
        mosaic = np.zeros((side, side), dtype=np.uint16)
        for z in range(SLICES):
            r, c = divmod(z, PER_ROW)
            mosaic[r * ROWS:(r + 1) * ROWS, c * COLS:(c + 1) * COLS] = data[z]
        ds = base(os.path.join(folder, "MO%05d.dcm" % (t + 1)), "1.2.840.10008.5.1.4.1.1.4", uid,
                  t + 1)
        ds.ImageType = ["ORIGINAL", "PRIMARY", "M", "ND", "MOSAIC"]
        ds.AcquisitionNumber = t + 1
        ds.add_new(0x00190010, "LO", "SIEMENS MR HEADER")
        ds.add_new(0x0019100A, "US", SLICES)
        ds.ImagePositionPatient = [corner, corner, 0.0]
        ds.ImageOrientationPatient = [1, 0, 0, 0, 1, 0]
        ds.PixelSpacing = [3, 3]
        ds.SliceThickness = 3
        ds.SpacingBetweenSlices = 3
        ds.Rows = ds.Columns = side
        ds.PixelData = mosaic.tobytes()
        ds.save_as(ds.filename, write_like_original=False)


def write_enhanced(folder, volumes):
    os.makedirs(folder)
    ds = base(os.path.join(folder, "enhanced.dcm"), "1.2.840.10008.5.1.4.1.1.4.1", generate_uid(), 1)
    ds.NumberOfFrames = volumes * SLICES
    ds.Rows, ds.Columns = ROWS, COLS
    shared = Dataset()
    orientation, measures = Dataset(), Dataset()
    orientation.ImageOrientationPatient = [1, 0, 0, 0, 1, 0]
    measures.PixelSpacing = [3, 3]
    measures.SliceThickness = 3
    shared.PlaneOrientationSequence = Sequence([orientation])
    shared.PixelMeasuresSequence = Sequence([measures])
    ds.SharedFunctionalGroupsSequence = Sequence([shared])
    frames, pixels = [], []
    for t in range(volumes):
        data = volume(t)
        for z in range(SLICES):
            item, position, content = Dataset(), Dataset(), Dataset()
            position.ImagePositionPatient = [0, 0, 3.0 * z]
            content.TemporalPositionIndex = t + 1
            content.InStackPositionNumber = z + 1
            item.PlanePositionSequence = Sequence([position])
            item.FrameContentSequence = Sequence([content])
            frames.append(item)
            pixels.append(data[z].tobytes())
    ds.PerFrameFunctionalGroupsSequence = Sequence(frames)
    ds.PixelData = b"".join(pixels)
    ds.save_as(ds.filename, write_like_original=False)


def run_once(argv, env, out):
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    start = time.perf_counter()
    r = subprocess.run(argv + ["-o", out], env=env, stdout=subprocess.DEVNULL,
                       stderr=subprocess.PIPE, text=True)
    elapsed = time.perf_counter() - start
    if r.returncode != 0:
        sys.exit("failed: %s\n%s" % (" ".join(argv), r.stderr))
    return elapsed, len(os.listdir(out))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--volumes", type=int, default=100)
    ap.add_argument("--runs", type=int, default=7)
    args = ap.parse_args()
    work = tempfile.mkdtemp(prefix="vxkinds-")
    try:
        writers = {"classic": write_classic, "mosaic": write_mosaic, "enhanced": write_enhanced}
        print("writing %d volumes of %d x %d x %d in each kind ..." % (args.volumes, COLS, ROWS, SLICES),
              flush=True)
        for kind, write in writers.items():
            write(os.path.join(work, kind), args.volumes)
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen",
                   VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
        times = {k: [] for k in writers}
        fields = {}
        for run in range(args.runs + 1):  # the first round warms the cache
            for kind in writers:
                argv = [args.vxdicom, "load", "-nodialog", "-q", "--format", "nii",
                        os.path.join(work, kind)]
                t, fields[kind] = run_once(argv, env, os.path.join(work, "out-" + kind))
                if run:
                    times[kind].append(t)
        voxels = args.volumes * SLICES * ROWS * COLS / 1e6
        classic = statistics.median(times["classic"])
        for kind in writers:
            med = statistics.median(times[kind])
            print("%-9s %4d fields  median %7.1f ms  (%.1f .. %.1f)  %6.2f ms per Mvoxel  %.2f x classic" %
                  (kind, fields[kind], med * 1000, min(times[kind]) * 1000, max(times[kind]) * 1000,
                   med * 1000 / voxels, med / classic))
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
