#!/usr/bin/env bash
# Installs missing Debian packages, then configures and builds vxdicom.
#   scripts/build.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${1:-$here/build}"
shift || true

bash "$here/scripts/install-deps.sh"

generator=()
if command -v ninja >/dev/null 2>&1; then
    generator=(-G Ninja)
fi
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$here" -B "$build" "${generator[@]}" "$@" >/dev/null
else
    cmake -S "$here" -B "$build" "$@" >/dev/null
fi
cmake --build "$build" -j "$(nproc)"
