#!/bin/bash
# run.sh MODULE[.CLASS[.TEST]]...: runs end-to-end tests on the daemon that
# VELOMOND_BINARY names, in a network namespace of their own where that is allowed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
tests=(/usr/bin/env python3 -B -m unittest "$@")
for apart in -n -rn; do
    if unshare $apart ip link set lo up 2>/dev/null; then
        exec unshare $apart bash -c 'ip link set lo up && exec "$@"' run "${tests[@]}"
    fi
done
echo 'no network namespace: the tests use the port 10191 of this machine' >&2
exec "${tests[@]}"
