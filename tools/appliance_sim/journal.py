"""Log of requests and their outcomes, one JSON line each."""

import json
import os
import sys
import threading
import time

MAX_BODY = 4096
MAX_FILE = 64 * 1024 * 1024


class TJournal:
    def __init__(self, path, show):
        self._path = path
        self._file = open(path, 'ab', buffering=0) if path else None
        self._show = show
        self._lock = threading.Lock()

    def add(self, service, method, path, query, body, outcome):
        """Written before the answer is sent: the line exists once the client has the answer."""
        now = time.time()
        entry = {'time_ms': int(now * 1000), 'service': service, 'method': method, 'path': path, 'query': query,
                 'body': body_value(body), 'outcome': outcome}
        line = json.dumps(entry) + '\n'
        with self._lock:
            if self._file is not None:
                self._start_anew()
                self._file.write(line.encode())
            if self._show:
                asked = '&'.join(f'{key}={value}' for key, value in query.items())
                parts = [time.strftime('%H:%M:%S', time.localtime(now)), f'{service:9}', method,
                         path + ('?' + asked if asked else ''), body[:300].decode(errors='replace'), f'-> {outcome}']
                show(' '.join(part for part in parts if part))

    def _start_anew(self):
        if self._file.tell() > MAX_FILE:
            self._file.close()
            os.replace(self._path, str(self._path) + '.old')
            self._file = open(self._path, 'ab', buffering=0)


def body_value(body):
    """JSON as it is, anything else as text, truncated to fit a line."""
    if len(body) <= MAX_BODY:
        try:
            return json.loads(body)
        except (ValueError, RecursionError):
            pass
    return body[:MAX_BODY].decode(errors='replace') or None


def show(line):
    """Prints to the terminal, replacing control characters; continues when the terminal is closed."""
    try:
        print(''.join(c if c.isprintable() else '?' for c in line), flush=True)
    except (OSError, ValueError):
        sys.stdout = open(os.devnull, 'w')
