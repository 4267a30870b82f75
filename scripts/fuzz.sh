#!/usr/bin/env bash
# Runs both fuzz targets of a clang build directory for SECONDS each:
#   scripts/fuzz.sh BUILD-DIR [SECONDS]      (default 60)
# fuzz_ops starts from the seeds scripts/fuzz_seeds.sh writes, fuzz_load from
# the small files fuzz_load_seeds saves in every format; each keeps what it
# learns in BUILD-DIR/corpus_<target>, so later runs go on from there. A
# finding (crash, sanitizer report, leak of a kernel block, time-out) stops
# its target, leaves the input in BUILD-DIR/findings and fails the script.
set -euo pipefail
build=$(realpath "${1:?usage: fuzz.sh BUILD-DIR [SECONDS]}")
seconds=${2:-60}
cd "$(dirname "$0")/.."

mkdir -p "$build/findings" "$build/corpus_fuzz_ops" "$build/corpus_fuzz_load"
scripts/fuzz_seeds.sh "$build/seeds_fuzz_ops" >/dev/null
mkdir -p "$build/seeds_fuzz_load"
"$(find "$build" -type f -name fuzz_load_seeds -perm -u+x | head -n 1)" "$build/seeds_fuzz_load" >/dev/null

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
for target in fuzz_ops fuzz_load; do
    exe=$(find "$build" -type f -name "$target" -perm -u+x | head -n 1)
    if [ -z "$exe" ]; then
        echo "== $target not built in $build" >&2
        exit 1
    fi
    seeds=()
    [ -d "$build/seeds_$target" ] && seeds=("$build/seeds_$target")
    echo "== $target for ${seconds}s"
    if ! "$exe" "$build/corpus_$target" "${seeds[@]}" -max_total_time="$seconds" -timeout=120 \
        -rss_limit_mb=4096 -max_len=4096 \
        -artifact_prefix="$build/findings/$target-" -print_final_stats=1 2>"$build/$target.log"; then
        tail -n 60 "$build/$target.log" >&2
        echo "== $target found a fault: $build/findings" >&2
        status=1
    else
        grep -E '^(#[0-9]+[[:space:]]+DONE|stat::number_of_executed_units)' "$build/$target.log" || true
    fi
done
exit $status
