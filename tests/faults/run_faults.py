#!/usr/bin/python3
"""Seeds the faults of faults.txt (exact text replacements, one source file each) into a
checkout of the committed HEAD (or --commit REV), one at a time, and records which tests catch
each: the measure of what the suite catches.

    run_faults.py [--faults FILE] [--work DIR] [--only F01,F07] [--record OUT]
                  [--compare BASELINE] [--commit REV] [--resume]

The checkout is a git worktree of its own (WORK/main, WORK/shared pointing at the shared data),
built once and checked to pass; then each fault's text (found exactly once) is replaced, the tree
rebuilt, the whole suite run, the failing tests recorded and the text put back. --record writes
"ID<TAB>N<TAB>test;test;..." per fault (N failing tests, or "build-failed"); --compare exits 1
when a fault that such a file records as caught is caught no longer; --resume keeps the faults
already in the --record file and runs the others (give the same --commit).
"""
import argparse, os, re, subprocess, sys, time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.abspath(os.path.join(HERE, "..", ".."))


def parse_faults(path):
    """Blocks of "== ID description", "file: PATH", "find: TEXT", "replace: TEXT" (\\n, \\t)."""
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
    for n, f in enumerate(faults):
        missing = [key for key in ("file", "find", "replace") if key not in f]
        if missing or f["id"] in [g["id"] for g in faults[:n]]:
            sys.exit("fault %s %s" % (f["id"], "has no " + missing[0] if missing else "is listed twice"))
    return faults


def read_source(path):
    # newline="": line ends as they are, so that putting the text back restores the file exactly
    with open(path, encoding="utf-8", newline="") as f:
        return f.read()


def write_source(path, text):
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write(text)


def check_faults(main_dir, faults):
    """Every find text occurs once in its file: checked before the first build, not halfway."""
    problems = []
    for f in faults:
        path = os.path.join(main_dir, f["file"])
        n = read_source(path).count(f["find"]) if os.path.isfile(path) else -1
        if n != 1:
            problems.append("fault %s: %s" % (f["id"], "no file " + f["file"] if n < 0 else
                                               "the text occurs %d times in %s" % (n, f["file"])))
        if f["find"] == f["replace"]:
            problems.append("fault %s: the replacement changes nothing" % f["id"])
    if problems:
        sys.exit("\n".join(problems))


def run(argv, **kw):
    return subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **kw)


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
        # Release, as the project's own builds: no debug information to link after each fault
        r = run(["cmake", "-S", main, "-B", build_dir, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release"])
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
    run(["ctest", "-j", str(os.cpu_count() or 2), "--timeout", "300"], cwd=build_dir, env=env)
    return sorted(line.strip().split(":", 1)[1] for line in open(log) if ":" in line) if os.path.exists(log) else []


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name, default in (("--faults", os.path.join(HERE, "faults.txt")), ("--work", "/tmp/vx-faults"),
                          ("--only", ""), ("--record", None), ("--compare", None), ("--commit", "HEAD")):
        ap.add_argument(name, default=default)
    ap.add_argument("--resume", action="store_true")
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
    print("unchanged tree: built in %.0f s, every test passes (suite %.0f s)"
          % (clean_start - began, time.time() - clean_start), flush=True)

    results = []
    for f in faults:
        path = os.path.join(main_dir, f["file"])
        original = read_source(path)
        start = time.time()
        try:
            write_source(path, original.replace(f["find"], f["replace"]))
            caught = failing_tests(build_dir) if build(main_dir, build_dir).returncode == 0 else None
        finally:
            write_source(path, original)
        results.append((f, caught))
        print("%s %-60s %s  (%.0f s)" % (f["id"], f["what"][:60], "build failed" if caught is None
                                          else "%d tests fail" % len(caught), time.time() - start), flush=True)
        if args.record:  # after every fault: an interrupted run keeps what it has measured
            with open(args.record, "w", encoding="utf-8") as out:
                out.writelines([line + "\n" for line in kept] + ["%s\t%s\t%s\n" % (
                    g["id"], "build-failed" if c is None else len(c), ";".join(c or [])) for g, c in results])
    build(main_dir, build_dir)  # leave the build matching the tree
    print("%d faults in %.0f s (%.1f min)" % (len(results), time.time() - began, (time.time() - began) / 60))
    status = 0
    missed = [f["id"] for f, caught in results if caught == []]
    if missed:
        print("not caught by any test: " + ", ".join(missed))
        status = 1
    before = dict((line.rstrip("\n").split("\t") + [""])[:2] for line in open(args.compare, encoding="utf-8")) \
        if args.compare else {}
    for f, caught in results:
        if before.get(f["id"], "0") not in ("0", "build-failed") and not caught:
            print("%s was caught before and is not now" % f["id"])
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
