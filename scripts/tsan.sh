#!/bin/sh
# ThreadSanitizer (Clang) on the tests that use threads: separate images on
# separate threads, the operations' own row threads, the command line's
# parallel batch.   scripts/tsan.sh [build-directory]
# Skips, saying why, where ThreadSanitizer cannot run a program (some kernels'
# address-space layouts defeat it; the run is then retried without ASLR).
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/common.sh"
build=${1:-"$root/build-tsan"}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cat > "$tmp/p.cpp" <<'CPP'
#include <thread>
int main() { int v = 0; std::thread t([&] { v = 1; }); t.join(); return v == 1 ? 0 : 1; }
CPP
runner=""
if ! command -v clang++ >/dev/null 2>&1 ||
   ! clang++ -std=c++17 -fsanitize=thread "$tmp/p.cpp" -o "$tmp/p" -pthread >/dev/null 2>&1; then
    echo "-- SKIPPED: ThreadSanitizer: clang++ -fsanitize=thread cannot build a program here"
    exit 0
fi
if ! "$tmp/p" >/dev/null 2>&1; then
    if setarch "$(uname -m)" -R "$tmp/p" >/dev/null 2>&1; then
        runner="setarch $(uname -m) -R"
    else
        echo "-- SKIPPED: ThreadSanitizer: its programs cannot run on this kernel"
        exit 0
    fi
fi
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
    -DKEVRA_SANITIZE_THREAD=ON -DKEVRA_BUILD_BENCH=OFF -DKEVRA_BUILD_EXAMPLES=OFF -DKEVRA_BUILD_PYTHON=OFF \
    -DKEVRA_INSTALL=OFF
# The test programs that hold threaded cases (and the command line they run).
targets=$(cd "$build" && cmake --build . --target help | sed -n 's/^\.\.\. \(kevra_tests_[a-z_]*\).*/\1/p' |
          grep -E 'sequencer|tools|filters|processing' || true)
# shellcheck disable=SC2086
cmake --build "$build" -j"$(kevra_jobs)" --target $targets $(cd "$build" && cmake --build . --target help |
      grep -q '\.\.\. kevra_cli' && echo kevra_cli)
cd "$build"
TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" $runner \
    ctest --output-on-failure -j"$(kevra_jobs)" -R 'Thread|Parallel'
