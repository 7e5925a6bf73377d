#!/usr/bin/env bash
# Footprint of the agent on the simulated device (release build, time compressed):
#   - resident memory when idle after start-up,
#   - CPU time and peak resident memory of one complete check-in over HTTPS,
#   - time and peak memory of parsing the largest accepted configuration document.
# CPU time is the sum over the agent's threads of their on-CPU time (/proc/PID/task/*/schedstat),
# taken when the agent is idle before the check-in and again after it.
set -euo pipefail
. "$(dirname "$0")/../scripts/lib.sh"
tola_install_packages
tola_build "$TOLA_DIR/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
bin=$TOLA_DIR/build/bin
work=$(mktemp -d /tmp/tola-footprint-XXXXXX)
trap 'tola_stop_all; rm -rf "$work"' EXIT

kib() { awk -v k="$2" '$1 == k":" {print $2}' "/proc/$1/status"; }
cpu_ns() { cat /proc/"$1"/task/*/schedstat 2>/dev/null | awk '{s += $1} END {print s}'; }

export ARDO_SHM_KEY=$((0x7B000000 + $$ % 65536))
tola_start_bus "$work"
tola_start_portal "$work" "$TOLA_DIR/share/scenarios/demo.json"

# 1. Idle after start-up: a device with nothing to do.
export ARDO_ROOT=$work/idle ARDO_TIME_SCALE=1
"$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" >/dev/null
"$bin/tola_agent" > "$work/idle.out" 2>&1 &
idle=$!
TOLA_PIDS+=($idle)
tola_wait_for "$ARDO_ROOT/var/log/tola.log" "TOLA started" 10
sleep 1
echo "idle agent: VmRSS $(kib $idle VmRSS) KiB, VmHWM $(kib $idle VmHWM) KiB, threads $(ls /proc/$idle/task | wc -l)"
kill -TERM $idle; wait $idle || true

# 2. One check-in. The 120-second boot wait passes in 1.2 s: long enough to measure the agent
# idle before the check-in starts.
export ARDO_ROOT=$work/checkin ARDO_TIME_SCALE=100
"$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" >/dev/null
tola_activate "$ARDO_ROOT" "$TOLA_PORTAL_URL"
"$bin/tola_agent" > "$work/checkin.out" 2>&1 &
agent=$!
TOLA_PIDS+=($agent)
log=$ARDO_ROOT/var/log/tola.log
tola_wait_for "$log" "during bootup performing check-in" 10
before=$(cpu_ns $agent)
rss_before=$(kib $agent VmHWM)
tola_wait_for "$log" "Success no new configuration follows" 30
sleep 0.2
after=$(cpu_ns $agent)
echo "one check-in: CPU $(( (after - before) / 1000 )) us, peak VmHWM $(kib $agent VmHWM) KiB (idle peak before: $rss_before KiB)"
kill -TERM $agent; wait $agent || true

# 3. The largest accepted configuration document (99 + 99 devices, every application the lists
# take, 200 access-control entries).
export ARDO_ROOT=$work/parse
"$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" >/dev/null
"$bin/tola_bench" --write-large-document "$work/large.json"
echo '[{}]' > "$work/small.json"
peak() { python3 -c '
import resource, subprocess, sys
subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, check=True)
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)' "$@"; }
if command -v python3 > /dev/null; then
    large=$(peak "$bin/tola-devicectl" parse "$work/large.json")
    small=$(peak "$bin/tola-devicectl" parse "$work/small.json")
    echo "largest document ($(stat -c %s "$work/large.json") bytes): tola-devicectl parse peak RSS $large KiB," \
         "$((large - small)) KiB above an empty document"
fi
"$bin/tola_bench" --benchmark_filter='ProcessJSONData|TreeBuild' --benchmark_min_time=0.5 2>/dev/null | grep BM_
