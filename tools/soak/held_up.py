"""A blocked handler must not delay other requests."""

import errno
import http.client
import os
import threading
import time

from appliance import TMachine
from harness import eventually, get
from stage import NOTICE, ROUTES, TStage, report, seconds

PLAIN = [one for one in ROUTES if one[1] not in ('statistics_dump', 'Notify')]


class TCalls:
    """Concurrent calls, their answers and their duration."""

    def __init__(self):
        self.failures, self.slowest_s, self.done, self._lock, self._threads = [], 0.0, 0, threading.Lock(), []

    def start(self, work):
        self._threads.append(threading.Thread(target=work, daemon=True))
        self._threads[-1].start()

    def join(self):
        for one in self._threads:
            one.join()

    def ask(self, method, path, body, timeout_s=10.0):
        start = time.monotonic()
        try:
            status, text = get(path, method, timeout_s, body)
            failure = None if status == 200 and text.startswith('{') else f'{path}: {status}'
        except (OSError, http.client.HTTPException) as error:
            failure = f'{path}: {type(error).__name__}'
        with self._lock:
            self.done += 1
            self.slowest_s = max(self.slowest_s, time.monotonic() - start)
            if failure:
                self.failures.append(failure)


class HeldUp(TStage):
    """A sampling round that hangs delays dumps, a hub that accepts and never
    answers delays notices; neither delays a plain query."""

    LENGTH_S, CLIENTS, QUERIES, NOTICES, DUMPS = 30, 8, 200, 20, 4

    def soak(self):
        TMachine(self.root)
        vmstat = self.root / 'proc/vmstat'
        text = vmstat.read_bytes()
        vmstat.unlink()
        os.mkfifo(vmstat)
        self.tell_state('faults.json', {'hub': {'fault': 'hang'}})
        daemon = self.start_up()
        round_under_way = eventually(lambda: self.open_for_reader(vmstat), 25)

        start = time.monotonic()
        dumps, notices, plain = TCalls(), TCalls(), TCalls()
        for _ in range(self.DUMPS):
            dumps.start(lambda: dumps.ask('GET', 'statistics_dump', None, self.LENGTH_S + 15))
        for _ in range(self.NOTICES):
            notices.start(lambda: notices.ask('PUT', 'Notify', NOTICE))
        for number in range(self.CLIENTS):
            plain.start(lambda number=number: self.ask_plain(plain, number, start))
        notices.join()
        plain.join()
        time.sleep(max(0.0, start + self.LENGTH_S - time.monotonic()))
        blocked = self.DUMPS - dumps.done
        vmstat.unlink()
        vmstat.write_bytes(text)
        os.write(round_under_way, text)
        os.close(round_under_way)
        dumps.join()

        report.row(f'round blocked for {self.LENGTH_S} s: dumps held up', blocked, f'{self.DUMPS}',
                   blocked == self.DUMPS)
        self.tell('  failed once it went on', dumps, self.DUMPS)
        self.tell('Notify with a hub that hangs, failed', notices, self.NOTICES)
        self.slowest('  slowest', notices, 1.0)
        self.tell('plain queries beside both, failed', plain, self.QUERIES)
        self.slowest('  slowest', plain, 0.1)
        self.check_stop(daemon)

    @staticmethod
    def open_for_reader(path):
        try:
            return os.open(path, os.O_WRONLY | os.O_NONBLOCK | os.O_CLOEXEC)
        except OSError as error:
            assert error.errno == errno.ENXIO
            return None

    def ask_plain(self, calls, number, start):
        """Spread over the whole time; the first queries of all clients at once."""
        count = self.QUERIES // self.CLIENTS
        for i in range(count):
            time.sleep(max(0.0, start + i * self.LENGTH_S / (count + 1) - time.monotonic()))
            calls.ask(*PLAIN[(number + i) % len(PLAIN)])

    @staticmethod
    def tell(what, calls, expected):
        report.row(what, f'{len(calls.failures)} of {calls.done}', '0',
                   not calls.failures and calls.done == expected)
        for one in sorted(set(calls.failures))[:5]:
            report.row('  failure', one)

    @staticmethod
    def slowest(what, calls, limit_s):
        report.row(what, seconds(calls.slowest_s), f'< {limit_s * 1000:.0f} ms', calls.slowest_s < limit_s)
