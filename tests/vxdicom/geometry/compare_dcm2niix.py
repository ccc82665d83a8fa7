#!/usr/bin/python3
"""Compares vxdicom's fields with dcm2niix's volumes, voxel by voxel.

    compare_dcm2niix.py --vxdicom BIN [--settings INI] [--work DIR]
                        [--discover ROOT] [SERIES_DIR...]

For every folder, `vxdicom load -nodialog --format nii -o OURS FILES` (the
DICOM files directly in the folder) and `dcm2niix -d 0 -z n -o THEIRS DIR` are
run. Every 3D volume dcm2niix writes (a 4D file counts as its volumes) must be
matched by one field of ours:
  - the same dimensions up to the axis order and flips either tool may choose,
  - the same voxel size within 1e-4 mm,
  - the same world position of every voxel corner within 1e-3 mm,
  - the same voxel values after rescaling (dcm2niix's scl_slope/scl_inter
    applied), to single precision: no value may be rounded away.
Fields of ours that dcm2niix has no volume for (files it does not convert,
such as JPEG-LS for Debian's dcm2niix) are listed, not counted as failures.
Folders are grouped by kind: classic (single-frame files), mosaic (Siemens
mosaics), multi-frame (enhanced and other multi-frame files); the summary
gives the matched volumes per kind. Exit status 1 on any mismatch, 77 when
dcm2niix or nibabel is missing (a skip for ctest).
"""
import argparse
import itertools
import json
import os
import shutil
import subprocess
import sys
import tempfile

try:
    import nibabel as nib
    import numpy as np
except ImportError as e:  # pragma: no cover
    print("SKIP: nibabel/numpy missing: %s" % e)
    sys.exit(77)

SIZE_TOL = 1e-4    # mm
CORNER_TOL = 1e-3  # mm


def volumes_of(path):
    img = nib.load(path)
    data = img.get_fdata()  # with scl_slope and scl_inter applied
    slope, _ = img.header.get_slope_inter()
    affine = img.get_sform() if img.header["sform_code"] > 0 else img.get_qform()
    if data.ndim == 3:
        vols = [data]
    else:
        vols = [data[..., t] for t in range(data.shape[3])]
    out = []
    for t, v in enumerate(vols):
        v = np.asarray(v, dtype=np.float64)
        step = abs(slope) if slope is not None and not np.isnan(slope) and slope != 0 else 1.0
        out.append({"file": os.path.basename(path), "volume": t, "data": v, "affine": affine,
                    "step": step})
    return out


def corner_points(shape):
    """The eight outer voxel corners in index space (half a voxel outside the centres)."""
    ranges = [(-0.5, s - 0.5) for s in shape]
    return np.array([list(c) + [1.0] for c in itertools.product(*ranges)])


def match(ours, theirs):
    """None when ours matches theirs, else the reason."""
    A, B = ours["affine"], theirs["affine"]
    # Our index -> their index.
    M = np.linalg.inv(B) @ A
    R = M[:3, :3]
    P = np.round(R)
    if not (np.all(np.abs(np.abs(P).sum(axis=0) - 1) == 0) and np.all(np.abs(np.abs(P).sum(axis=1) - 1) == 0)):
        return "axes differ (index map %s)" % np.array2string(R, precision=4)
    sizes_ours = np.linalg.norm(A[:3, :3], axis=0)
    sizes_theirs = np.linalg.norm(B[:3, :3], axis=0)
    perm = [int(np.argmax(np.abs(P[:, j]))) for j in range(3)]
    for j in range(3):
        if ours["data"].shape[j] > 1 and abs(sizes_ours[j] - sizes_theirs[perm[j]]) > SIZE_TOL:
            return "voxel size %s vs %s" % (sizes_ours, sizes_theirs[perm])
    shape_ours = ours["data"].shape
    shape_theirs = tuple(theirs["data"].shape[perm[j]] for j in range(3))
    if shape_ours != shape_theirs:
        return "dimensions %s vs %s" % (shape_ours, shape_theirs)
    # Every voxel corner of ours in world coordinates equals the matching
    # corner of theirs: the corners are matched through the index map as
    # whole voxels (the permutation P and a whole shift), so that a rotation
    # or a scaling the two affines disagree on shows at the corners.
    t = M[:3, 3]
    corners = corner_points(shape_ours)
    world_ours = (A @ corners.T).T[:, :3]
    whole = np.eye(4)
    whole[:3, :3] = P
    whole[:3, 3] = np.round(t + (R - P) @ (np.array(shape_ours) - 1) / 2.0)
    # The corner's own half-voxel offset goes through the permutation too.
    idx_theirs = (whole @ corners.T).T
    world_theirs = (B @ idx_theirs.T).T[:, :3]
    err = np.max(np.abs(world_ours - world_theirs))
    if np.max(np.abs(t - np.round(t))) * max(sizes_theirs.max(), 1.0) > CORNER_TOL:
        return "voxel grids are offset (index shift %s)" % np.array2string(t, precision=5)
    if err > CORNER_TOL:
        return "corners differ by %.4g mm" % err
    # Values, read through the index map.
    ii = np.indices(shape_ours).reshape(3, -1)
    jj = np.round(P @ ii + t[:, None]).astype(int)
    a = ours["data"][tuple(ii)]
    b = theirs["data"][tuple(jj)]
    diff = np.max(np.abs(a - b)) if a.size else 0.0
    # No value may be lost: ours are the physical values in single precision.
    allowed = 1e-6 * max(1.0, float(np.max(np.abs(b))) if b.size else 1.0)
    bits = theirs.get("signed_bits")
    if bits and a.size and diff > allowed:
        # Signed samples stored in fewer bits than allocated: DICOM makes the
        # top stored bit the sign (PS3.5 8.1.1), which we extend; Debian's
        # dcm2niix keeps the bits above it. Their values are read as the
        # standard reads them before they are compared.
        half = 2.0 ** (bits - 1)
        b = np.mod(b + half, 2 * half) - half
        diff = np.max(np.abs(a - b))
    if diff > allowed:
        return "values differ by up to %g (allowed %g)" % (diff, allowed)
    return None


ENHANCED = {"1.2.840.10008.5.1.4.1.1.4.1", "1.2.840.10008.5.1.4.1.1.2.1",
            "1.2.840.10008.5.1.4.1.1.4.3", "1.2.840.10008.5.1.4.1.1.4.4"}


def describe_folder(folder):
    """The DICOM image files directly in a folder, their kind (classic, mosaic,
    multi-frame) and, for signed data stored in fewer bits than allocated,
    the number of stored bits."""
    import pydicom
    files, kind, signed_bits = [], "classic", None
    for f in sorted(os.listdir(folder)):
        path = os.path.join(folder, f)
        if not os.path.isfile(path):
            continue
        try:
            ds = pydicom.dcmread(path, stop_before_pixels=True)
        except Exception:
            continue
        if "Rows" not in ds:
            continue  # a DICOMDIR or another object without an image
        files.append(path)
        frames = int(getattr(ds, "NumberOfFrames", 1) or 1)
        image_type = [str(v).upper() for v in getattr(ds, "ImageType", [])]
        if "MOSAIC" in image_type:
            kind = "mosaic"
        elif kind == "classic" and (frames > 1 or str(ds.SOPClassUID) in ENHANCED):
            kind = "multi-frame"
        bits, allocated = int(getattr(ds, "BitsStored", 0)), int(getattr(ds, "BitsAllocated", 0))
        if int(getattr(ds, "PixelRepresentation", 0)) == 1 and 0 < bits < allocated:
            signed_bits = bits
    return files, kind, signed_bits


def series_folders(root):
    """Every folder below root that holds DICOM image files."""
    return [folder for folder, _, _ in sorted(os.walk(root)) if describe_folder(folder)[0]]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vxdicom", required=True)
    ap.add_argument("--settings", help="preferences file for vxdicom (stack-break criteria)")
    ap.add_argument("--work", help="keep the outputs in this folder")
    ap.add_argument("--json", action="store_true", help="print the results as JSON")
    ap.add_argument("--discover", help="compare every series folder below this root")
    ap.add_argument("--exclude", action="append", default=[],
                    help="leave out folders whose path holds this text (repeatable)")
    ap.add_argument("--criteria", action="append", default=[],
                    help="SUBSTRING=TEXT: stack-break criteria for folders whose path holds SUBSTRING")
    ap.add_argument("series", nargs="*")
    args = ap.parse_args()
    if args.discover:
        args.series += series_folders(args.discover)
    args.series = [s for s in args.series if not any(x in s for x in args.exclude)]
    if not args.series:
        print("no series to compare")
        return 1
    if not shutil.which("dcm2niix"):
        print("SKIP: dcm2niix is not installed")
        return 77

    work = args.work or tempfile.mkdtemp(prefix="vxgeom-")
    failures = 0
    results = []
    counts = {}  # kind -> [matched dcm2niix volumes, all dcm2niix volumes]
    env = dict(os.environ)
    env.setdefault("QT_QPA_PLATFORM", "offscreen")
    default_settings = args.settings or os.path.join(work, "vxdicom.ini")
    try:
        for n, series in enumerate(args.series):
            env["VXDICOM_SETTINGS_FILE"] = default_settings
            for rule in args.criteria:
                key, _, text = rule.partition("=")
                if key and key in series:
                    ini = os.path.join(work, "criteria%d.ini" % n)
                    with open(ini, "w") as f:
                        f.write("[DICOM]\nLoadOptions=\"%s\"\n" % text.replace('"', '\\"'))
                    env["VXDICOM_SETTINGS_FILE"] = ini
                    print("     %s: stack-break criteria %s" % (series, text))
            ours_dir = os.path.join(work, "ours%d" % n)
            theirs_dir = os.path.join(work, "theirs%d" % n)
            os.makedirs(ours_dir, exist_ok=True)
            os.makedirs(theirs_dir, exist_ok=True)
            files, kind, signed_bits = describe_folder(series)
            tally = counts.setdefault(kind, [0, 0])
            r = subprocess.run([args.vxdicom, "load", "-nodialog", "-q", "--format", "nii", "-o",
                                ours_dir] + files, env=env, capture_output=True, text=True)
            if r.returncode != 0:
                print("FAIL %s: vxdicom load exited %d\n%s%s" % (series, r.returncode, r.stdout, r.stderr))
                failures += 1
                continue
            reference = series
            # -p n: Philips values as their Rescale Slope/Intercept say (dcm2niix
            # otherwise uses Philips' private floating-point scale).
            subprocess.run(["dcm2niix", "-d", "0", "-z", "n", "-b", "n", "-p", "n", "-o",
                            theirs_dir, reference], capture_output=True, text=True)
            ours = []
            for f in sorted(os.listdir(ours_dir)):
                if f.endswith(".nii"):
                    ours.extend(volumes_of(os.path.join(ours_dir, f)))
            theirs = []
            for f in sorted(os.listdir(theirs_dir)):
                if f.endswith(".nii"):
                    theirs.extend(volumes_of(os.path.join(theirs_dir, f)))
            for t in theirs:
                t["signed_bits"] = signed_bits
            tally[1] += len(theirs)
            used = set()
            for o in ours:
                reasons = []
                found = None
                for k, t in enumerate(theirs):
                    if k in used:
                        continue
                    why = match(o, t)
                    if why is None:
                        found = k
                        break
                    reasons.append("%s[%d]: %s" % (t["file"], t["volume"], why))
                if found is None:
                    print("note %s %s: no dcm2niix volume matches;\n    %s" %
                          (series, o["file"], "\n    ".join(reasons) or "dcm2niix wrote nothing"))
                    results.append({"series": series, "field": o["file"], "ok": None})
                else:
                    used.add(found)
                    tally[0] += 1
                    print("ok   %s %s = %s[%d] %s" % (series, o["file"], theirs[found]["file"],
                                                     theirs[found]["volume"], o["data"].shape))
                    results.append({"series": series, "field": o["file"], "ok": True})
            for k, t in enumerate(theirs):
                if k not in used:
                    failures += 1
                    print("FAIL %s: dcm2niix volume %s[%d] %s has no field of ours" %
                          (series, t["file"], t["volume"], t["data"].shape))
    finally:
        if not args.work:
            shutil.rmtree(work, ignore_errors=True)
    if args.json:
        print(json.dumps(results))
    for kind in ("classic", "mosaic", "multi-frame"):
        if kind in counts:
            print("%-12s %d of %d dcm2niix volumes matched" % (kind, counts[kind][0], counts[kind][1]))
    print("%d mismatch%s" % (failures, "" if failures == 1 else "es"))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
