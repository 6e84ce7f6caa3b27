# Shared by the scripts: installs the Debian packages Kevra builds with, only
# those missing, without questions. Sourced, not run.

kevra_packages="cmake g++ make libgtest-dev libbenchmark-dev libcli11-dev python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pytest pkg-config"

kevra_install_packages() {
    missing=""
    for p in $kevra_packages "$@"; do
        if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
            missing="$missing $p"
        fi
    done
    [ -z "$missing" ] && return 0
    echo "Installing:$missing"
    sudo_cmd=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo_cmd="sudo"
    fi
    export DEBIAN_FRONTEND=noninteractive
    $sudo_cmd apt-get update -q
    # shellcheck disable=SC2086
    $sudo_cmd apt-get install -y -q --no-install-recommends $missing
}

kevra_jobs() {
    n=$(nproc 2>/dev/null || echo 2)
    [ "$n" -gt 2 ] && n=2
    echo "$n"
}
