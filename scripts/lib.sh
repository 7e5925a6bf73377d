# Shared by the scripts: Debian packages the project needs, and the build steps.
# shellcheck shell=bash

TOLA_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

TOLA_PACKAGES=(
    g++ cmake make pkg-config ccache
    libyajl-dev libssl-dev openssl libxml2-dev libcurl4-openssl-dev libc-ares-dev
    libsystemd-dev dbus libcpp-httplib-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev
)

# Installs the missing packages with apt-get when running as root; otherwise only reports them.
tola_install_packages() {
    local missing=()
    for p in "${TOLA_PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -eq 0 ]; then
        echo "== Installing: ${missing[*]}"
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
    else
        echo "Missing Debian packages (run as root to install them): ${missing[*]}" >&2
        return 1
    fi
}

# tola_build DIR [cmake options...]: configures and builds into DIR.
tola_build() {
    local dir=$1
    shift
    cmake -S "$TOLA_DIR" -B "$dir" "$@" >/dev/null
    cmake --build "$dir" -j "$(nproc)"
}
