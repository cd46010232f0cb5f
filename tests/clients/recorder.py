"""A complete recorder in the namespaces that apart.sh creates: simulator, daemon, some
services, exporter; and the end of a tunnel, a Unix socket that leads to the exporter's port.

recorder.py FOLDER: FOLDER/state is that of the simulator, FOLDER/root is made, FOLDER/tunnel is the socket. Ends at the
end of its standard input; a line "stop daemon" there ends the daemon only."""

import asyncio
import contextlib
import functools
import os
import pathlib
import socket
import subprocess
import sys
import threading

from harness import eventually

TOP = pathlib.Path(__file__).resolve().parents[2]
BUSY = 'import math, sys, time\nn = float(sys.argv[1])\nx = bytearray(int(sys.argv[2]) << 20)\nwhile True:\n' \
       ' t = time.time()\n d = n * (1.2 + math.sin(t / 50))\n' \
       ' while time.time() < t + d: pass\n time.sleep(max(0.01, 0.5 - d))\n'
SERVICES = {'Vnvrd': (0.06, 60), 'VrecStream': (0.04, 90), 'VliveStream': (0.02, 40), 'VdbService': (0.01, 120),
            'VcamManager': (0.005, 20), 'VeventEngine': (0.002, 30)}  # share of half a second, MiB


async def copy(reader, writer):
    """Copies data until it ends, and with it the other connection."""
    with contextlib.closing(writer), contextlib.suppress(OSError):
        while data := await reader.read(65536):
            writer.write(data)
            await writer.drain()


def tunnel(listen, connect):
    """Joins each connection to the server of listen() with a new one of connect()."""
    async def join(reader, writer):
        with contextlib.closing(writer), contextlib.suppress(OSError):
            far_reader, far_writer = await connect()
            await asyncio.gather(copy(reader, far_writer), copy(far_reader, writer))

    async def run():
        await (await listen(join)).serve_forever()
    threading.Thread(target=asyncio.run, args=(run(),), daemon=True).start()


def simulator_is_up():
    with socket.socket() as probe:
        return probe.connect_ex(('127.0.0.1', 10187)) == 0


def make_root(root):
    (root / 'dev/mapper').mkdir(parents=True)
    for line in pathlib.Path('/proc/diskstats').read_text().splitlines():
        device = pathlib.Path('/dev', line.split()[2])
        if device.is_block_device() and int(line.split()[3]) > 0:  # any that the kernel counts will do for a cache
            (root / 'dev/mapper/cachedev1').symlink_to(device)
            break
    subprocess.run([TOP / 'tools/make_root.sh', root], check=True)


def main():
    folder = pathlib.Path(sys.argv[1])
    make_root(folder / 'root')
    processes = [subprocess.Popen([sys.executable, '-B', TOP / 'tools/appliance_sim/appliance_sim.py', '--quiet',
                                   '--state', folder / 'state'])]
    eventually(simulator_is_up)  # before the daemon, which queries the channels once at its start
    services = folder / 'services'
    services.mkdir()
    for name, (share, megabytes) in SERVICES.items() if folder.name == 'recorder-1' else ():
        (services / name).symlink_to(sys.executable)  # the kernel names a process by what was executed
        processes.append(subprocess.Popen([services / name, '-c', BUSY, str(share), str(megabytes)]))
    with open(folder / 'stderr', 'ab') as stderr:
        daemon = subprocess.Popen([os.environ['VELOMOND_BINARY']], stderr=stderr,
                                  env={**os.environ, 'VELOMOND_ROOT': str(folder / 'root')})
        processes += [daemon, subprocess.Popen([os.environ['VELOMOND_EXPORTER']], stderr=stderr)]
    for name, port in (('tunnel', 10192), ('query', 10191)):
        tunnel(functools.partial(asyncio.start_unix_server, path=folder / name),
               functools.partial(asyncio.open_connection, '127.0.0.1', port))
    try:
        for line in sys.stdin:
            if line == 'stop daemon\n':
                daemon.terminate()
    finally:
        for one in reversed(processes):
            one.terminate()
        for one in processes:
            one.wait()


if __name__ == '__main__':
    main()
