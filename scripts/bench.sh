#!/bin/sh
# Installs what the benchmarks need (Google Benchmark, OpenCV for the peer benchmark), builds a
# Release tree and runs the peer benchmark, which prints Kevra's and OpenCV's times side by side
# as a markdown table.
#   scripts/bench.sh [build-directory] [peer benchmark arguments...]
# e.g. scripts/bench.sh build-release Negatif QuickRotate   (only rows whose name has a word)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/common.sh"
kevra_install_packages libbenchmark-dev libopencv-dev

build=${1:-"$root/build-release"}
[ $# -gt 0 ] && shift
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DKEVRA_BUILD_BENCH=ON \
    -DKEVRA_BUILD_TESTS=OFF -DKEVRA_BUILD_TOOLS=OFF -DKEVRA_BUILD_EXAMPLES=OFF
cmake --build "$build" -j"$(kevra_jobs)" --target kevra_bench_peer
echo "Machine: $(lscpu 2>/dev/null | sed -n 's/^Model name: *//p' | head -n 1)"
"$build/bench/kevra_bench_peer" "$@"
