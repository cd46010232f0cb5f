#!/bin/bash
# run.sh MODULE[.CLASS[.TEST]]...: runs end-to-end tests on the daemon given by VELOMOND_BINARY, in namespaces of their
# own where that is allowed. With VELOMOND_NO_SKIP a skipped test counts as failed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
if [ -z "${VELOMOND_NO_SKIP:-}" ]; then
    exec ./apart.sh /usr/bin/env python3 -B -m unittest "$@"
fi
told=$(./apart.sh /usr/bin/env python3 -B -m unittest "$@" 2>&1) || { echo "$told" && exit 1; }
echo "$told"
! grep '(.*skipped=' <<<"$told"
