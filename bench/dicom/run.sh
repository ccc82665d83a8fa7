#!/usr/bin/env bash
# Builds and runs the header-parse benchmark of the dicom:: layer on the
# shared scanner files (or on the folder given).
#   bench/dicom/run.sh [FOLDER] [--pixels] [--repeat N]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
build="${VX_BENCH_BUILD:-$here/build-bench}"
folder="$here/../shared/data"
args=()
for a in "$@"; do
    case "$a" in
        -*|[0-9]*) args+=("$a") ;;
        *) folder="$a" ;;
    esac
done
if [ ! -f "$build/CMakeCache.txt" ]; then
    generator=()
    command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
    cmake -S "$here" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release -DVX_BUILD_TESTS=OFF >/dev/null
fi
cmake --build "$build" --target vxdicom_bench_header -j 2 >/dev/null
"$build/bench/dicom/vxdicom_bench_header" "${args[@]}" "$folder"
