"""The daemon's reports and queries to other services, and its reaction to their faults."""

from appliance import FAN, HUB, SUBSCRIPTION, TApplianceTest, TMachine
from harness import eventually, get

NAME = '/logs/refreshNasPara'
PROXY = '/cfg/ReverseProxy'
NOTICES = '/notify/notices'


class Reports(TApplianceTest):
    def test_reports_a_new_server_name_once(self):
        file = self.root / 'tarn/etc/config/Tarnix.conf'
        daemon = self.start_up()
        self.wait_for_request('/recStreamService/ChannelConnInfo')
        eventually(lambda: daemon.descriptors().count('anon_inode:inotify') == 2)  # with the SMART settings' marker
        file.write_text('[System]\nServer Name = velomond-example\nOther = 1\n')  # unchanged
        file.write_text('[System]\nServer Name = gate "7"\n')
        told = self.wait_for_request(NAME, 'PUT')
        self.assertEqual(told[0]['body'], '{"act":"refresh_nasname","arg":["gate "7""]}')
        self.assert_stops(daemon)
        self.assertEqual(len(self.journal(NAME)), 1)

    def test_clears_every_reverse_proxy_rule_of_its_first_pass(self):
        rules = ['zero', 'one']
        self.tell_state('proxy_rules.json', {'err_code': 0, 'ReverseProxyRuleList': [
            {'GUID': name, 'rule_type': kind, 'bs_id': 'bs', 'last_access_time': 1 << 42, 'retention_time': 35000}
            for kind, name in enumerate(rules)]})
        configured = self.root / 'etc/reverseproxy/extra/zero.conf'
        configured.touch()
        self.start_up()
        bus = self.wait_for_request('/vbus/reverse_proxy', 'POST')
        self.assertEqual(bus[0]['body'], {'rules': [{'GUID': 'one', 'rule_type': 1, 'bs_id': 'bs', 'value': 60}]})
        self.assertEqual([one['query'] for one in self.journal(PROXY)],
                         [{'act': 'list'}, *({'act': 'delete', 'GUID': name, 'rule_type': str(kind)}
                                             for kind, name in enumerate(rules))])
        self.assertFalse(configured.exists())
        self.assertEqual(self.tools('apache2'), [['-k', 'graceful', '-f', '/etc/apache2/apache2.conf']])

    def test_registers_accepts_notices_and_unregisters(self):
        daemon = self.start_up()
        self.assertEqual(self.wait_for_request(HUB, 'PUT')[0]['body'], {'host': 'localhost', 'port': 10191})
        self.assertEqual(self.wait_for_request(SUBSCRIPTION, 'PUT')[0]['body'], {'route': '/sysmonService/Notify'})
        self.wait_for_request('/nameserver/services/recStreamService', 'GET')
        announced = len(self.wait_for_request(NOTICES))  # from the refresh at the start
        notice = {'notice_reason': {'type': 1033, 'action': 0}}
        self.tell_state('notices/0.json', notice)
        told = self.wait_for_request('sysmonService/sysmonService/Notify')[0]
        self.assertEqual((told['body'], told['outcome']), (notice, '200 { "retCode": 0 }'))
        announcement = self.wait_for_request(NOTICES, count=announced + 1)[-1]['body']
        self.assertEqual(announcement, {'session': 'VeloMond', 'category': 14, 'code': 14001, 'text': '', 'level': 5})
        self.assert_stops(daemon)
        ended, left = ([one['time_ms'] for one in self.journal(path, 'DELETE')] for path in (SUBSCRIPTION, HUB))
        self.assertEqual((len(ended), len(left)), (1, 1))
        self.assertLessEqual(ended, left)

    def test_a_disk_and_peers_that_hang_delay_neither_answers_nor_the_stop(self):
        TMachine(self.root)
        (self.root / 'usr/sbin/smartctl').write_text('#!/bin/sh\n: >"$VELOMOND_ROOT/asked"\nexec sleep 60\n')
        self.tell_state('faults.json', dict.fromkeys(('hub', 'dashboard', 'recording', 'config'), {'fault': 'hang'}))
        daemon = self.start_up()
        eventually((self.root / 'asked').exists)
        for path in (FAN, '/recStreamService/recording_state', PROXY):
            self.wait_for_request(path)
        self.assertEqual(get('disk_info?method=notify&vol_name=x', timeout_s=2.0), (200, '{ "return": 0 }'))
        self.assert_stops(daemon)
