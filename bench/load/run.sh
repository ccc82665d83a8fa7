#!/usr/bin/env bash
# Load benchmark (not a test): vxdicom vs dcm2niix vs cat on a generated
# 512 x 512 x 400 CT series. Builds vxdicom first (installing what is missing).
#   bench/load/run.sh [--series DIR] [--runs N]
#   bench/load/run.sh --kinds [--volumes N] [--runs N]
#       the same fMRI-like voxels as classic files, mosaics and one enhanced
#       file, time per voxel of each kind (bench_kinds.py)
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
bash "$here/scripts/build.sh" "$here/build" >/dev/null
if [ "${1:-}" = "--kinds" ]; then
    shift
    exec /usr/bin/python3 "$here/bench/load/bench_kinds.py" --vxdicom "$here/build/apps/vxdicom/vxdicom" "$@"
fi
exec /usr/bin/python3 "$here/bench/load/bench_load.py" --vxdicom "$here/build/apps/vxdicom/vxdicom" "$@"
