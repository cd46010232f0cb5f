#!/usr/bin/env python3
"""Simulates the other services of the appliance on this machine; see README.md."""

import argparse
import signal
import sys
import threading

from journal import TJournal
from server import TServer
from services import TConfiguration, TDashboard, THub, TRecording
from state import TState


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--state', required=True, metavar='DIR', help='the appliance as JSON files')
    parser.add_argument('--journal', metavar='FILE', help='one JSON line for each request is appended here')
    parser.add_argument('--quiet', action='store_true', help='do not show the requests')
    options = parser.parse_args()

    state, journal, stopping = TState(options.state), TJournal(options.journal, not options.quiet), threading.Event()
    hub = THub(state, journal, stopping)
    plan = [('hub', 10182, hub), ('dashboard', 10150, TDashboard()), ('recording', 10187, TRecording(state)),
            ('config', 10141, TConfiguration(state))]
    try:
        servers = [TServer(name, port, answer, state, journal, stopping) for name, port, answer in plan]
    except OSError as failure:
        sys.exit(f'appliance_sim: a port is taken: {failure}')
    for number in (signal.SIGTERM, signal.SIGINT):
        if signal.getsignal(number) != signal.SIG_IGN:  # ignored in the background: the parent ends us
            signal.signal(number, lambda *_: stopping.set())
    for target in [server.run for server in servers] + [hub.deliver_notices]:
        threading.Thread(target=target, daemon=True).start()
    if not options.quiet:
        print('appliance_sim: ' + ', '.join(f'{name} {port}' for name, port, _ in plan), flush=True)
    while not stopping.wait(0.5):
        pass
    for server in servers:
        server.shutdown()


if __name__ == '__main__':
    main()
