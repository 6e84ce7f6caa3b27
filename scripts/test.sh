#!/bin/sh
# Installs what is missing, configures, builds and runs every test.
#   scripts/test.sh [build-directory] [extra cmake arguments...]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/common.sh"
kevra_install_packages
kevra_install_optional

build=${1:-"$root/build"}
[ $# -gt 0 ] && shift
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
cmake --build "$build" -j"$(kevra_jobs)"
cd "$build"
ctest --output-on-failure -j"$(kevra_jobs)"
