#!/usr/bin/python3
"""Seeds deliberate faults into the code, one at a time, and records which
tests catch each: the measure of what the test suite catches.

    run_faults.py [--faults FILE] [--work DIR] [--only F01,F07] [--record OUT]
                  [--compare BASELINE]

The faults (faults.txt beside this script) are exact text replacements in
one source file each. The script checks out the committed HEAD into a git
worktree of its own (WORK/main, with WORK/shared pointing at the shared
data), builds it once, checks that every test passes there, then for each
fault: replaces the text (it must occur exactly once), rebuilds, runs the
whole suite, records the failing tests and puts the text back. The working
tree of the checkout is never touched.

--record writes one line per fault: "ID<TAB>N<TAB>test;test;..." (N failing
tests, or "build-failed"). --compare reads such a file and exits with 1 when
a fault it records as caught is no longer caught.
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
    for f in faults:
        for key in ("file", "find", "replace"):
            if key not in f:
                sys.exit("fault %s has no %s" % (f["id"], key))
    return faults


def run(argv, cwd=None, quiet=True):
    return subprocess.run(argv, cwd=cwd, stdout=subprocess.PIPE if quiet else None,
                          stderr=subprocess.STDOUT if quiet else None, text=True)


def prepare(work):
    main = os.path.join(work, "main")
    if not os.path.isdir(main):
        os.makedirs(work, exist_ok=True)
        r = run(["git", "-C", REPO, "worktree", "add", "--detach", main, "HEAD"])
        if r.returncode != 0:
            sys.exit(r.stdout)
    else:
        run(["git", "-C", main, "checkout", "--detach", "--force",
             run(["git", "-C", REPO, "rev-parse", "HEAD"]).stdout.strip()])
    shared = os.path.join(work, "shared")
    real = os.path.abspath(os.path.join(REPO, "..", "shared"))
    if not os.path.exists(shared) and os.path.isdir(real):
        os.symlink(real, shared)
    return main


def build(main, build_dir):
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        r = run(["cmake", "-S", main, "-B", build_dir, "-G", "Ninja"])
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
    args = ap.parse_args()

    faults = parse_faults(args.faults)
    if args.only:
        wanted = set(args.only.split(","))
        faults = [f for f in faults if f["id"] in wanted]
    main_dir = prepare(args.work)
    build_dir = os.path.join(args.work, "build")
    r = build(main_dir, build_dir)
    if r.returncode != 0:
        sys.exit("the unchanged tree does not build:\n" + r.stdout[-4000:])
    clean = failing_tests(build_dir)
    if clean:
        sys.exit("tests fail without any fault: " + ", ".join(clean))

    results = []
    for f in faults:
        path = os.path.join(main_dir, f["file"])
        original = open(path, encoding="utf-8").read()
        n = original.count(f["find"])
        if n != 1:
            sys.exit("fault %s: the text occurs %d times in %s" % (f["id"], n, f["file"]))
        start = time.time()
        try:
            with open(path, "w", encoding="utf-8") as out:
                out.write(original.replace(f["find"], f["replace"]))
            if build(main_dir, build_dir).returncode != 0:
                caught = None
            else:
                caught = failing_tests(build_dir)
        finally:
            with open(path, "w", encoding="utf-8") as out:
                out.write(original)
        results.append((f, caught))
        print("%s %-60s %s  (%.0f s)" % (
            f["id"], f["what"][:60],
            "build failed" if caught is None else "%d tests fail" % len(caught),
            time.time() - start), flush=True)
    build(main_dir, build_dir)  # leave the build matching the tree

    if args.record:
        with open(args.record, "w", encoding="utf-8") as out:
            for f, caught in results:
                out.write("%s\t%s\t%s\n" % (f["id"], "build-failed" if caught is None
                                            else len(caught), ";".join(caught or [])))
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
