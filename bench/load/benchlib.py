"""What every load benchmark shares: timing one run (wall time and peak
resident memory), running two tools in turn on the same work with a fresh
output folder before every run, and printing medians, ratio and spread.
"""
import fcntl
import os
import shutil
import statistics
import subprocess
import sys
import time


_LOCK = None


def chosen_cases(spec, known):
    """The cases of a comma-separated --cases value, in the order given;
    exits naming an unknown one. Also checks that dcm2niix is there, which
    every case compares with."""
    cases = [c.strip() for c in spec.split(",") if c.strip()]
    unknown = [c for c in cases if c not in known]
    if unknown:
        sys.exit("unknown case(s): %s (%s)" % (", ".join(unknown), ", ".join(known)))
    if not shutil.which("dcm2niix"):
        sys.exit("dcm2niix is not installed (Debian package dcm2niix)")
    return cases


def exclusive():
    """Waits until no other benchmark runs on this machine (a lock file in
    /tmp), so that two benchmarks never share the cores; held until exit."""
    global _LOCK
    if _LOCK is None:
        _LOCK = open("/tmp/vx-bench.lock", "w")
        fcntl.flock(_LOCK, fcntl.LOCK_EX)


def run_timed(argv, env=None, cwd=None):
    """Wall time in seconds and peak resident memory in bytes of one run;
    exits with the command's standard error when it fails."""
    start = time.perf_counter()
    proc = subprocess.Popen(argv, env=env, cwd=cwd, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE)
    err = proc.stderr.read().decode(errors="replace")
    _, status, usage = os.wait4(proc.pid, 0)
    elapsed = time.perf_counter() - start
    proc.stderr.close()
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit("command failed: %s\n%s" % (" ".join(argv), err))
    return elapsed, usage.ru_maxrss * 1024


def fresh(folder):
    """Removes folder and makes it again, empty."""
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)


class Result:
    """The runs of one tool on one case."""

    def __init__(self, name):
        self.name = name
        self.times = []
        self.peaks = []
        self.output_bytes = 0

    @property
    def median(self):
        return statistics.median(self.times)

    @property
    def peak(self):
        return max(self.peaks) if self.peaks else 0

    def spread(self):
        return "%.3f-%.3f s" % (min(self.times), max(self.times))


def folder_bytes(folder):
    total = 0
    for root, _, files in os.walk(folder):
        for f in files:
            total += os.path.getsize(os.path.join(root, f))
    return total


def in_turn(tools, runs, warmup=1):
    """Runs every tool once per round, in turn, `runs` rounds after `warmup`
    rounds that are not counted. `tools` is a list of (Result, argv, out,
    env): out is the output folder, made fresh and empty before each run
    (None: no output folder). Every run starts after a sync, untimed: what a
    tool left in the page cache to be written back later would otherwise be
    written during the next tool's run and counted there. Returns the
    Results."""
    exclusive()
    for round_ in range(warmup + runs):
        for result, argv, out, env in tools:
            if out:
                fresh(out)
            os.sync()
            t, peak = run_timed(argv, env)
            if round_ >= warmup:
                result.times.append(t)
                result.peaks.append(peak)
                if out:
                    result.output_bytes = folder_bytes(out)
    return [t[0] for t in tools]


def io_floor(inputs, output, folder, runs):
    """The I/O floor of a load-and-save run: the median time of `cat` of the
    input files plus the median time of `dd` copying the output file's bytes
    into `folder`, made fresh and empty before each copy; in seconds."""
    exclusive()
    read, write = [], []
    for round_ in range(runs + 1):
        t, _ = run_timed(["cat"] + list(inputs))
        fresh(folder)
        u, _ = run_timed(["dd", "if=" + output, "of=" + os.path.join(folder, "copy"),
                          "bs=8M", "status=none"])
        if round_ > 0:
            read.append(t)
            write.append(u)
    shutil.rmtree(folder, ignore_errors=True)
    return statistics.median(read) + statistics.median(write)


def print_result(r):
    """One line: the tool's median, spread, output size and peak memory."""
    print("  %-28s median %8.3f s  (%s)  output %8.1f MiB  peak %7.1f MiB" %
          (r.name, r.median, r.spread(), r.output_bytes / 2**20, r.peak / 2**20))


def report(case, ours, theirs, target=None, extra=""):
    """Prints one case: both medians with spread, output sizes, our peak
    memory, the ratio and the target."""
    ratio = ours.median / theirs.median if theirs and theirs.median else float("nan")
    print("%s" % case)
    for r in (ours, theirs):
        if r is None:
            continue
        print_result(r)
    if theirs is not None:
        verdict = ""
        if target is not None:
            verdict = "  target <= %.2f: %s" % (target, "met" if ratio <= target else "MISSED")
        print("  ratio %.2f%s" % (ratio, verdict))
    if extra:
        print("  " + extra)
    sys.stdout.flush()
    return ratio
