#!/usr/bin/env bash
# Builds and tests under sanitizers: sanitize.sh asan|tsan [seconds for each fuzzer]. Address randomisation is off, as the
# sanitizers of this age need it.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
seconds=${2:-0}

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:allocator_may_return_null=1
export LSAN_OPTIONS=suppressions=$PWD/scripts/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1
export TSAN_OPTIONS=halt_on_error=1:suppressions=$PWD/scripts/tsan.supp:second_deadlock_stack=1
setarch -R ctest --test-dir "build/$preset" --output-on-failure -j2

if [ "$preset" = asan ] && [ "$seconds" -gt 0 ]; then
    for fuzzer in build/asan/fuzz/fuzz_*; do
        [ -x "$fuzzer" ] || continue
        name=${fuzzer##*/fuzz_}
        grown=$(mktemp -d)
        echo "fuzzing $name for $seconds s"
        setarch -R "$fuzzer" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 \
            -artifact_prefix="$grown/" "$grown" "fuzz/corpus/$name" >"$grown.log" 2>&1 ||
            { tail -60 "$grown.log"; exit 1; }
        grep -E 'stat::(number_of_executed_units|average_exec_per_sec)' "$grown.log"
        rm -rf "$grown" "$grown.log"
    done
fi
