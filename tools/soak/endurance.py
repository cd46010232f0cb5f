"""Time: twenty starts in a row, and one run of a day."""

import calendar
import http.client
import os
import pathlib
import signal
import time
import unittest

import harness
from harness import Daemon, eventually, get
from stage import TClients, TStage, report, stamps


def held(daemon):
    """The least (descriptors, threads, children) of two seconds: workers may have a call in progress, which takes
    four descriptors of its own."""
    def look():
        running = [one for task in daemon.proc('task').iterdir()
                   for one in (harness.unless_gone(lambda task=task: (task / 'children').read_text()) or '').split()]
        return len(daemon.descriptors()), len(daemon.threads()), len(running)
    return tuple(map(min, zip(*(look() for _ in range(40) if time.sleep(0.05) is None))))


def memory(daemon):
    """KB by kind."""
    lines = daemon.proc('smaps_rollup').read_text().splitlines()[1:]
    return {name: int(size.split()[0]) for name, size in (line.split(':') for line in lines)}


class Starts(TStage):
    STARTS, HANGUPS = 20, 1000

    def soak(self):
        segments, stops_s, exits, left, requests, failed = [], [], set(), 0, 0, 0
        for life in range(self.STARTS):
            daemon = self.start_up()
            with TClients(4, 200) as clients:
                clients.whole.wait(30)
            if life == self.STARTS - 1:
                before = held(daemon)
                clients = self.hang_up(daemon)
                eventually(lambda: get('status')[0] == 200)
                after = held(daemon)
            requests, failed = requests + clients.done, failed + len(clients.failures)
            stops_s.append(daemon.stop())
            exits.add(daemon.status)
            left += len(harness.children()) + (self.root / 'var/lock/VeloMond').exists()
            segments.append(sorted(pathlib.Path('/dev/shm').iterdir()))
        prints = daemon.text().count('main:proc_test(126)\n')
        report.row('starts and stops', self.STARTS)
        report.row('exit statuses', ' '.join(map(str, exits)), '0', exits == {0})
        report.row('longest stop', f'{max(stops_s):.2f} s', '< 2 s', max(stops_s) < 2)
        report.row('processes and locks left', left, '0', left == 0)
        report.row('shared memory after the first, the last', f'{len(segments[0])}, {len(segments[-1])}', 'the same',
                   segments[0] == segments[-1])
        report.row('requests failed', f'{failed} of {requests}', '0', failed == 0)
        report.row('SIGHUP under load, debug prints', f'{self.HANGUPS}, {prints}', '>= 1 print', prints >= 1)
        report.row('descriptors, threads, children before', before)
        report.row('the same after', after, 'no more', all(a <= b for a, b in zip(after, before)))

    def hang_up(self, daemon):
        with TClients(8) as clients:
            for _ in range(self.HANGUPS):
                daemon.kill(signal.SIGHUP)
                time.sleep(0.002)
        return clients


@unittest.skipUnless(os.environ.get('VELOMOND_FAST_CLOCK'), 'needs the fast clock')
class Day(TStage):
    """A day and a half: the cameras' history grows for 24 hours, some 1 KB a minute,
    the others for 15 minutes. Nothing may grow on the second day."""

    SPEED, LENGTH_S, HOUR_S = 720, 185, 3600
    START = calendar.timegm((2026, 3, 31, 18, 0, 0))
    FULL_H, CAMERAS_KB, GROWTH_KB = 27, 1800, 256

    def soak(self):
        daemon = Daemon(self.root, environment={
            'LD_PRELOAD': os.environ['VELOMOND_FAST_CLOCK'], 'FAST_CLOCK_SPEED': str(self.SPEED),
            'FAST_CLOCK_START': str(self.START), 'TZ': 'UTC'}).wait_until_up()
        start, rounds, asked, failed, hours, early = time.monotonic(), set(), 0, 0, [], ()
        while (passed_s := time.monotonic() - start) < self.LENGTH_S:
            asked += 1
            try:  # the daemon's time limit of 10 s for a request is 14 ms here
                get('statistics_dump')
                rounds |= set(stamps((self.root / 'Vtmp/.sys_stats/log_0/cpu_stats.csv').read_text()))
            except (OSError, http.client.HTTPException):
                failed += 1
            if passed_s * self.SPEED >= self.HOUR_S * (len(hours) + 1):
                hours.append(memory(daemon))
                early = held(daemon) if len(hours) == 1 else early
            time.sleep(0.5)
        hours.append(memory(daemon))
        report.row('simulated, at how many times the speed', f'{self.LENGTH_S * self.SPEED / 3600:.0f} h, {self.SPEED}')
        report.row('sampling rounds', len(rounds))
        report.row('requests cut off by the fast clock', f'{failed} of {asked}')
        report.row('calls of peers', len((self.root / 'journal').read_text().splitlines()))
        for name in ('Rss', 'Pss', 'Anonymous'):
            first, full, last = (hours[i][name] for i in (0, self.FULL_H - 1, -1))
            report.row(f'{name}, KB, after 1 h, {self.FULL_H} h, at the end', f'{first}, {full}, {last}')
            if name != 'Pss':  # it depends on what other processes have mapped
                report.row('  grown since the first hour', f'{last - first} KB', f'<= {self.CAMERAS_KB} KB',
                           last - first <= self.CAMERAS_KB)
                report.row('  grown since all histories were full', f'{last - full} KB', f'<= {self.GROWTH_KB} KB',
                           last - full <= self.GROWTH_KB)
        for name, then, now in zip(('descriptors', 'threads', 'children'), early, held(daemon)):
            report.row(f'{name} after an hour, at the end', f'{then}, {now}', 'the same', then == now)
        # Children of a tool that exceeded its time limit, 7 ms here, become ours.
        self.check_stop(daemon, but_states='Z')
