"""velomond-exporter with a daemon, and with foreign or missing peers."""

import contextlib
import http.client
import os
import pathlib
import re
import signal
import subprocess
import unittest

import strangers
from appliance import TApplianceTest
from harness import KEPT, eventually, get

COMMAND = os.environ['VELOMOND_EXPORTER']
MAX_PSS_KB = 6 * 1024


class TExporter:
    def __init__(self, test, *options):
        self.process = subprocess.Popen([COMMAND, '--listen-port', '0', *options], stderr=subprocess.PIPE, text=True)
        KEPT.add(self.process.pid)
        test.addCleanup(self.end)
        self.port = re.search(r'http://127\.0\.0\.1:(\d+)/metrics\n', self.process.stderr.readline())[1]

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        assert self.process.wait(timeout=5) == 0
        self.process.stderr.close()
        KEPT.discard(self.process.pid)

    def request(self, method, path):
        """(status, body)"""
        with contextlib.closing(http.client.HTTPConnection('127.0.0.1', self.port, timeout=10)) as connection:
            connection.request(method, path, 'x' if method == 'POST' else None)
            answer = connection.getresponse()
            return answer.status, answer.read().decode()

    def scrape(self):
        """{sample: value}; every line is a comment or a sample."""
        lines = self.request('GET', '/metrics')[1].splitlines()
        samples = [re.fullmatch(r'(\w+(?:\{(?:\w+="(?:[^"\\]|\\.)*",?)+\})?) (\S+)', line)
                   for line in lines if not line.startswith('# ')]
        assert all(samples), lines
        assert len({one[1] for one in samples}) == len(samples)
        return {one[1]: float(one[2]) for one in samples}


class Strangers(unittest.TestCase):
    def test_are_reported_as_down(self):
        for name, (act, _) in strangers.strangers().items():
            with self.subTest(name):
                samples = TExporter(self, '--port', strangers.start(self, act), '--timeout', '0.5').scrape()
                self.assertEqual(samples['velomond_up'], 0)
                self.assertLess(samples['velomond_scrape_duration_seconds'], 2)
                self.assertEqual({one.split('{')[0] for one in samples}, {
                    'velomond_' + one for one in ('up', 'scrape_duration_seconds', 'fetch_age_seconds', 'exporter_info')})

    def test_serves_its_page_alone_on_a_port_of_its_own(self):
        exporter = TExporter(self)
        for method, path, status in (('GET', '/other', 404), ('POST', '/metrics', 405), ('DELETE', '/', 405)):
            self.assertEqual(exporter.request(method, path)[0], status)
        taken = subprocess.run([COMMAND, '--listen-port', exporter.port], capture_output=True, text=True)
        self.assertEqual((taken.returncode, taken.stderr.count('\n')), (1, 1))


class Exporter(TApplianceTest):
    def test_serves_what_the_daemon_knows(self):
        daemon = self.start_up()
        exporter = TExporter(self)
        early = exporter.scrape()
        self.assertEqual((early['velomond_up'], 'velomond_memory_total_bytes' in early), (1, False))
        eventually(lambda: 'nan' not in get('cpu_info?method=cur_data&name=system_all')[1], 30)
        samples = eventually(lambda: (now := exporter.scrape()) and 'velomond_memory_total_bytes' in now and now, 15)
        self.assertEqual(samples['velomond_service_running{service="VeloMond"}'], 1)
        shares = [value for name, value in samples.items() if name.startswith('velomond_cpu_usage_ratio')]
        self.assertEqual((len(shares), 0 <= sum(shares) <= 1.01), (5, True))  # nice time is in none of them
        memory = pathlib.Path(f'/proc/{exporter.process.pid}/smaps_rollup').read_text()
        if not os.environ.get('VELOMOND_SANITIZED'):
            self.assertLess(int(re.search(r'^Pss: +(\d+)', memory, re.M)[1]), MAX_PSS_KB)
        self.assert_stops(daemon)
        eventually(lambda: exporter.scrape()['velomond_up'] == 0, 15)
