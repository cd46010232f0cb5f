#!/usr/bin/env python3
"""The package in a booted Debian with failing disks: one line per assertion, and
figures. See docs/vm.md."""

import argparse
import json
import pathlib
import re
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
TREE = HERE.parents[1]
sys.path[:0] = [str(TREE / 'tools/vm'), str(TREE / 'tools')]

from machine import TMachine  # noqa: E402
from progress import TProgress  # noqa: E402

PAYLOAD = '/payload'
HUB_NOTIFY, DISABLE = '/vbus/nc_notify', '/vbus/ostrapro_disable'
DISK_REPORT = '/logs/dashboard/status/receiver/disk'
VOLUME_GRACE_S = 185  # no free space is looked at before
PSS_LIMIT_KB = 7 * 1024
MORE_S = 1800  # of running in a long run


class TRecorder:
    """What the checks share: the machine, and how to look at the daemon in it."""

    def __init__(self, machine, line, options):
        self.machine, self.must, self.run, self._line, self.options = machine, machine.must, machine.run, line, options
        self.failed, self.start = 0, time.monotonic()

    def say(self, what, figure, verdict=''):
        self._line(f'{time.monotonic() - self.start:6.0f} s  {verdict:<6}  {what:<66}  {figure}'.rstrip())

    def check(self, what, holds, figure=''):
        self.failed += not holds
        self.say(what, figure, 'ok' if holds else 'FAILED')

    def eventually(self, what, look, timeout_s):
        """Asks until the answer is true; fails after the time."""
        end = time.monotonic() + timeout_s
        while not (found := look()) and time.monotonic() < end:
            time.sleep(2)
        self.check(what, bool(found), found if isinstance(found, str) else '')
        return found

    def pid(self):
        return int(self.must('systemctl show -P MainPID velomond'))

    def get(self, route):
        """The answer of a route, None when there is no good one within a second."""
        status, text = self.run(f"curl -sf --max-time 1 'http://127.0.0.1:10191/sysmonService/{route}'")
        return text if status == 0 else None

    def serves(self):
        return self.get('status') is not None

    def bodies(self, path):
        """What the simulated services were sent on a path, oldest first."""
        entries = map(json.loads, self.run('cat /var/log/sim.jsonl')[1].splitlines())
        return [one['body'] for one in entries if one['path'] == path]

    def notices(self, code):
        return [one for one in self.bodies(HUB_NOTIFY) if code in one['texts']]

    def events(self, code):
        return [line for line in self.run('cat /var/log/velomond_tools.jsonl')[1].splitlines() if f'"{code}"' in line]

    def age_s(self):
        return int(self.must(f'ps -o etimes= -p {self.pid()}')) if self.pid() else 0

    def wait_age(self, age_s):
        while (left_s := age_s - self.age_s()) > 0:
            time.sleep(left_s)

    def set_clock(self, text):
        self.must(f"date -s '{text}' && hwclock -w --noadjfile --utc 2>/dev/null || true")

    def check_output(self, what, command, expected=''):
        text = self.run(command)[1]
        self.check(what, text == expected, text[:200])

    def check_memory(self):
        rollup = self.must(f'cat /proc/{self.pid()}/smaps_rollup')
        kb = {name: int(size) for name, size in re.findall(r'^(\w+): +(\d+) kB', rollup, re.M)}
        age_s = self.age_s()
        used_s = int(self.must('systemctl show -P CPUUsageNSec velomond')) / 1e9
        self.check('PSS with all monitors at work', kb['Pss'] < PSS_LIMIT_KB,
                   f'{kb["Pss"]} KB of {PSS_LIMIT_KB}, {kb["AnonHugePages"]} in huge pages, after {age_s} s; '
                   f'{100 * used_s / age_s:.1f} % of a core')


def install(it):
    it.must(f'mkdir -p {PAYLOAD} && mount -o ro LABEL=payload {PAYLOAD}')
    it.must(f'dpkg -i {PAYLOAD}/before.deb')
    it.eventually('the package before serves once it is installed', it.serves, 30)
    before = it.pid()
    it.must(f'dpkg -i {PAYLOAD}/velomond.deb')
    it.eventually('an upgrade starts the daemon anew and it serves', lambda: it.pid() not in (0, before) and it.serves(), 30)
    line = it.run("journalctl -u velomond -o cat --grep '^missing: ' | tail -n 1")[1]
    it.check('the journal names what a new machine misses',
             all(name in line for name in ('volume.conf', 'OstraPro.conf', 'nvr.conf', 'ostra_log_tool')), line[:60])


def set_up(it):
    it.must(f'chmod 1777 /Vtmp && bash {PAYLOAD}/set_up.sh {PAYLOAD}')
    took_s = it.machine.reboot()
    it.must(f'mount -o ro LABEL=payload {PAYLOAD}')
    it.eventually('serves after a boot', it.serves, 60)
    it.say('from the order to boot until it is up', f'{took_s:.0f} s; {it.must("systemd-analyze time | head -n 1")[:80]}')
    it.check_output('no unit has failed', 'systemctl --failed --no-legend --plain')
    it.check_output('folders of others keep their mode through a boot', 'stat -c %a /Vtmp', '1777')
    it.check_output('huge pages are given always', 'cut -c1-8 /sys/kernel/mm/transparent_hugepage/enabled', '[always]')


def hardening(it):
    pid = it.pid()
    it.must('mkdir -p /share/Later && mount -t tmpfs tmpfs /share/Later')
    for can, folders in (('cannot', '/usr /etc /boot /opt /root /run /sys/kernel/mm'),
                         ('can', '/share/System /share/Recordings /share/Later /tarn/etc /var/log /tmp /Vtmp /Vdbglog '
                                 '/dev/shm /run/lock /etc/reverseproxy/extra')):
        for folder in folders.split():
            written = it.run(f'nsenter -t {pid} -m -- sh -c "touch {folder}/x && rm {folder}/x"')[0] == 0
            it.check(f'{can} write to {folder}', written == (can == 'can'))
    it.must('umount /share/Later && rmdir /share/Later')
    group = it.must('systemctl show -P ControlGroup velomond')
    status, text = it.run(f'echo $$ >/sys/fs/cgroup{group}/cgroup.procs && dd if=/dev/sda of=/dev/null count=1')
    it.check('cannot open a disk', status != 0 and 'not permitted' in text, text[:60])
    powers = it.must(f"sed -n 's/^CapBnd:\\s*//p' /proc/{pid}/status")
    it.check('has neither raw I/O nor administration left', int(powers, 16) & (1 << 17 | 1 << 21) == 0, powers)

    it.check_output('the hours of all disks are in their file',
                    'grep -c DISK /tmp/hdd_power_on_hour; grep -c NVMe /tmp/hdd_power_on_hour', '2\n1')
    it.check_output('disks are read through the helper',
                    "journalctl -b -u velomond -o cat | grep -E '/dev/(sd|nvme).* cannot be read' | tail -n 1")
    it.check('a mapped cache device is seen', '/dev/mapper/cachedev1' in json.loads(it.get('status') or '{}')['disk_info'])
    it.check('dumps are written', it.get('statistics_dump') == '{ "return": 0 }' and
             it.run('test -s /Vtmp/.sys_stats/log_0/cpu_stats.csv')[0] == 0)
    it.must('cp /usr/bin/sleep /tmp/Vplayback && systemd-run --quiet --uid=nobody /tmp/Vplayback infinity')
    it.eventually('processes of all users are followed',
                  lambda: re.search('"VmRSS": "[1-9]', it.get('mem_info?method=cur_data&name=Vplayback') or ''), 40)
    it.eventually('an expired rule loses its file', lambda: it.run('ls /etc/reverseproxy/extra/*.conf')[0] != 0, 60)
    it.must("printf '[System]\\nServer Name = renamed\\n' >/tarn/etc/config/Tarnix.conf")
    it.eventually('a newer server name is reported', lambda: it.bodies('/logs/refreshNasPara'), 60)


def killed(it):
    before = it.pid()
    it.must(f'kill -KILL {before}')
    it.eventually('comes back after a kill', lambda: it.pid() not in (0, before) and it.serves(), 60)


def failing_disk(it):
    """The full check of all disks is in the first minute of an hour, and this is the
    hour for the events."""
    it.machine.qmp('qom-set', path='/machine/peripheral/nvme', property='smart_critical_warning', value=4)
    before = len(it.bodies(DISK_REPORT))
    it.wait_age(25)  # two rounds, so that a jump can be seen
    it.set_clock('2027-03-01 02:59:50')
    it.eventually('a critical warning of the NVMe disk is in the report of the next full check',
                  lambda: [one for one in it.bodies(DISK_REPORT)[before:] if one['disk_update'] == 'error'], 140)
    it.eventually('and an event at the scheduled hour', lambda: [one for one in it.events('0x28020001') if 'NVMe' in one],
                  60)
    it.check('the healthy disks have none', len(it.events('0x28020001')) == 1)
    it.eventually('the clock that was set is in the log',
                  lambda: it.run('grep -c FUTURE /Vdbglog/.velolog/.velomond_timechg.log')[0] == 0, 30)


def filled(it):
    it.wait_age(VOLUME_GRACE_S)

    def leave(mib):
        it.must(f'rm -f /share/System/fill; stat -f -c "%S %f" /share/System | '
                f'{{ read size free; fallocate -l $((size * free - {mib} * 1048576)) /share/System/fill; }}')

    it.check('a volume with room is silent', not it.notices('002004'))
    leave(5000)
    it.eventually('a volume below its first limit is warned of', lambda: it.notices('002004'), 75)
    it.check('in the event log too', len(it.events('0x25010001')) == 1)
    leave(400)  # what is left is reserved for root
    it.eventually('a volume that only root can still use is an error', lambda: it.notices('002007'), 75)
    it.eventually('the surveillance service is disabled', lambda: it.bodies(DISABLE), 30)
    it.must('rm /share/System/fill')
    it.check('the other volumes are silent', not it.notices('002005') and not it.notices('002008'))


def mirror(it):
    """The daily check in 00:25, with a disk that expects to fail: silent only while
    the array rebuilds."""
    def day(number, what, expected):
        before = len(it.notices('001030'))
        it.set_clock(f'2027-03-{number} 00:24:55')
        end = time.monotonic() + 75
        while time.monotonic() < end and (fresh := len(it.notices('001030')) - before) == 0:
            time.sleep(3)
        it.check(what, fresh == expected)

    it.wait_age(VOLUME_GRACE_S)
    md = it.must('findmnt -n -o SOURCE /share/System')
    folder = f'/sys/block/{pathlib.Path(md).name}/md'
    it.must(f'mdadm --fail {md} /dev/sdb && mdadm --remove {md} /dev/sdb')
    day(10, 'a degraded mirror with a failing disk is in the daily notice', 1)
    it.must(f'for one in min max; do echo 400 >{folder}/sync_speed_$one; done; '
            f'dd if=/dev/urandom of=/share/System/new bs=1M count=96 conv=fsync && mdadm --re-add {md} /dev/sdb')
    state = f'cat {folder}/sync_action'
    it.check_output('the mirror rebuilds', state, 'recover')
    day(11, 'no daily notice while it does', 0)
    it.check_output('it still rebuilds by then', state, 'recover')
    it.must(f'for one in min max; do echo 500000 >{folder}/sync_speed_$one; done')
    it.eventually('the mirror is whole again', lambda: it.must(state) == 'idle', 120)
    day(12, 'and the notice is back', 1)


def memory(it):
    """Five minutes after the start; where asked for, also every five minutes of the half hour after that."""
    first_s = max(it.age_s(), 300)
    for later_s in range(0, MORE_S * it.options.long + 1, 300):
        it.wait_age(first_s + later_s)
        it.check_memory()


def hung_tools(it):
    it.must('mv /usr/sbin/smartctl /usr/sbin/smartctl.kept; cp /usr/bin/ostra_log_tool /usr/bin/ostra_log_tool.kept; '
            "for one in /usr/sbin/smartctl /usr/bin/ostra_log_tool; do printf '#!/bin/sh\\nexec sleep 1000\\n' >$one; "
            'chmod 755 $one; done; systemctl restart velomond')
    it.eventually('serves beside hung tools', it.serves, 30)
    it.eventually('a reading hangs in the helper',
                  lambda: it.run("systemctl list-units --no-legend 'velomond-smart@*' | grep running")[0] == 0, 30)
    it.check('and is no hindrance', it.serves())
    check_stop(it, 7)
    it.must('systemctl stop "velomond-smart@*"; mv /usr/sbin/smartctl.kept /usr/sbin/smartctl; '
            'mv /usr/bin/ostra_log_tool.kept /usr/bin/ostra_log_tool; systemctl start velomond')
    it.eventually('serves again', it.serves, 30)
    time.sleep(5)
    check_stop(it, 2)
    it.must('systemctl start velomond')
    it.check_output('nothing was refused to the daemon in all that time',
                    "journalctl -b -u velomond -o cat | grep -iE 'denied|read-only|not permitted' | sort | uniq -c")


def stop(it, unit):
    """Seconds of systemctl, and of them those until the main process had ended."""
    whole = it.must(f"bash -c 'TIMEFORMAT=%R; time systemctl stop {unit}' 2>&1 | tail -n 1")
    begin, end = (int(it.must(f'systemctl show -P {what}TimestampMonotonic {unit}'))
                  for what in ('ActiveExit', 'ExecMainExit'))
    return float(whole), (end - begin) / 1e6


def check_stop(it, limit_s):
    """In the emulator systemd itself takes its time over any unit: counted is what the
    process takes, and what is above the time of an idle one behind the same walls."""
    it.must("sed 's/^ExecStart=.*/ExecStart=sleep infinity/; s/^Type=.*/Type=exec/; /^Wants=/d' "
            '/usr/lib/systemd/system/velomond.service >/run/systemd/system/idle.service; '
            'systemctl daemon-reload; systemctl start idle')
    idle_s = stop(it, 'idle')[0]
    whole_s, process_s = stop(it, 'velomond')
    it.check(f'stops within {limit_s} s', max(process_s, whole_s - idle_s) < limit_s,
             f'{process_s:.2f} s; {whole_s:.2f} with systemd, which takes {idle_s:.2f} for an idle unit')
    it.check_output('and leaves no process', 'pgrep -l VeloMond')


def removed(it):
    it.must('dpkg -r velomond')
    it.check('a removal ends the daemon and takes its units', it.run('pgrep VeloMond')[0] != 0 and
             it.run('ls /usr/lib/systemd/system/velomond* /run/velomond/smart.socket')[0] != 0)
    it.check('and leaves dumps and logs', it.run('ls /Vtmp/.sys_stats/log_0/cpu_stats.csv /Vdbglog/.velolog/.velomond*')[0] == 0)
    it.must('dpkg -P velomond')
    it.check_output('a purge leaves nothing',
                    r"find / -xdev \( -iname '*velomond*' -o -name .sys_stats -o -name .velolog \) "
                    "! -name 'velomond_tools*' ! -path '/proc/*' ! -path '/sys/*' ! -path '/run/systemd/*' "
                    "! -path '/tmp/systemd-private*' ! -path '/var/tmp/systemd-private*'; find /dev/shm /run "
                    "/tmp -mindepth 1 -iname '*velomond*' ! -path '/run/systemd/*' ! -path '/run/udev/*'")


def left_out_tests(it):
    """Those that the emulator of programs cannot run."""
    for program in ('velomond_tests', 'velomond_stock_tests'):
        status, text = it.run(f'{PAYLOAD}/tests/{program} --gtest_brief=1 --gtest_filter={it.options.tests[1]}')
        ran = status == 0 and re.search(r'^\[==========\] ([1-9]\d* tests?) ', text, re.M)
        it.check(f'{program}: what was left out', bool(ran), ran[1] if ran else text[-1000:])


# What the steps take, in s, on a machine with nothing else to do.
BOOT_S = 20
STEPS = {install: 25, set_up: 40, left_out_tests: 20, killed: 8, failing_disk: 110, hardening: 50, filled: 120, mirror: 120,
         memory: 40, hung_tools: 30, removed: 10}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--long', action='store_true', help='half an hour of running too')
    for name in ('architecture', 'image', 'package', 'before'):
        parser.add_argument('--' + name, required=True)
    parser.add_argument('--tests', nargs=2, metavar=('FOLDER', 'FILTER'), help='test programs, and what to run of them')
    options = parser.parse_args()
    steps = {step: usual_s for step, usual_s in STEPS.items() if options.tests or step != left_out_tests}
    steps[memory] += MORE_S * options.long
    payload = {'velomond.deb': options.package, 'before.deb': options.before, 'set_up.sh': HERE / 'set_up.sh',
               'appliance_sim': TREE / 'tools/appliance_sim', **({'tests': options.tests[0]} if options.tests else {})}
    machine = TMachine(options.architecture, options.image, payload)
    try:
        with TProgress('vm', BOOT_S + sum(steps.values()), unit_s=1) as shown:
            it = TRecorder(machine, shown.line, options)
            shown.step('boot', BOOT_S)
            it.say('the machine boots', f'{machine.wait_up():.0f} s')
            for step, usual_s in steps.items():
                shown.step(step.__name__, usual_s)
                try:
                    step(it)
                except (RuntimeError, ValueError, KeyError, TypeError) as failure:
                    it.check(f'{step.__name__} ended early', False, str(failure)[:1000])
    finally:
        machine.close()
    it.say('assertions that failed', it.failed)
    sys.exit(1 if it.failed else 0)


if __name__ == '__main__':
    main()
