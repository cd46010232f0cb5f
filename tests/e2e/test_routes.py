"""Every route's answer, the dumps and the logs, on a machine with known figures."""

import os
import pathlib
import re
import signal
import time
import unittest

from appliance import DISK, RECORDING, TApplianceTest, TMachine, ask
from harness import eventually, get

SPEED = 4 if os.environ.get('VELOMOND_FAST_CLOCK') else 1
ROUND_S = 10 / SPEED


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs network interfaces of its own')
class Routes(TApplianceTest):
    def test_answers_and_dumps_the_figures_of_two_rounds(self):
        machine = TMachine(self.root)
        machine.counters(1)
        begin = time.monotonic()
        daemon = self.start_at(int(time.time()), SPEED)

        # Before the first round.
        for path in (RECORDING, '/recStreamService/ChannelConnStat', DISK):
            self.wait_for_request(path)
        self.assertEqual(self.tools('vcmd'), [['get_rec_disk_list']])
        self.assertEqual(self.tools('smartctl'), [['--json', '-n', 'never', '-H', '-iA', '/dev/sda']])
        self.assertEqual((self.root / 'tmp/hdd_power_on_hour').read_text(),
                         'disk_01 - [Example Disk (/dev/sda)] power on hour [    1234]\n')
        status = ask('status')
        cores = ['system_all', *(f'cpu{core}' for core in range(os.cpu_count()))]
        self.assertEqual(status['cpu_info'], {'core_no': os.cpu_count(), 'core_list': sorted(cores)})
        self.assertEqual((status['disk_info'], status['network_info']), (['/dev/mapper/cachedev1'], ['eth0', 'nic0']))
        self.assertEqual(get('health')[1], 'health')

        # Rounds start every 10 s from the start. The machine's counters change in between.
        time.sleep(begin + 1.5 * ROUND_S - time.monotonic())
        machine.counters(2)
        eventually(lambda: ask('cpu_info?method=cur_data&name=system_all')['data']['idle_pcnt'] not in ('-nan', 'nan'))
        load = {'user_pcnt': '15.0', 'sys_pcnt': '5.0', 'iowait_pcnt': '0.0', 'steal_pcnt': '0.0', 'idle_pcnt': '80.0'}
        for path in ('cpu_info?method=cur_data&name=system_all', 'cpu_info?method=avg&type=0&name=cpu0'):
            self.assertEqual(ask(path), {'return': 0, 'data': load}, path)

        # All figures, on a hang-up. The page count of the only running service is 500.
        daemon.kill(signal.SIGHUP)
        eventually(lambda: daemon.text().count('    data_cnt= 1\n') == 21)
        told = re.sub(r'((?:inv|tp)_ms *= ?)[1-9]\d*', r'\1TIME', daemon.text()).partition('main:proc_test(126)\n')[2]
        figures = pathlib.Path(__file__).with_name('figures_on_hangup.txt').read_text()
        self.assertTrue(told.startswith(figures.replace('$rss', str(500 * os.sysconf('SC_PAGE_SIZE') // 1024))), told)
        self.assertEqual(re.findall('    name    = (.*)', told), status['daemon_list'])

        self.assertEqual(get('statistics_dump')[1], '{ "return": 0 }')
        self.assertEqual({path.name for path in (self.root / 'Vtmp/.sys_stats/log_0').iterdir()},
                         {'cpu_stats.csv', 'net_stats.csv', 'mem_stats.csv', 'disk_stats.csv'})
        self.assert_stops(daemon)
        self.assertEqual({path.name for path in (self.root / 'Vdbglog/.velolog').iterdir()},
                         {f'.velomond_{one}.log' for one in ('cpu', 'smart', 'reverse_proxy')})
