#!/usr/bin/env bash
# One HTTPS check-in under callgrind: the agent's instructions against a bare libcurl POST of the
# same envelope to the same tola-portal, with the same TLS settings (bench/baseline/bare_post.cpp).
#   - agent: the instructions of TOLAApp::PerformCheckIn() on the check-in thread (data usage,
#     templates, cipher, data call, name resolution, the HTTPS exchange, answer and runtime
#     record), ARDO_LOG_LEVEL=6 (no debug lines);
#   - baseline: one easy handle, the POST, clean-up.
# Both count the second exchange of their process: the first one pays for loading and
# initialising libcurl and OpenSSL, once per process, and is left out on both sides. The
# portal's first answer sets a one-hour interval (3.6 s at ARDO_TIME_SCALE=1000), which brings
# the second check-in; both measured exchanges get the same answer from the empty queue.
# Prints "checkin agent=N baseline=M ratio=R". Expects a build in $TOLA_BUILD (default build/)
# configured with -DTOLA_BENCH=ON; sourced by bench/report, or run on its own.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

# wait_for_count FILE TEXT N SECONDS: waits until FILE holds TEXT at least N times.
wait_for_count() {
    local i n
    for ((i = 0; i < $4 * 10; i++)); do
        n=$(grep -cF -- "$2" "$1" 2>/dev/null) || true
        [ "${n:-0}" -ge "$3" ] && return 0
        sleep 0.1
    done
    echo "timed out waiting for '$2' ($3 times) in $1" >&2
    return 1
}

# callgrind_total FILE: the instructions collected in a callgrind output file.
callgrind_total() {
    awk '/^(summary|totals):/ {print $2; exit}' "$1"
}

# checkin_measure WORKDIR: prints the agent's and the baseline's counts and their ratio.
checkin_measure() {
    local work=$1 bin=${TOLA_BUILD:-$TOLA_DIR/build}/bin
    export ARDO_SHM_KEY=$((0x7A000000 + $$ % 65536))
    tola_start_bus "$work"
    tola_start_portal "$work" "$TOLA_DIR/bench/checkin-scenario.json"

    export ARDO_ROOT=$work/checkin ARDO_TIME_SCALE=1000 ARDO_LOG_LEVEL=6
    "$TOLA_DIR/scripts/mkroot" "$ARDO_ROOT" >/dev/null
    tola_activate "$ARDO_ROOT" "$TOLA_PORTAL_URL"
    # One dump after each check-in: agent.cg.1 holds the first, agent.cg.2 the second.
    valgrind --tool=callgrind --callgrind-out-file="$work/agent.cg" \
        --toggle-collect='TOLAApp::PerformCheckIn()' --dump-after='TOLAApp::PerformCheckIn()' \
        "$bin/tola_agent" > "$work/agent.out" 2>&1 &
    local agent=$!
    TOLA_PIDS+=($agent)
    wait_for_count "$ARDO_ROOT/var/log/tola.log" "Success no new configuration follows" 2 180
    kill -TERM $agent
    wait $agent || true
    unset ARDO_LOG_LEVEL

    # The envelope the portal received, posted again by the bare client.
    local admin=(curl -s --cacert "$ARDO_CA_FILE" --resolve "portal.tola.test:$TOLA_PORTAL_PORT:127.0.0.1")
    "${admin[@]}" "$TOLA_PORTAL_URL/admin/received" | jq -j '[.. | objects | select(.kind? == "checkin")][1].envelope' \
        > "$work/envelope.json"
    [ -s "$work/envelope.json" ] || { echo "checkin: the portal received no check-in" >&2; return 1; }
    valgrind --tool=callgrind --callgrind-out-file="$work/bare.cg" --toggle-collect='*measuredPost*' \
        "$bin/tola_bare_post" "$TOLA_PORTAL_URL/" "$work/envelope.json" "$ARDO_CA_FILE" \
        "portal.tola.test:$TOLA_PORTAL_PORT:127.0.0.1" lo > "$work/bare.out" 2>&1

    local agentIr bareIr
    agentIr=$(callgrind_total "$work/agent.cg.2")
    bareIr=$(callgrind_total "$work/bare.cg")
    echo "checkin agent=$agentIr baseline=$bareIr ratio=$(awk -v a="$agentIr" -v b="$bareIr" 'BEGIN {printf "%.2f", a / b}') goal=1.3"
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
    work=$(mktemp -d /tmp/tola-checkin-XXXXXX)
    trap 'tola_stop_all; rm -rf "$work"' EXIT
    checkin_measure "$work"
fi
