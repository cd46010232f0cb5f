"""Answers that take much memory when parsed, and stops that are delayed."""

import os
import re
import time

from harness import get
from stage import TStage, report

ANSWER = 1024 * 1024  # the longest that is accepted
BODY = 64 * 1024 - 256


def filled(size, unit, head='[', tail=''):
    return head + unit * ((size - len(head) - len(tail)) // len(unit)) + tail


DOCUMENTS = {'objects': lambda size: filled(size, '{},'), 'arrays': lambda size: filled(size, '[],'),
             'members': lambda size: '{' + ','.join(f'"{i}":{{}}' for i in range(size // 16)) + '}',
             'figures': lambda size: filled(size, '1,', tail='1]'), 'depth': lambda size: filled(size, '[{"a":'),
             'behind a comment': lambda size: filled(size, '{},', '[/*"*/'),
             'one text': lambda size: filled(size, 'x', '["', '"]')}


class Foreign(TStage):
    ANSWERS = {'/recStreamService/recording_state': '{"is_recording":true,"x":%s}',
               '/recStreamService/ChannelConnInfo': '{"data":%s}',
               '/cfg/ReverseProxy': '{"err_code":0,"ReverseProxyRuleList":%s}',
               '/nameserver/services/recStreamService': '{"host":"localhost","port":10187,"x":%s}'}
    MOST_KB, LATER_S = 8192, 0.8

    def soak(self):
        report.row('usual answers: peak grows', f'{self.grown_kb({})} KB')
        for path, frame in self.ANSWERS.items():
            grown = {}
            for name, document in DOCUMENTS.items():
                text = frame % document(ANSWER - len(frame) - 8)
                grown[name] = self.grown_kb({path: {'fault': 'garbage', 'body': text, 'seconds': self.LATER_S}})
            self.tell(path.rsplit('/', 1)[1], grown)
        self.tell('Notify', {name: self.grown_kb({}, document(BODY)) for name, document in DOCUMENTS.items()})

    def tell(self, what, grown):
        worst = max(grown, key=grown.get)
        report.row(f'{what}: peak grows', f'{grown[worst]} KB ({worst})', f'< {self.MOST_KB} KB',
                   grown[worst] < self.MOST_KB)

    def grown_kb(self, faults, notice=None):
        """The peak of memory in KB above that at the end of the start, before any large answer."""
        self.tell_state('faults.json', faults)
        daemon = self.start_up()
        memory = self.memory_kb(daemon)['VmRSS']
        daemon.proc('clear_refs').write_text('5')  # resets the peak
        for _ in range(4 if notice else 0):
            self.assertEqual(get('Notify', 'PUT', body=notice)[0], 200)
        time.sleep(self.LATER_S + 0.7)
        memory = self.memory_kb(daemon)['VmHWM'] - memory
        daemon.stop()
        self.assertEqual(daemon.status, 0)
        return memory

    @staticmethod
    def memory_kb(daemon):
        return {name: int(size) for name, size in re.findall(r'^(VmHWM|VmRSS):\s+(\d+) kB$',
                                                             daemon.proc('status').read_text(), re.M)}


class Stops(TStage):
    SLOW = {'fault': 'slow', 'delay_ms': 80}  # some 4 s for an answer

    def soak(self):
        """A round that hangs; then the removal of a rule, with each of its calls just within its time limit."""
        (self.root / 'proc').unlink()
        (self.root / 'proc').mkdir()
        (self.root / 'proc/meminfo').write_text('MemTotal: 1 kB\n')
        os.mkfifo(self.root / 'proc/vmstat')
        daemon = self.start_up()
        time.sleep(12)
        took_s = daemon.stop(timeout_s=60)
        report.row('a round that hangs: stop', f'{took_s:.2f} s, exit {daemon.status}', '10 to 12 s, 0',
                   10 <= took_s <= 12 and daemon.status == 0)
        report.row('  logged', daemon.text().splitlines()[-1][:40], 'the step',
                   'MAIN-worker hangs' in daemon.text().splitlines()[-1])
        os.unlink(self.root / 'proc/vmstat')

        rules = [{'GUID': f'g{kind}', 'rule_type': kind, 'bs_id': 'b'} for kind in (1, 0)]
        self.tell_state('proxy_rules.json', {'err_code': 0, 'ReverseProxyRuleList': rules})
        self.tell_state('faults.json', {'DELETE /cfg/ReverseProxy': self.SLOW, '/vbus/reverse_proxy': self.SLOW})
        tool = self.root / 'usr/sbin/apache2'
        tool.write_text('#!/bin/sh\nsleep 4\n')
        deleted, asked = len(self.journal('/cfg/ReverseProxy', 'DELETE')), len(self.journal('/vbus/reverse_proxy'))
        daemon = self.start_up()
        self.wait_for_request('/cfg/ReverseProxy', 'DELETE', deleted + 2)
        took_s = daemon.stop(timeout_s=60)
        report.row('three slow calls completed: stop', f'{took_s:.2f} s, exit {daemon.status}', '10 to 16 s, 0',
                   10 <= took_s <= 16 and daemon.status == 0)
        report.row('  nothing cut off', 'hangs' in daemon.text(), 'False', 'hangs' not in daemon.text())
        asked = len(self.journal('/vbus/reverse_proxy')) - asked
        report.row('  message bus asked', asked, '1', asked == 1)
