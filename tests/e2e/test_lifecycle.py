"""Start, signals and stop of the daemon, seen from outside."""

import json
import os
import signal
import socket
import stat
import statistics
import time
import unittest

from appliance import TApplianceTest, TMachine
from harness import HOST, PORT, TDaemonTest, eventually, get

USAGE = ('VeloMond \nusage : VeloMond [OPTION]... \n\nOPTION: \n'
         '  -d                run as daemon.\n  -h                show this info.\n')
TEMPLATE = 'statManager.h:TStatManagerBase(57)'
START = ['main:main(277)', '==== execute VeloMond ==== ', 'is_daemon     : [false]', 'execute_time  : [',
         'main:register_signal_handler(142)', 'VeloMond:VeloMond_start(364)',
         'sysstat_cpu.cpp:sysstat_cpu_init(792)', TEMPLATE, 'sysstat_cpu.h:TCpustatManager(227)',
         f'sysstat_cpu.cpp:init_map(46)smp_num_cpus=[{os.cpu_count()}]',
         'sysstat_net.cpp:sysstat_net_init(405)', TEMPLATE, 'sysstat_net.h:TNetstatManager(90)',
         'sysstat_net.cpp:init_map(29)',
         'sysstat_disk.cpp:sysstat_disk_init(745)', TEMPLATE, 'sysstat_disk.h:TDiskstatManager(176)',
         'sysstat_disk.cpp:init_map(53)',
         'sysstat_memory.cpp:sysstat_memory_init(1096)', TEMPLATE, 'sysstat_memory.h:TMemorystatManager(244)',
         'sysstat_memory.cpp:init_map(72)',
         'sysstat_syshealth.cpp:sysstat_syshealth_init(190)', TEMPLATE, 'sysstat_camconn.h:TCamConnStatManager(86)',
         'reverse_proxy.cpp:reverse_proxy_init(222)', 'VeloMond_RESTful:ntf_init(639)']


def ended(body):
    return [f' {body} was terminated.', 'end wait_for_terminate...']


def deleted(keys):
    return ['statManager.h:~TStatManagerBase(64)'] + [f'~TStatManagerBase, delete=[{key}]' for key in sorted(keys)]


def stop_lines(interfaces, disks, processes):
    """Everything that a stop tells, line by line."""
    cores = [f'cpu{core}' for core in range(os.cpu_count())]
    return ['main:proc_int(108)', 'VeloMond:VeloMond_stop(375)', 'VeloMond_RESTful:ntf_uninit(646)',
            *ended('VeloMond_monitor_main'),
            'sysstat_cpu.cpp:sysstat_cpu_uninit(802)', 'sysstat_cpu.h:~TCpustatManager(232)',
            *deleted([*processes, *cores, 'system_all']),
            'sysstat_net.cpp:sysstat_net_uninit(412)', 'sysstat_net.h:~TNetstatManager(95)', *deleted(interfaces),
            *ended('disk_monitor_main'),
            'sysstat_disk.cpp:sysstat_disk_uninit(756)', 'sysstat_disk.h:~TDiskstatManager(181)', *deleted(disks),
            'sysstat_memory.cpp:sysstat_memory_uninit(1107)', 'sysstat_memory.h:~TMemorystatManager(249)',
            *deleted([*processes, 'system_all']),
            *ended('servername_monitor_main'), *ended('vol_monitor_main'), *ended('smart_monitor_main'),
            'sysstat_syshealth.cpp:sysstat_syshealth_uninit(198)', *ended('syshealth_monitor_main'),
            *ended('Recording_state_monitor_main'), *ended('camconn_monitor_main'),
            'sysstat_camconn.h:~TCamConnStatManager(93)', *deleted(['MINUTE']), *ended('do_data_processing'),
            'reverse_proxy.cpp:reverse_proxy_uninit(230)', *ended('rule_expired_detect')]


WORKERS = {'MAIN-worker', 'DISK-worker', 'SVRNAME-worker', 'VOL-worker', 'SMART-worker', 'SYS_HEALTH-work',
           'RECSTAT-worker', 'CAMCONN-worker', 'DB-worker', 'PROXY-worker'}  # as the kernel cuts their names
LISTENER = '0100007F:27CF'  # 127.0.0.1:10191


class Options(TDaemonTest):
    def test_help_and_unknown_options_print_the_usage_alone(self):
        for option, before in {'-h': '', '-x': 'Illegal option:-x\n', '-\x01': 'Illegal option:-#\n',
                               '-dh': ''}.items():
            with self.subTest(option):
                daemon = self.start(option)
                self.assertEqual(daemon.wait(), 0)
                self.assertEqual(daemon.text(), 'main:main(277)\n' + before + USAGE)


class Texts(TApplianceTest):
    def test_start_and_stop_tell_their_steps_in_order_and_no_more(self):
        TMachine(self.root)
        daemon = self.start_up()
        processes = json.loads(get('status')[1])['daemon_list']
        interfaces = [name for _, name in socket.if_nameindex() if name.startswith('nic')]
        eventually(lambda: WORKERS <= set(daemon.threads().values()))
        self.wait_for_request('/logs/dashboard/status/receiver/camera_recording')
        self.assert_stops(daemon)
        # This one line comes from a thread, at any time.
        told = [line for line in daemon.text().splitlines() if not line.startswith('sysstat_vol.cpp:vol_monitor_main(')]
        self.assertEqual(len(told) + 1, len(daemon.text().splitlines()))
        self.assertRegex(told[3], r'^execute_time  : \[[A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \d{4}\]$')
        told[3] = START[3]
        asked = ['sysstat_disk.cpp:sysstat_disk_info(546)', 'sysstat_net.cpp:sysstat_net_info(336)']
        self.assertEqual(told, START + asked + stop_lines(interfaces, ['/dev/mapper/cachedev1 1 3'], processes))
        self.assertFalse((self.root / 'var/lock/VeloMond').exists())


class Foreground(TDaemonTest):
    def test_listens_on_the_loopback_address_alone(self):
        daemon = self.start_up()
        self.assertEqual(daemon.listeners(), [LISTENER])
        status, body = get('status')
        self.assertEqual(status, 200)
        self.assertIn('"return": 0', body)

    def test_only_the_main_thread_takes_signals(self):
        daemon = self.start_up()
        ours = sum(1 << (one - 1) for one in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP))

        def blocked(thread):
            lines = daemon.proc(f'task/{thread}/status').read_text().splitlines()
            return int(next(line for line in lines if line.startswith('SigBlk')).split()[1], 16) & ours

        eventually(lambda: blocked(daemon.pid) == 0)  # held back until the start is over
        for thread, name in daemon.threads().items():
            self.assertEqual(blocked(thread), 0 if thread == daemon.pid else ours, name)

    def test_two_interrupts_are_one_stop(self):
        daemon = self.start_up()
        daemon.kill(signal.SIGINT)
        self.assert_stops(daemon, signal.SIGINT)
        self.assertEqual(daemon.text().count('VeloMond:VeloMond_stop(375)'), 1)

    def test_a_stop_during_the_start_is_kept(self):
        daemon = self.start()
        daemon.wait_for_text('main:register_signal_handler(142)\nVeloMond:')
        self.assert_stops(daemon)

    def test_hangups_by_the_thousand_change_nothing(self):
        daemon = self.start_up()
        for _ in range(1000):
            daemon.kill(signal.SIGHUP)
        self.assertEqual(get('status')[0], 200)
        self.assertGreater(daemon.text().count('main:proc_test(126)\n'), 0)
        daemon.kill(signal.SIGHUP)
        self.assert_stops(daemon)

    def test_peers_that_dawdle_do_not_hold_up_the_stop(self):
        daemon = self.start_up()
        with socket.create_connection((HOST, PORT)) as silent, socket.create_connection((HOST, PORT)) as half:
            half.sendall(b'GET /sysmonService/status HTTP/1.1\r\nHost: loc')
            self.assertEqual(get('status')[0], 200)
            self.assert_stops(daemon)
            silent.close()

    def test_goes_on_without_the_service_where_the_port_is_taken(self):
        with socket.socket() as other:
            other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            other.bind((HOST, PORT))
            other.listen()
            daemon = self.start()
            daemon.wait_for_text('failed, ret=[')
            self.assertRegex(daemon.text(), r'ssci_server_(create|start) failed, ret=\[-?[1-9]\d*\]\n exit\.\n')
            eventually(lambda: 'MAIN-worker' in daemon.threads().values())
            self.assertEqual(daemon.listeners(), [])
            self.assert_stops(daemon)
        self.assert_in_order(daemon.text(), [line + '\n' for line in stop_lines([], [], [])
                                               if '.h:' not in line and 'delete=' not in line])

    def test_twenty_starts_and_stops_leave_nothing(self):
        left = set()
        for _ in range(20):
            daemon = self.start_up()
            self.assertEqual(get('status')[0], 200)
            self.assert_stops(daemon)
            daemon.stderr.unlink()
            left.add(tuple(sorted(self.root.rglob('*'))))
            self.assertRaises(ConnectionRefusedError, get, 'status')
        self.assertEqual(len(left), 1, left)

    def test_requests_leave_no_thread_or_descriptor(self):
        daemon = self.start_up()
        eventually(lambda: WORKERS | {'SSCI-notify'} <= set(daemon.threads().values()) and
                   any('inotify' in one for one in daemon.descriptors()))

        def held():
            return len(daemon.descriptors()), len(daemon.threads())
        # Workers now and then have a call of their own under way.
        before = statistics.mode(held() for _ in range(20) if time.sleep(0.05) is None)
        for path in ['status', 'cpu_info?method=avg&type=0&name=system_all', 'nowhere', 'statistics_dump'] * 50:
            get(path)
        eventually(lambda: all(now <= then for now, then in zip(held(), before)))


class Daemonised(TDaemonTest):
    def test_leaves_the_terminal_and_locks_out_a_second_one(self):
        lock = self.root / 'var/lock/VeloMond'
        first = self.start('-d').follow_daemon().wait_until_up()
        self.assertIn('is_daemon     : [true]', first.text())
        self.assertIn('daemonize()\n', first.text())
        self.assertEqual(os.getsid(first.pid), first.pid)
        self.assertEqual(os.readlink(first.proc('cwd')), '/')
        self.assertRegex(first.proc('status').read_text(), r'Umask:\t0000')
        self.assertEqual((stat.S_IMODE(lock.stat().st_mode), lock.stat().st_size), (0o640, 0))

        second = self.start('-d')
        self.assertEqual(second.wait(), 0)
        self.assertEqual(eventually(self.reap), 1)
        self.assertTrue(second.text().endswith('daemonize()\n'), second.text())
        self.assertEqual(lock.stat().st_size, 0)

        self.assert_stops(first)
        self.assert_stops(self.start('-d').follow_daemon().wait_until_up())

    @staticmethod
    def reap():
        """The exit status of a process that was left to us, once there is one."""
        pid, status = os.waitpid(-1, os.WNOHANG)
        return os.waitstatus_to_exitcode(status) if pid != 0 else None


if __name__ == '__main__':
    unittest.main()
