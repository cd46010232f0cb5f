#!/bin/bash
# run.sh MODULE[.CLASS[.TEST]]...: runs end-to-end tests on the daemon that
# VELOMOND_BINARY names, in namespaces of their own where that is allowed: ports,
# a network interface (nic0), shared memory and mounts are then the tests' alone.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
tests=(/usr/bin/env python3 -B -m unittest "$@")
prepare='ip link set lo up && ip link add nic0 type veth peer name nic1 && mount -t tmpfs tmpfs /dev/shm'
for apart in -nm -rnm; do
    if unshare $apart bash -c "$prepare" 2>/dev/null; then
        exec env VELOMOND_APART=1 unshare $apart bash -c "$prepare"' && exec "$@"' run "${tests[@]}"
    fi
done
echo 'no namespaces: the tests use the ports of this machine, one test after the other' >&2
exec flock "${TMPDIR:-/tmp}/velomond_e2e.lock" "${tests[@]}"
