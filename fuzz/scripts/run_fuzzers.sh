#!/usr/bin/env bash
# Builds the fuzz tree (clang, a build folder of its own), makes the seed
# corpora when they are missing, and runs every fuzz target for a bounded
# time. Prints one line per target (executions, executions per second,
# coverage) and exits with 1 when a target found a crash, a hang, a leak or
# a sanitizer report; the input that shows it is kept in OUT/artifacts.
#
#   fuzz/scripts/run_fuzzers.sh [--time SECONDS] [--jobs N] [--nice N]
#                               [--build DIR] [--out DIR] [--no-build] [TARGET...]
#
#   --time     seconds per target (default 60)
#   --jobs     targets run at the same time (default 1)
#   --nice     run the fuzzers with this niceness (default 0)
#   --build    the fuzz build folder (default build-fuzz)
#   --out      corpora, logs and findings (default BUILD/fuzz-run)
#   TARGET     fuzz_dicom_parse, fuzz_image_record, ... (default: all)
#
# The corpora grow with what the fuzzers find: BUILD/corpus holds the seeds,
# OUT/corpus/TARGET the inputs each target added.
set -uo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"

seconds=60
jobs=1
niceness=0
build="$here/build-fuzz"
out=""
do_build=1
targets=()
while [ $# -gt 0 ]; do
    case "$1" in
        --time) seconds="$2"; shift 2 ;;
        --jobs) jobs="$2"; shift 2 ;;
        --nice) niceness="$2"; shift 2 ;;
        --build) build="$2"; shift 2 ;;
        --out) out="$2"; shift 2 ;;
        --no-build) do_build=0; shift ;;
        -h|--help) sed -n '2,21p' "$0"; exit 0 ;;
        -*) echo "run_fuzzers: unknown option $1" >&2; exit 2 ;;
        *) targets+=("$1"); shift ;;
    esac
done
out="${out:-$build/fuzz-run}"

# Target, seed corpus, dictionary.
table=(
    "fuzz_dicom_parse dicom dicom.dict"
    "fuzz_image_record dicom dicom.dict"
    "fuzz_dicomdir dicomdir dicom.dict"
    "fuzz_element_param element -"
    "fuzz_csa csa -"
    "fuzz_value_codec value -"
    "fuzz_load_option load_option -"
)
if [ ${#targets[@]} -eq 0 ]; then
    for row in "${table[@]}"; do targets+=("${row%% *}"); done
fi

if [ "$do_build" = 1 ]; then
    if [ ! -f "$build/CMakeCache.txt" ]; then
        CC=clang CXX=clang++ cmake -S "$here" -B "$build" -G Ninja -DVX_FUZZ=ON \
            -DVX_BUILD_TESTS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null || exit 1
    fi
    cmake --build "$build" --target fuzzers -j 2 >"$build/fuzz-build.log" 2>&1 || {
        tail -40 "$build/fuzz-build.log"
        exit 1
    }
fi
if [ ! -d "$build/corpus/dicom" ]; then
    bash "$here/fuzz/scripts/make_corpus.sh" "$build/corpus" || exit 1
fi
mkdir -p "$out/logs" "$out/artifacts" "$out/corpus"

run_one() {
    local target="$1" seeds="$2" dict="$3"
    local log="$out/logs/$target.log"
    mkdir -p "$out/artifacts/$target" "$out/corpus/$target" "$build/corpus/$seeds"
    local options=(-max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048
                   -print_final_stats=1 -artifact_prefix="$out/artifacts/$target/")
    [ "$dict" != "-" ] && options+=(-dict="$here/fuzz/$dict")
    nice -n "$niceness" "$build/fuzz/$target" "${options[@]}" \
        "$out/corpus/$target" "$build/corpus/$seeds" >"$log" 2>&1
    echo $? >"$out/logs/$target.status"
}

summary_line() {
    local target="$1" log="$out/logs/$target.log" status
    status="$(cat "$out/logs/$target.status" 2>/dev/null || echo 1)"
    local last execs rate cov ft corp result
    last="$(grep -E '^#[0-9]+' "$log" | tail -1)"
    execs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)"
    rate="$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)"
    cov="$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")"
    ft="$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")"
    corp="$(sed -n 's/.* corp: \([^ ]*\).*/\1/p' <<<"$last")"
    if [ "$status" = 0 ]; then
        result="clean"
    else
        result="FAILED ($(grep -m1 -E 'ERROR: |runtime error|check failed|SUMMARY' "$log" | cut -c1-100))"
    fi
    printf '%-20s %6ss %12s %8s/s  cov %6s  ft %7s  corp %-12s %s\n' "$target" "$seconds" \
        "${execs:-?}" "${rate:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}" "$result"
    [ "$status" = 0 ]
}

running=0
for target in "${targets[@]}"; do
    row=""
    for r in "${table[@]}"; do [ "${r%% *}" = "$target" ] && row="$r"; done
    if [ -z "$row" ]; then
        echo "run_fuzzers: no target $target" >&2
        exit 2
    fi
    read -r _ seeds dict <<<"$row"
    run_one "$target" "$seeds" "$dict" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait -n
        running=$((running - 1))
    fi
done
wait

failed=0
{
    echo "fuzz run $(date -u +%Y-%m-%dT%H:%MZ), $seconds s per target, logs in $out/logs"
    for target in "${targets[@]}"; do
        summary_line "$target" || true
    done
} | tee "$out/summary.txt"
grep -q "FAILED" "$out/summary.txt" && failed=1
if [ "$failed" = 1 ]; then
    echo "fuzzing found problems; inputs in $out/artifacts" >&2
    exit 1
fi
exit 0
