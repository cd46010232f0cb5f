"""Start, signals and stop of the daemon, observed from outside."""

import json
import os
import pathlib
import re
import signal
import socket
import stat
import statistics
import subprocess
import time
import unittest

from appliance import RECORDING, TApplianceTest, TMachine
from harness import BINARY, Daemon, TDaemonTest, eventually, get

USAGE = ('VeloMond \nusage : VeloMond [OPTION]... \n\nOPTION: \n'
         '  -d                run as daemon.\n  -h                show this info.\n')
TEXTS = pathlib.Path(__file__).with_name('start_and_stop.txt')
WORKERS = ['DISK-worker', 'SVRNAME-worker', 'VOL-worker', 'SMART-worker', 'SYS_HEALTH-work', 'RECSTAT-worker',
           'CAMCONN-worker', 'DB-worker', 'PROXY-worker', 'MAIN-worker']  # as truncated by the kernel, in order


class Options(TDaemonTest):
    def test_help_and_unknown_options_print_the_usage_alone(self):
        for option, before in {'-h': '', '-x': 'Illegal option:-x\n', '-\x01': 'Illegal option:-#\n',
                               '-dh': ''}.items():
            daemon = self.start(option)
            self.assertEqual(daemon.wait(), 0, option)
            self.assertEqual(daemon.text(), 'main:main(277)\n' + before + USAGE)


class OnAnAppliance(TApplianceTest):
    def test_start_and_stop_log_their_steps_in_order_and_no_more(self):
        TMachine(self.root)
        daemon = self.start('skipped', '--', '-x').wait_until_up()
        processes = json.loads(get('status')[1])['daemon_list']
        eventually(lambda: set(WORKERS) <= set(daemon.threads().values()))
        self.assertEqual([name for name in daemon.threads().values() if name in WORKERS], WORKERS)
        self.assertEqual(daemon.listeners(), ['0100007F:27CF'])  # 127.0.0.1:10191
        self.assertEqual(list(daemon.threads().values()).count('MHD-worker'), 2)
        self.wait_for_request(RECORDING)
        self.assert_stops(daemon)
        told = re.sub(r'\[[A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4}\]', '[TIME]',
                      daemon.text()).splitlines()
        told.remove('sysstat_vol.cpp:vol_monitor_main(893)')  # at any time
        cores = [f'cpu{core}' for core in range(os.cpu_count())]
        expected = TEXTS.read_text().replace('$core_count', str(len(cores)))
        for key, names in {'cpu': [*processes, *cores, 'system_all'], 'memory': [*processes, 'system_all'],
                           'net': [name for _, name in socket.if_nameindex() if name != 'lo']}.items():
            line = f'~TStatManagerBase, delete=[${key}]\n'  # stands once, for all of them
            expected = expected.replace(line, ''.join(line.replace('$' + key, one) for one in sorted(names)))
        self.assertEqual(told, expected.splitlines())
        self.assertFalse((self.root / 'var/lock/VeloMond').exists())

    def files(self):
        return {path: stat.S_IMODE(path.lstat().st_mode) for folder in ('Vtmp', 'Vdbglog', 'tmp', 'var')
                for path in (self.root / folder).rglob('*')}

    def test_a_daemon_without_umask_writes_what_only_its_owner_may_change(self):
        TMachine(self.root)
        before = self.files()
        daemon = Daemon(self.root, '-d').follow_daemon().wait_until_up()
        wanted = {'cpu_stats.csv', '.velomond_cpu.log', 'hdd_power_on_hour', 'velomond_tools.jsonl'}
        get('statistics_dump')
        get('cpu_info?method=x&name=system_all')
        written = eventually(lambda: wanted <= {one.name for one in self.files()} and self.files())
        modes = {one.name: oct(mode) for one, mode in written.items() if one not in before and not one.is_dir()}
        self.assertEqual(modes.pop('VeloMond'), '0o640')
        self.assertEqual(set(modes.values()), {'0o644'}, modes)
        self.assertEqual([stat.S_IMODE(pathlib.Path('/dev/shm', one).stat().st_mode)
                          for one in ('velomond', 'velomond.lock')], [0o644, 0o600])
        self.assert_stops(daemon)


class Foreground(TDaemonTest):
    def test_threads_take_no_signals_and_have_no_stack_large_enough_for_a_huge_page(self):
        daemon = self.start_up()
        eventually(lambda: set(WORKERS) <= set(daemon.threads().values()))
        ours = sum(1 << (one - 1) for one in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP))

        def blocked(thread):
            return int(re.search(r'SigBlk:\t(\w+)', daemon.proc(f'task/{thread}/status').read_text())[1], 16) & ours

        eventually(lambda: blocked(daemon.pid) == 0)  # blocked until the start is over
        self.assertRegex(daemon.proc('status').read_text(), r'SigIgn:\t\w+01000\n')  # SIGPIPE
        for thread, name in daemon.threads().items():
            self.assertEqual(blocked(thread), 0 if thread == daemon.pid else ours, name)
        sizes, guard_end = [], None
        for line in daemon.proc('maps').read_text().splitlines():
            begin, end = (int(one, 16) for one in line.split()[0].split('-'))
            if begin == guard_end and ' rw-p 00000000 00:00 0' in line:
                sizes.append(end - begin)
            guard_end = end if ' ---p ' in line and end - begin == os.sysconf('SC_PAGESIZE') else None
        self.assertGreaterEqual(len(sizes), len(daemon.threads()) - 1)
        self.assertLess(max(sizes), 2 << 20)

    def test_a_stop_during_the_start_is_kept(self):
        daemon = self.start()
        daemon.wait_for_text('main:register_signal_handler(142)\nVeloMond:')
        self.assert_stops(daemon)

    def test_a_thousand_hangups_change_nothing_and_two_interrupts_are_one_stop(self):
        daemon = self.start_up()
        for _ in range(1000):
            daemon.kill(signal.SIGHUP)
        self.assertEqual(get('status')[0], 200)
        eventually(lambda: 'main:proc_test(126)\n' in daemon.text())  # the last step of a start blocks signals
        daemon.kill(signal.SIGINT)
        self.assert_stops(daemon, signal.SIGINT)
        self.assertEqual(daemon.text().count('VeloMond:VeloMond_stop(375)'), 1)

    def test_closed_standard_streams_lead_nowhere(self):
        pid = os.posix_spawn(BINARY, [BINARY], {**os.environ, 'VELOMOND_ROOT': str(self.root)},
                             file_actions=[(os.POSIX_SPAWN_CLOSE, fd) for fd in range(3)])
        folder = pathlib.Path('/proc', str(pid), 'fd')
        eventually(lambda: len(list(folder.iterdir())) > 3)
        self.assertEqual([os.readlink(folder / str(fd)) for fd in range(3)], ['/dev/null'] * 3)

    @unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs shared memory of its own')
    def test_full_shared_memory_is_logged_and_survived(self):
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=4k', 'tmpfs', '/dev/shm'], check=True)
        self.addCleanup(subprocess.run, ['umount', '-l', '/dev/shm'], check=True)
        pathlib.Path('/dev/shm/full').write_bytes(bytes(4096))
        daemon = self.start_up()
        self.assertEqual(get('disk_info?method=notify&vol_name=x'), (200, '{ "return": 0 }'))
        self.assertIn('shared memory /velomond cannot be written: No space left on device\n', daemon.text())
        self.assert_stops(daemon)

    def test_requests_leave_no_thread_or_descriptor(self):
        daemon = self.start_up()
        eventually(lambda: {*WORKERS, 'SSCI-notify', 'SSCI-register', 'SSCI-reaper', 'SSCI-waiting'} <=
                   set(daemon.threads().values()) and daemon.descriptors().count('anon_inode:inotify') == 2)

        def held():
            return len(daemon.descriptors()), len(daemon.threads())
        # Workers may have a call of their own in progress.
        before = statistics.mode(held() for _ in range(20) if time.sleep(0.05) is None)
        for path in ['status', 'cpu_info?method=avg&type=0&name=system_all', 'nowhere', 'statistics_dump'] * 50:
            get(path)
        eventually(lambda: all(now <= then for now, then in zip(held(), before)))


class Daemonised(TDaemonTest):
    def test_leaves_the_terminal_and_locks_out_a_second_one(self):
        lock = self.root / 'var/lock/VeloMond'
        lock.parent.mkdir(parents=True, exist_ok=True)
        lock.symlink_to(self.root / 'elsewhere')  # not followed
        self.assertEqual(self.start('-d').wait(), 0)
        self.assertEqual(eventually(self.reap), 1)
        self.assertFalse((self.root / 'elsewhere').exists())
        lock.unlink()

        first = self.start('-d').follow_daemon().wait_until_up()
        self.assertEqual(os.getsid(first.pid), first.pid)
        self.assertEqual(os.readlink(first.proc('cwd')), '/')
        self.assertRegex(first.proc('status').read_text(), r'Umask:\t0000')
        self.assertEqual((stat.S_IMODE(lock.stat().st_mode), lock.stat().st_size), (0o640, 0))

        second = self.start('-d')
        self.assertEqual(second.wait(), 0)
        self.assertEqual(eventually(self.reap), 1)
        self.assertRegex(second.text(), r'\Amain:main\(277\)\n==== execute VeloMond ==== \nis_daemon     : \[true\]\n'
                         r'execute_time  : \[.*\]\ndaemonize\(\)\n\Z')
        self.assertEqual(lock.stat().st_size, 0)

        self.assert_stops(first)
        self.assert_stops(self.start('-d').follow_daemon().wait_until_up())

    @staticmethod
    def reap():
        """The exit status of an orphaned process, if one has ended."""
        pid, status = os.waitpid(-1, os.WNOHANG)
        return os.waitstatus_to_exitcode(status) if pid != 0 else None
