#!/usr/bin/env bash
# agent_package_test.sh BUILD_DIR: builds the tola-agent .deb, unpacks it into a scratch root and
# checks what a device integrator relies on: control data, files, the systemd unit and its sandbox,
# and that the packaged agent starts from the packaged files and stops cleanly on SIGTERM.
set -euo pipefail
build=$(cd "$1" && pwd)
. "$(dirname "$0")/../../scripts/lib.sh"

work=$(mktemp -d /tmp/tola-package-XXXXXX)
trap 'tola_stop_all; rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
check() { local what=$1; shift; "$@" > /dev/null 2>&1 || fail "$what"; }

cmake --build "$build" --target tola_agent > /dev/null
cpack --config "$build/CPackConfig.cmake" -B "$work/out" -D CPACK_COMPONENTS_ALL=agent > "$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log" >&2; exit 1; }
deb=$(ls "$work"/out/tola-agent_*.deb)
root=$work/root
dpkg -x "$deb" "$root"
dpkg-deb -e "$deb" "$work/control"

# Control data: dependencies from the linked libraries, conffiles, maintainer scripts.
depends=$(dpkg-deb -f "$deb" Depends)
for lib in libc6 libstdc++6 libssl3 libxml2 libcurl4 libc-ares2 libsystemd0 libyajl2; do
    [[ ", $depends" == *", $lib "* ]] || fail "Depends lacks $lib: $depends"
done
for conf in /etc/default/tola-agent /opt/ardo/etc/tola/config.xml; do
    check "conffile $conf" grep -qx "$conf" "$work/control/conffiles"
done
while read -r conf; do
    [ -f "$root$conf" ] || fail "conffile $conf is not in the package"
done < "$work/control/conffiles"
for script in postinst prerm postrm; do check "$script is a valid shell script" sh -n "$work/control/$script"; done

# Files at the paths the agent and systemd use (programs and documents follow the install prefix).
# Whatever holds a key is root's alone; only root may send the bus notices that carry SMS.
unit=$root/lib/systemd/system/tola-agent.service
conf=$root/opt/ardo/etc/tola
while IFS='|' read -r file line; do
    check "$file lacks $line" grep -qxE "$line" "$root$file"
done <<'TABLE'
/usr/lib/tmpfiles.d/tola-agent.conf|f /var/log/tola.log 0600 root root.*
/usr/share/dbus-1/system.d/com.ardo.Msgbus1.conf|.*<deny send_interface="com.ardo.Msgbus1"/>.*
/etc/logrotate.d/tola-agent|    copytruncate
/etc/default/tola-agent|ARDO_LOG_LEVEL=5
/lib/systemd/system/tola-agent.service|ExecStart=.*/sbin/tola_agent
TABLE
agent=$root$(sed -n 's/^ExecStart=//p' "$unit")
{ [ -x "$agent" ] && file "$agent" | grep -q ", stripped"; } || fail "ExecStart $agent: no stripped program in the package"
# Every template file that config.xml names ships beside it.
while read -r name; do
    [ -f "$conf/$name" ] || fail "config.xml names $name, which is not packaged"
done < <(grep -oE '[A-Za-z0-9_.-]+\.json' "$conf/config.xml" | sort -u)
[ "$(stat -c %a "$root/opt/ardo/data/tola")" = 700 ] || fail "/opt/ardo/data/tola is not a 0700 folder"
[ "$(stat -c %a "$conf/config.xml")" = 600 ] || fail "config.xml (the factory key) is not 0600"
[ -n "$(find "$root" -path '*/share/doc/tola-agent/operator-guide.md')" ] || fail "no documentation"

# The unit: how it stops and restarts, and the sandbox around a daemon that writes only its
# state folder but shares System V shared memory with the device.
for line in Restart=always KillSignal=SIGTERM ProtectSystem=strict RuntimeDirectory=ardo UMask=0077 \
            ReadWritePaths=/opt/ardo/data/tola PrivateTmp=yes NoNewPrivileges=yes ProtectHome=yes \
            WantedBy=multi-user.target; do
    check "unit lacks $line" grep -qx "$line" "$unit"
done
for line in PrivateIPC=yes RemoveIPC=yes PrivateNetwork=yes; do
    grep -qx "$line" "$unit" && fail "unit has $line, which cuts the agent off the device"
done
if command -v systemd-analyze > /dev/null; then
    # verify checks ExecStart on the running system; point it into the scratch root.
    sed "s|^ExecStart=|ExecStart=$root|" "$unit" > "$work/tola-agent.service"
    systemd-analyze verify "$work/tola-agent.service" > "$work/verify.log" 2>&1 ||
        { cat "$work/verify.log" >&2; fail "systemd-analyze verify"; }
    if systemd-analyze security --offline=yes --root="$root" tola-agent.service > "$work/security.log" 2>&1; then
        exposure=$(grep -oE 'exposure level for tola-agent.service: [0-9.]+' "$work/security.log" | grep -oE '[0-9.]+$')
        echo "systemd-analyze security: exposure $exposure"
        awk -v e="$exposure" 'BEGIN { exit !(e <= 2.5) }' || fail "exposure $exposure is above 2.5"
    fi
else
    echo "systemd-analyze is not installed: unit not verified"
fi

# The packaged agent on the packaged files: starts, then stops with status 0 on SIGTERM.
if [ "$(id -u)" -eq 0 ] && command -v systemd-tmpfiles > /dev/null; then
    mkdir -p "$root/etc" && cp /etc/passwd /etc/group "$root/etc/"  # users and groups, as on a system
    systemd-tmpfiles --root="$root" --create tola-agent.conf || fail "systemd-tmpfiles --create"
else
    mkdir -p "$root/var/log"
fi
mkdir -p "$root/var/lib/ardo"
tola_start_bus "$work"
export ARDO_ROOT=$root ARDO_TIME_SCALE=1000 ARDO_SHM_KEY=$((0x7C000000 + $$ % 65536))
"$agent" > "$work/agent.out" 2>&1 &
pid=$!
TOLA_PIDS+=("$pid")
if tola_wait_for "$root/var/log/tola.log" "TOLA started" 20; then
    kill -TERM "$pid"
    wait "$pid" || fail "the agent exited with $? after SIGTERM"
else
    cat "$work/agent.out" >&2
    fail "the packaged agent did not start"
fi

[ "$failures" -eq 0 ] || { echo "$failures check(s) failed" >&2; exit 1; }
echo "tola-agent package: $(stat -c %s "$deb") bytes, all checks passed"
