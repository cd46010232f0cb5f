#!/bin/bash
# try.sh DEB [TOOLS_DEB]: installs the packages into an empty tree, starts the daemon there as its unit does, queries
# it, also with the tools, then removes and purges the packages. Runs in network and mount namespaces of its own: this
# machine is not changed.
set -euo pipefail
if [ -z "${VELOMOND_APART:-}" ]; then
    for apart in -nm -rnm; do
        if unshare $apart true 2>/dev/null; then
            VELOMOND_APART=1 exec unshare $apart "$0" "$@"
        fi
    done
    echo 'namespaces are not allowed here: nothing was tested' >&2
    exit 1
fi
deb=$(readlink -f "$1") tools=${2:+$(readlink -f "$2")}
tree=$(mktemp -d "${TMPDIR:-/tmp}/velomond_package_XXXXXX")
pid=
trap '[ -z "$pid" ] || kill -KILL $pid 2>/dev/null || true; rm -rf "$tree"' EXIT

fail()
{
    printf 'try: %s\n' "$*" >&2
    [ ! -s "$tree/stderr" ] || tail -n 20 "$tree/stderr" >&2
    exit 1
}

# Maintainer scripts run without chroot and find the tree in DPKG_ROOT.
in_tree()
{
    dpkg --root="$tree" --log=/dev/null --force-script-chrootless --force-depends "$@" >"$tree/dpkg.log" 2>&1 ||
        { cat "$tree/dpkg.log" >&2; fail "dpkg $*"; }
}

# Files and links that neither dpkg nor this script created.
left_over()
{
    find "$tree" -path "$tree/var/lib/dpkg" -prune -o ! -type d -printf '%P\n' | sort | comm -23 - <(sort "$1")
}

ip link set lo up
mount -t tmpfs tmpfs /dev/shm
mkdir -p "$tree"/var/lib/dpkg/{info,updates,triggers} "$tree"/{run/lock,Vtmp}
ln -s ../run/lock "$tree/var/lock"
chmod 1777 "$tree/Vtmp" # created by others before
touch "$tree/var/lib/dpkg/status" "$tree/stderr" "$tree/dpkg.log"

in_tree --install "$deb"
unit=$tree/usr/lib/systemd/system/velomond.service
for link in multi-user.target.wants/velomond.service sockets.target.wants/velomond-smart.socket; do
    [ -L "$tree/etc/systemd/system/$link" ] || fail "$link is missing"
done
for folder in Vtmp Vdbglog etc/reverseproxy/extra; do
    [ -d "$tree/$folder" ] || fail "/$folder is missing"
done
systemd-tmpfiles --root="$tree" --create velomond.conf
[ "$(stat -c %a "$tree/Vtmp" "$tree/Vdbglog" | xargs)" = '1777 755' ] || fail 'the modes of folders were changed'
(cd "$tree" && md5sum --quiet -c var/lib/dpkg/info/velomond.md5sums) || fail 'files are not as packaged'

# With the packaged examples and stand-ins the tree is a complete root.
{
    (cd "$tree/usr/share/doc/velomond/examples" && find . ! -type d -printf '%P\n')
    printf '%s\n' proc sys stderr dpkg.log var/lock usr/bin/{ostra_log_tool,vcmd} var/log/velomond_tools.jsonl
} >"$tree/var/lib/dpkg/ours"
cp -R "$tree"/usr/share/doc/velomond/examples/. "$tree"
mkdir -p "$tree"/usr/bin "$tree"/share/{System/database,Recordings}
for tool in ostra_log_tool vcmd; do
    cp "$tree/usr/share/velomond/standins/appliance_tool" "$tree/usr/bin/$tool"
done
ln -s /proc /sys "$tree"

# As the unit does; the remaining process logs its id.
read -ra start < <(sed -n 's/^ExecStart=//p' "$unit")
VELOMOND_ROOT=$tree "$tree${start[0]}" "${start[@]:1}" 2>>"$tree/stderr" || fail 'the daemon did not start'
for _ in {1..100}; do
    pid=$(sed -n 's/^pid=\[\([0-9]*\)\]$/\1/p' "$tree/stderr")
    [ -n "$pid" ] && answer=$(curl -sf http://127.0.0.1:10191/sysmonService/status) && break
    sleep 0.1
done
[[ ${answer:-} == *'"return": 0'*'"VeloMond"'* ]] || fail "the answer is [${answer:-}]"
[ "$(curl -sf http://127.0.0.1:10191/sysmonService/health)" = health ] || fail 'not healthy'
curl -sf http://127.0.0.1:10191/sysmonService/statistics_dump >/dev/null
[ -s "$tree/Vtmp/.sys_stats/log_0/cpu_stats.csv" ] || fail 'no dump'
[ -n "$(ls -A "$tree/Vdbglog/.velolog")" ] || fail 'no debug log'
if [ -n "$tools" ]; then
    in_tree --install "$tools"
    [ -L "$tree/etc/systemd/system/multi-user.target.wants/velomond-exporter.service" ] || fail 'the exporter is not enabled'
    [[ $("$tree/usr/bin/velomondctl" status) == disks*recording* ]] || fail 'no status'
    "$tree/usr/bin/velomond-exporter" 2>>"$tree/stderr" &
    for _ in {1..50}; do
        metrics=$(curl -sf http://127.0.0.1:10192/metrics) && break
        sleep 0.1
    done
    kill -TERM $! && wait $! || fail 'the exporter failed at its end'
    [[ $metrics == *$'\nvelomond_up 1\n'* ]] || fail "the metrics are [${metrics:-}]"
    in_tree --purge velomond-tools
fi
kill -TERM "$pid"
for _ in {1..100}; do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
done
! kill -0 "$pid" 2>/dev/null || fail 'the daemon does not stop'
pid=

in_tree --remove velomond
[ ! -e "$tree/usr/sbin/VeloMond" ] && [ ! -e "$unit" ] || fail 'the removal left files'
[ -e "$tree/Vtmp/.sys_stats/log_0/cpu_stats.csv" ] || fail 'the removal deleted the dumps'
in_tree --purge velomond
left=$(left_over "$tree/var/lib/dpkg/ours")
[ -z "$left" ] || fail "left after the purge: $left"
[ ! -e "$tree/Vtmp" ] && [ ! -e "$tree/Vdbglog" ] || fail 'the purge left empty folders'
echo "installed, started, queried, stopped, removed, purged: ${deb##*/} ${tools##*/}"
