#!/usr/bin/python3
"""Lazy-read benchmark: 1,000 single-frame 256 x 256 MR files written by
pydicom (tests/support/make_series.py, one series), read header-only by the
reader and converted by dcm2niix. Warm cache.

    bench_reader.py --bench BIN [--series DIR] [--files 1000] [--runs 5] [--keep]

Prints:
  - ours in process (vxdicom_bench_reader): the time of one lazy read
    (VxDicomFile with delayed reading) per file, median and mean over --runs
    passes, and of building the file's attribute parameters;
  - ours as a whole process (vxdicom_bench_reader --once: process start,
    dictionary, one pass of lazy reads and attribute parameters over all
    files), median of --runs;
  - dcm2niix as a whole process, median of --runs: `dcm2niix -z n` (headers,
    pixels and the NIfTI written) and `dcm2niix -b o` (headers and the BIDS
    sidecar only, no NIfTI), each also divided by the number of files.
Each whole-process figure drops one untimed warm-up run.
"""
import argparse
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_SERIES = os.path.join(HERE, "..", "..", "tests", "support", "make_series.py")


def timed(argv, before=None):
    if before:
        before()
    start = time.perf_counter()
    proc = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    elapsed = time.perf_counter() - start
    if proc.returncode != 0:
        sys.exit("command failed (%d): %s\n%s" % (proc.returncode, " ".join(argv),
                                                  proc.stderr.decode(errors="replace")))
    return elapsed, proc.stdout.decode(errors="replace")


def median_of(runs, argv, before=None):
    timed(argv, before)  # warm-up
    return statistics.median(timed(argv, before)[0] for _ in range(runs))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--bench", required=True, help="the vxdicom_bench_reader program")
    ap.add_argument("--series", help="use this folder instead of generating one")
    ap.add_argument("--files", type=int, default=1000)
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--keep", action="store_true", help="keep the generated series")
    args = ap.parse_args()
    if not shutil.which("dcm2niix"):
        sys.exit("dcm2niix is not installed (Debian package dcm2niix)")

    work = tempfile.mkdtemp(prefix="vxbench-reader-")
    try:
        series = args.series
        if not series:
            series = os.path.join(work, "mr%d" % args.files)
            print("writing %d 256 x 256 MR files with pydicom ..." % args.files, flush=True)
            subprocess.run(["/usr/bin/python3", MAKE_SERIES, series, "--rows", "256",
                            "--columns", "256", "--slices", str(args.files), "--modality", "MR"],
                           check=True, stderr=subprocess.DEVNULL)
        files = len([n for n in os.listdir(series) if os.path.isfile(os.path.join(series, n))])

        _, report = timed([args.bench, "--repeat", str(args.runs), series])
        print(report, end="")
        ours_process = median_of(args.runs, [args.bench, "--once", series])

        out = os.path.join(work, "dcm2niix")

        def clean():
            shutil.rmtree(out, ignore_errors=True)
            os.makedirs(out)

        full = median_of(args.runs, ["dcm2niix", "-z", "n", "-o", out, series], clean)
        sidecar = median_of(args.runs, ["dcm2niix", "-b", "o", "-o", out, series], clean)

        per_file = lambda seconds: seconds / files * 1e6
        print("whole process, median of %d, %d files:" % (args.runs, files))
        print("  vxdicom_bench_reader --once     %8.1f ms  (%6.1f us per file)"
              % (ours_process * 1e3, per_file(ours_process)))
        print("  dcm2niix -b o (sidecar only)    %8.1f ms  (%6.1f us per file)"
              % (sidecar * 1e3, per_file(sidecar)))
        print("  dcm2niix -z n (NIfTI written)   %8.1f ms  (%6.1f us per file)"
              % (full * 1e3, per_file(full)))
        m = re.search(r"lazy read .*?median ([\d.]+) us", report)
        if m:
            print("lazy read per file (in process, median): %s us; dcm2niix -z n per file: %.1f us"
                  % (m.group(1), per_file(full)))
    finally:
        if args.keep:
            print("kept", work)
        else:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
