#!/usr/bin/python3
"""Seeds deliberate faults into the code, one at a time, and records which
tests catch each: the measure of what the test suite catches.

    run_faults.py [--faults FILE] [--work DIR] [--only F01,F07] [--record OUT]
                  [--compare BASELINE] [--commit REV] [--resume]

The faults (faults.txt beside this script) are exact text replacements in
one source file each. The script checks out the committed HEAD (or --commit REV) into a git
worktree of its own (WORK/main, with WORK/shared pointing at the shared
data), builds it once, checks that every test passes there, then for each
fault: replaces the text (it must occur exactly once), rebuilds, runs the
whole suite, records the failing tests and puts the text back. The working
tree of the checkout is never touched.

--record writes one line per fault: "ID<TAB>N<TAB>test;test;..." (N failing
tests, or "build-failed"). --compare reads such a file and exits with 1 when
a fault it records as caught is no longer caught. --resume keeps the faults
already in the --record file and runs only the others (a long run may be
continued later: give the same --commit).
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.abspath(os.path.join(HERE, "..", ".."))


def parse_faults(path):
    """Blocks of "== ID description", "file: PATH", "find: TEXT",
    "replace: TEXT" (TEXT may use \\n and \\t)."""
    faults, cur = [], None
    for line in open(path, encoding="utf-8"):
        line = line.rstrip("\n")
        if line.startswith("== "):
            ident, _, what = line[3:].partition(" ")
            cur = {"id": ident, "what": what}
            faults.append(cur)
        elif cur is not None and re.match(r"^(file|find|replace): ", line):
            key, _, value = line.partition(": ")
            cur[key] = value.replace("\\n", "\n").replace("\\t", "\t")
    seen = set()
    for f in faults:
        for key in ("file", "find", "replace"):
            if key not in f:
                sys.exit("fault %s has no %s" % (f["id"], key))
        if f["id"] in seen:
            sys.exit("fault %s is listed twice" % f["id"])
        seen.add(f["id"])
    return faults


def read_source(path):
    # newline="" keeps the file's bytes as they are (line ends included), so
    # that putting the text back restores the file exactly.
    with open(path, encoding="utf-8", newline="") as f:
        return f.read()


def write_source(path, text):
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write(text)


def check_faults(main_dir, faults):
    """Every find text must occur exactly once in its file: checked for all
    faults before the first build, not halfway through a run."""
    problems = []
    for f in faults:
        path = os.path.join(main_dir, f["file"])
        if not os.path.isfile(path):
            problems.append("fault %s: no file %s" % (f["id"], f["file"]))
            continue
        n = read_source(path).count(f["find"])
        if n != 1:
            problems.append("fault %s: the text occurs %d times in %s" % (f["id"], n, f["file"]))
        if f["find"] == f["replace"]:
            problems.append("fault %s: the replacement changes nothing" % f["id"])
    if problems:
        sys.exit("\n".join(problems))


def run(argv, cwd=None, quiet=True):
    return subprocess.run(argv, cwd=cwd, stdout=subprocess.PIPE if quiet else None,
                          stderr=subprocess.STDOUT if quiet else None, text=True)


def prepare(work, commit):
    main = os.path.join(work, "main")
    if not os.path.isdir(main):
        os.makedirs(work, exist_ok=True)
        r = run(["git", "-C", REPO, "worktree", "add", "--detach", main, commit])
        if r.returncode != 0:
            sys.exit(r.stdout)
    else:
        run(["git", "-C", main, "checkout", "--detach", "--force",
             run(["git", "-C", REPO, "rev-parse", commit]).stdout.strip()])
    shared = os.path.join(work, "shared")
    real = os.path.abspath(os.path.join(REPO, "..", "shared"))
    if not os.path.exists(shared) and os.path.isdir(real):
        os.symlink(real, shared)
    return main


def build(main, build_dir):
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        # Release, as the project's own builds are made (no debug information
        # to link into every test program after each fault).
        r = run(["cmake", "-S", main, "-B", build_dir, "-G", "Ninja",
                 "-DCMAKE_BUILD_TYPE=Release"])
        if r.returncode != 0:
            sys.exit(r.stdout)
    return run(["cmake", "--build", build_dir, "-j", str(os.cpu_count() or 2)])


def failing_tests(build_dir):
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    env.setdefault("XDG_RUNTIME_DIR", "/tmp/xdg-rt")
    os.makedirs(env["XDG_RUNTIME_DIR"], exist_ok=True)
    log = os.path.join(build_dir, "Testing", "Temporary", "LastTestsFailed.log")
    if os.path.exists(log):
        os.remove(log)
    run(["ctest", "-j", str(os.cpu_count() or 2), "--timeout", "300"], cwd=build_dir)
    if not os.path.exists(log):
        return []
    return sorted(line.strip().split(":", 1)[1] for line in open(log) if ":" in line)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--faults", default=os.path.join(HERE, "faults.txt"))
    ap.add_argument("--work", default="/tmp/vx-faults")
    ap.add_argument("--only", default="")
    ap.add_argument("--record")
    ap.add_argument("--compare")
    ap.add_argument("--commit", default="HEAD",
                    help="the revision whose suite is measured (default HEAD)")
    ap.add_argument("--resume", action="store_true",
                    help="keep the faults already in the --record file and run the rest")
    args = ap.parse_args()

    faults = parse_faults(args.faults)
    if args.only:
        wanted = set(args.only.split(","))
        unknown = wanted - {f["id"] for f in faults}
        if unknown:
            sys.exit("no such fault: " + ", ".join(sorted(unknown)))
        faults = [f for f in faults if f["id"] in wanted]
    kept = []
    if args.resume and args.record and os.path.exists(args.record):
        kept = [line.rstrip("\n") for line in open(args.record, encoding="utf-8") if line.strip()]
        done = {line.split("\t")[0] for line in kept}
        faults = [f for f in faults if f["id"] not in done]
    began = time.time()
    main_dir = prepare(args.work, args.commit)
    check_faults(main_dir, faults)
    build_dir = os.path.join(args.work, "build")
    r = build(main_dir, build_dir)
    if r.returncode != 0:
        sys.exit("the unchanged tree does not build:\n" + r.stdout[-4000:])
    clean_start = time.time()
    clean = failing_tests(build_dir)
    if clean:
        sys.exit("tests fail without any fault: " + ", ".join(clean))
    print("unchanged tree: built in %.0f s, every test passes (suite %.0f s)" % (
        clean_start - began, time.time() - clean_start), flush=True)

    results = []
    for f in faults:
        path = os.path.join(main_dir, f["file"])
        original = read_source(path)
        start = time.time()
        try:
            write_source(path, original.replace(f["find"], f["replace"]))
            if build(main_dir, build_dir).returncode != 0:
                caught = None
            else:
                caught = failing_tests(build_dir)
        finally:
            write_source(path, original)
        results.append((f, caught))
        print("%s %-60s %s  (%.0f s)" % (
            f["id"], f["what"][:60],
            "build failed" if caught is None else "%d tests fail" % len(caught),
            time.time() - start), flush=True)
        if args.record:
            # Written after every fault, so that an interrupted run keeps
            # what it has measured.
            with open(args.record, "w", encoding="utf-8") as out:
                for line in kept:
                    out.write(line + "\n")
                for g, c in results:
                    out.write("%s\t%s\t%s\n" % (g["id"], "build-failed" if c is None
                                                else len(c), ";".join(c or [])))
    build(main_dir, build_dir)  # leave the build matching the tree
    print("%d faults in %.0f s (%.1f min)" % (len(results), time.time() - began,
                                              (time.time() - began) / 60), flush=True)
    status = 0
    missed = [f["id"] for f, caught in results if caught == []]
    if missed:
        print("not caught by any test: " + ", ".join(missed))
        status = 1
    if args.compare:
        before = {}
        for line in open(args.compare, encoding="utf-8"):
            ident, n, _ = (line.rstrip("\n").split("\t") + ["", ""])[:3]
            before[ident] = n
        for f, caught in results:
            if before.get(f["id"], "0") not in ("0", "build-failed") and not caught:
                print("%s was caught before and is not now" % f["id"])
                status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
