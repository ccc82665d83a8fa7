#!/usr/bin/python3
"""Load benchmark: a 512 x 512 x 400 signed 16-bit CT series, written by
pydicom, converted to an uncompressed NIfTI by vxdicom and by dcm2niix, with
`cat` of all files as the I/O floor. Warm cache, median of 5 runs each.

    bench_load.py --vxdicom BIN [--series DIR] [--runs 5] [--keep]

Prints the three times, our time / dcm2niix's, our time / the floor, and our
peak memory next to the target (volume size + 48 MiB).
"""
import argparse
import glob
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_SERIES = os.path.join(HERE, "..", "..", "tests", "support", "make_series.py")


def run_timed(argv, env=None, stdout=subprocess.DEVNULL):
    """Wall time in seconds and peak resident memory in bytes of one run."""
    start = time.perf_counter()
    proc = subprocess.Popen(argv, env=env, stdout=stdout, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(proc.pid, 0)
    elapsed = time.perf_counter() - start
    err = proc.stderr.read().decode(errors="replace")
    proc.stderr.close()
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit("command failed: %s\n%s" % (" ".join(argv), err))
    return elapsed, usage.ru_maxrss * 1024


def median_of(runs, argv, env=None, before=None):
    times, peaks = [], []
    for _ in range(runs + 1):  # the first run warms the cache and is dropped
        if before:
            before()
        t, peak = run_timed(argv, env)
        times.append(t)
        peaks.append(peak)
    return statistics.median(times[1:]), max(peaks[1:])


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--series", help="use this series instead of generating one")
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--keep", action="store_true", help="keep the generated series")
    args = ap.parse_args()
    if not shutil.which("dcm2niix"):
        sys.exit("dcm2niix is not installed (Debian package dcm2niix)")

    work = tempfile.mkdtemp(prefix="vxbench-")
    try:
        series = args.series
        if not series:
            series = os.path.join(work, "ct400")
            print("writing a 512 x 512 x 400 CT series with pydicom ...", flush=True)
            subprocess.run(["/usr/bin/python3", MAKE_SERIES, series, "--rows", "512",
                            "--columns", "512", "--slices", "400", "--modality", "CT"],
                           check=True, stderr=subprocess.DEVNULL)
        files = sorted(glob.glob(os.path.join(series, "*")))
        volume = 512 * 512 * 400 * 2
        ours_out = os.path.join(work, "ours")
        theirs_out = os.path.join(work, "theirs")
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen",
                   VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))

        def clean(d):
            return lambda: (shutil.rmtree(d, ignore_errors=True), os.makedirs(d))

        floor, _ = median_of(args.runs, ["cat"] + files)
        ours, ours_peak = median_of(args.runs, [args.vxdicom, "load", "-nodialog", "-q",
                                                "--format", "nii", "-o", ours_out, series],
                                    env=env, before=clean(ours_out))
        theirs, theirs_peak = median_of(args.runs, ["dcm2niix", "-z", "n", "-b", "n", "-o",
                                                    theirs_out, series],
                                        before=clean(theirs_out))
        target_peak = volume + 48 * 1024 * 1024
        print("series: %d files, volume %.1f MiB" % (len(files), volume / 2**20))
        print("cat (I/O floor)           %8.1f ms" % (floor * 1000))
        print("vxdicom load --format nii %8.1f ms   peak %.1f MiB" % (ours * 1000, ours_peak / 2**20))
        print("dcm2niix -z n             %8.1f ms   peak %.1f MiB" % (theirs * 1000, theirs_peak / 2**20))
        print("ratio vxdicom / dcm2niix  %8.2f   (target <= 0.80)" % (ours / theirs))
        print("ratio vxdicom / cat       %8.2f" % (ours / floor))
        print("peak memory / target      %8.2f   (target: volume + 48 MiB = %.1f MiB)" %
              (ours_peak / target_peak, target_peak / 2**20))
        if args.keep and not args.series:
            kept = os.path.join(tempfile.gettempdir(), "vxbench-ct400")
            shutil.rmtree(kept, ignore_errors=True)
            shutil.move(series, kept)
            print("series kept in", kept)
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
