"""Servers in place of the daemon that answer garbage, late or never."""

import contextlib
import itertools
import json
import socketserver
import threading
import time

ESCAPES = '\x1b[2J\x1b]0;owned\x07\x9b31m\u202e<script>alert(1)</script>"\'&\n\r'
OK = b'HTTP/1.1 200 OK\r\n'
NAMES = [f'{number}{"x" * 120}' for number in range(1024 * 1024 // 124)]


class TStranger(socketserver.ThreadingTCPServer):
    """Listens on a free port; act(connection) handles one connection."""
    daemon_threads = True

    def __init__(self, act):
        super().__init__(('127.0.0.1', 0), act)
        self.port = self.server_address[1]
        threading.Thread(target=self.serve_forever, args=(0.01,), daemon=True).start()

    def finish_request(self, request, client_address):
        request.settimeout(30)
        with contextlib.suppress(OSError):
            self.RequestHandlerClass(request)

    def close(self):
        self.shutdown()
        self.server_close()


def sends(head, pieces, pause_s=0):
    def act(connection):
        connection.recv(65536)
        connection.sendall(head)
        for piece in pieces:
            connection.sendall(piece)
            time.sleep(pause_s)
    return act


def http(body, status='200 OK', head=''):
    body = body if isinstance(body, bytes) else body.encode(errors='surrogatepass')
    return sends(f'HTTP/1.1 {status}\r\n{head}Content-Length: {len(body)}\r\n\r\n'.encode(), [body])


class TLikeness:
    """A daemon whose every name is `name`; change its attributes to have it answer otherwise."""

    def __init__(self, name='Gate', interfaces=None):
        self.name, self.interfaces = name, interfaces
        self.disks = self.recording = 'normal'
        self.cameras = '01' + '2' * 190

    def __call__(self, connection):
        text = b''
        while True:
            text += (new := connection.recv(65536))
            if not new:
                return
            while b'\r\n\r\n' in text:
                head, _, text = text.partition(b'\r\n\r\n')
                body = json.dumps(self.answer(head.split()[1].decode())).encode()
                connection.sendall(b'HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n' % len(body) + body)

    def answer(self, url):
        path, _, query = url.rpartition('/')[2].partition('?')
        name = self.name
        if path == 'status':
            return {'return': 0, 'cpu_info': {'core_no': 1, 'core_list': ['cpu0', 'system_all']}, 'mem_info': {},
                    'disk_info': ['/dev/mapper/' + name], 'network_info': self.interfaces or [name], 'daemon_list': [name]}
        if path == 'recording_state':
            return {'utc_time': 1795393352, 'camera_recording_update': self.recording}
        figures = {'cpu_info': 'total_pcnt user_pcnt sys_pcnt iowait_pcnt steal_pcnt idle_pcnt', 'network_info': 'tx rx',
                   'mem_info': 'MemTotal MemUsed MemFree MemAvailable Buffers Cached SReclaimable SwapTotal SwapFree '
                   'pgmajfault pgfault zfs_mem_cache VmSize VmRSS maj_flt min_flt',
                   'disk_info': 'throughput rd_latency wr_latency rd_io wr_io'}
        times = {'utc_time': '1795393352', 'interval': '60000', 'timestamp': '1795393352000'}
        if path in figures:
            value = ['7', '8.5'] if 'line_data' in query else '7'
            data = {one: value for one in figures[path].split()}
        elif 'channel_info' in query:
            data = [{'id': number, 'name': name, 'guid': name, 'umsid': name, 'ip': name, 'port': name, 'brand': name,
                     'ums_name': name} for number in range(2)]
        else:
            data = {**times, 'disk_update': self.disks, 'fan_update': 'normal', 'sys_health': name,
                    'cam_stat': self.cameras, 'conf_changed': '0' * 192, 'changed_flag': False}
        return {'return': 0, 'data': data}


def strangers():
    """{name: (act, the exit code of velomondctl)}"""
    timeout, invalid, refused = 4, 5, 6
    return {
        'hangs': (sends(b'', [b''], 20), timeout),
        'drips': (sends(b'', [bytes([byte]) for byte in OK + b'Content-Length: 1000\r\n\r\n'], 0.2), timeout),
        'never ends': (sends(OK + b'\r\n', itertools.repeat(b' ' * 65536)), invalid),
        'never ends its head': (sends(OK, itertools.repeat(b'X-A: ' + b'a' * 1000 + b'\r\n')), invalid),
        'closes': (lambda connection: None, invalid),
        'no HTTP': (lambda connection: connection.sendall(bytes(range(256))), invalid),
        'escapes as a status': (http('', ESCAPES[:8] + ' x'), invalid), 'status 500': (http('{}', '500 No'), invalid),
        'elsewhere': (http('', '302 Found', 'Location: file:///etc/passwd\r\n'), invalid),
        'noise': (http(bytes(range(256)) * 10), invalid), 'empty': (http(''), invalid), 'list': (http('[]'), invalid),
        'escapes': (http(ESCAPES), invalid), 'deep': (http('{"a":' * 100000), invalid),
        'cut short': (http('{ "return": 0, "data"'), invalid), 'refuses': (http('{ "return": -2 }'), refused),
        'a megabyte of names': (TLikeness(interfaces=NAMES), invalid),
        'one name of a megabyte': (TLikeness(interfaces=['x' * (1 << 20)]), invalid),
    }
