#!/usr/bin/env bash
# Footprint of the agent on the simulated device (release build):
#   - idle: resident and private (unshared) memory after start-up, from /proc/PID/smaps_rollup,
#     and the wake-ups while idle, which must all be the watchdog's (the script fails otherwise);
#   - the stripped agent binary, with the host platform linked in and without it;
#   - CPU time and peak resident memory of one complete check-in over HTTPS;
#   - peak memory of parsing the largest accepted configuration document.
# Each measurement is a function; run on its own this script runs them all against one bus and
# one portal. Sourced by bench/report, which calls the functions itself.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

FOOTPRINT_BIN=${TOLA_BUILD:-$TOLA_DIR/build}/bin

kib() { awk -v k="$2" '$1 == k":" {print $2}' "/proc/$1/status"; }
rollup() { awk -v k="$2" '$1 == k":" {print $2}' "/proc/$1/smaps_rollup"; }
cpu_ns() { cat /proc/"$1"/task/*/schedstat 2>/dev/null | awk '{s += $1} END {print s}'; }
# Context switches (voluntary and not) per thread: "tid count" lines.
switches() {
    local t
    for t in /proc/"$1"/task/*; do
        echo "${t##*/} $(awk '/ctxt_switches/ {s += $2} END {print s}' "$t/status")"
    done
}

# footprint_idle WORKDIR: memory and wake-ups of an agent with nothing to do. Time runs 20 times
# faster, so the 20-second watchdog period is one second and the window below holds eight.
footprint_idle() {
    local work=$1 scale=20 window=8
    export ARDO_ROOT=$work/idle ARDO_TIME_SCALE=$scale ARDO_LOG_LEVEL=6
    "$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" > /dev/null
    "$FOOTPRINT_BIN/tola_agent" > "$work/idle.out" 2>&1 &
    local idle=$!
    TOLA_PIDS+=($idle)
    tola_wait_for "$ARDO_ROOT/var/log/tola.log" "TOLA started" 10
    sleep 1

    # Private pages are those no other process maps: written ones (heap, stacks, relocated
    # library data) and clean file pages that only this process happens to use (its own
    # executable, libraries nobody else on the machine has loaded), so the clean part varies
    # with what else runs.
    local clean dirty libs image
    clean=$(rollup $idle Private_Clean)
    dirty=$(rollup $idle Private_Dirty)
    dirtyIn() {
        awk -v pat="$2" '/^[0-9a-f]+-[0-9a-f]+ / {m = ($6 ~ pat)} /^Private_Dirty:/ {if (m) s += $2} END {print s + 0}' \
            "/proc/$1/smaps"
    }
    libs=$(dirtyIn $idle '\\.so')
    image=$(dirtyIn $idle '/tola_agent$')
    echo "idle memory: private=$((clean + dirty)) KiB (clean $clean, dirty $dirty) rss=$(rollup $idle Rss) KiB" \
         "goal=1024 KiB ratio=$(awk -v p=$((clean + dirty)) 'BEGIN {printf "%.2f", p / 1024}');" \
         "dirty: relocated data of shared libraries $libs KiB, of the executable $image KiB," \
         "heap, stacks and the rest $((dirty - libs - image)) KiB; threads $(ls /proc/$idle/task | wc -l)"

    local before after
    before=$(switches $idle)
    sleep $window
    after=$(switches $idle)
    kill -TERM $idle
    wait $idle || true
    unset ARDO_LOG_LEVEL
    # Every wake-up must be the watchdog thread's: one timer expiry per period (plus one for a
    # window edge), and nothing in the keep-alive may block.
    local periods=$((window * scale / 20))
    join <(echo "$before" | sort) <(echo "$after" | sort) | awk -v periods="$periods" '
        { d = $3 - $2; total += d; if (d > 0) { woke++ } ; if (d > most) most = d }
        END {
            printf "idle wake-ups: %d in %d watchdog periods, threads woken %d\n", total, periods, woke
            if (woke > 1 || most > periods + 1) { print "idle wake-ups: more than the watchdog period explains" > "/dev/stderr"; exit 1 }
        }'
}

# footprint_binary: the stripped agent with the host platform (the executable as built), and
# without it: the agent's own objects (tola_core and main) partially linked (ld -r) and stripped
# of everything a later link does not need; that is what the agent adds to a device whose
# platform library is already there. Both exclude the shared libraries they load.
footprint_binary() {
    local build=${TOLA_BUILD:-$TOLA_DIR/build} tmp
    tmp=$(mktemp -d)
    strip -o "$tmp/tola_agent" "$FOOTPRINT_BIN/tola_agent"
    ld -r -o "$tmp/agent.o" "$build/CMakeFiles/tola_agent.dir/agents/tola/main.cpp.o" \
        --whole-archive "$build/libtola_core.a" --no-whole-archive
    strip --strip-unneeded "$tmp/agent.o"
    local with without
    with=$(stat -c %s "$tmp/tola_agent")
    without=$(stat -c %s "$tmp/agent.o")
    echo "agent binary (stripped): with host platform $with bytes ($(size "$tmp/tola_agent" | awk 'NR == 2 {print "text " $1 ", data " $2 ", bss " $3}'))," \
         "without $without bytes ($(size "$tmp/agent.o" | awk 'NR == 2 {print "text " $1 ", data " $2 ", bss " $3}'))"
    rm -rf "$tmp"
}

# footprint_checkin WORKDIR: CPU time (on-CPU time of all threads, /proc/PID/task/*/schedstat)
# and peak memory of one check-in. The 120-second boot wait passes in 1.2 s: long enough to
# measure the agent idle before the check-in starts.
footprint_checkin() {
    local work=$1
    export ARDO_ROOT=$work/checkin ARDO_TIME_SCALE=100 ARDO_LOG_LEVEL=6
    "$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" > /dev/null
    tola_activate "$ARDO_ROOT" "$TOLA_PORTAL_URL"
    "$FOOTPRINT_BIN/tola_agent" > "$work/checkin.out" 2>&1 &
    local agent=$!
    TOLA_PIDS+=($agent)
    local log=$ARDO_ROOT/var/log/tola.log
    tola_wait_for "$log" "during bootup performing check-in" 10
    local before rssBefore after
    before=$(cpu_ns $agent)
    rssBefore=$(kib $agent VmHWM)
    tola_wait_for "$log" "Success no new configuration follows" 30
    sleep 0.2
    after=$(cpu_ns $agent)
    echo "one check-in: CPU $(((after - before) / 1000)) us, peak VmHWM $(kib $agent VmHWM) KiB" \
         "(idle peak before: $rssBefore KiB)"
    kill -TERM $agent
    wait $agent || true
    unset ARDO_LOG_LEVEL
}

# footprint_document WORKDIR: peak memory of tola-devicectl parse over the largest accepted
# document (99 + 99 devices, every application the lists take, 200 access-control entries).
footprint_document() {
    local work=$1
    export ARDO_ROOT=$work/parse
    "$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" > /dev/null
    "$FOOTPRINT_BIN/tola_bench" --write-large-document "$work/large.json"
    echo '[{}]' > "$work/small.json"
    command -v python3 > /dev/null || return 0
    peak() { python3 -c '
import resource, subprocess, sys
subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, check=True)
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)' "$@"; }
    local large small
    large=$(peak "$FOOTPRINT_BIN/tola-devicectl" parse "$work/large.json")
    small=$(peak "$FOOTPRINT_BIN/tola-devicectl" parse "$work/small.json")
    echo "largest document ($(stat -c %s "$work/large.json") bytes): tola-devicectl parse peak RSS $large KiB," \
         "$((large - small)) KiB above an empty document"
}

# footprint_setup WORKDIR: the private bus and the portal the measurements share.
footprint_setup() {
    export ARDO_SHM_KEY=$((0x7B000000 + $$ % 65536))
    tola_start_bus "$1"
    tola_start_portal "$1" "$TOLA_DIR/share/scenarios/demo.json"
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
    tola_install_packages
    tola_build "$TOLA_DIR/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTOLA_BENCH=ON > /dev/null
    work=$(mktemp -d /tmp/tola-footprint-XXXXXX)
    trap 'tola_stop_all; rm -rf "$work"' EXIT
    footprint_setup "$work"
    footprint_idle "$work"
    footprint_binary
    footprint_checkin "$work"
    footprint_document "$work"
    # The device's own figures beside these, when an armhf cross-build is there.
    "$TOLA_DIR/bench/footprint-armhf.sh"
fi
