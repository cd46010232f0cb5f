"""Modes of the daemon's files, and a stop that hangs."""

import os
import pathlib
import stat
import time

from appliance import TApplianceTest, TMachine
from harness import Daemon, eventually, get


class Limits(TApplianceTest):
    def files(self):
        return {path: stat.S_IMODE(path.lstat().st_mode) for folder in ('Vtmp', 'Vdbglog', 'tmp', 'var')
                for path in (self.root / folder).rglob('*')}

    def test_a_daemon_without_umask_writes_what_only_its_owner_may_change(self):
        TMachine(self.root)
        before = self.files()
        daemon = Daemon(self.root, '-d').follow_daemon().wait_until_up()
        wanted = {'cpu_stats.csv', '.velomond_cpu.log', 'hdd_power_on_hour', 'velomond_tools.jsonl'}
        get('statistics_dump')
        get('cpu_info?method=x&name=system_all')
        written = eventually(lambda: wanted <= {one.name for one in self.files()} and self.files())
        shared = [pathlib.Path('/dev/shm/velomond'), pathlib.Path('/dev/shm/velomond.lock')]
        modes = {one.name: oct(mode) for one, mode in written.items() if one not in before and not one.is_dir()}
        self.assertEqual(modes.pop('VeloMond'), '0o640')
        self.assertEqual(set(modes.values()), {'0o644'}, modes)
        self.assertEqual([stat.S_IMODE(one.stat().st_mode) for one in shared], [0o644, 0o600])
        self.assertRegex(daemon.proc('status').read_text(), r'Umask:\t0000')
        self.assert_stops(daemon)

    def test_a_stop_that_hangs_is_logged_and_ends_after_ten_seconds(self):
        TMachine(self.root)
        (self.root / 'proc/vmstat').unlink()
        os.mkfifo(self.root / 'proc/vmstat')  # without a writer: the round hangs
        speed = 10 if os.environ.get('VELOMOND_FAST_CLOCK') else 1
        daemon = self.start_at(int(time.time()), speed)
        main = eventually(lambda: next((one for one, name in daemon.threads().items() if name == 'MAIN-worker'), 0))
        start = time.monotonic()
        eventually(lambda: 'fifo' in (wait := daemon.proc(f'task/{main}/wchan').read_text()) or 'partner' in wait
                   or time.monotonic() - start > 12 / speed, 15)
        took_s = daemon.stop(timeout_s=20) * speed
        self.assertEqual(daemon.status, 0)
        self.assertTrue(daemon.text().endswith('MAIN-worker hangs: the stop ends without it\n'), daemon.text())
        self.assertTrue(9.9 <= took_s <= 13, took_s)
