"""The daemon's reports and queries to other services, and its reaction to their faults."""

import time

from appliance import DISK, FAN, HUB, RECORDING, SUBSCRIPTION, TApplianceTest, TMachine
from harness import ZONE_S, eventually, get

NAME = '/logs/refreshNasPara'
PROXY = '/cfg/ReverseProxy'
NOTICES = '/notify/notices'


class Reports(TApplianceTest):
    def test_reports_its_findings_at_the_start_to_the_dashboard(self):
        TMachine(self.root)
        daemon = self.start_up()
        disk, fan = (self.wait_for_request(path, 'POST')[0]['body'] for path in (DISK, FAN))
        self.assertEqual((disk['disk_update'], fan['fan_update']), ('normal', 'normal'))
        self.assertRegex(disk['utc_time'] + fan['utc_time'], r'^\d{20}$')  # both are strings
        recording = self.wait_for_request(RECORDING, 'POST')[0]['body']
        self.assertEqual(recording['camera_recording_update'], 'normal')
        asked = self.journal('/recStreamService/recording_state', 'GET')[0]['query']
        self.assertEqual(int(asked['end_time']) - int(asked['start_time']), 60000)
        self.assertEqual(recording['utc_time'], int(asked['end_time']) // 1000)
        self.assertEqual(self.tools('vcmd'), [['get_rec_disk_list']])
        self.assertEqual((self.root / 'tmp/hdd_power_on_hour').read_text(),
                         'disk_01 - [Example Disk (/dev/sda)] power on hour [    1234]\n')
        self.assertEqual(get('disk_info?method=notify&vol_name=x')[0], 200)  # queries the disk no more
        self.assertEqual(self.tools('smartctl'), [['--json', '-n', 'never', '-H', '-iA', '/dev/sda']])
        self.assert_stops(daemon)
        self.assertNotIn('Recording state change', daemon.text())

    def test_a_disk_that_does_not_answer_delays_neither_its_listing_nor_the_stop(self):
        TMachine(self.root)
        (self.root / 'usr/sbin/smartctl').write_text('#!/bin/sh\n: >"$VELOMOND_ROOT/asked"\nexec sleep 60\n')
        daemon = self.start_up()
        eventually((self.root / 'asked').exists)
        self.assertEqual(get('disk_info?method=notify&vol_name=x', timeout_s=2.0), (200, '{ "return": 0 }'))
        self.assert_stops(daemon)

    def test_reports_a_new_server_name_once(self):
        file = self.root / 'tarn/etc/config/Tarnix.conf'
        daemon = self.start_up()
        self.wait_for_request('/recStreamService/ChannelConnInfo')
        eventually(lambda: any('inotify' in one for one in daemon.descriptors()))
        file.write_text('[System]\nServer Name = velomond-example\nOther = 1\n')  # unchanged
        file.write_text('[System]\nServer Name = gate "7"\n')
        told = self.wait_for_request(NAME, 'PUT')
        self.assertEqual(told[0]['body'], '{"act":"refresh_nasname","arg":["gate "7""]}')
        self.assert_stops(daemon)
        self.assertEqual(len(self.journal(NAME)), 1)

    def test_clears_every_reverse_proxy_rule_of_its_first_pass(self):
        rules = {'zero-a': 0, 'zero-b': 0, 'kept': 0, 'one': 1, 'two': 2}
        fresh = {'last_access_time': 1 << 42, 'retention_time': 35000}
        self.tell_state('proxy_rules.json', {'err_code': 0, 'ReverseProxyRuleList': [
            {'GUID': name, 'rule_type': kind, 'bs_id': 'bs', **fresh, **({'refuse_delete': -5} if name == 'kept' else {})}
            for name, kind in rules.items()]})
        folder = self.root / 'etc/reverseproxy/extra'
        for name in ('zero-a', 'kept'):
            (folder / f'{name}.conf').touch()
        self.start_up()
        bus = self.wait_for_request('/vbus/reverse_proxy', 'POST')
        self.assertEqual(bus[0]['body'], {'rules': [{'GUID': 'one', 'rule_type': 1, 'bs_id': 'bs', 'value': 60}]})
        self.assertEqual(self.journal(PROXY, 'GET')[0]['query'], {'act': 'list'})
        self.assertEqual([one['query'] for one in self.journal(PROXY, 'DELETE')],
                         [{'act': 'delete', 'GUID': name, 'rule_type': str(kind)} for name, kind in rules.items()])
        self.assertFalse((folder / 'zero-a.conf').exists())
        self.assertTrue((folder / 'kept.conf').exists())
        self.assertEqual(self.tools('apache2'), [['-k', 'graceful', '-f', '/etc/apache2/apache2.conf']])
        log = self.log('reverse_proxy')
        for part in ('start', 'delete rule failed, response=[{"err_code": -5}]', 'unknown rule_type=2',
                     'remove file [/etc/reverseproxy/extra/zero-b.conf] failed'):
            self.assertIn(part, log)


class Notices(TApplianceTest):
    def test_registers_accepts_notices_and_unregisters(self):
        begun_s = time.time()
        daemon = self.start_up()
        self.assertEqual(self.wait_for_request(HUB, 'PUT')[0]['body'], {'host': 'localhost', 'port': 10191})
        self.assertEqual(self.wait_for_request(SUBSCRIPTION, 'PUT')[0]['body'], {'route': '/sysmonService/Notify'})
        self.wait_for_request('/nameserver/services/recStreamService', 'GET')
        announced = len(self.wait_for_request(NOTICES))  # from the refresh at the start
        for number, (notice, code) in enumerate([
                ({'notice_reason': {'type': 1033, 'action': 0}}, 0), ({'notice_reason': {'type': 5}}, 0),
                ({'notice_reason': {'type': 2048}, 'vbus_data': {'vbus_type': 8}}, 0), ({'vbus_data': {}}, -2)]):
            self.tell_state(f'notices/{number}.json', notice)
            told = self.wait_for_request('sysmonService/sysmonService/Notify', count=number + 1)[number]
            self.assertEqual((told['body'], told['outcome']), (notice, '200 { "retCode": %d }' % code))
        announcements = [one['body'] for one in self.journal(NOTICES)[announced:]]
        self.assertEqual(announcements, [{'session': 'VeloMond', 'category': 14, 'code': 14001, 'text': '', 'level': 5}] *
                         len(announcements))
        ten_minute_mark = any((at_s - ZONE_S) // 60 % 10 == 0 for at_s in (begun_s, time.time()))
        self.assertIn(len(announcements), {2, 3} if ten_minute_mark else {2})  # DISK-worker refreshes at the mark
        self.assert_stops(daemon)
        ended, left = ([one['time_ms'] for one in self.journal(path, 'DELETE')] for path in (SUBSCRIPTION, HUB))
        self.assertEqual((len(ended), len(left)), (1, 1))
        self.assertLessEqual(ended, left)
        self.assertIn('VeloMond_RESTful:proc_notify_put(475) not support type=5\n', daemon.text())


class Faults(TApplianceTest):
    def test_peers_that_hang_do_not_delay_the_stop(self):
        self.tell_state('faults.json', dict.fromkeys(('hub', 'dashboard', 'recording', 'config'), {'fault': 'hang'}))
        daemon = self.start_up()
        for path in (DISK, FAN, '/recStreamService/recording_state', PROXY):
            self.wait_for_request(path)
        self.assertEqual(get('status')[0], 200)
        self.assert_stops(daemon)
