"""velomondctl with a daemon, and with foreign or missing peers."""

import base64
import csv
import io
import json
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time
import unittest

import strangers
from appliance import TApplianceTest, TMachine
from harness import eventually

TOP = pathlib.Path(__file__).resolve().parents[2]
COMMAND = os.environ['VELOMONDCTL']
CONTROLS = re.compile(r'[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]')


def run(*arguments, stdout=subprocess.PIPE, **environment):
    return subprocess.run([COMMAND, *arguments], stdout=stdout, stderr=subprocess.PIPE, text=True, timeout=20,
                          env={**os.environ, 'TERM': 'dumb', 'LC_ALL': 'C.UTF-8', **environment})


class Strangers(unittest.TestCase):
    def assert_one_line(self, text):
        self.assertEqual((text.count('\n'), text[-1:], CONTROLS.findall(text)), (1, '\n', []), text[:500])
        self.assertLess(len(text), 500)

    def test_failures_are_a_clear_line_and_a_code(self):
        for name, (act, code) in strangers.strangers().items():
            with self.subTest(name):
                port = strangers.start(self, act)
                begin = time.monotonic()
                for command in ('status', 'cpu', 'mem -o json', 'net x', 'disk --series', 'disks', 'top --plain', 'report'):
                    done = run(*command.split(), '--port', port, '--timeout', '0.4')
                    self.assertEqual((done.returncode, done.stdout), (code, ''), (command, done.stderr[:500]))
                    self.assert_one_line(done.stderr)
                watch = run('watch', '--passes', '1', '--port', port, '--timeout', '0.4')
                seen_by_watch = 0 if isinstance(act, strangers.TLikeness) else code  # its states are good
                self.assertEqual((watch.returncode, CONTROLS.findall(watch.stdout)), (seen_by_watch, []))
                check = run('check', '--port', port, '--timeout', '1')
                self.assertEqual((check.returncode, check.stderr), (3, ''))
                self.assert_one_line(check.stdout)
                self.assertTrue(check.stdout.startswith('VELOMOND UNKNOWN - '), check.stdout)
                self.assertLess(time.monotonic() - begin, 10)
        for arguments, code in {('status', '--port', '1'): 3, ('status', '--host', 'a b'): 2, ('status', '--port', '0'): 2,
                                ('status', '--host', '[::1'): 2, ('status', '--host', 'no.such.invalid'): 3, (): 2,
                                ('what\x1b[2J',): 2, ('cpu', '--last', '91'): 2, ('notify', 'x\x1b'): 2,
                                ('cpu', '--last', '1', '--series'): 2}.items():
            with self.subTest(arguments):
                done = run(*arguments, '--timeout', '2') if arguments else run()
                self.assertEqual((done.returncode, done.stdout), (code, ''), done.stderr)
                self.assert_one_line(done.stderr)

    def test_no_name_drives_the_terminal(self):
        port = strangers.start(self, strangers.TLikeness(strangers.ESCAPES))
        for arguments in (['status'], ['cameras'], ['disks'], ['cpu'], ['mem'], ['net'], ['disk'], ['check'],
                          ['watch', '--passes', '1'], ['top', '--plain'], ['cameras', '-o', 'json'], ['cameras', '-o', 'csv']):
            done = run(*arguments, '--port', port)
            self.assertEqual((CONTROLS.findall(done.stdout + done.stderr), 'alert' in done.stdout or
                              arguments[0] in ('watch', 'check')), ([], True), (arguments, done))

    def test_fails_when_the_result_cannot_be_written(self):
        port = strangers.start(self, strangers.TLikeness())
        with open('/dev/full', 'w') as full:
            done = run('status', '--port', port, stdout=full)
        self.assertEqual(done.returncode, 8)
        self.assert_one_line(done.stderr)

    def test_reports_load_and_run_nothing(self):
        port = strangers.start(self, strangers.TLikeness(strangers.ESCAPES))
        with tempfile.TemporaryDirectory() as folder:
            page = pathlib.Path(folder, 'page.html')
            done = run('report', '--port', port, '-o', str(page))
            self.assertEqual(done.returncode, 0, done.stderr)
            text = page.read_text()
            loading = r'<script|src="?(?!data:image/svg)[a-z]|href=(?!"data:)|@import|url\('
            self.assertEqual((CONTROLS.findall(text), re.findall(loading, text)), ([], []))
            self.assertIn('&lt;script&gt;alert(1)&lt;/script&gt;&quot;&#39;&amp;', text)
            svgs = [base64.b64decode(one).decode() for one in re.findall(r'base64,([^"]+)"', text)]
            self.assertEqual((len(svgs), all('</svg>' in one and 'alert' not in one for one in svgs)), (8, True))
            self.assertRegex(done.stderr, r'^(report: \d of 9, .*\n){9}$')
            for arguments, path, code in ((['/nowhere'], None, 7), ([folder], None, 7), (['--port', '1'], None, 3),
                                          (['--port', port], '/nowhere/x.html', 8), (['--port', port], '/dev/full/x', 8)):
                done = run('report', *arguments, '-o', path or str(page))
                self.assertEqual((done.returncode, page.read_text() == text), (code, True), done)
            without = run('report', '--port', port, '-o', str(page), PATH=folder)
            self.assertEqual((without.returncode, 'gnuplot-nox' in without.stderr), (7, True), without.stderr)
            self.assertEqual([one.name for one in pathlib.Path(folder).iterdir()], ['page.html'])

    def test_manual_and_completion_know_every_command_and_option(self):
        texts = {name: re.sub(r'\\f.', '', (TOP / 'packaging/tools' / name).read_text()).replace('\\-', '-') for name in
                 ('velomondctl.1', 'completion/velomondctl.bash', 'completion/_velomondctl')}
        commands = re.findall(r'^  (\w+)  ', run('--help').stdout.partition('Subcommands:')[2], re.M)
        self.assertEqual(len(commands), 13)
        words = set(commands).union(*(re.findall(r'--[a-z-]+', run(*one, '--help').stdout) for one in
                                      [[], *([name] for name in commands)]))
        for name, text in texts.items():
            self.assertEqual({one for one in words if not re.search(rf'(?<![\w-]){one}(?![\w-])', text)}, set(), name)

    def test_completes(self):
        """The completion function, called as bash does."""
        script = f"""source {TOP}/packaging/tools/completion/velomondctl.bash; compopt() {{ :; }}
            velomondctl() {{ {COMMAND} --port {strangers.start(self, strangers.TLikeness())} "$@"; }}
            try() {{ COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMPREPLY=(); _velomondctl; echo "${{COMPREPLY[*]}}"; }}
            try velomondctl ca; try velomondctl cpu ''; try velomondctl mem -o j; try velomondctl check --warn c
            try velomondctl --port 1 st; try velomondctl notify d"""
        done = subprocess.run(['bash', '-c', script], capture_output=True, text=True, check=True)
        self.assertEqual(done.stdout.splitlines(), ['cameras', 'cpu0 system_all Gate', 'json', 'cameras= cpu=',
                                                    'status', 'disks'])

    def test_watch_shows_changes_and_ends_at_a_signal(self):
        likeness = strangers.TLikeness()
        port = strangers.start(self, likeness)
        watch = subprocess.Popen([COMMAND, 'watch', '--interval', '0.2', '--port', port], stdout=subprocess.PIPE, text=True)
        self.addCleanup(watch.stdout.close)
        lines = [watch.stdout.readline() for _ in range(4)]
        likeness.recording, likeness.cameras = 'error', '11' + '2' * 190
        lines += [watch.stdout.readline() for _ in range(2)]
        watch.send_signal(signal.SIGINT)
        self.assertEqual(watch.wait(timeout=5), 0)
        self.assertEqual([line.split(' ', 1)[1] for line in lines[3:]],
                         ['cameras: 1 connected, 1 failed\n', 'recording: normal -> error\n',
                          'camera 0 (Gate): connected -> failed\n'])


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs a network interface of its own')
class Velomondctl(TApplianceTest):
    def test_shows_what_two_rounds_saw(self):
        machine = TMachine(self.root)
        machine.counters(1)
        self.start_up()
        self.wait_for_request('/recStreamService/ChannelConnStat')
        before = json.loads(run('status', '-o', 'json').stdout)
        self.assertEqual((before['cpu']['busy_pcnt'], before['memory']['used_pcnt']), (None, None))
        time.sleep(15)
        machine.counters(2)
        eventually(lambda: '15.0' in run('cpu', 'system_all').stdout)

        def rows(*arguments):
            return {one['name']: one for one in json.loads(run(*arguments, '-o', 'json').stdout)}
        self.assertEqual(rows('cpu')['system_all'], {'name': 'system_all', 'user_pcnt': 15, 'sys_pcnt': 5,
                                                     'iowait_pcnt': 0, 'steal_pcnt': 0, 'idle_pcnt': 80, 'total_pcnt': None})
        self.assertEqual((len(rows('mem')), rows('mem', 'Vnvrd')['Vnvrd']['VmSize']), (22, 8000))
        self.assertNotIn('MemUsed', rows('mem', 'system_all', '--last', '1')['system_all'])  # not in an average
        self.assertEqual(rows('net', 'nic0'), {'nic0': {'name': 'nic0', 'tx': 1000, 'rx': 3000}})
        self.assertAlmostEqual(rows('net', 'nic0', '--last', '0')['nic0']['rx'], 300, delta=45)
        self.assertEqual(rows('disk', 'cachedev1')['/dev/mapper/cachedev1']['wr_latency'], 3)
        self.assertEqual(list(csv.DictReader(io.StringIO(run('cpu', '--series', '-o', 'csv').stdout)))[0]['idle_pcnt'], '80')
        self.assertEqual(run('cpu', 'nothing').returncode, 7)
        self.assertEqual([row['name'] for row in json.loads(run('cameras', '-o', 'json').stdout)], ['Gate', 'Yard', 'Hall'])
        self.assertEqual(run('notify', 'disks').stdout, 'notice 1035 delivered\n')
        self.assertEqual(run('dump', '--wait', VELOMOND_ROOT=self.root).stdout, 'dump written: /Vtmp/.sys_stats/log_0\n')
        page = self.root / 'page.html'
        self.assertEqual(run('report', str(self.root / 'Vtmp/.sys_stats/log_0'), '-o', str(page)).returncode, 0)
        for words in ('<h2>CPU of the services', '<h2>Network', 'nic0 received</td><td class=n>0.3<'):
            self.assertIn(words, page.read_text())

        begin = time.monotonic()
        status = run('status', VELOMOND_ROOT=self.root).stdout
        self.assertLess(time.monotonic() - begin, 2.0)  # 0.02 on an idle machine
        for line in (r'recording +normal', r'cpu +20\.0 % of', r'memory +52\.5 % of 4\.2 GB', r'cache +.*write 3\.0 ms',
                     r'volumes +System: [\d.]+ %', r'services +1 of 21 running', r'Vnvrd +(2[5-9]|3\d)\.\d +2000'):
            self.assertRegex(status, line)
        self.assertEqual((run('check', '--crit', 'cpu=21').returncode, run('check', '--warn', 'cpu=19').returncode,
                          run('check', '--crit', 'cpu=19').returncode), (0, 1, 2))
