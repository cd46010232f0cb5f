"""Two recorders, a Prometheus that scrapes them, two that get data from it, a terminal and a browser. Takes minutes.

Screenshots go to VELOMOND_PICTURES, measurements to standard error."""

import asyncio
import contextlib
import functools
import gzip
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import textwrap
import time
import unittest
import urllib.parse
import urllib.request

import recorder
import screen
import yaml

TOP = pathlib.Path(__file__).resolve().parents[2]
COMMAND = os.environ['VELOMONDCTL']
PICTURES = pathlib.Path(os.environ['VELOMOND_PICTURES'])
REGION, FEDERATED, WRITTEN = 9090, 9091, 9092  # ports: one scrapes the recorders, the others get data from it
RECORDERS = {'recorder-1': 20001, 'recorder-2': 20002}  # ports of the exporters, by a tunnel
QUERY_PORT = RECORDERS['recorder-1'] + 100  # of its query service
FOLDER = pathlib.Path(tempfile.mkdtemp(prefix='velomond_fleet_'))
recorders = {}  # their processes
CAMERAS = ['Gate', 'Yard', 'Hall', 'Lift', 'Dock', 'Lobby', 'Garage', 'Roof', 'Office', 'Store', 'Stairs', 'Fence']


def say(text):
    print(f'fleet: {text}', file=sys.stderr, flush=True)


def eventually(what, condition, timeout_s):
    """Waits for a true value; logs how long it took."""
    begin = time.monotonic()
    say(f'{what}, up to {timeout_s} s')
    while not condition():
        if time.monotonic() > begin + timeout_s:
            raise AssertionError(f'not so within {timeout_s} s: {what}')
        time.sleep(1)
    say(f'{what}: after {time.monotonic() - begin:.0f} s')


def api(path, port=REGION, **arguments):
    with urllib.request.urlopen(f'http://127.0.0.1:{port}/api/v1/{path}?{urllib.parse.urlencode(arguments)}',
                                timeout=10) as answer:
        return json.load(answer)['data']


def value_of(query):
    """{instance: value} of a query."""
    return {one['metric'].get('instance'): float(one['value'][1]) for one in api('query', query=query)['result']}


def series_at(port):
    """{(name, instance): count} of the metrics of the recorders."""
    counted = api('query', port, query='count by (__name__, instance) ({__name__=~"velomond_.+"})')['result']
    return {(one['metric']['__name__'], one['metric']['instance']): int(one['value'][1]) for one in counted}


def documented():
    """The configurations in docs/fleet.md: of a region, of a federation, of remote write."""
    blocks = re.findall(r'(?:^ {4}.*\n|^\n)+', (TOP / 'docs/fleet.md').read_text(), re.M)
    return [yaml.safe_load(textwrap.dedent(one)) for one in blocks if re.match(r'\n* {4}(scrape_configs|remote_write):', one)]


def alerts(name):
    return {one['labels']['instance'] for one in api('alerts')['alerts']
            if one['labels']['alertname'] == name and one['state'] == 'firing'}


def promtool(*arguments, **more):
    done = subprocess.run(['promtool', *arguments], capture_output=True, text=True, **more)
    assert done.returncode == 0, done
    return done.stdout


def run_prometheus(port, configuration, *options):
    folder = FOLDER / str(port)
    folder.mkdir()
    times = {'scrape_interval': '10s', 'evaluation_interval': '5s'}
    (folder / 'prometheus.yml').write_text(json.dumps({'global': times, **configuration}))
    promtool('check', 'config', folder / 'prometheus.yml')
    with open(folder / 'log', 'w') as log:
        one = subprocess.Popen(['prometheus', f'--config.file={folder}/prometheus.yml', f'--storage.tsdb.path={folder}/data',
                                f'--web.listen-address=127.0.0.1:{port}', *options], stderr=log)
    unittest.addModuleCleanup(one.wait, 30)
    unittest.addModuleCleanup(one.terminate)


def start_recorder(name, port):
    folder = FOLDER / name
    shutil.copytree(TOP / 'tools/appliance_sim/state', folder / 'state')
    (folder / 'state/cameras.json').write_text(json.dumps([
        {'id': number, 'name': camera, 'guid': f'guid-{number}', 'umsid': '1', 'ip': f'192.0.2.{10 + number}', 'port': '80',
         'brand': 'Example', 'ums_name': name, 'conn_failed_count': 0, 'conn_failed_step': 2 * (camera == 'Yard')}
        for number, camera in enumerate(CAMERAS)]))
    one = subprocess.Popen([TOP / 'tests/e2e/apart.sh', '/usr/bin/python3', '-B', TOP / 'tests/clients/recorder.py', folder],
                           stdin=subprocess.PIPE, text=True)
    unittest.addModuleCleanup(one.wait, 60)
    unittest.addModuleCleanup(one.stdin.close)
    for near_port, far_end in (port, 'tunnel'), (port + 100, 'query'):
        recorder.tunnel(functools.partial(asyncio.start_server, host='127.0.0.1', port=near_port),
                        functools.partial(asyncio.open_unix_connection, folder / far_end))
    return one


def setUpModule():
    unittest.addModuleCleanup(shutil.rmtree, FOLDER)
    recorders.update({name: start_recorder(name, port) for name, port in RECORDERS.items()})
    (FOLDER / 'site.json').write_text(json.dumps([
        {'targets': [f'127.0.0.1:{port}'], 'labels': {'instance': name}} for name, port in RECORDERS.items()]))
    (FOLDER / 'regions.json').write_text(json.dumps([{'targets': [f'127.0.0.1:{REGION}']}]))
    region, federation, writing = documented()
    region['rule_files'] = [str(TOP / 'dashboards/rules.yml')]
    region['scrape_configs'][0] |= {'scrape_interval': '10s', 'file_sd_configs': [{'files': [f'{FOLDER}/site.json']}]}
    writing['remote_write'][0]['url'] = f'http://127.0.0.1:{WRITTEN}/api/v1/write'
    federation['scrape_configs'][0]['file_sd_configs'] = [{'files': [f'{FOLDER}/regions.json']}]
    run_prometheus(WRITTEN, {}, '--web.enable-remote-write-receiver')
    run_prometheus(REGION, {**region, **writing})
    run_prometheus(FEDERATED, federation)


def scrape():
    """What the exporter of the first recorder answers."""
    with urllib.request.urlopen(f'http://127.0.0.1:{RECORDERS["recorder-1"]}/metrics', timeout=10) as answer:
        return answer.read()


class Fleet(unittest.TestCase):
    def test_1_metrics_rules_and_queries(self):
        def has_figures():
            with contextlib.suppress(OSError):
                return b'velomond_memory_total_bytes' in scrape()
        eventually('the first figures', has_figures, 90)
        eventually('all cameras answered', lambda: value_of('count by (instance) (velomond_camera_connected)') ==
                   dict.fromkeys(RECORDERS, len(CAMERAS)), 260)
        text = scrape()
        self.assertEqual(promtool('check', 'metrics', input=text.decode()), '')
        promtool('test', 'rules', TOP / 'tests/clients/rules_test.yml')
        dashboard = json.loads((TOP / 'dashboards/velomond.json').read_text())
        queries = [target['expr'].replace('$instance', '.*') for panel in dashboard['panels'] for target in panel['targets']]
        self.assertGreater(len(queries), 10)
        for query in queries:
            found = promtool('query', 'instant', f'http://127.0.0.1:{REGION}', query)
            self.assertTrue(found.strip() or 'cache_device' in query, query)  # a machine may have no such device
        say(f'a scrape: {len(text)} bytes, {len(gzip.compress(text))} compressed')
        say(f'series per recorder: {value_of("scrape_samples_scraped")}')
        say(f'fetch of the exporter: {value_of("velomond_scrape_duration_seconds")} s')

    def test_2_goes_upwards(self):
        wanted = {(f'velomond_{name}', one): count for one in RECORDERS for name, count in
                  {'up': 1, 'recording': 1, 'fans_ok': 1, 'disks_state': 4, 'camera_connected': len(CAMERAS)}.items()}
        for port, way in (FEDERATED, 'federation'), (WRITTEN, 'remote write'):
            eventually(f'the figures above, by {way}', lambda port=port: series_at(port) == wanted, 60)

    def test_3_pages_and_screens(self):
        time.sleep(130)  # some minutes of history
        terminal = screen.TTerminal(FOLDER, 80, 24, f'{shlex.quote(COMMAND)} top --port {QUERY_PORT}')
        eventually('top shows figures', lambda: 'Vnvrd' in terminal.text(), 15)
        self.check_screen(terminal, 80, 24, 'top-80x24')
        rows = re.findall(r'^(V\w+) +[\d.]+ %', terminal.text(), re.M)
        terminal.keys('n')
        named = re.findall(r'^(V\w+) +[\d.]+ %', terminal.text(), re.M)
        self.assertEqual((named, sorted(rows) == rows and 'sorted already'), (sorted(named), False))
        terminal.keys('h')
        self.assertIn('this help', terminal.text())
        terminal.keys('h', 'c')
        terminal.resize(200, 60)
        self.check_screen(terminal, 200, 60, 'top-200x60')
        terminal.resize(40, 10)
        self.assertIn('VeloMond', terminal.text())
        terminal.resize(80, 24)
        self.assertIn('Vnvrd', terminal.text())
        terminal.keys('q')
        eventually('q ends it', terminal.ended, 15)

        page = FOLDER / 'report.html'
        subprocess.run([COMMAND, 'report', '--port', str(QUERY_PORT), '-o', page], check=True, capture_output=True)
        self.assertEqual(screen.picture(FOLDER, page, PICTURES / 'report.png', 1000, 1500), [])
        # The copy runs a script that looks at each picture; the page itself could not.
        looked = FOLDER / 'looked.html'
        looked.write_text(re.sub(r'<meta http-equiv.*?>', '', page.read_text()) +
                          '<script>document.title = [...document.images].map(i => i.complete && i.naturalWidth > 100)</script>')
        titles = re.search(r'<title>([^<]*)', screen.chromium(FOLDER, '--dump-dom', f'file://{looked}')[0])[1].split(',')
        self.assertEqual((set(titles), len(titles) >= 6), ({'true'}, True))
        say(f'{len(titles)} pictures of the report seen')

    def check_screen(self, terminal, columns, lines, name):
        text = terminal.text()
        self.assertEqual(len(text.splitlines()), lines)
        self.assertLessEqual(max(map(len, text.splitlines())), columns)
        for words in ('recording', 'cameras', 'SERVICE', 'q quit', 'camera Yard'):
            self.assertIn(words, text)
        self.assertRegex(text, '[\u2581-\u2588]{2}')
        page = FOLDER / 'screen.html'
        page.write_text(terminal.html())
        screen.picture(FOLDER, page, PICTURES / f'{name}.png', int(columns * 8.43) + 16, lines * 17 + 16)

    def test_4_alerts_come_and_go(self):
        self.assertEqual(alerts('VeloMondRecordingStopped'), set())
        (FOLDER / 'recorder-1/state/recording.json').write_text('{"is_recording": false}')
        recorders['recorder-2'].stdin.write('stop daemon\n')
        recorders['recorder-2'].stdin.flush()
        eventually('the alert of a stopped recording', lambda: alerts('VeloMondRecordingStopped') == {'recorder-1'}, 240)
        eventually('the alert of a silent monitor', lambda: alerts('VeloMondSilent') == {'recorder-2'}, 240)
        eventually('the alert of a camera that is down', lambda: 'recorder-1' in alerts('VeloMondCameraDown'), 420)
        (FOLDER / 'recorder-1/state/recording.json').write_text('{"is_recording": true}')
        eventually('the end of the alert', lambda: alerts('VeloMondRecordingStopped') == set(), 120)
        self.assertEqual([alerts(one) for one in ('VeloMondDiskFailing', 'VeloMondFanFailed')], [set(), set()])


if __name__ == '__main__':
    unittest.main()
