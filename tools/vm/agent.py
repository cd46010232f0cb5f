#!/usr/bin/env python3
"""Inside the machine: runs what comes over the port to the host, one JSON object a
line, and answers each with its exit status and what it printed."""

import json
import subprocess

PORT = '/dev/virtio-ports/velomond.vm'


def answer(request):
    try:
        done = subprocess.run(['/bin/bash', '-c', request['command']], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=request['timeout_s'],
                              check=False)
        return {'status': done.returncode, 'text': done.stdout.decode(errors='replace')}
    except subprocess.TimeoutExpired as failure:
        return {'status': -1, 'text': (failure.stdout or b'').decode(errors='replace') + '\n(took too long)'}


with open(PORT, 'r+b', buffering=0) as port:
    port.write(b'{"up": true}\n')
    buffer = b''
    while True:
        buffer += port.read(65536)
        while b'\n' in buffer:
            line, buffer = buffer.split(b'\n', 1)
            try:
                request = json.loads(line)
            except ValueError:
                continue  # the host went away in the middle of a line
            port.write(json.dumps({'id': request['id'], **answer(request)}).encode() + b'\n')
