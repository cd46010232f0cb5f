"""Clients: very many requests, very slow ones, more than there are descriptors."""

import resource
import select
import socket
import time

from harness import HOST, PORT, Daemon, eventually, get
from stage import TClients, TStage, is_whole, report, seconds, served

CONNECTIONS = 128  # the service's limit
UNCROWDED = 64     # well below the number from which it cuts off sooner
PHASE_S = 10       # to receive a complete request


class Load(TStage):
    REQUESTS, LENGTH_S = 10_000, 45

    def soak(self):
        daemon = self.start_up()
        start, dumps = time.monotonic(), 0
        with TClients(8, self.REQUESTS) as clients:
            while time.monotonic() < start + self.LENGTH_S or not clients.whole.is_set():
                dumps += get('statistics_dump')[1] == '{ "return": 0 }'
                time.sleep(1)
        rate = clients.done / (time.monotonic() - start)
        self.assertEqual(get('statistics_dump')[0], 200)
        torn = [str(one) for one in self.csv_files() if not is_whole(one.read_text())]
        rounds = self.rounds()
        gaps = [(b - a) / 1000 for a, b in zip(rounds, rounds[1:])]
        report.row('requests, 12 routes, 8 connections', clients.done, '>= 10000', clients.done >= self.REQUESTS)
        report.row('failed', len(clients.failures), '0', not clients.failures)
        report.row('requests/s', f'{rate:.0f}')
        report.row('slowest answer', seconds(clients.slowest_s), '< 1 s', clients.slowest_s < 1)
        report.row('dumps in parallel, one a second', dumps)
        report.row('sampling period', f'{min(gaps):.2f} to {max(gaps):.2f} s', '10 +- 1 s',
                   len(gaps) >= 2 and all(abs(one - 10) <= 1 for one in gaps))
        report.row('CSV files incomplete', f'{len(torn)} of {len(self.csv_files())}', '0', not torn)
        for one in sorted(set(clients.failures))[:5]:
            report.row('  failure', one)
        self.check_stop(daemon)


def open_sockets(count):
    return [socket.create_connection((HOST, PORT), timeout=5) for _ in range(count)]


class SlowClients(TStage):
    def soak(self):
        daemon = self.start_up()
        report.row('connections, a byte a second each', UNCROWDED)
        start = time.monotonic()
        attackers = {one.fileno(): one for one in open_sockets(UNCROWDED)}
        lasted, normal = [], socket.create_connection((HOST, PORT))
        normal.sendall(b'GET /sysmonService/status HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n')
        normal_s = None
        head, sent = b'GET /sysmonService/status HTTP/1.1\r\nHost: localhost\r\nX-Filler: ' + b'x' * 99, 0
        while attackers and time.monotonic() < start + 2.5 * PHASE_S:
            for one in attackers.values():
                try:
                    one.send(head[sent:sent + 1])
                except OSError:
                    pass  # the select below sees its end
            sent += 1
            while (left_s := start + sent - time.monotonic()) > 0:
                waiting = [*attackers, *([normal.fileno()] if normal_s is None else [])]
                for number in select.select(waiting, [], [], left_s)[0]:
                    now_s = time.monotonic() - start
                    if number == normal.fileno():
                        normal_s = now_s if normal.recv(12) == b'HTTP/1.1 200' else float('inf')
                    else:
                        lasted.append(now_s)
                        attackers.pop(number).close()
        report.row('not cut off', len(attackers), '0', not attackers)
        if lasted:
            report.row('cut off after', f'{min(lasted):.1f} to {max(lasted):.1f} s', '9 to 12 s',
                       min(lasted) >= PHASE_S - 1 and max(lasted) <= PHASE_S + 2)
        report.row('normal client beside them served after', seconds(normal_s), '<= 1 s',
                   normal_s is not None and normal_s <= 1)
        normal.close()
        for times in (1, 5, 10):
            self.idle(times * CONNECTIONS)
        self.check_stop(daemon)

    @staticmethod
    def idle(count):
        """A normal client behind that many silent ones, and one after they have left."""
        limits = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, limits[1]), limits[1]))
        idle = open_sockets(count)
        before_s = served(120)
        report.row(f'{count} idle: normal client served after', seconds(before_s), '<= 12 s',
                   before_s is not None and before_s <= 12)
        for one in idle:
            one.close()
        idle = open_sockets(count)
        time.sleep(2)
        for one in idle:
            one.close()
        after_s = served(5)
        report.row('  served after they have left', seconds(after_s), '<= 1 s', after_s is not None and after_s <= 1)
        resource.setrlimit(resource.RLIMIT_NOFILE, limits)


class Descriptors(TStage):
    LIMIT, CLIENTS = 40, 100

    def soak(self):
        own = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (self.LIMIT, own[1]))
        try:
            daemon = Daemon(self.root)
        finally:
            resource.setrlimit(resource.RLIMIT_NOFILE, own)
        daemon.wait_until_up()
        most, until, began_s = 0, time.monotonic() + 35, self.processor_s(daemon)
        while time.monotonic() < until:
            clients = open_sockets(self.CLIENTS)  # silent, until they are cut off
            for _ in range(50):
                most = max(most, len(daemon.descriptors()))
                time.sleep(0.1)
            for one in clients:
                one.close()
        report.row(f'limit {self.LIMIT}, {self.CLIENTS} clients: in use', most)
        report.row('processor time', f'{self.processor_s(daemon) - began_s:.2f} s of 35 s')
        self.answers_again('served after they are gone')
        get('statistics_dump')
        rounds = self.rounds()
        gaps = [(b - a) / 1000 for a, b in zip(rounds, rounds[1:])]
        report.row('sampling period', f'{min(gaps):.2f} to {max(gaps):.2f} s', '10 +- 1 s',
                   len(gaps) >= 1 and all(abs(one - 10) <= 1 for one in gaps))

        # No descriptors left: every open, accept and pipe fails.
        limits = resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, (3, limits[1]))
        began_s = self.processor_s(daemon)
        clients = open_sockets(self.CLIENTS)
        time.sleep(15)
        spent_s = self.processor_s(daemon) - began_s
        report.row('no descriptors left: processor time', f'{spent_s:.2f} s of 15 s', '< 1 s', spent_s < 1)
        for one in clients:
            one.close()
        resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, limits)
        resumed_ms = time.time() * 1000
        self.answers_again('served after there are some again')

        def samples_again():
            get('statistics_dump')
            return self.rounds() and self.rounds()[-1] > resumed_ms
        eventually(samples_again, 30)
        report.row('samples again after', f'{self.rounds()[-1] / 1000 - resumed_ms / 1000:.1f} s', '<= 21 s',
                   self.rounds()[-1] - resumed_ms <= 21_000)
        report.row('rounds in the history', f'{len(self.rounds())}, {len(rounds)} before')
        self.check_stop(daemon)

    @staticmethod
    def processor_s(daemon):
        times = daemon.proc('stat').read_text().rsplit(')', 1)[1].split()
        return (int(times[11]) + int(times[12])) / 100

    @staticmethod
    def answers_again(what):
        after_s = served(15)
        report.row(what, seconds(after_s), '<= 1 s', after_s is not None and after_s <= 1)
