#!/usr/bin/env bash
# Load benchmarks (not tests): vxdicom against dcm2niix, both tools in turn,
# a fresh output folder for every run of every tool. Builds vxdicom first
# (installing what is missing, pigz included for dcm2niix's comparison).
#   bench/load/run.sh [--runs N]      the five cases below, one after the other
#   bench/load/run.sh --kinds [--volumes N] [--runs N]
#       the same fMRI-like voxels as classic files, mosaics and one enhanced
#       file, time per voxel of each kind (bench_kinds.py)
# The five cases:
#   1. a 512 x 512 x 400 CT to uncompressed .nii, fresh folder and re-run into
#      the same folder                                         (bench_load.py)
#   2. the same CT to the default .nii.gz                      (bench_load.py)
#   3. the same CT stored as JPEG 2000, JPEG-LS and JPEG lossless (bench_compressed.py)
#   4. a 7,000-file folder of 100 series, and 1,000 files of it (bench_folders.py)
#   5. the header scan of 1,000 small files                    (bench_folders.py)
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
VX_BUILD_TARGETS="vxdicom vxdicom_bench_reader" bash "$here/scripts/build.sh" "$here/build" >/dev/null
vxdicom="$here/build/apps/vxdicom/vxdicom"
py=/usr/bin/python3
if [ "${1:-}" = "--kinds" ]; then
    shift
    exec "$py" "$here/bench/load/bench_kinds.py" --vxdicom "$vxdicom" "$@"
fi
status=0
for script in bench_load.py bench_compressed.py bench_folders.py; do
    echo "== $script"
    extra=()
    # the compressed cases also time one decoding thread, to show what the pool gives
    [ "$script" = bench_compressed.py ] && extra=(--single)
    "$py" "$here/bench/load/$script" --vxdicom "$vxdicom" "${extra[@]}" "$@" || status=1
    echo
done
exit $status
