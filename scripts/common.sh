# Shared by the scripts: installs the Debian packages Kevra builds with, only
# those missing, without questions. Sourced, not run.

# What the library and its tests cannot do without.
kevra_packages="cmake g++ make libgtest-dev"
# What adds a part (benchmarks, the command line and its formats, the Python
# module); each part is left out with a one-line reason when its package is missing.
kevra_optional_packages="libbenchmark-dev libcli11-dev libopenimageio-dev openimageio-tools dcmtk python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pytest pkg-config"

kevra_missing() {
    missing=""
    for p in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
            missing="$missing $p"
        fi
    done
    echo "$missing"
}

kevra_apt_updated=""
kevra_apt_install() {
    [ -z "$*" ] && return 0
    command -v apt-get >/dev/null 2>&1 || return 1
    echo "Installing:$*"
    sudo_cmd=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo_cmd="sudo"
    fi
    export DEBIAN_FRONTEND=noninteractive
    if [ -z "$kevra_apt_updated" ]; then
        $sudo_cmd apt-get update -q || return 1
        kevra_apt_updated=1
    fi
    # shellcheck disable=SC2086
    $sudo_cmd apt-get install -y -q --no-install-recommends $*
}

# kevra_install_packages [more...]: the required packages and the ones named;
# fails when any cannot be installed.
kevra_install_packages() {
    kevra_apt_install $(kevra_missing $kevra_packages "$@")
}

# The optional packages (and the ones named): all at once, else one at a time
# so that one missing from the archive does not keep the others out; never fails.
kevra_install_optional() {
    wanted=$(kevra_missing $kevra_optional_packages "$@")
    [ -z "$wanted" ] && return 0
    kevra_apt_install $wanted && return 0
    for p in $wanted; do
        kevra_apt_install "$p" >/dev/null 2>&1 || echo "Could not install $p: the part that needs it is left out"
    done
    return 0
}

kevra_jobs() {
    n=$(nproc 2>/dev/null || echo 2)
    [ "$n" -gt 2 ] && n=2
    echo "$n"
}
