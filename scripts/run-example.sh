#!/usr/bin/env bash
# The main job on the built-in example: builds everything (installing what is
# missing), writes the phantom CT series, and reads it with vxdicom.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$here/build"
bash "$here/scripts/build.sh" "$build"

example="$build/example/phantom-ct"
echo "== vxdicom info on the built-in phantom ($example)"
"$build/apps/vxdicom/vxdicom" info "$example/IM0001.dcm"
