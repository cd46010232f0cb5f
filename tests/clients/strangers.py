"""Servers in place of the daemon that answer garbage, late or never."""

import contextlib
import itertools
import json
import socketserver
import threading
import time

ESCAPES = '\x1b[2J\x1b]0;owned\x07\x9b31m\u202e<script>alert(1)</script>"\'&\n\r'
OK = b'HTTP/1.1 200 OK\r\n'
FIGURES = ('total_pcnt user_pcnt sys_pcnt iowait_pcnt steal_pcnt idle_pcnt MemTotal MemUsed MemFree MemAvailable '
           'Buffers Cached SReclaimable SwapTotal SwapFree pgmajfault pgfault zfs_mem_cache VmSize VmRSS maj_flt min_flt '
           'tx rx throughput rd_latency wr_latency rd_io wr_io')
NAMES = [f'{number}{"x" * 120}' for number in range(1024 * 1024 // 124)]


class TServer(socketserver.ThreadingTCPServer):
    daemon_threads = True

    def finish_request(self, request, client_address):
        request.settimeout(30)
        with contextlib.suppress(OSError):
            self.RequestHandlerClass(request)


def start(test, act):
    """The port of a server that lasts as long as the test; act(connection) handles one connection."""
    server = TServer(('127.0.0.1', 0), act)
    threading.Thread(target=server.serve_forever, args=(0.01,), daemon=True).start()
    test.addCleanup(server.server_close)
    test.addCleanup(server.shutdown)
    return str(server.server_address[1])


def sends(head, pieces, pause_s=0):
    def act(connection):
        connection.recv(65536)
        connection.sendall(head)
        for piece in pieces:
            connection.sendall(piece)
            time.sleep(pause_s)
    return act


def http(body, status='200 OK', head=''):
    return sends(f'HTTP/1.1 {status}\r\n{head}Content-Length: {len(body.encode())}\r\n\r\n'.encode(), [body.encode()])


class TLikeness:
    """A daemon whose every name is `name`; change its attributes to have it answer otherwise."""

    def __init__(self, name='Gate', interfaces=None):
        self.name, self.interfaces = name, interfaces
        self.recording = 'normal'
        self.cameras = '01' + '2' * 190

    def __call__(self, connection):
        while request := connection.recv(65536):  # short ones arrive whole
            body = json.dumps(self.answer(request.split()[1].decode())).encode()
            connection.sendall(OK + b'Content-Length: %d\r\n\r\n' % len(body) + body)

    def answer(self, url):
        path, _, query = url.rpartition('/')[2].partition('?')
        name = self.name
        if path == 'status':
            return {'return': 0, 'cpu_info': {'core_no': 1, 'core_list': ['cpu0', 'system_all']}, 'mem_info': {},
                    'disk_info': ['/dev/mapper/' + name], 'network_info': self.interfaces or [name], 'daemon_list': [name]}
        if path == 'recording_state':
            return {'utc_time': 1795393352, 'camera_recording_update': self.recording}
        if path in ('cpu_info', 'mem_info', 'network_info', 'disk_info'):
            data = dict.fromkeys(FIGURES.split(), ['7', '8.5'] if 'line_data' in query else '7')
        elif 'channel_info' in query:
            data = [{'id': number, 'name': name, 'guid': name, 'umsid': name, 'ip': name, 'port': name, 'brand': name,
                     'ums_name': name} for number in range(2)]
        else:
            data = {'utc_time': '60', 'interval': '60000', 'timestamp': '1795393352000', 'disk_update': 'normal',
                    'fan_update': 'normal', 'sys_health': name, 'cam_stat': self.cameras, 'conf_changed': '0' * 192}
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
        'escapes': (http(ESCAPES), invalid), 'deep': (http('{"a":' * 100000), invalid),
        'refuses': (http('{ "return": -2 }'), refused), 'no name': (TLikeness(interfaces=[7]), invalid),
        'a megabyte of names': (TLikeness(interfaces=NAMES), invalid),
        'one name of a megabyte': (TLikeness(interfaces=['x' * (1 << 20)]), invalid),
    }
