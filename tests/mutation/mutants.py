"""Makes mutants of C and C++: small changes, each of which a test should notice.

It works on the tokens of code that clang-format has formatted, in which a binary operator has
spaces around it. Some of the mutants do not compile; the compiler finds these.
"""

import bisect
import hashlib
import re
from dataclasses import dataclass

from mutation.syntax import DECLARATION, JUMPS, KEYWORDS, LOCK, Syntax

OPERATORS = {
    '+': '-', '-': '+', '*': '/', '/': '*', '%': '*', '<<': '>>', '>>': '<<', '&': '|', '|': '&',
    '<': '<=', '<=': '<', '>': '>=', '>=': '>', '==': '!=', '!=': '==', '&&': '||', '||': '&&',
    '+=': '-=', '-=': '+=', '*=': '/=', '/=': '*=', '&=': '|=', '|=': '&=',
}
STEPS = {'++': '--', '--': '++'}
TRUTHS = {'true': 'false', 'false': 'true', 'TRUE': 'FALSE', 'FALSE': 'TRUE'}
# Calls in which a change would have no effect: in what these reserve, more is as good,
ROOMY = {'g_new', 'g_new0', 'g_array_new', 'g_array_sized_new'}
# what these are told is a hint,
HINTED = {'g_ptr_array_sized_new', 'g_string_sized_new'}
# and what these compare may come in any order; of the last, if only equality counts.
SYMMETRIC = {'g_str_equal', 'g_strv_equal', 'std::max', 'std::min', 'std::minmax', 'std::swap'}
SYMMETRIC_IF_EQUAL = {'compare_keys', 'g_strcmp0'}
# On Linux, making a lock sets it to zero, as all memory of an instance is, and nothing is freed.
UNSEEN = {'g_mutex_clear', 'g_mutex_init', 'g_rw_lock_clear', 'g_rw_lock_init'}

FUNCTION = re.compile(r'^(?:class|struct) (\w+)|^(?:\w[^;={}()\n]*[ *&])?([\w:~]+)\(',
                      re.MULTILINE)


@dataclass(frozen=True, order=True)
class Mutant:
    """A change: the text between two offsets of a file is replaced by another text."""
    path: str
    start: int
    end: int
    text: str
    kind: str
    line: int
    function: str
    before: str  # the lines that it changes, as one line
    after: str
    identity: str  # the same for as long as the function is the same

    def apply(self, code):
        # The lines that follow keep their numbers, which messages contain.
        lines = code.count('\n', self.start, self.end) - self.text.count('\n')
        return code[:self.start] + self.text + '\n' * lines + code[self.end:]


class Maker(Syntax):
    """Makes the mutants of one file."""

    def __init__(self, path, code):
        super().__init__(code)
        self.path = path
        starts = [(0, ''), *((match.start(), match[1] or match[2])
                             for match in FUNCTION.finditer(code))]
        ends = [*(start for start, _ in starts[1:]), len(code)]
        self.functions = [(start, name, hashlib.sha1(code[start:end].encode()).hexdigest()[:12])
                          for (start, name), end in zip(starts, ends)]
        self.lines = [match.start() for match in re.finditer('^', code, re.MULTILINE)]
        self.found = {}

    def make(self):
        for index, token in enumerate(self.tokens):
            if token.call in HINTED:
                continue
            if token.kind == 'number':
                self.change_number(token)
            elif token.text in TRUTHS and (token.call not in ROOMY or token.text == 'TRUE'):
                self.add('constant', token.start, token.end, TRUTHS[token.text])
            elif token.kind == 'sign':
                self.change_operator(index, token)
            if token.is_code:
                if token.text in ('if', 'while'):
                    self.negate_condition(index)
                elif token.text == '?':
                    self.swap_branches(index)
                elif token.text == '(':
                    self.swap_arguments(index)
                if self.begins_statement(index):
                    self.drop_statement(index)
        for match in LOCK.finditer(self.code):
            self.weaken_lock(match)
        return sorted(self.found.values())

    def add(self, kind, start, end, text):
        index = bisect.bisect_right(self.functions, (start, '~')) - 1
        begin, function, digest = self.functions[index]
        line = bisect.bisect_right(self.lines, start)
        first = self.lines[line - 1]
        last = self.code.find('\n', end)
        before = self.code[first:last]
        after = self.code[first:start] + text + self.code[end:last]
        self.found.setdefault(
            (start, end, text),
            Mutant(self.path, start, end, text, kind, line, function,
                   ' '.join(before.split()), ' '.join(after.split()),
                   f'{self.path} {digest} {start - begin} {end - begin} {text}'))

    def change_number(self, token):
        match = re.fullmatch(r'(\d+)(\.0)?([uUlLfF]*)', token.text)
        if match:
            value = int(match[1])
            others = {0: [1], 1: [0, 2]}.get(value, [value - 1, value + 1])
            # To GLib's functions, all negative numbers mean the same.
            is_mark = self.code[token.start - 1] == '-' and token.call.startswith('g_')
            if token.call in ROOMY or is_mark:
                others.remove(value + 1)
            for changed in others:
                self.add('constant', token.start, token.end,
                         f'{changed}{match[2] or ""}{match[3]}')
        elif not token.text.startswith('0x'):
            self.add('constant', token.start, token.end, f'(1 + {token.text})')

    def change_operator(self, index, token):
        around = self.code[token.start - 1] + self.code[token.end:token.end + 1]
        if token.text in OPERATORS and not around.strip():
            self.add('operator', token.start, token.end, OPERATORS[token.text])
        elif token.text in STEPS:
            self.add('operator', token.start, token.end, STEPS[token.text])
        elif token.text == '!' and token.is_code:
            before = self.tokens[index - 1].text, self.tokens[index - 2].text
            if before not in (('(', 'if'), ('(', 'while')):
                self.add('condition', token.start, token.end, '')

    def negate_condition(self, index):
        if self.tokens[index + 1].text != '(':
            return
        start = index + 2
        end = self.tokens[index + 1].partner
        for semicolon in self.find_separators(index + 1, ';'):
            start = semicolon + 1
        if start < end:
            condition = self.code[self.tokens[start].start:self.tokens[end - 1].end]
            self.add('condition', self.tokens[start].start, self.tokens[end - 1].end,
                     f'!({condition})')

    def swap_branches(self, index):
        """Exchanges what a conditional expression gives if its condition holds, and if not."""
        colon = self.find_end(index + 1, ':')
        end = self.find_end(colon + 1, ',;')
        self.swap('condition', index + 1, colon, colon + 1, end)

    def swap_arguments(self, index):
        name = self.tokens[index - 1]
        if name.kind != 'name' or name.text in KEYWORDS or name.text.startswith('vek_return_'):
            return
        end = self.tokens[index].partner
        is_for_equality = {self.code[token.start:token.end] for token in (
            self.tokens[index - 2], self.tokens[end + 1])} & {'==', '!='}
        if name.text in SYMMETRIC or name.text in SYMMETRIC_IF_EQUAL and is_for_equality:
            return
        commas = self.find_separators(index, ',')
        bounds = [index, *commas, self.tokens[index].partner]
        for left, middle, right in zip(bounds, bounds[1:], bounds[2:]):
            self.swap('arguments', left + 1, middle, middle + 1, right)

    def swap(self, kind, left, left_end, right, right_end):
        if not (left < left_end and right < right_end):
            return
        first, second, third, fourth = (self.tokens[left].start, self.tokens[left_end - 1].end,
                                        self.tokens[right].start, self.tokens[right_end - 1].end)
        one, other = self.code[first:second], self.code[third:fourth]
        if one != other:
            self.add(kind, first, fourth, other + self.code[second:third] + one)

    def drop_statement(self, index):
        first = self.tokens[index]
        end = self.find_end(index, ';')
        if self.tokens[end].text != ';':
            return
        if first.text in UNSEEN:
            return
        statement = self.code[first.start:self.tokens[end].start]
        is_jump = statement in JUMPS
        if is_jump or self.begins_expression(index) and not DECLARATION.match(statement):
            self.add('statement', first.start, self.tokens[end].start, '')

    def weaken_lock(self, match):
        self.add('lock', *match.span('lock'), f'mutant_unlocked({match["lock"]})')
        if match['kind'] == 'Writer':
            self.add('lock', match.start('kind'), match.end('kind'), 'Reader')


def make_mutants(path, code):
    """The mutants of a file, in the order of its text."""
    return Maker(path, code).make()
