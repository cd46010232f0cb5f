"""Small HTTP servers on the loopback address, with faults on demand."""

import http.server
import json
import random
import socket
import struct
import threading
import urllib.parse

MAX_CONNECTIONS = 64  # of one service
MAX_BODY = 1024 * 1024
IDLE_S = 30
HOST = '127.0.0.1'


class TAnswer:
    def __init__(self, value=None, status=200):
        """value: any JSON value, or bytes that are sent unchanged."""
        self.status = status
        self.body = value if isinstance(value, bytes) else b'' if value is None else json.dumps(value).encode()


class TServer(http.server.ThreadingHTTPServer):
    """answer(method, path, query, body) -> TAnswer. Faults come from the state file
    faults.json, see README.md."""

    daemon_threads = True
    block_on_close = False
    request_queue_size = 128

    def __init__(self, name, port, answer, state, journal, stopping):
        self.name, self.answer, self.state, self.journal, self.stopping = name, answer, state, journal, stopping
        self._room = threading.BoundedSemaphore(MAX_CONNECTIONS)
        super().__init__((HOST, port), THandler)

    def process_request(self, request, client_address):
        if not self._room.acquire(blocking=False):
            self.shutdown_request(request)
            return
        super().process_request(request, client_address)

    def process_request_thread(self, request, client_address):
        try:
            super().process_request_thread(request, client_address)
        finally:
            self._room.release()

    def handle_error(self, request, client_address):
        """Ignores a client that closed its connection."""

    def fault_of(self, method, path):
        faults = self.state.get_object('faults.json')
        for key in (f'{method} {path}', path, str(self.server_address[1]), self.name):
            if isinstance(faults.get(key), dict):
                return faults[key]
        return {}

    def run(self):
        self.serve_forever(poll_interval=0.1)
        self.server_close()


class THandler(http.server.BaseHTTPRequestHandler):
    protocol_version = 'HTTP/1.1'
    timeout = IDLE_S

    def handle_request(self):
        url = urllib.parse.urlsplit(self.path)
        path = urllib.parse.unquote(url.path)
        query = dict(urllib.parse.parse_qsl(url.query, keep_blank_values=True))
        body = self.read_body()
        if body is None:
            return
        fault = self.server.fault_of(self.command, path)
        kind = fault.get('fault')
        note = [self.server.name, self.command, path, query, body]
        if kind in FAULTS:
            self.close_connection = True
            self.server.journal.add(*note, kind)
            FAULTS[kind](self, fault, note[1:])
            return
        answer = self.answer_of(note[1:])
        if kind == 'status':
            answer = TAnswer({'error': 'as ordered'}, number(fault, 'status', 503, 200, 599))
        self.server.journal.add(*note, answer.status)
        self.send(answer)

    do_GET = do_PUT = do_POST = do_DELETE = handle_request

    def answer_of(self, request):
        try:
            return self.server.answer(*request)
        except Exception as failure:  # the state has unexpected content
            return TAnswer({'error': f'{type(failure).__name__}: {failure}'}, 500)

    def read_body(self):
        """None when it cannot be read; the client got an error answer."""
        try:
            length = int(self.headers.get('Content-Length') or 0)
        except ValueError:
            length = -1
        if not 0 <= length <= MAX_BODY or self.headers.get('Transfer-Encoding'):
            self.close_connection = True
            self.send(TAnswer({'error': 'body'}, 413))
            return None
        return self.rfile.read(length)

    def send(self, answer):
        self.send_response(answer.status)
        self.send_header('Content-Type', 'application/json')
        self.send_header('Content-Length', str(len(answer.body)))
        self.end_headers()
        self.wfile.write(answer.body)

    def log_message(self, format, *args):
        """Requests are in the journal."""


def number(fault, key, default, least, most):
    value = fault.get(key, default)
    return min(max(value, least), most) if isinstance(value, (int, float)) else default


def refuse(handler, fault, request):
    """The client sees its connection reset."""
    handler.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))


def hang(handler, fault, request):
    handler.server.stopping.wait(number(fault, 'seconds', 60, 0, 3600))


def slow(handler, fault, request):
    answer = handler.answer_of(request)
    head = f'HTTP/1.1 {answer.status} Slow\r\nContent-Length: {len(answer.body)}\r\n\r\n'.encode()
    for byte in head + answer.body:
        handler.wfile.write(bytes([byte]))
        if handler.server.stopping.wait(number(fault, 'delay_ms', 500, 0, 60000) / 1000):
            return


def garbage(handler, fault, request):
    """Not HTTP; with "body", a valid answer with that text, or noise, as its body; after "seconds"."""
    handler.server.stopping.wait(number(fault, 'seconds', 0, 0, 3600))
    noise = random.Random(0).randbytes(256)
    if 'body' in fault:
        handler.send(TAnswer(fault['body'].encode() if isinstance(fault['body'], str) else noise))
    else:
        handler.wfile.write(noise)


def huge(handler, fault, request):
    size = int(number(fault, 'size', 64 * 1024 * 1024, 0, 1 << 40))
    handler.wfile.write(f'HTTP/1.1 200 OK\r\nContent-Length: {size}\r\n\r\n'.encode())
    while size > 0 and not handler.server.stopping.is_set():
        handler.wfile.write(b' ' * min(size, 65536))
        size -= 65536


FAULTS = {'refuse': refuse, 'hang': hang, 'slow': slow, 'garbage': garbage, 'huge': huge}
