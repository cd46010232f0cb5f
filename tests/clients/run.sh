#!/bin/bash
# run.sh MODULE[.CLASS[.TEST]]...: runs tests of the clients, apart from the machine
# where that is allowed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
export PYTHONPATH=../e2e
exec ../e2e/apart.sh /usr/bin/python3 -B -m unittest "$@"
