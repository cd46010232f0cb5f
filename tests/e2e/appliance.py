"""The daemon on a complete appliance: with simulated services, stand-ins for the
tools and, if a test uses it, a machine with all figures set by the test."""

import json
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time

import harness
from harness import Daemon, TDaemonTest, eventually, get

TOP = pathlib.Path(__file__).resolve().parents[2]
SIMULATOR = TOP / 'tools/appliance_sim'
HUB = '/nameserver/services/sysmonService'
SUBSCRIPTION = '/notify/subscriptions/sysmonService'
DISK, FAN, RECORDING = ('/logs/dashboard/status/receiver/' + one for one in ('disk', 'fan', 'camera_recording'))


def ask(path):
    """The answer of a route that answers with JSON."""
    status, body = get(path)
    assert status == 200, (path, status, body)
    return json.loads(body)


def replace(path, text):
    """Writes a file in one step; a reader sees all of it or the file before."""
    path.parent.mkdir(parents=True, exist_ok=True)
    new = path.with_name('.new')
    new.write_text(text)
    new.rename(path)


class TMachine:
    """The /proc, /sys and /dev of a root: a small machine with one core, one
    network interface, one cache device, one disk and one fan."""

    def __init__(self, root):
        self.root = root
        for name in ('proc', 'sys', 'dev'):
            (root / name).unlink()
        self.write('proc/meminfo', 'MemTotal: 4096000 kB\nMemFree: 1024000 kB\nBuffers: 102400 kB\nCached: 819200 kB\n'
                   'SReclaimable: 20480 kB\nShmem: 10240 kB\nSwapTotal: 2048000 kB\nSwapFree: 1536000 kB\n')
        disk = 'devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0'
        self.write(f'sys/{disk}/block/sda/size', '8000000\n')
        self.write(f'sys/{disk}/model', 'Example Disk\n')
        self.write(f'sys/{disk}/state', 'running\n')
        (root / f'sys/{disk}/block/sda/device').symlink_to('../..')
        (root / 'sys/block').mkdir()
        (root / 'sys/block/sda').symlink_to(f'../{disk}/block/sda')
        self.write('sys/class/hwmon/hwmon0/name', 'board\n')
        self.write('sys/class/hwmon/hwmon0/fan1_input', '900\n')
        (root / 'dev/mapper').mkdir(parents=True)
        (root / 'dev/mapper/cachedev1').symlink_to('/dev/null')  # has the number 1 3 on every machine
        tool = root / 'usr/sbin/smartctl'
        tool.unlink(missing_ok=True)
        shutil.copy(TOP / 'packaging/standins/appliance_tool', tool)
        self.smart(True, 1234)
        self.fan('0')
        self.counters(0)

    def write(self, path, text):
        replace(self.root / path, text)

    def counters(self, steps):
        """Each step takes 10 s of the machine: one core busy for 1.5 s of them in
        user mode and 0.5 s in the system, the first service of the table for 1 s and
        2 s, its children with 7 minor and 6 major faults; 1000 bytes sent, 3000
        received; 4 reads of 2 KB in 8 ms, 2 writes of 3 KB."""
        cpu = f'{150 * steps} 0 {50 * steps} {800 * steps} 0 0 0 0 0 0'
        self.write('proc/stat', f'cpu  {cpu}\ncpu0 {cpu}\nintr 0\n')
        self.write('proc/100/comm', 'Vnvrd\n')
        self.write('proc/100/stat', f'100 (Vnvrd) S 1 1 1 0 -1 0 0 {7 * steps} 0 {6 * steps} {100 * steps + 1} '
                   f'{200 * steps + 1} 0 0 20 0 4 0 50 8192000 500 18446744073709551615 ' + ' '.join(['0'] * 27) + '\n')
        self.write('proc/100/statm', '2000 500 100 10 0 300 0\n')
        self.write('proc/net/dev', 'Inter-|   Receive  |  Transmit\n face |bytes packets\n'
                   f'  nic0: {3000 * steps} 1 0 0 0 0 0 0 {1000 * steps} 1 0 0 0 0 0 0\n'
                   f'  eth0: {9000 * steps} 1 0 0 0 0 0 0 {7000 * steps} 1 0 0 0 0 0 0\n')
        self.write('proc/vmstat', f'pgfault {100 * steps}\npgmajfault {5 * steps}\n')
        self.write('proc/diskstats', f'   1       3 cachedev1 {4 * steps} 0 {16 * steps} {8 * steps} {2 * steps} 0 '
                   f'{12 * steps} {6 * steps} 0 {14 * steps} {14 * steps}\n')

    def fan(self, fault):
        self.write('sys/class/hwmon/hwmon0/fan1_fault', fault + '\n')

    def smart(self, passed, hours):
        self.write('var/lib/velomond_tools/smartctl.out', json.dumps(
            {'device': {'protocol': 'ATA'}, 'smart_status': {'passed': passed}, 'power_on_time': {'hours': hours}}))
        self.write('var/lib/velomond_tools/smartctl.exit', '0\n' if passed else '8\n')


class TApplianceTest(TDaemonTest):
    def setUp(self):
        super().setUp()
        self.state = self.root / 'state'
        shutil.copytree(SIMULATOR / 'state', self.state)
        self.simulator = subprocess.Popen([sys.executable, '-B', SIMULATOR / 'appliance_sim.py', '--quiet', '--state',
                                           self.state, '--journal', self.root / 'journal'])
        harness.KEPT.add(self.simulator.pid)
        self.addCleanup(self.end_simulator)
        eventually(self.simulator_is_up)

    def start_at(self, wall_s, speed):
        """A daemon whose clocks run that much faster, the one on the wall from that time on. Where the thread sanitizer
        has the clock functions to itself they are the machine's."""
        self.ahead_ns = [0]
        (self.root / 'ahead').write_bytes(bytes(8))
        self.wall_s = lambda begin=time.monotonic(): wall_s + (time.monotonic() - begin) * speed
        return Daemon(self.root, environment={
            'LD_PRELOAD': os.environ.get('VELOMOND_FAST_CLOCK', ''), 'FAST_CLOCK_SPEED': str(speed),
            'FAST_CLOCK_START': str(wall_s), 'FAST_CLOCK_AHEAD': str(self.root / 'ahead'),
            'ASAN_OPTIONS': 'verify_asan_link_order=0'}).wait_until_up()

    def set_clock(self, wall_s):
        self.ahead_ns.append(int((wall_s - self.wall_s()) * 1e9))
        with open(self.root / 'ahead', 'r+b') as file:
            file.write(struct.pack('q', self.ahead_ns[-1]))

    def end_simulator(self):
        self.simulator.send_signal(signal.SIGTERM)
        self.assertEqual(self.simulator.wait(timeout=5), 0)
        harness.KEPT.discard(self.simulator.pid)

    def simulator_is_up(self):
        self.assertIsNone(self.simulator.poll())
        with socket.socket() as probe:
            return probe.connect_ex(('127.0.0.1', 10141)) == 0

    def tell_state(self, name, value):
        replace(self.state / name, json.dumps(value))

    def journal(self, path, method=None):
        """The simulator's requests under a path, oldest first."""
        entries = map(json.loads, (self.root / 'journal').read_text().split('\n')[:-1])  # the last may be incomplete
        return [one for one in entries if one['path'] == path and method in (None, one['method'])]

    def wait_for_request(self, path, method=None, count=1, timeout_s=15.0):
        return eventually(lambda: (found := self.journal(path, method))[count - 1:] and found, timeout_s)

    def tools(self, name):
        """The arguments of each run of a stand-in."""
        path = self.root / 'var/log/velomond_tools.jsonl'
        lines = map(json.loads, path.read_text().splitlines()) if path.exists() else []
        return [one['args'] for one in lines if one['tool'] == name]

    def log(self, name):
        path = self.root / f'Vdbglog/.velolog/.velomond_{name}.log'
        return path.read_text() if path.exists() else ''
