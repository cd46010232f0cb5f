"""The small faults that can be planted in C++ source, found by its tokens.

The source is formatted by clang-format, whose blanks show which "<", "&&" or "*" is
a binary operator and which belongs to a type."""

import dataclasses
import re

TOKENS = re.compile(r'''(?P<skip>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:\\\n|[^\n])*)
    |(?P<text>R"\(.*?\)"|"(?:[^"\\\n]|\\.)*")
    |(?P<char>'(?:[^'\\\n]|\\.)+')
    |(?P<number>\d(?:[\w.']|(?<=[eE])[+-])*)
    |(?P<word>[A-Za-z_]\w*)
    |(?P<sign><=>|<<=|>>=|->\*|\.\.\.|::|->|\+\+|--|<<|>>|[-+*/%&|^<>=!]=|&&|\|\||.)''', re.M | re.S | re.X)

# Binary operators: their replacements, and the kinds of the faults.
OPERATORS = {
    '==': [('!=', 'comparison')], '!=': [('==', 'comparison')],
    '<': [('<=', 'boundary'), ('>=', 'comparison')], '>': [('>=', 'boundary'), ('<=', 'comparison')],
    '<=': [('<', 'boundary'), ('>', 'comparison')], '>=': [('>', 'boundary'), ('<', 'comparison')],
    '&&': [('||', 'logical')], '||': [('&&', 'logical')],
    '+': [('-', 'sign')], '-': [('+', 'sign')], '*': [('/', 'sign')], '/': [('*', 'sign')],
    '+=': [('-=', 'sign')], '-=': [('+=', 'sign')], '|=': [('&=', 'sign')], '|': [('&', 'sign')], '&': [('|', 'sign')],
    '>>': [('<<', 'sign')], '<<': [('>>', 'sign')],
}
NOTHING = 'nothing'  # the kind of a fault that is none
WORDS = {'true': 'false', 'false': 'true'}
NO_STATEMENT = set('''alignas auto case catch class const constexpr default delete do else enum explicit extern for
    friend goto if inline namespace operator private protected public static static_assert struct switch template
    thread_local throw try typedef typename union using virtual volatile while return'''.split())


@dataclasses.dataclass(frozen=True)
class Fault:
    """Replaces `length` characters from `start` on by `instead`. `before` and `after` are its lines, with single
    blanks: together with the path they identify the fault, even when the lines move."""
    path: str
    kind: str
    start: int
    length: int
    instead: str
    line: int
    before: str
    after: str

    def plant(self, source):
        return source[:self.start] + self.instead + source[self.start + self.length:]


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    start: int
    spaced: bool = False  # blanks on both sides
    partner: int = -1     # of a bracket: the index of the other one
    inside: str = ''      # the innermost bracket around it

    @property
    def end(self):
        return self.start + len(self.text)


def tokens_of(source):
    tokens = []
    for match in TOKENS.finditer(source):
        if match.lastgroup != 'skip':
            around = source[match.start() - 1:match.start()], source[match.end():match.end() + 1]
            tokens.append(Token(match.lastgroup, match[0], match.start(), all(one.isspace() for one in around)))
    open_ones = []
    for index, token in enumerate(tokens):
        token.inside = tokens[open_ones[-1]].text if open_ones else ''
        if token.kind == 'sign' and token.text in '([{':
            open_ones.append(index)
        elif token.kind == 'sign' and token.text in ')]}' and open_ones:
            token.partner = open_ones.pop()
            tokens[token.partner].partner = index
    return tokens


def other_number(text):
    """A small number's neighbour; twice a larger one, which would hide behind a tolerance otherwise."""
    digits = re.match(r"0[xX][\da-fA-F']+|[\d']+", text)[0]
    value = digits.replace("'", '')
    if value.lower().startswith('0x'):
        return f'{int(value, 16) + 1:#0{len(value)}x}' + text[len(digits):]
    if value.startswith('0') and len(value) > 1:
        return f'0{int(value, 8) + 1:o}' + text[len(digits):]
    number = int(value)
    return str(number + 1 if number < 100 else 2 * number) + text[len(digits):]


def is_header(tokens, index):
    """Whether the closing bracket ends the head of an if, a for or a while."""
    begin = tokens[index].partner - 1
    return begin >= 0 and tokens[begin].text in ('if', 'for', 'while', 'constexpr')


def statement_end(tokens, index):
    """The index of the semicolon of the statement that begins here; None for a declaration or a compound one."""
    first = tokens[index]
    if first.kind == 'word' and first.text not in ('return', 'break', 'continue'):
        if first.text in NO_STATEMENT:
            return None
        name = index
        while tokens[name + 1].text == '::' and tokens[name + 2].kind == 'word':
            name += 2
        behind = tokens[name + 1]
        of_a_type = behind.text in ('*', '&', '&&') and not behind.spaced
        if behind.kind == 'word' or of_a_type or (behind.text == '<' and not behind.spaced):
            return None
    elif first.kind != 'word' and first.text not in ('(', '*', '++', '--'):
        return None
    while index < len(tokens) and tokens[index].text != ';':
        if tokens[index].text in ('{', '}', ')', ']', ':'):
            return None
        index = tokens[index].partner + 1 if tokens[index].text in ('(', '[') else index + 1
    return index if index < len(tokens) else None


def ends_switch(tokens, index):
    """Whether it is the last break of a switch, without which all goes the same way."""
    if tokens[index].text != 'break' or tokens[index + 2].text != '}':
        return False
    close = tokens[tokens[index + 2].partner - 1]
    return close.text == ')' and tokens[close.partner - 1].text == 'switch'


def dropped(tokens, index):
    before = tokens[index - 1].text if index > 0 else ''
    behind_header = before == ')' and is_header(tokens, index - 1)
    if tokens[index].inside != '{' or not (behind_header or before in ('{', '}', ';', 'else', ':')):
        return
    end = statement_end(tokens, index)
    if end is None or tokens[index].text == 'return' and tokens[index + 1].text != ';' and not behind_header:
        return
    is_deleted = tokens[end - 2].text == '=' and tokens[end - 1].text == 'delete'  # what would not compile is not used
    kind = NOTHING if is_deleted or ends_switch(tokens, index) else 'statement'
    yield tokens[index].start, tokens[end].start - tokens[index].start, '', kind


def swapped(tokens, index):
    token = tokens[index]
    if token.text == 'if' and tokens[index + 1].text == '(':
        close = tokens[index + 1].partner
        begins = [one for one in range(index + 2, close) if tokens[one].text == ';'] or [index + 1]
        start = tokens[begins[-1] + 1].start
        yield start, tokens[close].start - start, '!({})', 'branch'
    elif token.text == '?':
        middle = end = index + 1
        while middle < len(tokens) and tokens[middle].text != ':':
            if tokens[middle].text in (';', '?'):
                return
            middle = tokens[middle].partner + 1 if tokens[middle].text in ('(', '[', '{') else middle + 1
        end = middle + 1
        while end < len(tokens) and tokens[end].text not in (';', ',', ')', ']', '}'):
            end = tokens[end].partner + 1 if tokens[end].text in ('(', '[', '{') else end + 1
        if end < len(tokens):
            first = slice(tokens[index + 1].start, tokens[middle - 1].end)
            second = slice(tokens[middle + 1].start, tokens[end - 1].end)
            yield first.start, second.stop - first.start, (second, first), 'branch'


def changed(tokens, index):
    token = tokens[index]
    if token.kind == 'sign':
        for other, kind in OPERATORS.get(token.text, []) if token.spaced else []:
            yield token.start, len(token.text), other, kind
        if token.text in ('++', '--'):
            yield token.start, 2, '--' if token.text == '++' else '++', 'sign'
        if token.text == '!':
            yield token.start, 1, '', 'logical'
    elif token.kind == 'number':
        yield token.start, len(token.text), other_number(token.text), 'constant'
    elif token.kind == 'word' and token.text in WORDS:
        yield token.start, len(token.text), WORDS[token.text], 'constant'
    elif token.kind == 'text' and tokens[index - 1].kind != 'text':  # adjacent string literals count as one
        yield token.start + token.text.index('"') + (2 if token.text[0] == 'R' else 1), 0, 'x', 'text'


def faults_of(path, source):
    """All faults of a file, in its order."""
    tokens = tokens_of(source)
    for index in range(len(tokens)):
        for find in dropped, swapped, changed:
            for start, length, instead, kind in find(tokens, index):
                text = source[start:start + length]
                if isinstance(instead, tuple):
                    first, second = (source[one] for one in instead)
                    instead = first + ' : ' + second
                elif kind == 'branch':
                    instead = instead.format(text)
                begin = source.rfind('\n', 0, start) + 1
                end = source.find('\n', start + length)
                before = ' '.join(source[begin:end].split())
                after = ' '.join((source[begin:start] + instead + source[start + length:end]).split())
                yield Fault(path, kind, start, length, instead, source.count('\n', 0, start) + 1, before, after)
