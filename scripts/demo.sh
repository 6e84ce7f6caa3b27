#!/bin/sh
# Installs what is missing, builds Kevra and shows it at work: the command
# line's demo when it is built, the example program otherwise.
#   scripts/demo.sh [output-directory]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/common.sh"
kevra_install_packages
kevra_install_optional

build="$root/build"
out=${1:-"$root/demo-output"}
mkdir -p "$out"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKEVRA_BUILD_TESTS=OFF
cmake --build "$build" -j"$(kevra_jobs)"

if [ -x "$build/tools/kevra/kevra" ] && "$build/tools/kevra/kevra" demo --help >/dev/null 2>&1; then
    "$build/tools/kevra/kevra" demo "$out"
else
    "$build/examples/kevra_example_gradient" "$out"
fi
echo "Output in $out"
