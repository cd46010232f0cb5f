"""docs/openapi.yaml against a running daemon, and docs/query-api.md against openapi.yaml,
in both directions: anything that only one of the two has is a failure."""

import collections
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


# Every string of the daemon that could be the name of a route or a method.
WORDS = set(re.findall(r'"([A-Za-z_]{3,24})"', ''.join(
    path.read_text() for folder in ('service', 'stats', 'health', 'surveillance', 'common', 'platform')
    for path in (TOP / 'src' / folder).rglob('*.[ch]*'))))


def resolved(value):
    """The value, or what its reference names."""
    return functools.reduce(lambda at, key: at[key], value['$ref'].split('/')[1:], API) if '$ref' in value else value


def validate(value, schema, example):
    """schema: a part of the file, with references into it; example: one of the file that has the same members."""
    schemas = [schema] + [{'$ref': f'#/components/schemas/{one}Answer'} for one in [example.get('x-data')] if one]
    jsonschema.Draft202012Validator({'allOf': schemas, 'components': API['components']}).validate(value)


# The arguments; the values of the argument `method`; the type, schema and examples of the one answer.
TOperation = collections.namedtuple('TOperation', 'path verb arguments methods type schema examples')


def operations():
    for path, item in API['paths'].items():
        for verb, one in item.items():
            arguments = {argument['name']: argument for argument in map(resolved, one.get('parameters', []))}
            methods = set(arguments['method']['schema']['enum'] if 'method' in arguments else [])
            (kind, answer), = one['responses']['200']['content'].items()
            yield TOperation(path[1:], verb.upper(), arguments, methods, kind, answer['schema'], answer['examples'])


def arguments_of(query):
    return dict(urllib.parse.parse_qsl(query))


def codes_of(schema):
    """The result codes of an answer without data."""
    answers = [resolved(one)['properties'] for one in schema.get('anyOf', [schema])]
    codes = [one['return'] for one in answers if 'data' not in one]
    return {code for one in codes for code in one.get('enum', [one.get('const')])}


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
        for one in operations():
            for name, example in one.examples.items():
                with self.subTest(path=one.path, example=name):
                    query = example.get('x-request', '').replace('eth0', 'nic0')
                    status, kind, text = request(one.verb, f'{one.path}?{query}', example.get('x-body'))
                    self.assertEqual((status, kind.split(';')[0]), (200, one.type))
                    answer = json.loads(text) if one.type == 'application/json' else text
                    for value in (answer, example['value']):
                        validate(value, one.schema, example)
                    if 'x-body' in example:
                        self.assertEqual(answer, example['value'])

    def check_routes(self):
        """There is no route, and no method of a route, that the file does not list."""
        self.assertEqual(len(API['paths']), 13)
        for word in WORDS | {path[1:] for path in API['paths']}:
            for method in ('GET', 'PUT', 'POST', 'DELETE'):
                listed = method.lower() in API['paths'].get('/' + word, {})
                status = request(method, word, '{}' if method in ('PUT', 'POST') else None)[0]
                self.assertEqual(status, 200 if listed else 405 if '/' + word in API['paths'] else 404, (method, word))

    def check_methods_and_codes(self):
        for path, _, names, methods, _, schema, examples in operations():
            if not methods:
                continue
            shown = [arguments_of(one['x-request']) for one in examples.values()]
            self.assertEqual({one['method'] for one in shown}, methods, path)
            self.assertLessEqual(set().union(*shown), set(names), path)
            entity = {name: 'any' for name, one in names.items() if one.get('required') and name != 'method'}

            def code(arguments):
                answer = ask(path + '?' + urllib.parse.urlencode(arguments))
                return 'data' if 'data' in answer else answer['return']
            refused = 0 if path == 'cpu_info' else -3
            for word in sorted(methods | WORDS):
                self.assertEqual(code({'method': word, **entity}) == refused, word not in methods, (path, word))
            seen = {code({}), code(entity), code({'method': 'no_such', **entity})}
            for one in methods:
                more = [{count: -1} for count in ('type', 'count') if count in names]
                seen |= {code({'method': one}), *(code({'method': one, **entity, **count}) for count in ({}, *more))}
            self.assertEqual(seen - {'data'}, codes_of(schema) - NOT_SEEN, path)


class Page(unittest.TestCase):
    """The page for readers: its examples, headings and codes."""

    def test_has_what_the_file_has(self):
        sections = dict(re.findall(r'^## (\w+)\n(.*?)(?=^## |\Z)', PAGE, re.M | re.S))
        self.assertEqual(set(sections), {path[1:] for path in API['paths']})
        codes = dict(re.findall(r'^\| (-?\d+) \| (.*) \|$', PAGE, re.M))
        self.assertEqual({int(code): words for code, words in codes.items()}, API['x-result-codes'])
        for path, verb, names, methods, _, schema, examples in operations():
            shown = set()
            for query, answer in self.examples(sections[path], verb, path):
                with self.subTest(path=path, query=query):
                    arguments = arguments_of(query)
                    self.assertLessEqual(set(arguments), set(names))
                    if answer == {'return': -3}:
                        validate(answer, schema, {})
                        continue
                    shown.add(arguments.get('method'))
                    # Nothing may be left to a schema of another method.
                    wanted = {key: arguments[key] for key in ('method', 'name') if key in arguments}.items()
                    twins = [it for it in examples.values() if arguments_of(it.get('x-request', '')).items() >= wanted]
                    validate(answer, schema, twins[0] if 'data' in answer and twins else {})
            self.assertEqual(shown, methods or {None}, path)

    def examples(self, section, method, path):
        """(query, answer) of each request that the section shows, what "..." leaves out filled in."""
        found = re.findall(rf'^    {method} /sysmonService/{path}(?:\?(\S*)| (\S+))?\n((?:    .*\n?)+)', section + '\n', re.M)
        self.assertTrue(found, (method, path))
        for query, _, text in found:
            text = text.strip()
            text = re.sub(r'"([0-2])([0-2]*)\.\.\."', lambda one: json.dumps((one[1] + one[2]).ljust(192, one[2][-1])), text)
            text = re.sub(r'"Vnvrd".*\.\.\..*"VtimeSync"', ', '.join(f'"V{i}"' for i in range(21)), text)
            yield query, text if text == 'health' else json.loads(text.replace(', ...', ''))
