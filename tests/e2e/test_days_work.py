"""What takes minutes and hours, with a clock that runs faster."""

import calendar
import os
import subprocess
import unittest

from appliance import TApplianceTest, TMachine
from harness import Daemon, eventually

SPEED = 60
START = calendar.timegm((2026, 3, 31, 23, 57, 0))
FULL, RAID = 'C002', 'C001'  # categories of the notification centre
APP, VERSION = '''"'Ostra Surveillance'"''', '''"'5.2.0.3071'"'''


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs mounts of its own')
@unittest.skipUnless(os.environ.get('VELOMOND_FAST_CLOCK'), 'the thread sanitizer has the clock functions to itself')
class DaysWork(TApplianceTest):
    def setUp(self):
        super().setUp()
        machine = TMachine(self.root)
        machine.smart(False, 30000)
        machine.fan('1')
        self.tell_state('recording.json', {'is_recording': False})
        machine.write('tarn/etc/config/nvr.conf', '[hdd_health]\npower_on_hour_threshold = 20000\nsch_type = daily\n'
                      'sch_weekday = 0\nsch_hour = 0\n')
        machine.write('var/lib/velomond_tools/cfg_bak_tool.exit', '1\n')
        machine.write('tarn/etc/volume.conf', (self.root / 'tarn/etc/volume.conf').read_text()
                      .replace('volName = System', 'volName = a b"$(x)'))
        self.volume = self.root / 'share/System'
        self.fill_volume('64M')

    def fill_volume(self, size):
        """The system volume becomes that small, its database 10 MB of it."""
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=' + size, 'tmpfs', self.volume], check=True)
        self.addCleanup(subprocess.run, ['umount', '-l', self.volume], check=True)
        (self.volume / 'database').mkdir()
        (self.volume / 'database/one').write_bytes(bytes(10 << 20))

    def notified(self, category):
        return [texts for one in self.journal('/vbus/nc_notify', 'POST')
                if (texts := one['body']['texts'])[2] == category]

    def events(self, code):
        return [args[5:] for args in self.tools('ostra_log_tool') if args[:5] == ['2', code, '-1', '', '']]

    def test_night_of_a_sick_appliance(self):
        daemon = Daemon(self.root, environment={
            'LD_PRELOAD': os.environ['VELOMOND_FAST_CLOCK'], 'FAST_CLOCK_SPEED': str(SPEED), 'FAST_CLOCK_START': str(START),
            'TZ': 'UTC', 'ASAN_OPTIONS': 'verify_asan_link_order=0'}).wait_until_up()

        for name in ('fan', 'camera_recording'):
            self.assertIn('error', self.wait_for_request('/logs/dashboard/status/receiver/' + name)[0]['body'].values())
        # Full since the start, told after 180 s, at once and then every minute; disabled once.
        free = eventually(lambda: self.events('0x25020001'), timeout_s=30)[0]
        self.assertEqual(free, ['Ostra Surveillance', '1', 'a b"$(x)', '54.0 MB'])
        self.assertEqual(eventually(lambda: self.notified(FULL))[0],
                         ["'$LOG_LEVEL_ERROR'", "'$LOG_TYPE_LOG_NOTIFY'", 'C002', '002007', APP, VERSION, '---',
                          """'a b"$(x)'""", "'54'", "'$DEF_V001'", "'1'", "'$DEF_V002'", None, None])
        # Midnight comes as the grace ends: disks are announced, and the database is too large.
        self.assertEqual(eventually(lambda: self.events('0x28030001')), [['Example Disk (/dev/sda)', '20000', '30000']])
        self.assertEqual(self.events('0x28020001'), [['Example Disk (/dev/sda)']])
        self.assertEqual(eventually(lambda: self.events('0x25030003')),
                         [['Ostra Surveillance', 'DataVol1', '0.052734 GB']])
        eventually(lambda: self.journal('/vbus/ostrapro_disable'), timeout_s=30)

        # 00:25
        self.assertEqual(eventually(lambda: self.notified(RAID), timeout_s=60),
                         [["'$LOG_LEVEL_WARN'", "'$LOG_TYPE_LOG_NOTIFY'", 'C001', '001030', APP] + [None] * 9])
        # 00:45
        runs = eventually(lambda: (found := self.tools('cfg_bak_tool'))[1:] and found, timeout_s=60)
        self.assertEqual(sorted(runs), [['backup'], ['backup', '-c']])
        backup = ['2', '0x4004000a', '-1', 'System', '127.0.0.1', 'OstraSurveillanceSys/AutoDailyConfigBack']
        eventually(lambda: backup in self.tools('ostra_log_tool'))
        self.assert_stops(daemon)

        minutes = len(self.events('0x25020001'))
        self.assertIn(minutes, range(38, 50))  # 00:00 to 00:45, less what a busy machine misses
        self.assertEqual(len(self.journal('/vbus/ostrapro_disable')), 1)
        self.assertEqual(len(self.notified(RAID)), 1)
        self.assertEqual(len(self.tools('cfg_bak_tool')), 2)
        self.assertEqual(self.tools('ostra_log_tool').count(backup), 1)
        self.assertEqual(self.log('timechg'), '')
        self.assertEqual(len(self.journal('/vbus/reverse_proxy')), 1)
        self.assertIn(len(self.journal('/cfg/ReverseProxy', 'GET')), (9, 10, 11))


if __name__ == '__main__':
    unittest.main()
