"""Events that take minutes and hours, with a clock that runs faster."""

import calendar
import os
import re
import subprocess
import unittest

from appliance import DISK, FAN, HUB, RECORDING, TApplianceTest, TMachine, ask
from harness import ZONE_S, eventually

MIDNIGHT = calendar.timegm((2026, 4, 1, 0, 0, 0)) + ZONE_S
HOUR_S = 3600
NOON = MIDNIGHT + 12 * HOUR_S


@unittest.skipUnless(os.environ.get('VELOMOND_FAST_CLOCK'), 'the thread sanitizer has the clock functions to itself')
class TFastTest(TApplianceTest):
    """Tests that would take hours or days in real time."""


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs mounts of its own')
class DaysWork(TFastTest):
    def notified(self, category):
        return [texts for one in self.journal('/vbus/nc_notify', 'POST')
                if (texts := one['body']['texts'])[2] == category]

    def events(self, code):
        return [args[5:] for args in self.tools('ostra_log_tool') if args[:5] == ['2', code, '-1', '', '']]

    def test_night_of_a_faulty_appliance(self):
        machine = TMachine(self.root)
        machine.smart(False, 30000)
        machine.fan('1')
        self.tell_state('recording.json', {'is_recording': False})
        machine.write('tarn/etc/config/nvr.conf', '[hdd_health]\npower_on_hour_threshold = 20000\nsch_type = daily\n'
                      'sch_weekday = 0\nsch_hour = 0\n')
        machine.write('var/lib/velomond_tools/cfg_bak_tool.exit', '1\n')
        machine.write('tarn/etc/volume.conf', (self.root / 'tarn/etc/volume.conf').read_text()
                      .replace('volName = System', 'volName = a b"$(x)'))
        # A system volume of 64 MB, of which its database takes 10.
        volume = self.root / 'share/System'
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=64M', 'tmpfs', volume], check=True)
        self.addCleanup(subprocess.run, ['umount', '-l', volume], check=True)
        machine.write('share/System/database/one', '.' * (10 << 20))

        daemon = self.start_at(MIDNIGHT - 180, speed=60)
        self.assertRegex(daemon.text(), r'execute_time  : \[Tue Mar 31 23:5[78]:\d\d 2026\]\n')

        for path in (DISK, FAN, RECORDING):
            self.assertIn('error', self.wait_for_request(path)[0]['body'].values())
        # Full since the start: reported after 180 s, at once and then every minute; disabled once.
        free = eventually(lambda: self.events('0x25020001'), timeout_s=30)[0]
        self.assertEqual(free, ['Ostra Surveillance', '1', 'a b"$(x)', '54.0 MB'])
        eventually(lambda: self.notified('C002'))
        # At midnight, as the grace ends, disk events are logged, and the database is too large.
        self.assertEqual(eventually(lambda: self.events('0x28030001')), [['Example Disk (/dev/sda)', '20000', '30000']])
        self.assertEqual(self.events('0x28020001'), [['Example Disk (/dev/sda)']])
        self.assertEqual(eventually(lambda: self.events('0x25030003')),
                         [['Ostra Surveillance', 'DataVol1', '0.052734 GB']])
        eventually(lambda: self.journal('/vbus/ostrapro_disable'), timeout_s=30)

        # 00:25: the array is bad.
        eventually(lambda: self.notified('C001'), timeout_s=60)
        # 00:45
        eventually(lambda: sorted(self.tools('cfg_bak_tool')) == [['backup'], ['backup', '-c']], timeout_s=60)
        backup = ['2', '0x4004000a', '-1', 'System', '127.0.0.1', 'OstraSurveillanceSys/AutoDailyConfigBack']
        eventually(lambda: backup in self.tools('ostra_log_tool'))
        self.assert_stops(daemon)

        self.assertIn(len(self.events('0x25020001')), range(38, 50))  # a busy machine misses some
        self.assertEqual(len(self.journal('/vbus/ostrapro_disable')), 1)
        self.assertEqual(len(self.notified('C001')), 1)
        self.assertEqual(self.tools('ostra_log_tool').count(backup), 1)
        self.assertEqual(self.log('timechg'), '')
        self.assertIn(len(self.journal(HUB, 'PUT')), range(76, 100))  # one in 30 s
        self.assertEqual(len(self.journal('/vbus/reverse_proxy')), 1)
        self.assertIn(len(self.journal('/cfg/ReverseProxy', 'GET')), (9, 10, 11))


class Recovery(TFastTest):
    """Each watcher checks once a minute, all disks in the first minute of an hour."""

    def told(self, path, *states):
        """Waits until just these states were reported to the dashboard; returns the last report."""
        key = path.rsplit('/', 1)[-1] + '_update'
        requests = self.wait_for_request(path, 'POST', count=len(states), timeout_s=30)
        self.assertEqual([one['body'][key] for one in requests], list(states))
        return requests[-1]['body']

    def test_faults_and_recoveries_are_reported_logged_and_answered(self):
        machine = TMachine(self.root)
        machine.write('tarn/etc/config/cmv_record.conf', '[cmv]\nvalue3 = 2\nvalue4 = -7\ntext1 = 5.2.0\n')
        cameras = [{'id': 0, 'name': 'Gate', 'conn_failed_count': 4}, {'id': 2, 'name': 'Hall', 'conn_failed_count': 0}]
        self.tell_state('cameras.json', cameras)
        daemon = self.start_at(NOON, speed=20)
        for path in (DISK, FAN, RECORDING):
            self.told(path, 'normal')
        self.wait_for_request('/recStreamService/ChannelConnStat')
        eventually(lambda: self.log('cmv'))  # the first round is over: from now on changes of the clock are detected

        # Everything fails, and a camera has another name.
        machine.smart(True, 30000)
        machine.fan('1')
        self.tell_state('recording.json', {'is_recording': False})
        cameras[1].update(name='Lobby', conn_failed_count=3, info_changed=True)
        self.tell_state('cameras.json', cameras)
        self.set_clock(NOON + HOUR_S - 30)
        self.assertEqual(self.told(DISK, 'normal', 'hour_warning'), ask('smart_info?method=disk_update')['data'])
        self.assertEqual(self.told(FAN, 'normal', 'error'), ask('syshealth_info?method=fan_update')['data'])
        self.assertEqual(ask('syshealth_info?method=sys_health')['data'], {'sys_health': 'fan failed'})
        self.told(RECORDING, 'normal', 'error')
        self.assertEqual(ask('recording_state')['camera_recording_update'], 'error')
        day = eventually(lambda: (total := ask('cam_conn?method=total&count=0')['data'])['changed_flag'] and total)
        self.assertEqual((day['cam_stat'], day['conf_changed']), ('021' + '2' * 189, '001' + '0' * 189))
        self.assertEqual([one['name'] for one in ask('cam_conn?method=channel_info')['data']], ['Gate', 'Lobby'])

        # All recover.
        machine.smart(True, 1234)
        machine.fan('0')
        self.tell_state('recording.json', {'is_recording': True})
        self.set_clock(NOON - HOUR_S - 30)
        self.told(DISK, 'normal', 'hour_warning', 'normal')
        self.told(FAN, 'normal', 'error', 'normal')
        self.told(RECORDING, 'normal', 'error', 'normal')
        self.assertEqual(daemon.text().count('Recording state change \n'), 2)
        self.assert_stops(daemon)
        self.assertEqual(self.log('cmv'), 'cmv_info was changed, [1,0,2,100,5.2.0,recorder-1]->[0,0,2,-7,5.2.0,]')
        changes = re.findall(r'time was changed to (\w+) time: diff_gap=\[(-?\d+)\], threshold=\[2500\], '
                             r'cur_real_tp=\[\d{13}\], cur_mono_tp=\[\d+\]', self.log('timechg'))
        self.assertEqual([direction for direction, _ in changes], ['FUTURE', 'PAST'])
        for (_, gap_ms), before_ns, after_ns in zip(changes, self.ahead_ns, self.ahead_ns[1:]):
            self.assertAlmostEqual(int(gap_ms), (before_ns - after_ns) / 1e6, delta=2000)
