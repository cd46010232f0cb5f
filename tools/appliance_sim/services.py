"""Answers of the appliance's other services, from the state folder."""

import http.client
import json
import sys
import threading
import time

from server import HOST, TAnswer

NOT_FOUND = TAnswer({'error': 'no such route'}, 404)
LEASE_S = 90  # of a registration; it is repeated every 30 s


def from_file(state, name):
    value = state.get(name)
    return TAnswer(value) if value is not None else TAnswer({'error': f'no {name}'}, 503)


class TDashboard:
    """Accepts any report."""

    def __call__(self, method, path, query, body):
        return TAnswer({}) if method in ('POST', 'PUT') else NOT_FOUND


class TRecording:
    """recording.json is the answer; cameras.json holds the channels, for both routes."""

    _of_stat = {'conn_failed_count', 'conn_failed_step', 'info_changed'}

    def __init__(self, state):
        self._state = state

    def __call__(self, method, path, query, body):
        if method != 'GET':
            return NOT_FOUND
        if path == '/recStreamService/recording_state':
            return from_file(self._state, 'recording.json')
        if path == '/recStreamService/ChannelConnInfo':
            return self._channels(lambda one: {key: value for key, value in one.items() if key not in self._of_stat})
        if path == '/recStreamService/ChannelConnStat':
            answer = self._channels(lambda one: {key: value for key, value in one.items()
                                                 if key in ('id', 'conn_failed_count', 'info_changed')})
            self._state.change('cameras.json', self._count_on)
            return answer
        return NOT_FOUND

    def _channels(self, part):
        cameras = self._state.get('cameras.json')
        if cameras is None:
            return TAnswer({'error': 'no cameras.json'}, 503)
        return TAnswer({'data': [part(one) for one in cameras]})

    @staticmethod
    def _count_on(cameras):
        """Channels with a conn_failed_step fail that often until the next reading;
        a reported change is cleared."""
        moved = False
        for one in cameras or []:
            if one.get('conn_failed_step'):
                one['conn_failed_count'] = one.get('conn_failed_count', 0) + one['conn_failed_step']
                moved = True
            moved = bool(one.pop('info_changed', None)) or moved
        return (cameras if moved else None), None


class TConfiguration:
    """proxy_rules.json lists the rules; deleted ones are removed from it. A rule with
    "refuse_delete" stays and answers with that error."""

    def __init__(self, state):
        self._state = state

    def __call__(self, method, path, query, body):
        if path != '/cfg/ReverseProxy':
            return NOT_FOUND
        if method == 'GET' and query.get('act') == 'list':
            return from_file(self._state, 'proxy_rules.json')
        if method == 'DELETE' and query.get('act') == 'delete':
            return TAnswer({'err_code': self._state.change('proxy_rules.json', lambda value: self._delete(value, query))})
        return TAnswer({'err_code': -1})

    @staticmethod
    def _delete(value, query):
        rules = (value or {}).get('ReverseProxyRuleList', [])
        for rule in rules:
            if rule.get('GUID') == query.get('GUID') and str(rule.get('rule_type')) == query.get('rule_type'):
                if rule.get('refuse_delete'):
                    return None, rule['refuse_delete']
                rules.remove(rule)
                return value, 0
        return None, -2


def is_lease(kind, value):
    if not isinstance(value, dict):
        return False
    if kind == 'services':
        return isinstance(value.get('host'), str) and isinstance(value.get('port'), int) and 0 < value['port'] < 65536
    return isinstance(value.get('route'), str) and value['route'].startswith('/')


class THub:
    """Names, notices and the message bus; hub.json may hold answers of the bus."""

    def __init__(self, state, journal, stopping):
        self._state, self._journal, self._stopping = state, journal, stopping
        self._lock = threading.Lock()
        self._leases = {}  # (kind, name) -> (until, object); guarded by _lock

    def __call__(self, method, path, query, body):
        parts = path.split('/')
        if len(parts) == 4 and parts[3] and parts[1:3] in (['nameserver', 'services'], ['notify', 'subscriptions']):
            return self._lease(method, parts[2], parts[3], body)
        if method != 'POST':
            return NOT_FOUND
        if path == '/vbus/reverse_proxy':
            return TAnswer(self._state.get_object('hub.json').get('reverse_proxy', {'ret': 0, 'resp': 'done'}))
        if path in ('/notify/notices', '/vbus/nc_notify', '/vbus/ostrapro_disable'):
            return TAnswer({})
        return NOT_FOUND

    def _lease(self, method, kind, name, body):
        key = kind, name
        with self._lock:
            if method == 'PUT':
                try:
                    value = json.loads(body)
                except (ValueError, RecursionError):
                    value = None
                if not is_lease(kind, value):
                    return TAnswer({'error': 'body'}, 400)
                now = time.monotonic()
                self._leases = {one: lease for one, lease in self._leases.items() if lease[0] > now}
                if len(self._leases) >= 1000 and key not in self._leases:
                    return TAnswer({'error': 'full'}, 507)
                self._leases[key] = now + LEASE_S, value
                return TAnswer({})
            if method == 'DELETE':
                return TAnswer({}) if self._leases.pop(key, None) else NOT_FOUND
        value = self._find(kind, name) if method == 'GET' and kind == 'services' else None
        return TAnswer(value) if value else NOT_FOUND

    def _find(self, kind, name):
        with self._lock:
            until, value = self._leases.get((kind, name), (0, None))
        if until > time.monotonic():
            return value
        if kind != 'services':
            return None
        services = self._state.get_object('hub.json').get('services')
        value = services.get(name) if isinstance(services, dict) else None
        return value if is_lease(kind, value) else None

    def deliver_notices(self):
        """Runs until the stop: sends each JSON file that appears in the state's folder
        "notices" once to every subscriber, then removes it."""
        folder = self._state.folder / 'notices'
        while not self._stopping.wait(0.1):
            try:
                self._deliver_new(folder)
            except OSError as error:  # retried: the folder or the journal may be writable later
                print(f'notices: {error}', file=sys.stderr)

    def _deliver_new(self, folder):
        for path in sorted(folder.glob('*.json')) if folder.is_dir() else []:
            notice = self._state.get('notices/' + path.name)
            with self._lock:
                names = [name for kind, name in self._leases if kind == 'subscriptions']
            takers = [(name, *found) for name in names
                      if all(found := (self._find('services', name), self._find('subscriptions', name)))]
            if notice is None or not takers:
                continue  # incomplete, or without subscribers
            path.unlink(missing_ok=True)
            self._state.get('notices/' + path.name)  # forgets the removed file: the next one of that name is new
            for taker in takers:
                self._deliver(*taker, notice)

    def _deliver(self, name, service, subscription, notice):
        body = json.dumps(notice).encode()
        connection = http.client.HTTPConnection(HOST, service['port'], timeout=5)
        try:
            connection.request('PUT', subscription['route'], body, {'Content-Type': 'application/json'})
            answer = connection.getresponse()
            outcome = f'{answer.status} {answer.read(4096).decode(errors="replace")}'
        except (OSError, http.client.HTTPException, ValueError) as failure:
            outcome = f'{type(failure).__name__}: {failure}'
        finally:
            connection.close()
        self._journal.add('notice', 'PUT', f'{name}{subscription["route"]}', {}, body, outcome)
