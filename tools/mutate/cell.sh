#!/bin/bash
# cell.sh COMMAND [ARGUMENT]...: runs a faulty program where it can do no harm: it sees
# no other process, writes to a small /tmp of its own only, and cannot fill the machine.
set -euo pipefail
prepare='mount -t tmpfs -o size=256m tmpfs /tmp && mount -t tmpfs -o size=16m tmpfs /dev/shm && ip link set lo up &&
    mount -o remount,bind,ro / && export TMPDIR=/tmp && ulimit -f 200000 -v 8000000 -c 0'
for apart in -mnp -rmnp; do
    if unshare $apart --fork --kill-child --mount-proc bash -c "$prepare" 2>/dev/null; then
        # The shell stays, as the parent of whatever loses its own.
        exec unshare $apart --fork --kill-child --mount-proc bash -c "$prepare"' && { "$@" & wait $!; }' cell "$@"
    fi
done
echo 'no namespaces here: a faulty program could end or overwrite anything' >&2
exit 125
