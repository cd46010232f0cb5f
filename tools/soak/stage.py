"""Shared by the groups: the table, a simulated appliance, clients."""

import http.client
import pathlib
import threading
import time

import harness
from appliance import TApplianceTest
from harness import HOST, PORT, get

NOTICE = '{"notice_reason": {"type": 1033, "action": 0}}'
ROUTES = [('GET', 'status', None), ('GET', 'cpu_info?method=line_data&name=system_all', None),
          ('GET', 'mem_info?method=cur_data&name=system_all', None),
          ('GET', 'network_info?method=avg&type=3&if_name=nic0', None),
          ('GET', 'disk_info?method=cur_data&vol_name=/dev/mapper/cachedev1', None), ('GET', 'statistics_dump', None),
          ('PUT', 'Notify', NOTICE), ('GET', 'smart_info?method=disk_update', None),
          ('GET', 'syshealth_info?method=sys_health', None), ('GET', 'recording_state', None),
          ('GET', 'cam_conn?method=cur_data', None), ('PUT', 'banip_mgr', '{}')]


class TReport:
    """`line` writes a line: print, or a function that shows progress below the table."""

    def __init__(self):
        self.group, self.broken, self.line = '', 0, print

    def head(self, machine):
        self._line('group', f'what ({machine})', 'figure', 'promise', '')
        self._line('-' * 11, '-' * 44, '-' * 22, '-' * 14, '')

    def row(self, what, figure, promise='', holds=True):
        self._line(self.group, what, str(figure), promise, 'ok' if promise and holds else '' if holds else 'BROKEN')
        self.broken += not holds

    def _line(self, group, what, figure, promise, verdict):
        self.line(f'{group:<11}  {what:<44}  {figure:>22}  {promise:<14}  {verdict}'.rstrip())


report = TReport()


class TStage(TApplianceTest):
    """A fresh appliance for each group, real figures of this machine."""

    def check_stop(self, daemon, limit_s=2.0, what='stop', but_states=''):
        took_s = daemon.stop()
        report.row(what, f'{took_s:.2f} s, exit {daemon.status}', f'< {limit_s:.0f} s, exit 0',
                   took_s < limit_s and daemon.status == 0)
        left = [pathlib.Path('/proc', str(one), 'stat').read_text().split()[1:3] for one in harness.children()]
        left = [f'{name} {state}' for name, state in left if state not in but_states]
        report.row('processes left', ' '.join(left) or 0, '0', not left)

    def csv_files(self):
        return sorted((self.root / 'Vtmp/.sys_stats').rglob('*.csv'))

    def rounds(self):
        """Time stamps (ms) of the sampling rounds in the newest dump, oldest first."""
        dumps = [one for one in self.csv_files() if one.name == 'cpu_stats.csv']
        newest = max(dumps, key=lambda one: one.stat().st_mtime_ns)
        return sorted(stamps(newest.read_text()))


def stamps(text):
    """The time stamps of the first entity in a CSV file; the others of a round are slightly later."""
    first = next((line for line in text.splitlines() if line.startswith('time_stamp(ms), ')), '')
    return [int(one) for one in first.split(', ')[1:]]


def is_whole(text):
    """Every block of a CSV file ends with its blank line, and its rows are as long
    as its row of time stamps."""
    for block in text.split('\n\n')[:-1]:
        rows = [line.count(', ') for line in block.splitlines()]
        first = next((i for i, line in enumerate(block.splitlines()) if line.startswith('time_stamp(ms)')), None)
        if first is None or len(set(rows[first:])) != 1 or len(rows) == first + 1:
            return False
    return text == '' or text.endswith('\n\n')


class TClients:
    """`count` connections, kept alive, each asking all routes again and again until
    there were `requests` in total and `stop` is called or the block is left."""

    def __init__(self, count, requests=0):
        self.failures, self.done, self.slowest_s, self.whole = [], 0, 0.0, threading.Event()
        self._requests, self._stop, self._lock = requests, threading.Event(), threading.Lock()
        self._threads = [threading.Thread(target=self._run, args=(i,), daemon=True) for i in range(count)]

    def __enter__(self):
        for one in self._threads:
            one.start()
        return self

    def __exit__(self, *_):
        self._stop.set()
        for one in self._threads:
            one.join()

    def _run(self, number):
        connection = http.client.HTTPConnection(HOST, PORT, timeout=15)
        while not self._stop.is_set():
            method, path, body = ROUTES[number % len(ROUTES)]
            number += 1
            failure, start = None, time.monotonic()
            try:
                connection.request(method, '/sysmonService/' + path, body)
                answer = connection.getresponse()
                if answer.status != 200 or not answer.read().startswith(b'{'):
                    failure = f'{path}: {answer.status}'
            except (OSError, http.client.HTTPException) as error:
                failure = f'{path}: {type(error).__name__}'
                connection.close()
            with self._lock:
                self.done += 1
                self.slowest_s = max(self.slowest_s, time.monotonic() - start)
                if failure:
                    self.failures.append(failure)
                if self.done >= self._requests:
                    self.whole.set()
        connection.close()


def served(timeout_s):
    """Seconds until a new client has its answer; None after the time-out."""
    start = time.monotonic()
    while (left_s := start + timeout_s - time.monotonic()) > 0:
        try:
            if get('status', timeout_s=left_s)[0] == 200:
                return time.monotonic() - start
        except (OSError, http.client.HTTPException):
            time.sleep(0.02)
    return None


def seconds(value):
    return 'never' if value is None else f'{value:.2f} s'
