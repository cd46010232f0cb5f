#!/usr/bin/env python3
"""Plants small faults into src/, one at a time, and lists those that no test detects.

This happens in copies of the tree below build/mutate, one for each job. Every fault is
built and run against the unit programs, the tests of its folder first, and if it
survives, the end-to-end tests. A fault that does not compile is replaced by another one.
Results are kept, so that an interrupted run continues where it stopped."""

import argparse
import collections
import concurrent.futures
import hashlib
import itertools
import json
import os
import pathlib
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

import faults

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

import progress  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / 'build/mutate'
CELL = pathlib.Path(__file__).with_name('cell.sh')
KNOWN = pathlib.Path(__file__).with_name('no_faults.txt')
COPIED = ('CMakeLists.txt', 'cmake', 'src', 'tests', 'fuzz', 'tools', 'packaging')
FAKE, STOCK, FAST_CLOCK = 'velomond_tests', 'velomond_stock_tests', 'velomond_fast_clock'
SIDE_BY_SIDE = {FAKE: 1, STOCK: 4}  # one of them mostly waits for peers and children
E2E = ('test_lifecycle', 'test_reports', 'test_routes', 'test_days_work')
UNIT, END_TO_END, LIVES, NONE = 'unit', 'e2e', 'lives', 'does not compile'
interrupted = threading.Event()


def say(text):
    print(text, flush=True)


def run(*commands, timeout_s=None, environment=None):
    """Runs them side by side up to the first that fails: its (exit status, output), or the last one's; the status is
    None after the time-out."""
    deadline = time.monotonic() + (timeout_s or float('inf'))
    running = []
    try:
        for index, command in enumerate(commands):
            output = tempfile.TemporaryFile()
            running.append((output, subprocess.Popen(
                command, stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, start_new_session=True, env={
                    **os.environ, **(environment or {}), 'GTEST_TOTAL_SHARDS': str(len(commands)),
                    'GTEST_SHARD_INDEX': str(index)})))
        while True:
            ended = [(output, process) for output, process in running if process.poll() is not None]
            output, status = next(((output, process.returncode) for output, process in ended if process.returncode),
                                  (running[-1][0], 0 if len(ended) == len(running) else None))
            if status is not None or time.monotonic() > deadline:
                output.seek(0)
                return status, output.read().decode(errors='replace')
            if interrupted.is_set():  # the end of what ran is no result
                raise KeyboardInterrupt
            time.sleep(0.01)
    finally:
        for _, process in running:
            process.kill()  # the cell and all processes in it
            process.wait()


def write_changed(path, text):
    if not path.exists() or path.read_bytes() != text:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text)


class Tree:
    """A copy, its build and its tests."""

    seconds = {}  # how long parts of the tests take without a fault, in any of the copies

    def __init__(self, number):
        self.place = WORK / str(number)
        self.top, self.products = self.place / 'tree', self.place / 'build'
        names = subprocess.run(['git', 'ls-files', '-co', '--exclude-standard', *COPIED], cwd=ROOT, check=True,
                               capture_output=True, text=True).stdout.split('\n')
        self.files = sorted(name for name in names if (ROOT / name).is_file())
        digest = hashlib.sha256()
        for name in self.files:
            text = (ROOT / name).read_bytes()
            if not name.startswith('tools/mutate/'):
                digest.update(name.encode() + b'\0' + text)
            write_changed(self.top / name, text)
            shutil.copymode(ROOT / name, self.top / name)
        for path in [one for one in self.top.rglob('*') if one.is_file() and '__pycache__' not in one.parts]:
            if str(path.relative_to(self.top)) not in self.files:
                path.unlink()
        self.digest = digest.hexdigest()[:16]
        self.tests = {}  # program: {test: the folder of its file}

    def configure(self):
        launcher = [f'-DCMAKE_{one}_COMPILER_LAUNCHER=ccache' for one in ('C', 'CXX') if shutil.which('ccache')]
        linker = [f'-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld={one}' for one in ('lld', 'gold') if shutil.which('ld.' + one)]
        # Without optimisation and debug information: the build time counts. Without
        # warnings: a fault that the compiler only warns about counts as one.
        status, output = run(['cmake', '-G', 'Ninja', '-S', self.top, '-B', self.products, '-DCMAKE_BUILD_TYPE=Fault',
                              '-DCMAKE_C_FLAGS_FAULT=-O0 -w', '-DCMAKE_CXX_FLAGS_FAULT=-O0 -w', '-DVELOMOND_CLIENTS=OFF',
                              *launcher, *linker[:1]])
        if status != 0:
            sys.exit(output)

    def build(self, *targets):
        # By relative names, what was compiled for one copy serves the others too.
        return run(['ninja', '-C', self.products, *targets], environment={'CCACHE_BASEDIR': str(self.place)})

    def program(self, name):
        return self.products / 'tests' / name

    def list_tests(self, name):
        """The tests as listed by the program, with the file of each."""
        if name not in self.tests:
            listing = self.place / f'{name}.json'
            run([self.program(name), '--gtest_list_tests', f'--gtest_output=json:{listing}'])
            self.tests[name] = {f"{suite['name']}.{test['name']}": pathlib.Path(test['file']).parent.name
                                for suite in json.loads(listing.read_text())['testsuites']
                                for test in suite['testsuite']}
        return self.tests[name]

    def unit(self, name, tests, key=None):
        """Runs tests of a unit program up to the first that fails: what failed, or None."""
        key = key or (name, *tests)
        limit_s = 20 + 6 * self.seconds[key] if key in self.seconds else 600
        begin = time.monotonic()
        command = [CELL, self.program(name), '--gtest_fail_fast', '--gtest_brief=1',
                   '--gtest_filter=' + ':'.join(tests)]
        status, output = run(*[command] * SIDE_BY_SIDE[name], timeout_s=limit_s)
        if status == 125:
            sys.exit(output)
        if status == 0 and '[  PASSED  ]' in output:
            self.seconds.setdefault(key, time.monotonic() - begin)
            return None
        failed = re.search(r'\[  FAILED  \] (\S+?)[ ,]', output)
        return 'time-out' if status is None else failed[1] if failed else f'{name} ended with {status}'

    def catches(self, name, tests):
        """As `unit`, but for a test that a busy machine fails now and then: what fails twice has caught the fault."""
        caught = self.unit(name, tests)
        if caught in tests and self.unit(name, (caught,), (name, *tests)) is None:
            caught = self.unit(name, tests)
        return caught

    def plan(self, path):
        """(program, its tests) in the order that detects a fault of the file soonest."""
        room = pathlib.Path(path).parts[1]
        for name in (STOCK, FAKE) if room in ('base', 'platform', 'smart_helper') else (FAKE, STOCK):
            tests = self.list_tests(name)
            near = [one for one, folder in tests.items() if folder == room]
            yield from ((name, part) for part in (near, [one for one in tests if one not in near]) if part)

    def end_to_end(self, *modules):
        """Runs modules of end-to-end tests side by side up to the first that fails: what failed, or None."""
        limit_s = 60 + 4 * self.seconds[E2E] if E2E in self.seconds else 600
        begin = time.monotonic()
        status, output = run(*[[CELL, self.top / 'tests/e2e/run.sh', one] for one in modules], timeout_s=limit_s, environment={
            'VELOMOND_BINARY': str(self.products / 'src/VeloMond'),
            'VELOMOND_FAST_CLOCK': str(self.products / 'tools/fast_clock/libvelomond_fast_clock.so')})
        if status == 0:
            self.seconds.setdefault(modules, time.monotonic() - begin)
            return None
        failed = re.search(r'^(?:FAIL|ERROR): (\S+) \((\w+)', output, re.M)
        return 'time-out' if status is None else f'{failed[2]}.{failed[1]}' if failed else f'ended with {status}'

    def check(self, paths, end_to_end):
        """Checks that all tests pass without a fault, and measures how long they take."""
        for name, tests in {(name, tuple(tests)) for path in paths for name, tests in self.plan(path)}:
            if failed := self.unit(name, tests) and self.unit(name, tests):
                sys.exit(f'without a fault {failed} fails')
        if end_to_end and (failed := self.end_to_end(*E2E) and self.end_to_end(*E2E)):
            sys.exit(f'without a fault {failed} fails')

    def try_fault(self, fault, end_to_end):
        """(how it ended, what caught it)"""
        path = self.top / fault.path
        source = path.read_text()
        path.write_text(fault.plant(source))
        try:
            for name, parts in itertools.groupby(self.plan(fault.path), lambda part: part[0]):
                linked = self.program(name).stat().st_mtime_ns
                if self.build(name)[0] != 0:
                    return NONE, ''
                if self.program(name).stat().st_mtime_ns == linked:
                    continue  # it has nothing of the file
                for _, tests in parts:
                    if caught := self.catches(name, tuple(tests)):
                        return UNIT, caught
            if end_to_end:
                if self.build('VeloMond')[0] != 0:
                    return NONE, ''
                # On a busy machine a test may fail by chance: two failures count as detection.
                if caught := self.end_to_end(*E2E) and self.end_to_end(*E2E):
                    return END_TO_END, caught
            return LIVES, ''
        finally:
            path.write_text(source)


def known():
    """Faults without effect, from a file of blocks: path, the line, the line with the fault, the reason."""
    entries = set()
    for block in KNOWN.read_text().split('\n\n'):
        lines = [' '.join(line.split()) for line in block.splitlines() if not line.startswith('#')]
        if lines and (len(lines) < 4 or any(line.startswith('src/') for line in lines[1:])):
            sys.exit(f'{KNOWN}: not a path, two lines and a reason: {lines}')
        if lines:
            entries.add(tuple(lines[:3]))
    return entries


class Results:
    """The result of each fault, kept until sources or tests change."""

    def __init__(self, digest, only_lived):
        self.path, self.digest, self.by_fault = WORK / 'results.jsonl', digest, {}
        lines = self.path.read_text().splitlines() if self.path.exists() else []
        for one in map(json.loads, lines):
            # For a later state of the tree, faults caught before still count as caught if requested.
            if one['digest'] == digest or (only_lived and one['how'] != LIVES):
                self.by_fault[tuple(one['fault'])] = one['how'], one['by']

    @staticmethod
    def key(fault):
        return fault.path, fault.before, fault.after, str(fault.start)

    def of(self, fault):
        return self.by_fault.get(self.key(fault)) or next(
            (result for key, result in self.by_fault.items() if key[:3] == self.key(fault)[:3]), None)

    def keep(self, fault, how, caught_by):
        self.by_fault[self.key(fault)] = how, caught_by
        with open(self.path, 'a') as file:
            file.write(json.dumps({'digest': self.digest, 'fault': self.key(fault), 'how': how, 'by': caught_by}) + '\n')


def drawn(paths, seeds, count):
    """The faults in the order of the draw; for each seed its share of the count. A fault's place depends on its own
    lines alone, so that after a change elsewhere the same ones are drawn, and their results still count."""
    no_faults = known()
    all_faults = []
    for path in paths:
        all_faults += faults.faults_of(path, (ROOT / path).read_text())
    possible = {(one.path, one.before, one.after) for one in all_faults}
    for path, before, after in sorted(no_faults - possible):
        if path in paths:
            say(f'{KNOWN.name} has a fault that {path} no longer has: {before} -> {after}')
    alike = collections.Counter()
    places = {}
    for one in all_faults:
        name = one.path, one.before, one.after
        if name not in no_faults and one.kind != faults.NOTHING:
            places[one] = '\n'.join((*name, str(alike[name])))
        alike[name] += 1
    say(f'{len(all_faults)} faults can be planted in {len(paths)} files; {len(all_faults) - len(places)} of them are '
        'known to be none')
    orders = [sorted(places, key=lambda one: hashlib.sha256(f'{seed}\n{places[one]}'.encode()).digest())
              for seed in seeds]
    return orders, [count // len(seeds) + (index < count % len(seeds)) for index in range(len(seeds))]


class Jobs:
    """Trees of which each tries one fault at a time; built where there is something to try."""

    def __init__(self, paths, options, shown):
        self.paths, self.count, self.end_to_end, self.shown = paths, options.jobs, not options.unit, shown
        self.first, self.free, self.lock = Tree(0), queue.Queue(), threading.Lock()
        self.results = Results(self.first.digest, options.again)

    def make_ready(self, done):
        self.shown.step('build and all tests without a fault', 0, done)
        for number in range(self.count):
            tree = Tree(number) if number else self.first
            tree.configure()
            status, output = tree.build(STOCK, FAKE, *(('VeloMond', FAST_CLOCK) if self.end_to_end else ()))
            if status != 0:
                sys.exit(output)
            if tree is self.first:
                tree.check(self.paths, self.end_to_end)
            self.free.put(tree)

    def is_open(self, fault):
        result = self.results.of(fault)
        return result is None or (result[0] == LIVES and self.end_to_end and result[1] == UNIT)

    def try_one(self, fault, done):
        """(fault, how it ended, what caught it), from the results where it is known"""
        if self.is_open(fault):
            tree = self.free.get()
            try:
                self.shown.step(f'{fault.path}:{fault.line} {fault.kind}', 1, done())
                how, caught_by = tree.try_fault(fault, self.end_to_end)
            finally:
                self.free.put(tree)
            if how == LIVES:
                caught_by = '' if self.end_to_end else UNIT  # at least for the unit programs
            with self.lock:
                self.results.keep(fault, how, caught_by)
        return fault, *self.results.of(fault)

    def try_batch(self, batch, done):
        """Yields what `try_one` returns, in their order."""
        if self.free.empty() and any(map(self.is_open, batch)):
            self.make_ready(done())
        pool = concurrent.futures.ThreadPoolExecutor(self.count)
        try:
            yield from pool.map(lambda fault: self.try_one(fault, done), batch)
        except BaseException:
            interrupted.set()
            raise
        finally:
            pool.shutdown(cancel_futures=True)


def try_all(orders, counts, paths, options, shown):
    """(fault, how, by) of every fault that counts."""
    jobs = Jobs(paths, options, shown)
    outcomes, seen = [], set()
    for order, count in zip(orders, counts):
        left, end = iter(order), len(outcomes) + count
        while len(outcomes) < end:
            batch = list(itertools.islice((one for one in left if one not in seen), end - len(outcomes)))
            if not batch:
                break
            seen.update(batch)
            # In the order of the files, so that little has to be rebuilt between them.
            batch.sort(key=lambda one: (one.path, one.start))
            for fault, how, caught_by in jobs.try_batch(batch, lambda: len(outcomes)):
                if how != NONE:
                    outcomes.append((fault, how, caught_by))
                    shown.line(describe(fault, how, '' if how == LIVES else caught_by))
    return outcomes


def describe(fault, how, caught_by):
    text = f'{how:5}  {fault.path}:{fault.line} {fault.kind}'
    return text + (f'  ({caught_by})' if caught_by else f'\n         {fault.before}\n     ->  {fault.after}')


def share(part, whole):
    return f'{part} of {whole}' + (f', {100 * part / whole:.0f} %' if whole else '')


def summary(outcomes, only_units):
    """`outcomes`: (fault, how, by) of every fault that counts."""
    say('')
    lives = [one for one in outcomes if one[1] == LIVES]
    for one in lives:
        say(describe(*one))
    in_units = [how for fault, how, _ in outcomes if fault.path != 'src/core/main.cpp']
    if not only_units:
        say(f'caught: {share(len(outcomes) - len(lives), len(outcomes))}')
    say(f'caught by the unit programs alone, main.cpp aside: {share(in_units.count(UNIT), len(in_units))}')
    for title, name in ('kind', lambda fault: fault.kind), ('room', lambda fault: pathlib.Path(fault.path).parts[1]):
        table = collections.defaultdict(list)
        for fault, how, _ in outcomes:
            table[name(fault)].append(how != LIVES)
        say(f'  by {title}: ' + ', '.join(f'{key} {sum(all_)}/{len(all_)}' for key, all_ in sorted(table.items())))


def main():
    parser = argparse.ArgumentParser(prog='./dev mutate', description=__doc__)
    parser.add_argument('paths', nargs='*', default=['src'], metavar='PATH', help='files or folders below src')
    parser.add_argument('--n', type=int, default=30, help='how many faults (default: 30)')
    parser.add_argument('--seed', type=int, action='append', help='several seeds share the faults (default: 1)')
    parser.add_argument('--jobs', type=int, default=os.cpu_count(), metavar='J',
                        help='how many are tried side by side (default: one for each processor)')
    parser.add_argument('--unit', action='store_true', help='skip the end-to-end tests')
    parser.add_argument('--again', action='store_true',
                        help='after a change of the tree, only repeat the faults that survived before')
    parser.add_argument('--list', action='store_true', help='show the faults that would be planted')
    options = parser.parse_args()

    wanted = [(ROOT / one).resolve() for one in options.paths]
    paths = sorted(str(one.relative_to(ROOT)) for one in (ROOT / 'src').rglob('*')
                   if one.suffix in ('.cpp', '.h', '.hpp') and any(one == top or top in one.parents for top in wanted))
    if not paths:
        parser.error('no source of ours in ' + ' '.join(options.paths))
    orders, counts = drawn(paths, options.seed or [1], options.n)
    if options.list:
        for order, count in zip(orders, counts):
            for fault in order[:count]:
                say(describe(fault, '', ''))
        return 0

    with progress.TProgress('mutate', options.n) as shown:
        outcomes = try_all(orders, counts, paths, options, shown)
    summary([(fault, how, '' if how == LIVES else by) for fault, how, by in outcomes], options.unit)
    return 0


if __name__ == '__main__':
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit('\nstopped; the same command continues from here')
