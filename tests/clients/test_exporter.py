"""velomond-exporter with a daemon, and with foreign or missing peers."""

import os
import pathlib
import re
import signal
import subprocess
import time
import unittest
import urllib.error
import urllib.request

import strangers
from appliance import TApplianceTest
from harness import KEPT, eventually, get

COMMAND = os.environ['VELOMOND_EXPORTER']
MAX_PSS_KB = 6 * 1024
SANITIZED = bool(os.environ.get('VELOMOND_SANITIZED'))


class TExporter:
    def __init__(self, test, *options):
        self.process = subprocess.Popen([COMMAND, '--listen-port', '0', *options], stderr=subprocess.PIPE, text=True)
        KEPT.add(self.process.pid)
        test.addCleanup(self.end)
        self.url = re.search(r'(http://127\.0\.0\.1:\d+)/metrics\n', self.process.stderr.readline())[1]

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        assert self.process.wait(timeout=5) == 0
        self.process.stderr.close()
        KEPT.discard(self.process.pid)

    def scrape(self):
        """{sample: value}; every line is a comment or a sample."""
        with urllib.request.urlopen(self.url + '/metrics', timeout=10) as answer:
            lines = answer.read().decode().splitlines()
        samples = [re.fullmatch(r'(\w+(?:\{(?:\w+="(?:[^"\\]|\\.)*",?)+\})?) (\S+)', line)
                   for line in lines if not line.startswith('# ')]
        assert all(samples), lines
        assert len({one[1] for one in samples}) == len(samples)
        return {one[1]: float(one[2]) for one in samples}

    def pss_kb(self):
        return int(re.search(r'^Pss: +(\d+)', pathlib.Path(f'/proc/{self.process.pid}/smaps_rollup').read_text(), re.M)[1])


class Strangers(unittest.TestCase):
    def test_are_reported_as_down(self):
        for name, (act, _) in strangers.strangers().items():
            with self.subTest(name):
                stranger = strangers.TStranger(act)
                self.addCleanup(stranger.close)
                exporter = TExporter(self, '--port', str(stranger.port), '--timeout', '0.5')
                samples = exporter.scrape()
                self.assertEqual(samples['velomond_up'], 0)
                self.assertLess(samples['velomond_scrape_duration_seconds'], 2)
                self.assertEqual({one.split('{')[0] for one in samples}, {
                    'velomond_' + one for one in ('up', 'scrape_duration_seconds', 'fetch_age_seconds', 'exporter_info')})

    def test_serves_its_page_alone_on_a_port_of_its_own(self):
        exporter = TExporter(self)
        for method, path, status in (('GET', '/other', 404), ('POST', '/metrics', 405), ('DELETE', '/', 405)):
            with self.assertRaises(urllib.error.HTTPError) as failed:
                urllib.request.urlopen(urllib.request.Request(exporter.url + path, b'x' if method == 'POST' else None,
                                                              method=method))
            failed.exception.close()
            self.assertEqual(failed.exception.code, status)
        taken = subprocess.run([COMMAND, '--listen-port', exporter.url.rpartition(':')[2]], capture_output=True, text=True)
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
        if not SANITIZED:
            self.assertLess(exporter.pss_kb(), MAX_PSS_KB)
        self.assert_stops(daemon)
        time.sleep(10)
        self.assertEqual(exporter.scrape()['velomond_up'], 0)
