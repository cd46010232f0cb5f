"""The appliance's state: a folder of JSON files that may be written at any time."""

import json
import os
import pathlib
import tempfile
import threading

MAX_BYTES = 8 * 1024 * 1024


class TState:
    """Each file is read again at each access."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self._lock = threading.Lock()
        self._change_lock = threading.Lock()
        self._good = {}  # file name -> its last valid content; guarded by _lock

    def get(self, name, default=None):
        """The content of the file. For a file that is half-written, not JSON or too large
        it is the last valid content; for a missing one, the default."""
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
        """Replaces a file with the first result of change(value) in one step, unless that
        is None. Returns the second result."""
        with self._change_lock:
            value, result = change(self.get(name))
            if value is not None:
                with tempfile.NamedTemporaryFile('w', dir=self.folder, delete=False) as file:
                    json.dump(value, file, indent=2)
                    file.write('\n')
                os.replace(file.name, self.folder / name)
            return result
