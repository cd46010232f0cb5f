"""An emulated recorder: boots an image, runs commands in it and breaks its disks."""

import itertools
import json
import pathlib
import select
import shutil
import socket
import subprocess
import tempfile
import time

QEMU = {'amd64': ['qemu-system-x86_64', '-machine', 'q35,sata=off', '-cpu', 'max'],
        'arm64': ['qemu-system-aarch64', '-machine', 'virt', '-cpu', 'cortex-a72']}
CONSOLE = {'amd64': 'ttyS0', 'arm64': 'ttyAMA0'}
GIB = 1 << 30


class TLines:
    """JSON, an object a line, over one of the emulator's sockets."""

    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(str(path))
        self._buffer = b''

    def send(self, value):
        self._socket.sendall(json.dumps(value).encode() + b'\n')

    def receive(self, timeout_s):
        """The next object; None when none comes."""
        end = time.monotonic() + timeout_s
        while b'\n' not in self._buffer:
            if not select.select([self._socket], [], [], max(0, end - time.monotonic()))[0]:
                return None
            data = self._socket.recv(65536)
            if not data:
                raise EOFError('the machine has gone')
            self._buffer += data
        line, self._buffer = self._buffer.split(b'\n', 1)
        return json.loads(line)


class TMachine:
    """`disks` names files below `folder` and their sizes; see _devices for what each
    becomes. What the machine writes to its root is gone with it."""

    DISKS = {'sata_a': 12 * GIB, 'sata_b': 12 * GIB, 'nvme': 64 * GIB}

    def __init__(self, architecture, image, payload):
        self._image, self._architecture = pathlib.Path(image), architecture
        self._folder = pathlib.Path(tempfile.mkdtemp(prefix='velomond_vm_'))
        self._ids = itertools.count()
        for name, size in self.DISKS.items():
            with open(self._folder / name, 'wb') as disk:
                disk.truncate(size)
        self._make_payload(payload)
        self._process = subprocess.Popen(self._command(), stdin=subprocess.DEVNULL)
        try:
            self._agent, self._qmp = (self._connect(name) for name in ('agent', 'qmp'))
            self._qmp.receive(30)
            self.qmp('qmp_capabilities')
        except BaseException:
            self.close()
            raise

    def _make_payload(self, files):
        """A disk of files, {name: source}, for the machine to mount."""
        tree = self._folder / 'payload'
        tree.mkdir()
        for name, source in files.items():
            (shutil.copytree if pathlib.Path(source).is_dir() else shutil.copy2)(source, tree / name)
        subprocess.run(['mke2fs', '-q', '-t', 'ext4', '-L', 'payload', '-d', tree, self._folder / 'payload.img', '128M'],
                       check=True, stdout=subprocess.DEVNULL)

    def _command(self):
        arguments = [*QEMU[self._architecture], '-accel', 'tcg', '-smp', '1', '-m', '1024', '-display', 'none',
                     '-nodefaults', '-kernel', self._image / 'vmlinuz', '-initrd', self._image / 'initrd.img',
                     '-append', f'root=LABEL=root rw quiet net.ifnames=0 '
                     f'transparent_hugepage=always console={CONSOLE[self._architecture]}',
                     '-serial', f'file:{self._image / "console.log"}',
                     '-qmp', f'unix:{self._folder / "qmp"},server=on,wait=off',
                     '-chardev', f'socket,id=agent,path={self._folder / "agent"},server=on,wait=off']
        devices = ['virtio-serial-pci', 'virtserialport,chardev=agent,name=velomond.vm',
                   'virtio-blk-pci,drive=root', 'virtio-blk-pci,drive=payload', 'ich9-ahci,id=ahci',
                   'ide-hd,bus=ahci.0,drive=sata_a,serial=SATA-A,model=SATA-DISK',
                   'ide-hd,bus=ahci.1,drive=sata_b,serial=SATA-B,model=SATA-DISK',
                   'nvme,id=nvme,drive=nvme,serial=NVME-C']
        drives = [f'file={self._image / "root.img"},id=root,snapshot=on',
                  f'file={self._folder / "payload.img"},id=payload,read-only=on',
                  *(f'file={self._folder / name},id={name}' for name in self.DISKS)]
        for drive in drives:
            arguments += ['-drive', drive + ',if=none,format=raw,cache=unsafe']
        for device in devices:
            arguments += ['-device', device]
        return list(map(str, arguments))

    def _connect(self, name):
        for _ in range(300):
            try:
                return TLines(self._folder / name)
            except OSError:
                if self._process.poll() is not None:
                    raise RuntimeError('the emulator did not start') from None
                time.sleep(0.1)
        raise RuntimeError(f'no {name}')

    def wait_up(self, timeout_s=600):
        """Seconds until the machine reports that it has booted."""
        start = time.monotonic()
        while (line := self._agent.receive(start + timeout_s - time.monotonic())) is not None:
            if 'up' in line:
                return time.monotonic() - start
        raise RuntimeError(f'did not boot, see {self._image / "console.log"}')

    def run(self, command, timeout_s=120):
        """(exit status, what it printed) of a shell command."""
        number = next(self._ids)
        self._agent.send({'id': number, 'command': command, 'timeout_s': timeout_s})
        while (line := self._agent.receive(timeout_s + 60)) is not None:
            if line.get('id') == number:
                return line['status'], line['text'].strip()
        raise RuntimeError(f'no answer to: {command}')

    def must(self, command, timeout_s=120):
        """What a command printed that has to succeed."""
        status, text = self.run(command, timeout_s)
        if status != 0:
            raise RuntimeError(f'{command}: {status}: {text[-2000:]}')
        return text

    def qmp(self, execute, **arguments):
        self._qmp.send({'execute': execute, 'arguments': arguments})
        while (answer := self._qmp.receive(30)) is not None:
            if 'error' in answer:
                raise RuntimeError(f'{execute}: {answer["error"]}')
            if 'return' in answer:
                return answer['return']
        raise RuntimeError(f'no answer to {execute}')

    def reboot(self):
        """Seconds from the order until it is up again."""
        start = time.monotonic()
        self._agent.send({'id': next(self._ids), 'command': 'systemctl reboot', 'timeout_s': 60})
        self.wait_up()
        return time.monotonic() - start

    def close(self):
        self._process.kill()
        self._process.wait()
        shutil.rmtree(self._folder)
