# Shared by the scripts: Debian packages the project needs, and the build steps.
# shellcheck shell=bash

TOLA_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

TOLA_PACKAGES=(
    g++ cmake make pkg-config ccache
    libyajl-dev libssl-dev openssl libxml2-dev libcurl4-openssl-dev libc-ares-dev
    libsystemd-dev systemd dbus libcpp-httplib-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    clang-14 libclang-rt-14-dev clang-tidy-14
    dpkg-dev file
    python3-dbusmock
)

# Only bench/report and bench/checkin.sh need these (instruction counts, the portal's records).
TOLA_BENCH_PACKAGES=(valgrind jq binutils)

# The console's browser test (ConsoleE2E) needs these; it is skipped where they cannot be installed.
TOLA_BROWSER_PACKAGES=(chromium)

# tola_install_packages [PACKAGE...]: installs the missing packages (by default TOLA_PACKAGES)
# with apt-get when running as root; otherwise only reports them.
tola_install_packages() {
    local missing=() wanted=("$@")
    [ ${#wanted[@]} -gt 0 ] || wanted=("${TOLA_PACKAGES[@]}")
    for p in "${wanted[@]}"; do
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

# ---- A simulated device with its bus and portal (used by the demo and the footprint script) ----
# Background processes started here are listed in TOLA_PIDS; tola_stop_all ends them.
TOLA_PIDS=()
tola_stop_all() {
    local p
    for p in "${TOLA_PIDS[@]}"; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
}

# tola_wait_for FILE TEXT SECONDS: waits until FILE contains TEXT.
tola_wait_for() {
    local i
    for ((i = 0; i < $3 * 10; i++)); do
        grep -qF -- "$2" "$1" 2>/dev/null && return 0
        sleep 0.1
    done
    echo "timed out waiting for '$2' in $1" >&2
    return 1
}

# tola_start_bus WORKDIR: a private dbus-daemon; exports ARDO_BUS_ADDRESS.
tola_start_bus() {
    dbus-daemon --session --fork --print-address=1 --print-pid=1 > "$1/bus"
    ARDO_BUS_ADDRESS=$(sed -n 1p "$1/bus")
    export ARDO_BUS_ADDRESS
    TOLA_PIDS+=("$(sed -n 2p "$1/bus")")
}

# tola_start_portal WORKDIR SCENARIO: tola-portal on HTTPS; exports ARDO_CA_FILE and sets
# TOLA_PORTAL_URL (https://portal.tola.test:PORT, which the device's etc/hosts resolves).
tola_start_portal() {
    "$TOLA_DIR/build/bin/tola-portal" --dir "$1/portal" --scenario "$2" --no-http > "$1/portal.out" 2>&1 &
    TOLA_PIDS+=($!)
    tola_wait_for "$1/portal.out" "ready" 10
    TOLA_PORTAL_READY=$(grep -m1 ready "$1/portal.out")
    TOLA_PORTAL_PORT=$(sed -E 's/.*https=([0-9]+).*/\1/' <<< "$TOLA_PORTAL_READY")
    TOLA_PORTAL_URL="https://portal.tola.test:$TOLA_PORTAL_PORT"
    export ARDO_CA_FILE=$1/portal/cert.pem
}

# tola_activate ROOT URL: the runtime record of a device that has been given the portal's address
# and told to check in.
tola_activate() {
    cat > "$1/opt/ardo/data/tola/acl_config.xml" <<XML
<?xml version="1.0" encoding="UTF-8"?>
<ACLConfig>
<TOLA>
<CheckInFlag>true</CheckInFlag>
<FactoryResetFlag>false</FactoryResetFlag>
<CheckInIntervalOverrideFlag>false</CheckInIntervalOverrideFlag>
<CheckInInterval>0</CheckInInterval>
<CheckInURL>$2</CheckInURL>
<PayloadEncryptionKey></PayloadEncryptionKey>
<LastCommand></LastCommand>
<Version>0</Version>
<AclConfigStatus>0</AclConfigStatus>
<LastCheckInDate></LastCheckInDate>
</TOLA>
<ACL>
</ACL>
</ACLConfig>
XML
}
