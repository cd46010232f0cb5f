"""Failures of what the daemon depends on: peers in every way, full disks."""

import errno
import os
import subprocess
import time
import unittest

from harness import eventually, get
from stage import ROUTES, TStage, report, seconds

SERVICES = ('hub', 'dashboard', 'recording', 'config')


class Peers(TStage):
    EACH_S, CALL_S = 6, 5

    def soak(self):
        for kind in ('hang', 'refuse', 'slow', 'garbage', 'huge'):
            self.tell_state('faults.json', {one: {'fault': kind} for one in SERVICES})
            daemon = self.start_up()
            until, asked, failed, slowest_s = time.monotonic() + self.EACH_S, 0, [], 0.0
            while time.monotonic() < until:
                for method, path, body in ROUTES:
                    start = time.monotonic()
                    status = self.status_of(method, path, body)
                    slowest_s = max(slowest_s, time.monotonic() - start)
                    asked += 1
                    if status != 200:
                        failed.append(path)
                time.sleep(0.05)
            report.row(f'{kind}: requests failed', f'{len(failed)} of {asked}', '0', not failed)
            report.row(f'{kind}: slowest answer', seconds(slowest_s), '< 1 s', slowest_s < 1)
            for path in sorted(set(failed)):
                report.row('  failure', path)
            self.check_stop(daemon, 2 + self.CALL_S, f'{kind}: stop')

    @staticmethod
    def status_of(method, path, body):
        try:
            return get(path, method, timeout_s=8, body=body)[0]
        except OSError as error:
            return type(error).__name__


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs mounts of its own')
class DiskFull(TStage):
    FOLDERS = ('Vtmp', 'Vdbglog')

    def soak(self):
        for name in self.FOLDERS:
            subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=128k', 'tmpfs', self.root / name], check=True)
            self.addCleanup(subprocess.run, ['umount', '-l', self.root / name], check=True)
            self.fill(self.root / name)
        daemon = self.start_up()
        asked, failed, until = 0, 0, time.monotonic() + 25
        while time.monotonic() < until:
            for method, path, body in ROUTES + [('GET', 'cpu_info?method=x&name=system_all', None)]:
                asked += 1
                failed += get(path, method, body=body)[0] != 200
            time.sleep(0.5)
        report.row('requests failed while full', f'{failed} of {asked}', '0', failed == 0)
        report.row('bytes written while full', sum(one.stat().st_size for one in self.files()))

        for name in self.FOLDERS:
            (self.root / name / 'ballast').unlink()
        start = time.monotonic()
        self.ask_for_files()
        wanted = {'cpu_stats.csv', 'mem_stats.csv', '.velomond_cpu.log'}
        eventually(lambda: wanted <= self.filled() or self.ask_for_files())
        after_s = time.monotonic() - start
        report.row('writes dumps and logs again after', seconds(after_s), '<= 1 s', after_s <= 1)
        self.check_stop(daemon)

    @staticmethod
    def fill(folder):
        with open(folder / 'ballast', 'wb', buffering=0) as file:
            try:
                while file.write(bytes(4096)):
                    pass
            except OSError as error:
                assert error.errno == errno.ENOSPC

    @staticmethod
    def ask_for_files():
        get('statistics_dump')
        get('cpu_info?method=x&name=system_all')

    def files(self):
        return [one for name in self.FOLDERS for one in (self.root / name).rglob('*')
                if one.is_file() and one.name != 'ballast']

    def filled(self):
        return {one.name for one in self.files() if one.stat().st_size > 0}
