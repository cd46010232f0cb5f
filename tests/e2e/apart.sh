#!/bin/bash
# apart.sh COMMAND [ARGUMENT]...: runs a command in namespaces of its own where that is allowed: with its own ports,
# network interfaces (nic0 and eth0), shared memory and mounts, and VELOMOND_APART set.
set -euo pipefail
prepare='ip link set lo up && ip link add nic0 type veth peer name eth0 && mount -t tmpfs tmpfs /dev/shm'
for apart in -nm -rnm; do
    if unshare $apart bash -c "$prepare" 2>/dev/null; then
        exec env VELOMOND_APART=1 unshare $apart bash -c "$prepare"' && exec "$@"' run "$@"
    fi
done
echo 'namespaces are not allowed here: the tests use the ports of this machine, one after the other' >&2
exec flock "${TMPDIR:-/tmp}/velomond_e2e.lock" "$@"
