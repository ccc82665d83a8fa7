#!/usr/bin/env bash
# Builds vxdicom (installing what is missing) and runs every test.
#   scripts/run-tests.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${1:-$here/build}"
shift || true
bash "$here/scripts/build.sh" "$build" "$@"

export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR="${XDG_RUNTIME_DIR:-$(mktemp -d)}"
cd "$build"
ctest --output-on-failure -j "$(nproc)"
