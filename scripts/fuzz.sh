#!/bin/sh
# Runs the BMP reader's fuzz target from a fuzz build for a number of seconds.
#   cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DKEVRA_SANITIZE=ON -DKEVRA_BUILD_FUZZ=ON
#   cmake --build build-fuzz --target kevra_fuzz_bmp
#   scripts/fuzz.sh build-fuzz 3600
# New inputs go to BUILD/corpus; a crashing input is written to BUILD/ as
# crash-*, leak-*, timeout-* or oom-*: copy it into tests/fuzz/corpus/ with a
# name saying what it caught, so that every later run replays it.
# Fails on any crash, leak, sanitizer report, or input taking over 10 s.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build-fuzz}" && pwd)
seconds=${2:-60}
mkdir -p "$build/corpus"
log="$build/fuzz.log"
status=0
ASAN_OPTIONS=${ASAN_OPTIONS:-halt_on_error=1:detect_leaks=1} \
"$build/tests/fuzz/kevra_fuzz_bmp" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$build/" -print_final_stats=1 \
    "$build/corpus" "$root/tests/fuzz/corpus" "$root/tests/data" >"$log" 2>&1 || status=$?
grep -E '^(#[0-9]+ +DONE|Done|stat::number_of_executed_units|==[0-9]+==ERROR|SUMMARY)' "$log" || true
if [ "$status" -ne 0 ]; then
    tail -n 40 "$log"
    echo "fuzzing failed (status $status); the input is in $build/"
    exit 1
fi
echo "fuzzing: no failure in $seconds s"
