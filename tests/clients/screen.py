"""A terminal in tmux, and screenshots of it and of pages by headless Chromium."""

import html
import os
import re
import subprocess
import time

COLOURS = {30: '#000', 31: '#e06c75', 32: '#98c379', 33: '#e5c07b', 34: '#61afef', 35: '#c678dd', 36: '#56b6c2', 37: '#ddd'}


class TTerminal:
    def __init__(self, folder, columns, lines, command, term='xterm-16color'):
        self._tmux = ['tmux', '-S', str(folder / 'tmux'), '-f', '/dev/null']
        self.run('new-session', '-d', '-s', 'it', '-x', str(columns), '-y', str(lines),
                 f'env TERM={term} LC_ALL=C.UTF-8 {command}')

    def run(self, *arguments):
        return subprocess.run([*self._tmux, *arguments], capture_output=True, text=True, check=True).stdout

    def keys(self, *keys):
        self.run('send-keys', '-t', 'it', *keys)
        time.sleep(0.6)

    def resize(self, columns, lines):
        self.run('resize-window', '-t', 'it', '-x', str(columns), '-y', str(lines))
        time.sleep(1)

    def text(self):
        return self.run('capture-pane', '-p', '-t', 'it')

    def html(self):
        """The screen with its colours."""
        body, opened = '', 0
        for part in re.split(r'(\x1b\[[\d;]*m)', self.run('capture-pane', '-e', '-p', '-t', 'it')):
            codes = re.fullmatch(r'\x1b\[([\d;]*)m', part)
            if not codes:
                body += html.escape(re.sub(r'\x1b.|\x0e|\x0f', '', part))
                continue
            for code in map(int, (codes[1] or '0').split(';')):
                if code in (0, 39):
                    body, opened = body + '</span>' * opened, 0
                style = {1: 'font-weight:bold', 2: 'opacity:.6'}.get(code) or (code in COLOURS and 'color:' + COLOURS[code])
                if style:
                    body, opened = body + f'<span style="{style}">', opened + 1
        return ('<meta charset=utf-8><body style="margin:0;background:#1e2127"><pre style="margin:8px;color:#ddd;'
                f'font:14px/17px DejaVu Sans Mono">{body}{"</span>" * opened}</pre>')

    def ended(self):
        return subprocess.run([*self._tmux, 'has-session', '-t', 'it'], capture_output=True).returncode != 0


def chromium(folder, *options):
    """(standard output, console lines) of a page that is opened."""
    done = subprocess.run(['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--hide-scrollbars', '--disable-sync',
                           '--disable-background-networking', '--no-first-run', f'--user-data-dir={folder}/chromium',
                           '--enable-logging=stderr', *options], capture_output=True, text=True, timeout=120,
                          env={**os.environ, 'HOME': str(folder)})
    return done.stdout, [line for line in done.stderr.splitlines() if 'CONSOLE' in line]


def picture(folder, page, path, width, height):
    """Writes a screenshot of the page to the path; returns its console lines."""
    path.unlink(missing_ok=True)
    lines = chromium(folder, f'--window-size={width},{height}', f'--screenshot={path}', f'file://{page}')[1]
    assert path.stat().st_size > 5000, path
    return lines
