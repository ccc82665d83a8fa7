#!/usr/bin/python3
"""Fields of `vxdicom load --format nii` against dcm2niix (default), the tilted CT's headers read
by pydicom (--sheared), a save-dicom round trip (--roundtrip), or two NIfTI files volume by volume
(--pair A B; the same scaling too unless --scaled). Exit 1 on a mismatch, 77 without a tool."""
import argparse, glob, itertools, os, shutil, subprocess, sys, tempfile

try:
    import nibabel as nib, numpy as np, pydicom
except ImportError as e:
    print("SKIP: %s" % e)
    sys.exit(77)

MAKE_SERIES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "support", "make_series.py")


def volumes_of(folder):  # the .nii files of a folder, or one file
    out = []
    for path in [folder] if os.path.isfile(folder) else sorted(glob.glob(os.path.join(folder, "*.nii"))):
        img = nib.load(path)  # get_fdata applies scl_slope and scl_inter
        data, affine = img.get_fdata(), img.get_sform() if img.header["sform_code"] > 0 else img.get_qform()
        vols = [data] if data.ndim == 3 else [data[..., t] for t in range(data.shape[3])]
        out += [{"name": "%s[%d]" % (os.path.basename(path), t), "data": v, "affine": affine} for t, v in enumerate(vols)]
    return out


def match(ours, theirs, signed_bits):
    A, B = ours["affine"], theirs["affine"]
    M = np.linalg.inv(B) @ A  # our index -> their index
    R, t = M[:3, :3], M[:3, 3]
    P = np.round(R)
    if not (np.all(np.abs(P).sum(axis=0) == 1) and np.all(np.abs(P).sum(axis=1) == 1)):
        return "axes differ (index map %s)" % np.array2string(R, precision=4)
    sizes_ours, sizes_theirs = np.linalg.norm(A[:3, :3], axis=0), np.linalg.norm(B[:3, :3], axis=0)
    perm = [int(np.argmax(np.abs(P[:, j]))) for j in range(3)]
    shape = ours["data"].shape
    if any(shape[j] > 1 and abs(sizes_ours[j] - sizes_theirs[perm[j]]) > 1e-4 for j in range(3)):
        return "voxel size %s vs %s" % (sizes_ours, sizes_theirs[perm])
    if shape != tuple(theirs["data"].shape[perm[j]] for j in range(3)):
        return "dimensions %s vs %s" % (shape, theirs["data"].shape)
    if np.max(np.abs(t - np.round(t))) * max(sizes_theirs.max(), 1.0) > 1e-3:
        return "voxel grids are offset (index shift %s)" % np.array2string(t, precision=5)
    # Outer corners through the whole-voxel index map show a rotation or scaling the affines differ on.
    corners = np.array([list(c) + [1.0] for c in itertools.product(*[(-0.5, s - 0.5) for s in shape])])
    whole = np.eye(4)
    whole[:3, :3], whole[:3, 3] = P, np.round(t + (R - P) @ (np.array(shape) - 1) / 2.0)
    err = np.max(np.abs((A @ corners.T)[:3] - (B @ whole @ corners.T)[:3]))
    if err > 1e-3:
        return "corners differ by %.4g mm" % err
    ii = np.indices(shape).reshape(3, -1)
    a, b = ours["data"][tuple(ii)], theirs["data"][tuple(np.round(P @ ii + t[:, None]).astype(int))]
    diff, allowed = np.max(np.abs(a - b)), 1e-6 * max(1.0, float(np.max(np.abs(b))))
    if signed_bits and diff > allowed:
        # Debian's dcm2niix keeps the bits above the sign bit: read theirs as the standard does.
        half = 2.0 ** (signed_bits - 1)
        diff = np.max(np.abs(a - (np.mod(b + half, 2 * half) - half)))
    return "values differ by up to %g (allowed %g)" % (diff, allowed) if diff > allowed else None


def describe_folder(folder):
    """Image files directly in a folder, and the stored bits of signed data short of allocated."""
    files, signed_bits = [], None
    for path in sorted(os.path.join(folder, f) for f in os.listdir(folder)):
        try:
            ds = pydicom.dcmread(path, stop_before_pixels=True)
        except Exception:
            continue
        if "Rows" in ds:
            files.append(path)
            bits = int(ds.get("BitsStored", 0))
            if int(ds.get("PixelRepresentation", 0)) == 1 and 0 < bits < int(ds.BitsAllocated):
                signed_bits = bits
    return files, signed_bits


def load(vxdicom, out, inputs, env):
    r = subprocess.run([vxdicom, "load", "-nodialog", "--format", "nii", "-o", out] + inputs,
                       env=env, capture_output=True, text=True)
    if r.returncode != 0:
        print("FAIL %s: vxdicom load exited %d\n%s%s" % (inputs[0], r.returncode, r.stdout, r.stderr))
    return r


def compare(args, work, env):
    if not shutil.which("dcm2niix"):
        print("SKIP: dcm2niix is not installed")
        return 77
    failures, matched, total = 0, 0, 0
    for n, series in enumerate(args.series):
        ours_dir, theirs_dir = os.path.join(work, "ours%d" % n), os.path.join(work, "theirs%d" % n)
        os.makedirs(ours_dir), os.makedirs(theirs_dir)
        files, signed_bits = describe_folder(series)
        if load(args.vxdicom, ours_dir, files, env).returncode != 0:
            failures += 1
            continue
        subprocess.run(["dcm2niix", "-d", "0", "-z", "n", "-b", "n", "-p", "n", "-o", theirs_dir, series],
                       capture_output=True)
        ours, theirs = volumes_of(ours_dir), volumes_of(theirs_dir)
        total += len(theirs)
        for o in ours:
            reasons = ["%s: %s" % (t["name"], "used" in t or match(o, t, signed_bits)) for t in theirs]
            free = [t for t, r in zip(theirs, reasons) if r.endswith(": None")]
            if free:
                free[0]["used"], matched = True, matched + 1
            else:
                print("note %s %s: no dcm2niix volume matches;\n    %s" % (series, o["name"], "\n    ".join(reasons)))
        for t in theirs:
            if "used" not in t:
                failures += 1
                print("FAIL %s: dcm2niix volume %s %s has no field of ours" % (series, t["name"], t["data"].shape))
    print("%d of %d dcm2niix volumes matched, %d mismatches" % (matched, total, failures))
    return 1 if failures else 0


def pair(args):
    (a, b), images = (volumes_of(f) for f in args.pair), [nib.load(f) for f in args.pair]
    problems = ["%d volumes, %d" % (len(a), len(b))] * (len(a) != len(b))
    problems += ["%s: %s" % (x["name"], m) for x, y in zip(a, b) if (m := match(x, y, None))]
    if not args.scaled and len({(i.dataobj.slope, i.dataobj.inter) for i in images}) > 1:
        problems.append("the scaling differs")
    print("; ".join(problems) or "equal: %s" % (images[0].shape,))
    return 1 if problems else 0


def sheared(args, work, env):
    if not os.path.isdir(args.sheared):
        print("SKIP: %s is missing (../shared/data is not beside this checkout)" % args.sheared)
        return 77
    r = load(args.vxdicom, work, [args.sheared], env)
    if r.returncode != 0:
        return 1
    failures = [] if "stack HEAD is sheared by -18.5 degrees!" in r.stdout else \
        ["no shear warning in:\n" + r.stdout[-2000:]]
    img = nib.load(glob.glob(os.path.join(work, "*.nii"))[0])
    data, A = img.get_fdata(), np.diag([-1.0, -1, 1, 1]) @ img.affine  # RAS to LPS
    ds = sorted((pydicom.dcmread(f) for f in glob.glob(os.path.join(args.sheared, "I*"))),
                key=lambda d: float(d.ImagePositionPatient[2]))
    iop = np.array([float(v) for v in ds[0].ImageOrientationPatient])
    n = np.cross(iop[:3], iop[3:]) / np.linalg.norm(np.cross(iop[:3], iop[3:]))
    dr, dc = (float(v) for v in ds[0].PixelSpacing)
    p0, pN = (np.array([float(v) for v in d.ImagePositionPatient]) for d in (ds[0], ds[-1]))
    shear = (pN - p0) - np.dot(n, pN - p0) * n
    middle = A[:3, :3] @ np.array([0, 0, (len(ds) - 1) / 2.0]) + A[:3, 3]
    checks = [("shape", data.shape, (int(ds[0].Columns), int(ds[0].Rows), len(ds)), 0),
              ("row axis", A[:3, 0], iop[:3] * dc, 1e-4), ("column axis", A[:3, 1], iop[3:] * dr, 1e-4),
              ("slice axis", A[:3, 2], n * np.dot(n, pN - p0) / (len(ds) - 1), 1e-4),
              ("first slice (position + shear / 2)", A[:3, 3], p0 + shear / 2, 1e-3),
              ("middle of the stack", middle, (p0 + pN) / 2, 1e-3)]
    for k in (0, len(ds) // 2, len(ds) - 1):  # x = column, y = row
        checks.append(("slice %d values" % k, data[:, :, k].T,
                       ds[k].pixel_array * float(ds[k].RescaleSlope) + float(ds[k].RescaleIntercept), 0.5))
    failures += ["%s: %s, headers say %s" % (name, np.round(got, 4), np.round(want, 4))
                 for name, got, want, tol in checks
                 if np.shape(got) != np.shape(want) or np.max(np.abs(np.subtract(got, want))) > tol]
    print("".join("FAIL %s\n" % f for f in failures), end="")
    return 1 if failures else 0


def roundtrip_problems(a, b, positions, spacings, single):
    da, db = a.get_fdata(), b.get_fdata()
    if da.shape != db.shape:
        return ["dimensions %s, then %s" % (da.shape, db.shape)]
    sa, sb = (np.linalg.norm(x.affine[:3, :3], axis=0) for x in (a, b))
    lps = np.diag([-1.0, -1.0, 1.0])  # NIfTI (RAS) to DICOM patient axes
    pa, pb = (np.array([lps @ (x.affine @ [0, 0, k, 1.0])[:3] for k in range(da.shape[2])]) for x in (a, b))
    checks = [("in-plane voxel size", sa[:2], sb[:2], 1e-3), ("first slice", pa[0], pb[0], 1e-3),
              ("slices along z", pa[:, 2], pb[:, 2], 1e-3), ("values", da, db, 0),
              ("slice distance along z", abs(pa[min(1, len(pa) - 1)][2] - pa[0][2]), sb[2] * (len(pa) > 1), 1e-3)]
    if single:  # written axial (rows along x): Pixel Spacing is the y step, then the x step
        checks += [("Pixel Spacing written", sorted(spacings), [(round(sa[1], 4), round(sa[0], 4))], 0),
                   ("positions written", [positions.get(k, np.zeros(3)) for k in range(len(pa))], pa, 1e-3)]
    return ["%s differ by up to %g" % (name, np.max(np.abs(np.subtract(x, y))) if np.shape(x) == np.shape(y) else -1)
            for name, x, y, tol in checks if np.shape(x) != np.shape(y) or np.max(np.abs(np.subtract(x, y))) > tol]


def roundtrip(args, work, env):
    if args.generate_ct:
        rows, cols, slices = args.generate_ct.split("x")
        make_series(args, work, [("ct", "--rows %s --columns %s --slices %s --modality CT" % (rows, cols, slices)),
                                 ("oblong-mr", "--rows 48 --columns 64 --slices 6 --modality MR --spacing 0.8 "
                                               "--row-spacing 1.1")])
    failures = 0
    for n, series in enumerate(args.series):
        written, first, second = (os.path.join(work, x + str(n)) for x in ("dicom", "a", "b"))
        r = subprocess.run([args.vxdicom, "save-dicom", series, "-o", written], env=env, capture_output=True, text=True)
        if r.returncode != 0:
            print("FAIL %s: save-dicom exited %d\n%s%s" % (series, r.returncode, r.stdout, r.stderr))
        if r.returncode != 0 or any(load(args.vxdicom, out, [source], env).returncode != 0
                                    for source, out in ((series, first), (written, second))):
            failures += 1
            continue
        files = sorted(glob.glob(os.path.join(written, "**", "*.dcm"), recursive=True))
        positions, spacings = {}, set()
        for ds in (pydicom.dcmread(f) for f in files):
            ds.pixel_array  # raises on a file pydicom cannot read
            positions[int(ds.InstanceNumber)] = np.array([float(v) for v in ds.ImagePositionPatient])
            spacings.add(tuple(round(float(v), 4) for v in ds.PixelSpacing))
        first, second = ([nib.load(f) for f in sorted(glob.glob(os.path.join(d, "*.nii")))] for d in (first, second))
        problems = ["%d fields, %d after" % (len(first), len(second))] * (len(first) != len(second))
        for a, b in zip(first, second):
            problems += roundtrip_problems(a, b, positions, spacings, len(first) == 1)
        failures += bool(problems)
        print("%s %s: %d files; %s" % ("FAIL" if problems else "ok  ", series, len(files), "; ".join(problems)))
    return 1 if failures else 0


def make_series(args, work, made):
    for name, extra in made:
        args.series.append(os.path.join(work, name))
        subprocess.run([sys.executable, MAKE_SERIES, args.series[-1]] + extra.split(), check=True, capture_output=True)


def main():
    ap = argparse.ArgumentParser()
    for name in ("--vxdicom", "--discover", "--sheared", "--generate-ct"):  # ROWSxCOLUMNSxSLICES
        ap.add_argument(name)
    for name in ("--synthetic", "--roundtrip", "--scaled"):
        ap.add_argument(name, action="store_true")
    ap.add_argument("--pair", nargs=2)
    ap.add_argument("--exclude", action="append", default=[])
    ap.add_argument("series", nargs="*")
    args = ap.parse_args()
    work = tempfile.mkdtemp(prefix="vxgeom-")
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", VXDICOM_SETTINGS_FILE=os.path.join(work, "vxdicom.ini"))
    try:
        if args.pair:
            return pair(args)
        if args.sheared:
            return sheared(args, work, env)
        if args.roundtrip:
            return roundtrip(args, work, env)
        if args.discover:
            args.series += [d for d, _, _ in sorted(os.walk(args.discover))
                            if describe_folder(d)[0] and not any(x in d for x in args.exclude)]
        if args.synthetic:
            made = [(o + order, "--orientation %s --spacing 0.8 --row-spacing 1.1 --thickness 2.0 --name-order %s"
                     % (o, order)) for o in ("axial", "coronal", "sagittal", "axial-rev", "coronal-rev",
                                             "sagittal-rev", "axial-rot", "axial-tilt", "sagittal-tilt", "oblique")
                    for order in ("forward", "reverse")]
            made += [("square-" + m, "--modality %s --spacing 0.7 --thickness 1.25 --origin=-7.35,20.5,-101.25" % m)
                     for m in ("CT", "MR")]
            make_series(args, work, [(n, "--rows 24 --columns 20 --slices 6 " + x) for n, x in made])
        return compare(args, work, env)
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
