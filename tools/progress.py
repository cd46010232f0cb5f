#!/usr/bin/env python3
"""Shows on standard error how far long work is. On a terminal: one line that is written over,
with the share done and the time left. Elsewhere: a plain line at a step, at most one in ten seconds.

In Python (sys.path has tools/):

    with progress.TProgress('soak', sum(SECONDS.values()), unit_s=1) as shown:
        for name in SECONDS:
            shown.step(name, SECONDS[name])     # before the work; what was begun before is done
            shown.line('text')                  # a line of output, in place of print() while shown

Steps have weights of any unit, 1 unless given; `unit_s` is how long a unit takes as far as is known
beforehand. After the first step the time left comes from the time that steps have taken. A step of
weight 0 (preparations) moves neither the share nor that time. `done` says where the work is by the
caller's own count, e.g. past pieces that an earlier run had done.

In a shell, as the last command of a pipe; everything read is written to standard output:

    work | tools/progress.py NAME --lines N     # each of N lines is a step
    work | tools/progress.py NAME --seconds S   # lines "step SECONDS TEXT" are the steps, and left out
"""

import argparse
import os
import shutil
import signal
import sys
import threading
import time

PLAIN_EVERY_S = 10


def duration(seconds):
    """In the unit that suits: 5 s, 12 min, 1 h 5 min."""
    if seconds < 90:
        return f'{seconds:.0f} s'
    minutes = round(seconds / 60)
    return f'{minutes} min' if minutes < 90 else f'{minutes // 60} h {minutes % 60} min'


class TProgress:
    """Used as a context; on leaving it the line on the terminal is cleared."""

    def __init__(self, name, total, unit_s=0.0):
        self._name, self._total, self._unit_s = name, max(total, 1e-9), unit_s
        self._terminal = os.isatty(2) and os.environ.get('TERM', 'dumb') != 'dumb'
        self._done, self._weight, self._text, self._step_start = 0.0, 0.0, '', time.monotonic()
        self._timed, self._timed_s = 0.0, 0.0  # units of the steps that had some, and what they took
        self._plain_next_s, self._lock, self._ended = 0.0, threading.Lock(), threading.Event()

    def __enter__(self):
        if self._terminal:
            threading.Thread(target=self._tick, daemon=True).start()
        return self

    def __exit__(self, *_):
        with self._lock:
            self._ended.set()
            self._clear()

    def step(self, text, weight=1.0, done=None):
        with self._lock:
            now = time.monotonic()
            before, self._done = self._done, min(self._done + self._weight if done is None else done, self._total)
            if self._weight > 0:
                self._timed += min(self._weight, self._done - before)  # 0 when the step was for nothing
                self._timed_s += now - self._step_start
            self._text, self._weight, self._step_start = text, weight, now
            if self._terminal:
                self._draw(now)
            elif now >= self._plain_next_s:
                self._plain_next_s = now + PLAIN_EVERY_S
                print(self.text(now), file=sys.stderr, flush=True)

    def line(self, text):
        with self._lock:
            self._clear()
            print(text, flush=True)
            self._draw(time.monotonic())

    def text(self, now):
        """ "soak: 40 %, 6 min left, peers". A step that overruns its time is almost done until the next begins."""
        unit_s = self._timed_s / self._timed if self._timed > 0 else self._unit_s
        part = min((now - self._step_start) / unit_s, 0.99 * self._weight) if unit_s > 0 else 0.0
        done = min(self._done + part, self._total)
        left = f', {duration(unit_s * (self._total - done))} left' if unit_s > 0 else ''
        return f'{self._name}: {int(100 * done / self._total)} %{left}, {self._text}'

    def _tick(self):
        while not self._ended.wait(1):
            with self._lock:
                self._draw(time.monotonic())

    def _clear(self):
        if self._terminal:
            print('\r\x1b[K', end='', file=sys.stderr, flush=True)

    def _draw(self, now):
        if self._terminal and self._text and not self._ended.is_set():
            columns = shutil.get_terminal_size().columns
            print('\r\x1b[K' + self.text(now)[:columns - 1], end='', file=sys.stderr, flush=True)


def main():
    parser = argparse.ArgumentParser(prog='progress.py', description='Passes its input on and shows how far the work is.')
    parser.add_argument('name')
    total = parser.add_mutually_exclusive_group(required=True)
    total.add_argument('--lines', type=int)
    total.add_argument('--seconds', type=float)
    options = parser.parse_args()
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the work ends by it, and with it our input
    with TProgress(options.name, options.lines or options.seconds, unit_s=0 if options.lines else 1) as shown:
        if options.lines:
            shown.step('begins')
        for number, text in enumerate(map(str.rstrip, sys.stdin), 1):
            words = text.split(None, 2)
            if options.lines:
                shown.line(text)
                shown.step(f'{number} of {options.lines} lines')
            elif len(words) == 3 and words[0] == 'step':
                shown.step(words[2], float(words[1]))
            else:
                shown.line(text)


if __name__ == '__main__':
    main()
