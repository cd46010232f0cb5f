"""Allocations and system calls fail, one by one and at random."""

import http.client
import json
import mmap
import os
import struct
import threading
import time

from appliance import TMachine
from harness import Daemon, eventually, get
from stage import ROUTES, TStage, report

FAST = 240  # times faster, where watchers are waited for
# How long a worker takes for a pass and a wait, at that speed; and how many of its allocations are tried.
WORKERS = {'MAIN-worker': (0.5, 24), 'DISK-worker': (3, 6), 'SVRNAME-worker': (1, 12), 'VOL-worker': (1, 12),
           'SMART-worker': (1, 12), 'SYS_HEALTH-work': (1, 12), 'RECSTAT-worker': (1, 12), 'CAMCONN-worker': (1, 12),
           'DB-worker': (17, 3), 'PROXY-worker': (2, 12)}
NEWEST = {'cpu_info?method=cur_data&name=system_all': {'user_pcnt': '15.0', 'sys_pcnt': '5.0', 'idle_pcnt': '80.0'},
          'network_info?method=cur_data&if_name=nic0': {'tx': '1000', 'rx': '3000'},
          'disk_info?method=cur_data&vol_name=/dev/mapper/cachedev1': {'throughput': '14', 'rd_io': '4', 'wr_io': '2'}}


class TFaults:
    """Control of the preloads, see tools/faults/faults.h."""

    def __init__(self, path):
        path.write_bytes(bytes(64))
        self.path = path
        with open(path, 'r+b') as file:
            self._map = mmap.mmap(file.fileno(), 64)

    def _set(self, word, value):
        struct.pack_into('Q', self._map, 8 * word, value)

    def _get(self, word):
        return struct.unpack_from('Q', self._map, 8 * word)[0]

    def fail_allocation(self, number, thread=''):
        """Makes the number-th allocation from now on fail."""
        self._set(0, 0)
        self._set(1, 0)
        self._set(2, 0)
        self._map[48:64] = thread.encode()[:15].ljust(16, b'\0')
        self._set(0, number)

    def fail_calls(self, share):
        self._set(3, int(share * 65536))

    allocations = property(lambda self: self._get(1))
    failed = property(lambda self: self._get(2))
    calls = property(lambda self: self._get(4))
    calls_failed = property(lambda self: self._get(5))


def shape(value):
    """The keys of an answer, and the form of its values."""
    if isinstance(value, dict):
        return {key: shape(one) for key, one in value.items()}
    return type(value).__name__


class Torture(TStage):
    NEVER, STARTS, CALLS_S, SHARE, PERIOD_S = 1 << 62, 60, 120, 0.05, 10

    def setUp(self):
        super().setUp()
        self.machine = TMachine(self.root)
        self.faults = TFaults(self.root / 'faults')

    def soak(self):
        self.starts()
        self.answers()
        self.passes()
        self.calls()

    def torture(self, *libraries, fast=1):
        names = [os.environ['VELOMOND_FAULTS'] % one for one in libraries]
        clock = [os.environ['VELOMOND_FAST_CLOCK']] if fast > 1 else []
        return Daemon(self.root, environment={'LD_PRELOAD': ' '.join(names + clock), 'FAULTS': str(self.faults.path),
                                              'FAST_CLOCK_SPEED': str(fast), 'TZ': 'UTC'})

    @staticmethod
    def is_up(daemon):
        return 'VeloMond_RESTful:ntf_init(639)\n' in daemon.text()

    def starts(self):
        self.faults.fail_allocation(self.NEVER)
        daemon = self.torture('allocations').wait_until_up()
        whole = self.faults.allocations
        daemon.stop()
        ended, odd = 0, {}
        numbers = sorted({*range(1, 20), *range(20, whole, max(1, whole // self.STARTS))})
        for number in numbers:
            self.faults.fail_allocation(number)
            daemon = self.torture('allocations')
            try:
                eventually(lambda: daemon.ended() or self.is_up(daemon) or ' exit.\n' in daemon.text())
                ended += daemon.ended()
                if not daemon.ended():
                    daemon.stop(timeout_s=15)
            except AssertionError:
                odd[number] = 'hangs'
                daemon.kill(9)
                daemon.wait()
            if daemon.status not in (0, 1):
                odd[number] = daemon.status
        report.row('start: allocations, failed one by one', f'{whole}, {len(numbers)}')
        report.row('start: ended with 1, went on', f'{ended}, {len(numbers) - ended}')
        report.row('start: neither', odd or 0, '0', not odd)

    def answers(self):
        daemon = self.torture('allocations', fast=60).wait_until_up()
        time.sleep(1)
        tried, nothing, odd = 0, 0, []
        for method, path, body in ROUTES:
            try:
                number, usual = 1, shape(json.loads(get(path, method, body=body)[1]))
            except OSError:
                time.sleep(0.5)
                break
            while True:
                self.faults.fail_allocation(number, 'SSCI-waiting' if 'dump' in path else 'MHD')
                answer = self.answer_of(path, method, body)
                failed = self.faults.failed
                self.faults.fail_allocation(0)
                if not failed or daemon.ended():
                    break
                tried += 1
                nothing += answer is None
                if answer is not None and not self.is_right(answer, usual):
                    odd.append((path, number, answer))
                number += 1 if number < 60 else number // 8
        report.row('answers: allocations failed, no answer', f'{tried}, {nothing}')
        self.tell_odd('answers', odd)
        self.tell_end('answers', daemon)

    @staticmethod
    def tell_odd(what, odd):
        report.row(f'{what}: other than for the failure', len(odd), '0', not odd)
        for one in odd[:10]:
            report.line(one)

    @staticmethod
    def answer_of(path, method, body):
        """(status, body), None without an answer."""
        try:
            return get(path, method, body=body, timeout_s=8)
        except (OSError, http.client.HTTPException):
            return None

    @staticmethod
    def is_right(answer, usual):
        status, text = answer
        if status in (500, 503):
            return True
        try:
            value = json.loads(text)
        except ValueError:
            return False
        if status != 200 or not isinstance(value, dict):
            return False
        return shape(value) == usual or value.get('return', value.get('retCode', 0)) < 0

    def passes(self):
        daemon = self.torture('allocations', fast=FAST).wait_until_up()
        tried, still, stop = 0, [], threading.Event()
        moving = threading.Thread(target=self.rename, args=(stop,))
        moving.start()
        for worker, (pass_s, count) in WORKERS.items():
            self.faults.fail_allocation(self.NEVER, worker)
            stop.wait(pass_s)
            whole = max(self.faults.allocations, 1)
            for number in sorted({1 + i * whole // count for i in range(count)}):
                self.faults.fail_allocation(number, worker)
                self.wait_for(lambda: self.faults.failed or daemon.ended(), 3 * pass_s)
                tried += self.faults.failed
            self.faults.fail_allocation(self.NEVER, worker)
            self.wait_for(lambda: self.faults.allocations or daemon.ended(), 4 * pass_s + 1)
            if not self.faults.allocations:
                still.append(worker)
            if daemon.ended():
                break
        stop.set()
        moving.join()
        self.faults.fail_allocation(0)
        report.row('passes: allocations failed', tried)
        report.row('passes: workers that do not continue', ' '.join(still) or 0, '0', not still)
        self.tell_end('passes', daemon)

    def rename(self, stop):
        """Changes the server's name again and again: its watcher does nothing else."""
        number = 0
        while not stop.wait(0.2):
            number += 1
            self.machine.write('tarn/etc/config/Tarnix.conf', f'[System]\nServer Name = N{number}\n')

    @staticmethod
    def wait_for(condition, timeout_s):
        until = time.monotonic() + timeout_s
        while not condition() and time.monotonic() < until:
            time.sleep(0.01)

    def tell_end(self, what, daemon):
        report.row(f'{what}: crashes', daemon.status if daemon.ended() else 0, '0', not daemon.ended())
        if daemon.ended():
            report.line('\n'.join(daemon.text().splitlines()[-25:]))
        else:
            # Children of a tool that exceeded its time limit by the fast clock become ours.
            self.check_stop(daemon, what=f'{what}: stop', but_states='Z')

    def calls(self):
        daemon = self.torture('calls').wait_until_up()
        usual = {path: shape(json.loads(get(path, method, body=body)[1])) for method, path, body in ROUTES}
        asked, nothing, odd, stop = [0], [0], [], threading.Event()

        def ask():
            while not stop.is_set():
                for method, path, body in ROUTES:
                    answer = self.answer_of(path, method, body)
                    asked[0] += 1
                    nothing[0] += answer is None
                    if answer is not None and not self.is_right(answer, usual[path]):
                        odd.append((path, answer))
                    time.sleep(0.05)

        def go_on():
            step = 0
            while not stop.wait(self.PERIOD_S if step else self.PERIOD_S / 2):  # between two rounds
                step += 1
                self.machine.counters(step)
        helpers = [threading.Thread(target=one) for one in (ask, ask, ask, go_on)]
        began_s = self.processor_s(daemon)
        for one in helpers:
            one.start()
        self.faults.fail_calls(self.SHARE)
        self.wait_for(daemon.ended, self.CALLS_S)
        self.faults.fail_calls(0)
        if not daemon.ended():
            used_s = self.processor_s(daemon) - began_s
            time.sleep(2 * self.PERIOD_S + 1)
            newest = {path: json.loads(get(path)[1])['data'] for path in NEWEST}
        stop.set()
        for one in helpers:
            one.join()
        report.row('calls: seen, failed', f'{self.faults.calls}, {self.faults.calls_failed}')
        report.row('calls: requests, without an answer', f'{asked[0]}, {nothing[0]}')
        self.tell_odd('calls', odd)
        if not daemon.ended():
            report.row('calls: processor time', f'{used_s:.1f} s of {self.CALLS_S} s', '< 20 %',
                       used_s < self.CALLS_S / 5)
            wrong = {path: newest[path] for path, wanted in NEWEST.items() if not wanted.items() <= newest[path].items()}
            report.row('calls: wrong intervals two periods later', wrong or 0, '0', not wrong)
        self.tell_end('calls', daemon)

    @staticmethod
    def processor_s(daemon):
        times = daemon.proc('stat').read_text().rsplit(')', 1)[1].split()
        return (int(times[11]) + int(times[12])) / 100
