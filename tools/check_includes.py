"""Reports includes in src/ that point up the house, and circles of files."""

import pathlib
import re
import sys

SOURCES = pathlib.Path(__file__).resolve().parent.parent / 'src'
# What each room may include besides itself. Only the service points up, to the core's dump.
DOMAINS = ['stats', 'health', 'surveillance', 'housekeeping']
BELOW = {
    'base': [],
    'platform': ['base'],
    'platform/stock': ['base', 'platform'],
    'smart_helper': ['base', 'platform', 'platform/stock'],
    'common': ['base', 'platform'],
    **{domain: ['base', 'platform', 'common'] for domain in DOMAINS},
    'service': ['base', 'platform', 'common', 'core', *DOMAINS],
    'core': ['base', 'platform', 'common', 'service', *DOMAINS],
}


def room_of(path):
    return 'platform/stock' if path.startswith('platform/stock/') else path.split('/')[0]


def includes_of(path):
    return re.findall(r'^#include "([^"]+)"', (SOURCES / path).read_text(), re.MULTILINE)


def circle(path, graph, above, done):
    """The files of a circle that can be reached from a file; empty without one."""
    if path in above:
        return [*above[above.index(path):], path]
    if path in done:
        return []
    done.add(path)
    return next(filter(None, (circle(one, graph, [*above, path], done) for one in graph.get(path, []))), [])


def main():
    files = [str(path.relative_to(SOURCES)) for path in sorted(SOURCES.rglob('*')) if path.suffix in ('.cpp', '.h', '.hpp')]
    graph = {path: includes_of(path) for path in files}
    faults = [f'src/{path}: includes {one}, which lies above {room_of(path)}' for path, found in graph.items()
              for one in found if room_of(one) not in [room_of(path), *BELOW[room_of(path)]]]
    done = set()
    faults += [f'src/: circle of includes: {" -> ".join(found)}' for path in files if (found := circle(path, graph, [], done))]
    print('\n'.join(faults), end='\n' if faults else '', file=sys.stderr)
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
