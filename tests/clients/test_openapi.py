"""docs/openapi.yaml against a running daemon, and docs/query-api.md against openapi.yaml,
in both directions: anything that only one of the two has is a failure."""

import functools
import json
import os
import pathlib
import re
import time
import unittest
import urllib.parse

import jsonschema
import yaml

from appliance import TApplianceTest, TMachine, ask
from harness import eventually, get, request

TOP = pathlib.Path(__file__).resolve().parents[2]
API = yaml.safe_load((TOP / 'docs/openapi.yaml').read_text())
PAGE = (TOP / 'docs/query-api.md').read_text()
NOT_SEEN = {-1, -2}  # of a monitor that did not start, and of disks that cannot be read


def resolved(value):
    """A parameter, its reference resolved."""
    if '$ref' in value:
        return functools.reduce(lambda at, key: at[key], value['$ref'].split('/')[1:], API)
    return value


def validate(value, schema):
    """schema: a part of the file, with references into it."""
    jsonschema.Draft202012Validator({**schema, 'components': API['components']}).validate(value)


def operations():
    return [(path[1:], method, one) for path, item in API['paths'].items() for method, one in item.items()]


def parameters(operation):
    return {one['name']: one for one in map(resolved, operation.get('parameters', []))}


def methods_of(operation):
    return set(parameters(operation).get('method', {'schema': {'enum': []}})['schema']['enum'])


def content(operation):
    """(type, schema, examples) of the one answer."""
    (kind, one), = operation['responses']['200']['content'].items()
    return kind, one['schema'], one['examples']


def codes_of(schema):
    """The result codes of an answer without data."""
    if '$ref' in schema:
        return codes_of(resolved(schema))
    if 'anyOf' in schema:
        return set().union(*map(codes_of, schema['anyOf']))
    code = schema.get('properties', {}).get('return', {})
    return set(code.get('enum', [code.get('const')])) if 'data' not in schema.get('properties', {}) else set()


def words_of_the_source():
    """Every string of the daemon that could be the name of a route or a method."""
    folders = [TOP / 'src' / one for one in ('service', 'stats', 'health', 'surveillance', 'common', 'platform')]
    text = ''.join(path.read_text() for folder in folders for path in folder.rglob('*.[ch]*'))
    return set(re.findall(r'"([A-Za-z_]{3,24})"', text))


@unittest.skipUnless(os.environ.get('VELOMOND_APART'), 'needs a network interface of its own')
class OpenApi(TApplianceTest):
    def test_matches_the_daemon(self):
        machine = TMachine(self.root)
        machine.counters(1)
        self.start_up()
        self.check_examples()  # before the first round, too
        self.wait_for_request('/recStreamService/ChannelConnStat')
        time.sleep(15)
        machine.counters(2)
        eventually(lambda: 'nan' not in get('cpu_info?method=cur_data&name=system_all')[1])
        self.check_examples()
        self.check_routes()
        self.check_methods_and_codes()

    def check_examples(self):
        """Each example, and the daemon's answer to it, match the schemas."""
        for path, method, operation in operations():
            kind, schema, examples = content(operation)
            for name, example in examples.items():
                with self.subTest(path=path, example=name):
                    query = example.get('x-request', '').replace('eth0', 'nic0')
                    status, found_kind, text = request(method.upper(), path + ('?' + query if query else ''),
                                                       example.get('x-body'))
                    self.assertEqual(status, 200)
                    self.assertEqual(found_kind.split(';')[0], kind)
                    answer = json.loads(text) if kind == 'application/json' else text
                    for value in (answer, example['value']):
                        validate(value, schema)
                        if 'x-data' in example:
                            validate(value, {'$ref': f'#/components/schemas/{example["x-data"]}Answer'})
                        elif 'x-body' in example:
                            self.assertEqual(value, example['value'])

    def check_routes(self):
        """There is no route, and no method of a route, that the file does not list."""
        self.assertEqual(len(API['paths']), 13)
        for word in words_of_the_source() | {path[1:] for path in API['paths']}:
            for method in ('GET', 'PUT', 'POST', 'DELETE'):
                listed = method.lower() in API['paths'].get('/' + word, {})
                status = request(method, word, '{}' if method in ('PUT', 'POST') else None)[0]
                self.assertEqual(status, 200 if listed else 405 if '/' + word in API['paths'] else 404, (method, word))

    def check_methods_and_codes(self):
        known = set().union(*(methods_of(one) for _, _, one in operations()))
        for path, _, operation in operations():
            if 'method' not in parameters(operation):
                continue
            methods, names = methods_of(operation), parameters(operation)
            examples = [dict(urllib.parse.parse_qsl(one['x-request'])) for one in content(operation)[2].values()]
            self.assertEqual({one['method'] for one in examples}, methods, path)
            self.assertLessEqual(set().union(*examples), set(names), path)
            entity = {name: 'any' for name, one in names.items() if one.get('required') and name != 'method'}

            def code(arguments):
                answer = ask(path + '?' + urllib.parse.urlencode(arguments))
                return 'data' if 'data' in answer else answer['return']
            refused = 0 if path == 'cpu_info' else -3
            for word in sorted(known | words_of_the_source()):
                self.assertEqual(code({'method': word, **entity}) == refused, word not in methods, (path, word))
            seen = {code({}), code(entity), code({'method': 'no_such', **entity})}
            seen |= {code({'method': one}) for one in methods if entity}
            seen |= {code({'method': one, **entity, count: -1}) for one in methods for count in ('type', 'count')
                     if count in names}
            seen |= {code({'method': one, **entity}) for one in methods}
            self.assertEqual(seen - {'data'}, codes_of(content(operation)[1]) - NOT_SEEN, path)


class Page(unittest.TestCase):
    """The page for readers: its examples, headings and codes."""

    def test_has_what_the_file_has(self):
        sections = dict(re.findall(r'^## (\w+)\n(.*?)(?=^## |\Z)', PAGE, re.M | re.S))
        self.assertEqual(set(sections), {path[1:] for path in API['paths']})
        codes = dict(re.findall(r'^\| (-?\d+) \| (.*) \|$', PAGE, re.M))
        self.assertEqual({int(code): words for code, words in codes.items()}, API['x-result-codes'])
        for path, method, operation in operations():
            shown = set()
            for query, answer in self.examples(sections[path], method.upper(), path):
                with self.subTest(path=path, query=query):
                    arguments = dict(urllib.parse.parse_qsl(query))
                    self.assertLessEqual(set(arguments), set(parameters(operation)))
                    shown.add(arguments.get('method'))
                    validate(answer, content(operation)[1])
                    if answer == {'return': -3}:
                        shown.discard(arguments['method'])
                        continue
                    # Nothing may be left to a schema of another method.
                    twin = [one for one in content(operation)[2].values() if 'x-data' in one
                            and dict(urllib.parse.parse_qsl(one['x-request'])).items() >=
                            {key: arguments[key] for key in ('method', 'name') if key in arguments}.items()]
                    if 'data' in (answer if isinstance(answer, dict) else {}) and twin:
                        validate(answer, {'$ref': f'#/components/schemas/{twin[0]["x-data"]}Answer'})
            self.assertEqual(shown, methods_of(operation) or {None}, path)

    def examples(self, section, method, path):
        """(query, answer) of each request that the section shows, what "..." leaves out filled in."""
        found = re.findall(rf'^    {method} /sysmonService/{path}(?:\?(\S*)| (\S+))?\n((?:    .*\n?)+)', section + '\n', re.M)
        self.assertTrue(found, (method, path))
        for query, _, text in found:
            text = text.strip()
            if text == 'health':
                yield query, text
                continue
            text = re.sub(r'"([0-2])([0-2]*)\.\.\."', lambda one: json.dumps((one[1] + one[2]).ljust(192, one[2][-1])), text)
            text = re.sub(r'"Vnvrd".*\.\.\..*"VtimeSync"', ', '.join(f'"V{i}"' for i in range(21)), text)
            yield query, json.loads(text.replace(', ...', ''))
