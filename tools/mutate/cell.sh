#!/bin/bash
# cell.sh COMMAND [ARGUMENT]...: runs a faulty program where it can do no harm: it sees no other process, only writes to
# a small /tmp of its own, and cannot exhaust the machine.
set -euo pipefail
prepare='mount -t tmpfs -o size=256m tmpfs /tmp && mount -t tmpfs -o size=16m tmpfs /dev/shm && ip link set lo up &&
    mount -o remount,bind,ro / && export TMPDIR=/tmp && ulimit -f 200000 -v 8000000 -c 0'
for apart in -mnp -rmnp; do
    if unshare $apart --fork --kill-child --mount-proc bash -c "$prepare" 2>/dev/null; then
        # The shell stays as the parent of orphaned processes.
        exec unshare $apart --fork --kill-child --mount-proc bash -c "$prepare"' && { "$@" & wait $!; }' cell "$@"
    fi
done
echo 'namespaces are not allowed here: a faulty program could kill or overwrite anything' >&2
exit 125
