#!/usr/bin/env bash
# Load benchmark (not a test): vxdicom vs dcm2niix vs cat on a generated
# 512 x 512 x 400 CT series. Builds vxdicom first (installing what is missing).
#   bench/load/run.sh [--series DIR] [--runs N]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
bash "$here/scripts/build.sh" "$here/build" >/dev/null
exec /usr/bin/python3 "$here/bench/load/bench_load.py" --vxdicom "$here/build/apps/vxdicom/vxdicom" "$@"
