#!/usr/bin/python3
"""Load-and-save benchmark: a 512 x 512 x 400 signed 16-bit CT series, written
by pydicom, loaded and saved by vxdicom and converted by dcm2niix, the two
tools in turn (A/B pairs), a fresh empty output folder before every run of
either tool. Warm cache (one uncounted round first).

    bench_load.py --vxdicom BIN [--series DIR] [--runs 7] [--cases nii,rerun,gz]
                  [--keep]

Cases:
  nii    uncompressed .nii: vxdicom --format nii against dcm2niix -z n
         (target: ratio <= 0.60); the floor is cat of the input files plus
         dd of the output bytes into a fresh folder.
  rerun  vxdicom --format nii into the folder that already holds the result
         of the previous run, against the same into a fresh folder (target:
         within 10 %). dcm2niix never overwrites (it adds a suffix), so it has
         no re-run case.
  gz     the default .nii.gz against dcm2niix -z y (pigz used when installed;
         target: ratio <= 0.50). Both files are checked afterwards: ours no
         larger, read by nibabel with the same values as dcm2niix's (after
         reorienting both to RAS), by nifticlib (nifti_tool copies it out) and
         by gzip -t.
Our peak memory is shown against the volume + 48 MiB.
"""
import argparse
import glob
import os
import shutil
import subprocess
import sys
import tempfile

import benchlib

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_SERIES = os.path.join(HERE, "..", "..", "tests", "support", "make_series.py")
CASES = ("nii", "rerun", "gz")


def only_file(folder, suffix):
    found = [f for f in glob.glob(os.path.join(folder, "*" + suffix))]
    if len(found) != 1:
        sys.exit("expected one %s file in %s, found %s" % (suffix, folder, found))
    return found[0]


def check_gz(ours, theirs, work):
    """Lines saying whether the .nii.gz files are read alike by the readers."""
    lines = []
    gz = subprocess.run(["gzip", "-t", ours], capture_output=True, text=True)
    lines.append("gzip -t: %s" % ("ok" if gz.returncode == 0 else "FAILED " + gz.stderr.strip()))
    if shutil.which("nifti_tool"):
        copy = os.path.join(work, "nifti_tool_copy.nii")
        nt = subprocess.run(["nifti_tool", "-copy_im", "-prefix", copy, "-infiles", ours],
                            capture_output=True, text=True)
        ok = nt.returncode == 0 and os.path.exists(copy)
        lines.append("nifti_tool -copy_im: %s" %
                     ("ok, %d bytes" % os.path.getsize(copy) if ok else
                      "FAILED " + (nt.stderr or nt.stdout).strip()[:200]))
        if os.path.exists(copy):
            os.remove(copy)
    else:
        lines.append("nifti_tool: not installed (Debian nifti-bin)")
    probe = (
        "import sys, numpy as np, nibabel as nib\n"
        "a = nib.as_closest_canonical(nib.load(sys.argv[1]))\n"
        "b = nib.as_closest_canonical(nib.load(sys.argv[2]))\n"
        "x = np.asanyarray(a.dataobj); y = np.asanyarray(b.dataobj)\n"
        "same = x.shape == y.shape and np.array_equal(x, y)\n"
        "print('nibabel: %s %s, values %s' % (x.shape, x.dtype,\n"
        "      'equal to dcm2niix' if same else 'DIFFER from dcm2niix'))\n")
    nb = subprocess.run(["/usr/bin/python3", "-c", probe, ours, theirs], capture_output=True,
                        text=True)
    lines.append(nb.stdout.strip() if nb.returncode == 0 else
                 "nibabel: FAILED " + nb.stderr.strip()[-300:])
    a, b = os.path.getsize(ours), os.path.getsize(theirs)
    lines.append("size: ours %d bytes, dcm2niix %d bytes (%s)" %
                 (a, b, "no larger" if a <= b else "LARGER"))
    return lines


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--series", help="use this series instead of generating one")
    ap.add_argument("--runs", type=int, default=7)
    ap.add_argument("--cases", default=",".join(CASES),
                    help="comma-separated, of: " + ", ".join(CASES))
    ap.add_argument("--keep", action="store_true", help="keep the generated series")
    args = ap.parse_args()
    cases = benchlib.chosen_cases(args.cases, CASES)
    vxdicom = os.path.abspath(args.vxdicom)

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
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen",
                   VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
        env["XDG_RUNTIME_DIR"] = os.path.join(work, "runtime")
        os.makedirs(env["XDG_RUNTIME_DIR"], mode=0o700)
        print("series: %d files, volume %.1f MiB; %d runs per tool after one warm-up; "
              "machine shared with other work" % (len(files), volume / 2**20, args.runs))
        print("our peak memory target: volume + 48 MiB = %.1f MiB" %
              ((volume + 48 * 2**20) / 2**20))
        print()

        def ours(fmt, out):
            argv = [vxdicom, "load", "-nodialog", "-q"]
            if fmt:
                argv += ["--format", fmt]
            return argv + ["-o", out, series]

        def out(name):
            return os.path.join(work, name)

        if "nii" in cases:
            a, b = benchlib.Result("vxdicom --format nii"), benchlib.Result("dcm2niix -z n")
            benchlib.in_turn([(a, ours("nii", out("a")), out("a"), env),
                              (b, ["dcm2niix", "-z", "n", "-b", "n", "-o", out("b"), series],
                               out("b"), None)], args.runs)
            floor = benchlib.io_floor(files, only_file(out("a"), ".nii"), out("f"), args.runs)
            benchlib.report("nii: uncompressed NIfTI, fresh folder", a, b, target=0.60,
                            extra="floor (cat input + dd output) %.3f s; ours / floor %.2f" %
                            (floor, a.median / floor))
            print()

        if "rerun" in cases:
            fresh = benchlib.Result("vxdicom nii, fresh folder")
            again = benchlib.Result("vxdicom nii, same folder")
            benchlib.fresh(out("r"))
            benchlib.run_timed(ours("nii", out("r")), env)
            benchlib.in_turn([(fresh, ours("nii", out("a")), out("a"), env),
                              (again, ours("nii", out("r")), None, env)], args.runs)
            again.output_bytes = benchlib.folder_bytes(out("r"))
            ratio = again.median / fresh.median
            print("rerun: uncompressed NIfTI into the folder of the previous run")
            for r in (again, fresh):
                benchlib.print_result(r)
            print("  same folder / fresh folder %.2f  target <= 1.10: %s" %
                  (ratio, "met" if ratio <= 1.10 else "MISSED"))
            print()

        if "gz" in cases:
            pigz = shutil.which("pigz")
            a = benchlib.Result("vxdicom (default .nii.gz)")
            b = benchlib.Result("dcm2niix -z y" + (" (pigz)" if pigz else " (no pigz)"))
            benchlib.in_turn([(a, ours(None, out("a")), out("a"), env),
                              (b, ["dcm2niix", "-z", "y", "-b", "n", "-o", out("b"), series],
                               out("b"), None)], args.runs)
            benchlib.report("gz: compressed NIfTI, fresh folder", a, b, target=0.50)
            for line in check_gz(only_file(out("a"), ".nii.gz"),
                                 only_file(out("b"), ".nii.gz"), work):
                print("  " + line)
            print()
        if args.keep and not args.series:
            kept = os.path.join(tempfile.gettempdir(), "vxbench-ct400")
            shutil.rmtree(kept, ignore_errors=True)
            shutil.move(series, kept)
            print("series kept in", kept)
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
