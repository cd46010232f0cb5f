"""Starts the daemon on a host root of its own and observes it from outside."""

import ctypes
import http.client
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time
import unittest

BINARY = os.environ['VELOMOND_BINARY']
HOST, PORT = '127.0.0.1', 10191
ZONE, ZONE_S = 'TST-05:45', -20700  # the daemon's: neither its days nor its hours begin with those of UTC

# Orphans of a daemonised process become our children, with their exit status.
ctypes.CDLL(None).prctl(36, 1, 0, 0, 0)  # PR_SET_CHILD_SUBREAPER


def eventually(condition, timeout_s=10.0, text=lambda: ''):
    """The first true value of condition(); fails after the time-out, with the text."""
    deadline = time.monotonic() + timeout_s
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f'not so within {timeout_s} s {text()}')
        time.sleep(0.01)
    return value


def unless_gone(read):
    """The result of read(); None for a thread or descriptor that has ended since."""
    try:
        return read()
    except (FileNotFoundError, ProcessLookupError):
        return None


KEPT = set()  # processes of the tests themselves


def children():
    """Child processes, including ended ones."""
    return [int(one) for task in pathlib.Path('/proc/self/task').iterdir()
            for one in (task / 'children').read_text().split() if int(one) not in KEPT]


def request(method, path, body=None, timeout_s=5.0):
    """(status, type, body) of one request to the service; path as in "status?..."."""
    connection = http.client.HTTPConnection(HOST, PORT, timeout=timeout_s)
    try:
        connection.request(method, '/sysmonService/' + path, body)
        answer = connection.getresponse()
        return answer.status, answer.getheader('Content-Type'), answer.read().decode()
    finally:
        connection.close()


def get(path, method='GET', timeout_s=5.0, body=None):
    status, _, text = request(method, path, body, timeout_s)
    return status, text


class Daemon:
    """One process. Its standard error goes to the file `stderr`; a FIFO will do."""

    def __init__(self, root, *options, environment=None, stderr=None):
        self.stderr = stderr or pathlib.Path(root, f'stderr_{time.monotonic_ns()}')
        streams = [(os.POSIX_SPAWN_OPEN, 0, '/dev/null', os.O_RDONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 1, '/dev/null', os.O_WRONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 2, self.stderr, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)]
        self.pid = os.posix_spawn(BINARY, [BINARY, *options], {**os.environ, 'TZ': ZONE, 'VELOMOND_ROOT': str(root),
                                                                  **(environment or {})},
                                  file_actions=streams, setsigdef=[signal.SIGPIPE])
        self.status = None  # exit status; negative when a signal ended it

    def text(self):
        return '' if self.stderr.is_fifo() else self.stderr.read_text(errors='replace')

    def wait_for_text(self, text, timeout_s=10.0):
        eventually(lambda: text in self.text() or self.ended(), timeout_s, self.text)
        assert text in self.text(), f'no {text!r} in:\n{self.text()}'

    def wait_until_up(self):
        """Returns once the service answers."""
        self.wait_for_text('VeloMond_RESTful:ntf_init(639)\n')
        return self

    def follow_daemon(self):
        """After -d: from now on this object is the remaining process."""
        assert self.wait() == 0
        told = eventually(lambda: re.search(r'^pid=\[(\d+)\]$', self.text(), re.M))
        self.pid, self.status = int(told[1]), None
        return self

    def ended(self):
        if self.status is None and (waited := os.waitpid(self.pid, os.WNOHANG))[0] != 0:
            self.status = os.waitstatus_to_exitcode(waited[1])
        return self.status is not None

    def wait(self, timeout_s=10.0):
        eventually(self.ended, timeout_s, lambda: f'with threads {self.threads()}:\n{self.text()}')
        return self.status

    def kill(self, number):
        os.kill(self.pid, number)

    def stop(self, number=signal.SIGTERM, timeout_s=10.0):
        """Seconds from the signal to the exit."""
        start = time.monotonic()
        self.kill(number)
        self.wait(timeout_s)
        return time.monotonic() - start

    def proc(self, path):
        return pathlib.Path('/proc', str(self.pid), path)

    def threads(self):
        """{thread id: name}"""
        return {int(task.name): name.strip() for task in self.proc('task').iterdir()
                if (name := unless_gone(lambda task=task: (task / 'comm').read_text()))}

    def descriptors(self):
        return sorted(target for one in self.proc('fd').iterdir()
                      if (target := unless_gone(lambda one=one: os.readlink(one))))

    def listeners(self):
        """Addresses that the process listens on, as /proc/net/tcp writes them."""
        inodes = {match[1] for one in self.descriptors() if (match := re.match(r'socket:\[(\d+)\]', one))}
        rows = [line.split() for table in ('tcp', 'tcp6', 'udp', 'udp6')
                for line in self.proc('net/' + table).read_text().splitlines()[1:]]
        return [row[1] for row in rows if row[9] in inodes and row[3] in ('0A', '07')]


class TDaemonTest(unittest.TestCase):
    """A fresh host root for each test; no process outlives its test, passed or failed."""

    def setUp(self):
        self.root = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix='velomond_e2e_')))
        subprocess.run([pathlib.Path(__file__).resolve().parents[2] / 'tools/make_root.sh', self.root], check=True)
        self.addCleanup(self.end_all)

    @staticmethod
    def end_all():
        while left := children():
            for pid in left:
                os.kill(pid, signal.SIGKILL)
                os.waitpid(pid, 0)

    def start(self, *options):
        return Daemon(self.root, *options)

    def start_up(self):
        return self.start().wait_until_up()

    def assert_stops(self, daemon, number=signal.SIGTERM):
        """Promptly, cleanly, and with no process left behind."""
        self.assertLess(daemon.stop(number), 2.0)
        self.assertEqual(daemon.status, 0, daemon.text())
        self.assertEqual(children(), [])
