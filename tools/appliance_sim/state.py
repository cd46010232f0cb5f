"""The appliance's state: a folder of JSON files that anyone may write at any time."""

import json
import os
import pathlib
import tempfile
import threading

MAX_BYTES = 8 * 1024 * 1024


class TState:
    """Each file is read afresh whenever it is asked for."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self._lock = threading.Lock()
        self._change_lock = threading.Lock()
        self._good = {}  # file name -> what it last held; guarded by _lock

    def get(self, name, default=None):
        """What the file holds. A file that is half-written, no JSON or too large
        reads as what it last held; one that is not there, as the default."""
        path = self.folder / name
        try:
            with open(path, 'rb') as file:
                text = file.read(MAX_BYTES + 1)
            if len(text) > MAX_BYTES:
                raise ValueError('too large')
            value = json.loads(text)
        except FileNotFoundError:
            with self._lock:
                self._good.pop(name, None)
            return default
        except (OSError, ValueError, RecursionError):
            with self._lock:
                return self._good.get(name, default)
        with self._lock:
            self._good[name] = value
        return value

    def get_object(self, name):
        """As get(), for files that hold an object; anything else is an empty one."""
        value = self.get(name)
        return value if isinstance(value, dict) else {}

    def change(self, name, change):
        """Rewrites a file with what change(value) makes of it, in one step for
        whoever reads. Nothing is written for None. Tells change's second result."""
        with self._change_lock:
            value, result = change(self.get(name))
            if value is not None:
                with tempfile.NamedTemporaryFile('w', dir=self.folder, delete=False) as file:
                    json.dump(value, file, indent=2)
                    file.write('\n')
                os.replace(file.name, self.folder / name)
            return result
