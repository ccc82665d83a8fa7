#!/usr/bin/python3
"""Compressed-input benchmark: the 512 x 512 x 400 signed 16-bit CT series of
bench_load.py stored as JPEG 2000 lossless (gdcmconv --j2k), JPEG-LS lossless
(dcmcjpls) and JPEG lossless SV1 (dcmcjpeg), loaded and saved as an
uncompressed .nii by vxdicom and converted by dcm2niix -z n, the two tools in
turn (A/B pairs), a fresh empty output folder before every run of either
tool. Warm cache (one uncounted round first).

    bench_compressed.py --vxdicom BIN [--series DIR] [--cache DIR] [--runs 7]
                        [--cases j2k,jpegls,jpegll] [--single]

Cases and targets:
  j2k     JPEG 2000 lossless: ratio to dcm2niix <= 0.50
  jpegls  JPEG-LS lossless: <= 1.9 s (Debian's dcm2niix cannot decode
          JPEG-LS, so it is timed alone)
  jpegll  JPEG lossless: ratio to dcm2niix <= 0.50
--single adds vxdicom with VXDICOM_DECODE_THREADS=1 (no decoding threads) as
a third tool. The compressed series are made once and kept in --cache
(default /tmp/vxbench-compressed); every output is checked against the
uncompressed series' values with nibabel after the runs.
"""
import argparse
import concurrent.futures
import glob
import os
import shutil
import subprocess
import sys
import tempfile

import benchlib

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_SERIES = os.path.join(HERE, "..", "..", "tests", "support", "make_series.py")

# case: (description, converter argv before IN OUT, target ratio, target seconds)
CASES = {
    "j2k": ("JPEG 2000 lossless (gdcmconv --j2k)", ["gdcmconv", "--j2k"], 0.50, None),
    "jpegls": ("JPEG-LS lossless (dcmcjpls)", ["dcmcjpls"], None, 1.9),
    "jpegll": ("JPEG lossless SV1 (dcmcjpeg)", ["dcmcjpeg"], 0.50, None),
}


def convert(converter, src, dst):
    """Every file of src through the converter into dst (two at a time);
    a stamp file beside dst marks a complete folder, which is reused."""
    stamp = dst + ".complete"
    files = sorted(os.listdir(src))
    if os.path.exists(stamp) and len(os.listdir(dst)) == len(files):
        return
    benchlib.fresh(dst)
    if not shutil.which(converter[0]):
        sys.exit("%s is not installed" % converter[0])

    def one(name):
        subprocess.run(converter + [os.path.join(src, name), os.path.join(dst, name)],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        list(pool.map(one, files))
    open(stamp, "w").close()


def same_values(ours, reference):
    """Whether two NIfTI files hold the same voxels (both reoriented to RAS)."""
    probe = (
        "import sys, numpy as np, nibabel as nib\n"
        "a = nib.as_closest_canonical(nib.load(sys.argv[1]))\n"
        "b = nib.as_closest_canonical(nib.load(sys.argv[2]))\n"
        "x = np.asanyarray(a.dataobj); y = np.asanyarray(b.dataobj)\n"
        "sys.exit(0 if x.shape == y.shape and np.array_equal(x, y) else 1)\n")
    return subprocess.run(["/usr/bin/python3", "-c", probe, ours, reference]).returncode == 0


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--series", help="the uncompressed series (else one is generated)")
    ap.add_argument("--cache", default=os.path.join(tempfile.gettempdir(),
                                                    "vxbench-compressed"))
    ap.add_argument("--runs", type=int, default=7)
    ap.add_argument("--cases", default=",".join(CASES),
                    help="comma-separated, of: " + ", ".join(CASES))
    ap.add_argument("--single", action="store_true",
                    help="also time vxdicom with VXDICOM_DECODE_THREADS=1")
    args = ap.parse_args()
    cases = benchlib.chosen_cases(args.cases, CASES)
    vxdicom = os.path.abspath(args.vxdicom)

    os.makedirs(args.cache, exist_ok=True)
    series = args.series
    if not series:
        series = os.path.join(args.cache, "ct400")
        if len(glob.glob(os.path.join(series, "*.dcm"))) != 400:
            print("writing a 512 x 512 x 400 CT series with pydicom ...", flush=True)
            benchlib.fresh(series)
            subprocess.run(["/usr/bin/python3", MAKE_SERIES, series, "--rows", "512",
                            "--columns", "512", "--slices", "400", "--modality", "CT"],
                           check=True, stderr=subprocess.DEVNULL)
    work = tempfile.mkdtemp(prefix="vxbench-")
    try:
        env = dict(os.environ, QT_QPA_PLATFORM="offscreen",
                   VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
        env["XDG_RUNTIME_DIR"] = os.path.join(work, "runtime")
        os.makedirs(env["XDG_RUNTIME_DIR"], mode=0o700)
        env.pop("VXDICOM_DECODE_THREADS", None)
        single = dict(env, VXDICOM_DECODE_THREADS="1")
        reference = os.path.join(work, "reference")
        benchlib.fresh(reference)
        benchlib.run_timed([vxdicom, "load", "-nodialog", "-q", "--format", "nii", "-o",
                            reference, series], env)
        reference_nii = glob.glob(os.path.join(reference, "*.nii"))[0]
        print("machine shared with other work; %d runs per tool after one warm-up" % args.runs)
        print()

        for case in cases:
            description, converter, target_ratio, target_seconds = CASES[case]
            folder = os.path.join(args.cache, case)
            print("converting the series (%s) ..." % " ".join(converter), flush=True)
            convert(converter, series, folder)
            files = [f for f in sorted(glob.glob(os.path.join(folder, "*")))]
            input_bytes = sum(os.path.getsize(f) for f in files)

            def ours_argv(out):
                return [vxdicom, "load", "-nodialog", "-q", "--format", "nii", "-o", out, folder]

            out_a, out_b, out_c = (os.path.join(work, n) for n in ("a", "b", "c"))
            a = benchlib.Result("vxdicom --format nii")
            tools = [(a, ours_argv(out_a), out_a, env)]
            b = None
            if case != "jpegls":
                b = benchlib.Result("dcm2niix -z n")
                tools.append((b, ["dcm2niix", "-z", "n", "-b", "n", "-o", out_b, folder], out_b,
                              None))
            c = None
            if args.single:
                c = benchlib.Result("vxdicom, 1 decoding thread")
                tools.append((c, ours_argv(out_c), out_c, single))
            benchlib.in_turn(tools, args.runs)
            ours_nii = glob.glob(os.path.join(out_a, "*.nii"))[0]
            check = "values %s the uncompressed series'" % (
                "equal to" if same_values(ours_nii, reference_nii) else "DIFFER from")
            extra = "input %.1f MiB; %s" % (input_bytes / 2**20, check)
            title = "%s: %s, load + save .nii" % (case, description)
            if b is not None:
                benchlib.report(title, a, b, target=target_ratio, extra=extra)
            else:
                print(title)
                benchlib.print_result(a)
                print("  dcm2niix: cannot decode this transfer syntax (not timed)")
                print("  target <= %.2f s: %s" %
                      (target_seconds, "met" if a.median <= target_seconds else "MISSED"))
                print("  " + extra)
            if c is not None:
                benchlib.print_result(c)
                print("  decoding threads speed-up %.2f" % (c.median / a.median))
            print(flush=True)
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
