#!/usr/bin/env bash
# Lazy-read benchmark (not a test): the reader's header-only read of 1,000
# pydicom-written 256 x 256 MR files, per file, next to dcm2niix on the same
# folder. Builds the benchmark program first (Release, in build-bench unless
# VX_BENCH_BUILD names another build tree).
#   bench/reader/run.sh [--series DIR] [--files N] [--runs N] [--keep]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
build="${VX_BENCH_BUILD:-$here/build-bench}"
if [ ! -f "$build/CMakeCache.txt" ]; then
    generator=()
    command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
    cmake -S "$here" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release -DVX_BUILD_TESTS=OFF >/dev/null
fi
cmake --build "$build" --target vxdicom_bench_reader -j 2 >/dev/null
exec /usr/bin/python3 "$here/bench/reader/bench_reader.py" \
    --bench "$build/bench/reader/vxdicom_bench_reader" "$@"
