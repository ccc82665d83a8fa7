#!/usr/bin/env bash
# Installs missing Debian packages, then configures and builds vxdicom.
#   scripts/build.sh [BUILD_DIR] [extra cmake arguments...]
# VX_BUILD_TARGETS="t1 t2" builds only those targets (and what they need);
# unset, everything is built, the tests included.
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
targets=()
for t in ${VX_BUILD_TARGETS:-}; do
    targets+=(--target "$t")
done
cmake --build "$build" -j "$(nproc)" "${targets[@]}"
