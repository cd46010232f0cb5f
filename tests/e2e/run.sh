#!/bin/bash
# run.sh MODULE[.CLASS[.TEST]]...: runs end-to-end tests on the daemon that
# VELOMOND_BINARY names, apart from the machine where that is allowed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
exec ./apart.sh /usr/bin/env python3 -B -m unittest "$@"
