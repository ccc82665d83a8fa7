#!/usr/bin/env bash
# Makes the seed corpora of the fuzz targets from ../shared/data (pydicom,
# DCMTK and GDCM tools). The corpora live in the build tree, never in the
# repository; the fuzzers add what they find to them.
#   fuzz/scripts/make_corpus.sh [OUT_DIR]     (default: build-fuzz/corpus)
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
out="${1:-$here/build-fuzz/corpus}"
shared="$(cd "$here/.." && pwd)/shared/data"
if [ ! -d "$shared" ]; then
    echo "make_corpus: no shared data at $shared; the fuzzers start from empty corpora" >&2
    mkdir -p "$out"
    exit 0
fi
/usr/bin/python3 "$here/fuzz/scripts/make_corpus.py" --shared "$shared" --out "$out"
