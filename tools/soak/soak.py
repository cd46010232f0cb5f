#!/usr/bin/env python3
"""Loads the daemon given by VELOMOND_BINARY beyond what an appliance does to it,
and prints figures next to the promised ones; fails if a promise is broken."""

import argparse
import os
import pathlib
import sys
import time
import unittest

for one in ('tests/e2e', 'tools'):
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / one))

import progress  # noqa: E402
from stage import report  # noqa: E402
from load import Descriptors, Load, SlowClients  # noqa: E402
from trouble import DiskFull, Peers  # noqa: E402
from endurance import Day, Starts  # noqa: E402
from held_up import HeldUp  # noqa: E402
from faults import InTheWay, LastDump, Unread  # noqa: E402
from foreign import Foreign, Stops  # noqa: E402
from torture import Torture  # noqa: E402

GROUPS = {'load': Load, 'slow': SlowClients, 'peers': Peers, 'disk': DiskFull, 'descriptors': Descriptors,
          'starts': Starts, 'day': Day, 'held': HeldUp, 'unread': Unread, 'last_dump': LastDump,
          'in_the_way': InTheWay, 'foreign': Foreign, 'stops': Stops, 'torture': Torture}
SECONDS = {'load': 46, 'slow': 27, 'peers': 40, 'disk': 27, 'descriptors': 62, 'starts': 28, 'day': 188, 'held': 41,
           'unread': 3, 'last_dump': 73, 'in_the_way': 2, 'foreign': 75, 'stops': 42, 'torture': 303}  # on two cores


def run(name):
    report.group = name
    start, result = time.monotonic(), unittest.TestResult()
    GROUPS[name]('soak').run(result)
    for _, text in result.errors + result.failures:
        report.row('ended early', text.strip().splitlines()[-1][:60], 'no error', False)
        report.line(text)
    for _, why in result.skipped:
        report.row('left out', why)
    report.row('took', f'{time.monotonic() - start:.0f} s')


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('groups', nargs='*', metavar='GROUP', help='only these of: ' + ', '.join(GROUPS))
    chosen = parser.parse_args().groups or list(GROUPS)
    if unknown := [one for one in chosen if one not in GROUPS]:
        parser.error('no such group: ' + ' '.join(unknown))
    with progress.TProgress('soak', sum(SECONDS.get(one, 60) for one in chosen), unit_s=1) as shown:
        report.line = shown.line
        report.head(f'{os.cpu_count()} cores')
        for name in chosen:
            shown.step(name, SECONDS.get(name, 60))
            run(name)
    sys.exit(1 if report.broken else 0)


if __name__ == '__main__':
    main()
