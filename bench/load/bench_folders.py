#!/usr/bin/python3
"""Big-folder benchmark (not a test): one examination of many small files,
loaded by `vxdicom load -nodialog -q DIR` (no output folder) and converted by
`dcm2niix -z n -o FRESH DIR`, in turn, warm cache.

    bench_folders.py --vxdicom BIN [--runs 7] [--files 7000] [--subset 1000]
                     [--cases folders,scan] [--reader-bench BIN] [--keep] [--work DIR]

The folder is written by pydicom: one patient, 100 series (scaled with
--files) of 64 x 64 unsigned 16-bit MR slices, one file per slice, named in
acquisition order. Two series of 2/7 of the files each are cut by the default
stack-break criteria into stacks of one or two slices:
  - "zigzag": Instance Number runs 1, 2, 3, ... while the slice position
    alternates between two slabs (0, 1000, 1, 1001, ... mm), so Slice Location
    turns direction at every image and its "strictly monotonic" rule breaks
    after every second image;
  - "pairs": two images share each Instance Number (1, 1, 2, 2, ...) at
    distinct positions, so Instance Number repeats and its "strictly
    monotonic" rule breaks inside every pair.
No position repeats in either, so the volume split leaves them alone. Every
field of the load is a namesake (one patient name), so the object pool
numbers about a third as many labels as there are files.

Cases (--cases, comma-separated; both by default):
  folders (case 4)
    4a. the whole folder (--files): vxdicom against dcm2niix, with medians,
        spread and peak memory; target: ratio <= 1.0 and our peak <= 2 x
        theirs;
    4b. a subset made the same way (--subset files, every count scaled):
        the same two commands;
    4c. growth: our time on the folder divided by our time on the subset
        (target <= 8 for 7,000 against 1,000 files), dcm2niix's beside it;
  scan (case 5)
    the header scan of the subset, per file: the reader's lazy read in
    process (vxdicom_bench_reader: VxDicomFile with delayed pixels, the
    header parsed up to Pixel Data, as bench/reader measures it) and the
    same as a whole process (--once), against dcm2niix -z n on the same
    folder per file (which reads the headers and converts); target:
    in-process per file <= 0.5 x dcm2niix's.

The two tools run in turn (A/B pairs after one warm-up round), each
dcm2niix run into a fresh, empty output folder; peak memory is the maximum
resident size /usr/bin/time reports for each run. Other work on the machine
disturbs the times; the load average before and after is printed.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile

import numpy as np
from pydicom.dataset import FileDataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import benchlib  # noqa: E402

MR_STORAGE = "1.2.840.10008.5.1.4.1.1.4"
ROWS = COLS = 64


def series_plan(files):
    """(kind, image count) per series: two split series of 2/7 of the files
    each, the rest shared by normal series so that there are 100 in all at
    7,000 files (scaled for other counts)."""
    total_series = max(3, round(100 * files / 7000))
    big = round(files * 2 / 7)
    rest = files - 2 * big
    normal = total_series - 2
    plan = [("zigzag", big), ("pairs", big)]
    for k in range(normal):
        plan.append(("normal", rest // normal + (1 if k < rest % normal else 0)))
    return plan


def write_folder(folder, files):
    """Writes the examination; returns the number of files written."""
    os.makedirs(folder)
    study_uid = generate_uid()
    rng = np.random.default_rng(7)
    pixels = rng.integers(0, 4000, size=(16, ROWS, COLS), dtype=np.uint16)
    n = 0
    for number, (kind, count) in enumerate(series_plan(files), start=1):
        series_uid, frame_uid = generate_uid(), generate_uid()
        for k in range(count):
            if kind == "zigzag":
                z = (k // 2) * 1.0 + (k % 2) * 1000.0
                instance = k + 1
            elif kind == "pairs":
                z = k * 0.5
                instance = k // 2 + 1
            else:
                z = k * 3.0
                instance = k + 1
            n += 1
            meta = FileMetaDataset()
            meta.MediaStorageSOPClassUID = MR_STORAGE
            meta.MediaStorageSOPInstanceUID = generate_uid()
            meta.TransferSyntaxUID = ExplicitVRLittleEndian
            path = os.path.join(folder, "IM%06d" % n)
            ds = FileDataset(path, {}, file_meta=meta, preamble=b"\0" * 128)
            ds.SOPClassUID = MR_STORAGE
            ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
            ds.StudyDate = ds.SeriesDate = "20260101"
            ds.StudyTime = "120000"
            seconds = 12 * 3600 + number
            ds.SeriesTime = "%02d%02d%02d" % (seconds // 3600, seconds // 60 % 60, seconds % 60)
            ds.Modality = "MR"
            ds.Manufacturer = "pydicom synthetic"
            ds.PatientName = "Bench^Folders"
            ds.PatientID = "BENCH01"
            ds.StudyInstanceUID = study_uid
            ds.SeriesInstanceUID = series_uid
            ds.FrameOfReferenceUID = frame_uid
            ds.SeriesNumber = number
            ds.SeriesDescription = "%s %d" % (kind, number)
            ds.ScanningSequence = "GR"
            ds.InstanceNumber = instance
            ds.ImagePositionPatient = [-94.5, -94.5, z]
            ds.ImageOrientationPatient = [1, 0, 0, 0, 1, 0]
            ds.SliceLocation = z
            ds.SliceThickness = 3
            ds.PixelSpacing = [3, 3]
            ds.SamplesPerPixel = 1
            ds.PhotometricInterpretation = "MONOCHROME2"
            ds.Rows, ds.Columns = ROWS, COLS
            ds.BitsAllocated = 16
            ds.BitsStored = 12
            ds.HighBit = 11
            ds.PixelRepresentation = 0
            ds.PixelData = pixels[n % 16].tobytes()
            ds.save_as(path, write_like_original=False)
    return n


def in_turn_with_peaks(work, tools, runs):
    """benchlib.in_turn, with each command's peak memory taken by
    /usr/bin/time: the maximum resident size the kernel reports for a child
    forked from this (large) Python process is at least the Python process's
    own, which would hide the peak of a small run. The wall time still comes
    from benchlib; /usr/bin/time adds one fork and exec."""
    wrapped = []
    logs = []
    for k, (result, argv, out, env) in enumerate(tools):
        log = os.path.join(work, "peak-%d.txt" % k)
        if os.path.exists(log):
            os.remove(log)
        logs.append(log)
        wrapped.append((result, ["/usr/bin/time", "-a", "-o", log, "-f", "%M"] + argv, out, env))
    benchlib.in_turn(wrapped, runs)
    for (result, _, _, _), log in zip(tools, logs):
        with open(log) as f:
            kib = [int(line) for line in f.read().split() if line.isdigit()]
        result.peaks = [k * 1024 for k in kib[-runs:]]  # the warm-up round is dropped
    return [t[0] for t in tools]


def load_case(args, work, folder, label, env):
    ours = benchlib.Result("vxdicom load -nodialog -q")
    theirs = benchlib.Result("dcm2niix -z n")
    out = os.path.join(work, "dcm2niix-out")
    in_turn_with_peaks(work, [
        (ours, [args.vxdicom, "load", "-nodialog", "-q", folder], None, env),
        (theirs, ["dcm2niix", "-z", "n", "-o", out, folder], out, None),
    ], args.runs)
    return ours, theirs


def reader_bench_of(args):
    if args.reader_bench:
        return args.reader_bench
    # build/apps/vxdicom/vxdicom -> build/bench/reader/vxdicom_bench_reader
    build = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(args.vxdicom))))
    candidate = os.path.join(build, "bench", "reader", "vxdicom_bench_reader")
    return candidate if os.access(candidate, os.X_OK) else None


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--runs", type=int, default=7)
    ap.add_argument("--files", type=int, default=7000)
    ap.add_argument("--subset", type=int, default=1000)
    ap.add_argument("--reader-bench", help="vxdicom_bench_reader (default: beside the build)")
    ap.add_argument("--work", help="keep the folders here and reuse them when present")
    ap.add_argument("--keep", action="store_true", help="keep the generated folders")
    ap.add_argument("--cases", default="folders,scan",
                    help="comma-separated: folders (case 4), scan (case 5)")
    args = ap.parse_args()
    cases = benchlib.chosen_cases(args.cases, ["folders", "scan"])

    work = args.work or tempfile.mkdtemp(prefix="vxbench-folders-")
    os.makedirs(work, exist_ok=True)
    try:
        folders = {}
        wanted = (args.files, args.subset) if "folders" in cases else (args.subset,)
        for files in wanted:
            folder = os.path.join(work, "exam%d" % files)
            if not os.path.isdir(folder):
                print("writing %d files (%d series) with pydicom ..." %
                      (files, len(series_plan(files))), flush=True)
                write_folder(folder, files)
            folders[files] = folder
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen",
                   XDG_RUNTIME_DIR=os.environ.get("XDG_RUNTIME_DIR", "/tmp/xdg-rt"),
                   VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
        os.makedirs(env["XDG_RUNTIME_DIR"], mode=0o700, exist_ok=True)
        print("load average before: %.2f %.2f %.2f (a shared machine: other work "
              "disturbs the times)" % os.getloadavg(), flush=True)
        if "folders" in cases:
            folders_case(args, work, folders, env)
        if "scan" in cases:
            scan_case(args, work, folders)
        print("load average after: %.2f %.2f %.2f" % os.getloadavg())
    finally:
        if args.keep or args.work:
            print("folders kept in", work)
        else:
            shutil.rmtree(work, ignore_errors=True)


def folders_case(args, work, folders, env):
    big_ours, big_theirs = load_case(args, work, folders[args.files], "big", env)
    benchlib.report(
        "4a. %d files, %d series: load without output folder vs dcm2niix" %
        (args.files, len(series_plan(args.files))), big_ours, big_theirs, target=1.0)
    mem = big_ours.peak / big_theirs.peak if big_theirs.peak else float("nan")
    print("  peak memory %.1f MiB vs %.1f MiB: %.2f x  target <= 2.00: %s" %
          (big_ours.peak / 2**20, big_theirs.peak / 2**20, mem,
           "met" if mem <= 2.0 else "MISSED"))

    small_ours, small_theirs = load_case(args, work, folders[args.subset], "subset", env)
    benchlib.report("4b. %d files, %d series, made the same way" %
                    (args.subset, len(series_plan(args.subset))), small_ours, small_theirs)
    mem = small_ours.peak / small_theirs.peak if small_theirs.peak else float("nan")
    print("  peak memory %.2f x dcm2niix's" % mem)

    growth = big_ours.median / small_ours.median
    limit = 8.0 * args.files / 7000 * 1000 / args.subset
    print("4c. growth %d files / %d files (%.1f x the files)" %
          (args.files, args.subset, args.files / args.subset))
    print("  vxdicom %.2f x  target <= %.2f: %s" %
          (growth, limit, "met" if growth <= limit else "MISSED"))
    print("  dcm2niix %.2f x" % (big_theirs.median / small_theirs.median))
    sys.stdout.flush()


def scan_case(args, work, folders):
    benchlib.exclusive()
    bench = reader_bench_of(args)
    subset = folders[args.subset]
    count = len(os.listdir(subset))
    if not bench:
        print("5. header scan: vxdicom_bench_reader not found (build the target "
              "vxdicom_bench_reader or pass --reader-bench); not measured")
        return
    proc = subprocess.run([bench, "--repeat", str(args.runs), subset],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=True)
    text = proc.stdout.decode(errors="replace")
    m = re.search(r"lazy read .*?median ([\d.]+) us", text)
    lazy_us = float(m.group(1)) if m else float("nan")
    once = benchlib.Result("vxdicom_bench_reader --once")
    theirs = benchlib.Result("dcm2niix -z n")
    out = os.path.join(work, "dcm2niix-out")
    in_turn_with_peaks(work, [
        (once, [bench, "--once", subset], None, None),
        (theirs, ["dcm2niix", "-z", "n", "-o", out, subset], out, None),
    ], args.runs)
    benchlib.report("5. header scan of %d files (whole process, per file below)" % count,
                    once, theirs)
    theirs_us = theirs.median / count * 1e6
    print("  per file: lazy read in process %.1f us (median of %d passes), whole process "
          "%.1f us; dcm2niix -z n %.1f us" %
          (lazy_us, args.runs, once.median / count * 1e6, theirs_us))
    print("  in-process ratio %.2f  target <= 0.50: %s" %
          (lazy_us / theirs_us, "met" if lazy_us / theirs_us <= 0.5 else "MISSED"))
    print("  whole-process ratio %.2f (process start, Qt-free reader, dictionary load "
          "included)" % (once.median / theirs.median))


if __name__ == "__main__":
    main()
