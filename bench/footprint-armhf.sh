#!/usr/bin/env bash
# Footprint of the agent built for the device (armhf, from scripts/cross armhf) beside the native
# build: the stripped binary's size, and its resident memory when idle after start-up, run under
# qemu-arm on a simulated device.
#
# Under user-mode emulation the guest's memory is the emulator's: the figure given for the agent
# is the qemu-arm process's VmRSS minus that of qemu-arm idling in a minimal armhf program (the
# emulator itself and its code cache), so it counts the agent, its libraries, heap and stacks as
# a device would, give or take the code cache's growth.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"
native=$TOLA_DIR/build/bin/tola_agent
cross=$TOLA_DIR/build-armhf/bin/tola_agent
sysroot=$TOLA_DIR/build-armhf/sysroot
if [ ! -x "$cross" ] || ! command -v qemu-arm > /dev/null; then
    echo "armhf: no cross build (scripts/cross armhf makes one)"
    exit 0
fi
work=$(mktemp -d /tmp/tola-footprint-armhf-XXXXXX)
trap 'tola_stop_all; rm -rf "$work"' EXIT
kib() { awk -v k="$2" '$1 == k":" {print $2}' "/proc/$1/status"; }

arm-linux-gnueabihf-strip -o "$work/tola_agent.armhf" "$cross"
size_arm=$(stat -c %s "$work/tola_agent.armhf")
if [ -x "$native" ]; then
    strip -o "$work/tola_agent.native" "$native"
    echo "stripped tola_agent: armhf $size_arm bytes, native $(uname -m) $(stat -c %s "$work/tola_agent.native") bytes"
else
    echo "stripped tola_agent: armhf $size_arm bytes"
fi

# The emulator's own share: a dynamically linked armhf program that only sleeps.
printf '#include <unistd.h>\nint main(void) { pause(); return 0; }\n' > "$work/idle.c"
arm-linux-gnueabihf-gcc -O2 -o "$work/idle" "$work/idle.c"
qemu-arm -L "$sysroot" "$work/idle" &
base=$!
TOLA_PIDS+=("$base")

export ARDO_SHM_KEY=$((0x7A000000 + $$ % 65536)) ARDO_ROOT=$work/root ARDO_TIME_SCALE=1
tola_start_bus "$work"
TOLA_BIN_DIR=/nonexistent "$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" > /dev/null
qemu-arm -L "$sysroot" "$work/tola_agent.armhf" > "$work/agent.out" 2>&1 &
agent=$!
TOLA_PIDS+=("$agent")
tola_wait_for "$ARDO_ROOT/var/log/tola.log" "TOLA started" 60
sleep 2
rss=$(kib $agent VmRSS)
rss_base=$(kib $base VmRSS)
echo "idle armhf agent under qemu-arm: VmRSS $rss KiB (emulator alone $rss_base KiB: agent about $((rss - rss_base)) KiB)"
kill -TERM $agent
wait $agent || echo "armhf agent exit status $?"
