"""Faults of the daemon's environment: unread logs, full disks, and other users' files in
place of its own."""

import errno
import fcntl
import os
import pathlib
import subprocess
import time
import unittest

from harness import Daemon, eventually, get
from stage import TStage, is_whole, report, seconds, served


class Unread(TStage):
    """The pipe behind standard error is never read."""

    QUERIES, PIPE = 1400, 4096

    def soak(self):
        fifo = self.root / 'unread'
        os.mkfifo(fifo)
        reader = os.open(fifo, os.O_RDWR | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        fcntl.fcntl(reader, fcntl.F_SETPIPE_SZ, self.PIPE)
        daemon = Daemon(self.root, stderr=fifo)
        eventually(lambda: served(1) is not None)
        answered, slowest_s = 0, 0.0
        for _ in range(self.QUERIES):
            start = time.monotonic()
            try:
                answered += get('cpu_info')[0] == 200  # logs a line
            except OSError:
                break
            slowest_s = max(slowest_s, time.monotonic() - start)
        report.row('queries answered', f'{answered} of {self.QUERIES}', 'all', answered == self.QUERIES)
        report.row('slowest answer', seconds(slowest_s), '< 1 s', slowest_s < 1)
        self.check_stop(daemon)


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs mounts of its own')
class LastDump(TStage):
    """The disk is full when a longer dump replaces an earlier one."""

    GROWTH_S = 50  # of the dump, by more than the rest of the last block

    def soak(self):
        folder = self.root / 'Vtmp'
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=1m', 'tmpfs', folder], check=True)
        self.addCleanup(subprocess.run, ['umount', '-l', folder], check=True)
        daemon = self.start_up()
        time.sleep(22)  # two rounds
        for _ in range(7):  # with all backups made, the seventh and all later ones go into the first folder
            get('statistics_dump')
        files = sorted((folder / '.sys_stats/log_0').iterdir())
        before = [one.read_bytes() for one in files]
        with open(folder / 'ballast', 'wb', buffering=0) as ballast:
            try:
                while ballast.write(bytes(4096)):
                    pass
            except OSError as error:
                assert error.errno == errno.ENOSPC
        time.sleep(self.GROWTH_S)
        for _ in range(3):
            get('statistics_dump')
        whole = [one for one, text in zip(files, before)
                 if one.read_bytes() == text and is_whole(text.decode())]
        report.row('CSV files kept unchanged', f'{len(whole)} of {len(files)}', 'all',
                   len(whole) == len(files) == len(list((folder / '.sys_stats/log_0').iterdir())))
        report.row('bytes in the smallest of them', min(len(text) for text in before if text))
        failures = daemon.text().count('cannot write /Vtmp/.sys_stats/log_0/')
        report.row('failures logged', failures, '>= 1', failures >= 1)
        (folder / 'ballast').unlink()
        ids = [one.stat().st_ino for one in files]
        get('statistics_dump')
        renewed = sum(one.stat().st_ino != inode for one, inode in zip(files, ids))
        report.row('CSV files written again after', renewed, 'all', renewed == len(files))
        self.check_stop(daemon)


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs shared memory of its own')
class InTheWay(TStage):
    """Folders of another user in place of the shared record."""

    SHM = pathlib.Path('/dev/shm')
    NOTIFY = 'disk_info?method=notify&vol_name=x'

    def soak(self):
        for name in ('velomond', 'velomond.lock'):
            (self.SHM / name).unlink(missing_ok=True)
            (self.SHM / name).mkdir()
        daemon = self.start_up()
        get(self.NOTIFY)
        report.row('empty folders replaced', sum((self.SHM / one).is_file() for one in ('velomond', 'velomond.lock')),
                   '2', all((self.SHM / one).is_file() for one in ('velomond', 'velomond.lock')))
        lock = self.SHM / 'velomond.lock'
        lock.unlink()
        (lock / 'kept').mkdir(parents=True)
        for _ in range(5):
            get(self.NOTIFY)
        told = daemon.text().count('shared memory /velomond cannot be written')
        report.row('5 updates with one that is not empty: logged', told, 'once', told == 1)
        (lock / 'kept').rmdir()
        get(self.NOTIFY)
        report.row('written again once it is empty', lock.is_file(), 'True', lock.is_file())
        lock.unlink()
        self.check_stop(daemon)
