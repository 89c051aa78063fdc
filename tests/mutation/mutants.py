"""Makes mutants of C and C++: small changes, each of which a test should notice.

It works on the tokens of code that clang-format has formatted, in which a binary operator has
spaces around it. Some of the mutants do not compile; the compiler finds these.
"""

import bisect
import hashlib
import re
from dataclasses import dataclass

from mutation.tokens import CLOSING, read_tokens

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
JUMPS = {'break', 'continue', 'return'}
KEYWORDS = JUMPS | {'case', 'default', 'do', 'else', 'for', 'if', 'switch', 'while'}

# The beginning of a declaration: a type, and a name.
DECLARATION = re.compile(r'(?:[\w:]+(?:<[^;=]*?>|\(\w+\))?[ \n]+)+(?:\(\*|[*&]*)\w')
UNCONDITIONAL = re.compile(r'^(?:[^=]* )?(?:static|constexpr|using|thread_local) ')
LOCK = re.compile(r'(?:\w+::)?(?P<kind>Mutex|Reader|Writer)Lock \w+\((?P<lock>[^;]*)\)(?=;)')
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


@dataclass(frozen=True)
class Slot:
    """The text between two offsets: a statement with its semicolon, or an expression."""
    start: int
    end: int
    form: str  # statement, or the use of the expression: condition, value, effect


class Maker:
    """Makes the mutants of one file."""

    def __init__(self, path, code):
        self.path = path
        self.code = code
        self.tokens = read_tokens(code)
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

    def find_separators(self, opening, text):
        """The separators between two brackets that are in no brackets between them."""
        found = []
        index = opening + 1
        while index < self.tokens[opening].partner:
            if self.tokens[index].text == text:
                found.append(index)
            index = max(index, self.tokens[index].partner) + 1
        return found

    def find_end(self, index, ends):
        """The first of these signs from here on, or the bracket that closes before it."""
        while index < len(self.tokens):
            token = self.tokens[index]
            if token.kind == 'sign' and (token.text in ends or token.text in CLOSING.values()):
                break
            index = max(index, token.partner) + 1
        return index

    def begins_statement(self, index):
        before = self.tokens[index - 1]
        if self.tokens[index].opener != '{':
            return False
        if before.text == ')':
            opener = self.tokens[before.partner - 1].text
            return opener in ('for', 'if', 'while')
        if before.text == '}' and self.tokens[before.partner - 1].text == 'struct':
            return False  # the name of a variable
        if before.text == ':':
            return any(token.text in ('case', 'default')
                       for token in self.tokens[max(index - 3, 0):index])
        return before.text in (';', '{', '}', 'else', 'do')

    def begins_expression(self, index):
        token = self.tokens[index]
        return token.text in ('++', '--', '*', '(') or (
            token.kind == 'name' and token.text not in KEYWORDS)

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

    def find_slots(self):
        """The places where a condition can choose between the code and its mutants.

        A function that is evaluated by the compiler has none.
        """
        slots = []
        constant_end = 0
        for index, token in enumerate(self.tokens):
            if token.text == 'constexpr' and not token.is_code:
                body = self.find_end(index, '{;=')
                constant_end = max(self.tokens[body].partner, index)
            if token.is_code and index > constant_end and self.begins_statement(index):
                slots.extend(self.slots_of_statement(index))
        slots.extend(Slot(*match.span('lock'), 'value') for match in LOCK.finditer(self.code))
        return slots

    def slots_of_statement(self, index):
        first = self.tokens[index].text
        if first in ('if', 'while', 'for', 'switch') and self.tokens[index + 1].text == '(':
            bounds = [index + 1, *self.find_separators(index + 1, ';'),
                      self.tokens[index + 1].partner]
            parts = [(left + 1, right) for left, right in zip(bounds, bounds[1:])]
            if first == 'for' and len(parts) != 3:
                return  # it is over the elements of a range
            form = 'value' if first == 'switch' else 'condition'
            yield from self.slot(*parts[1 if first == 'for' else -1], form)
            if first == 'for':
                yield from self.slot(*parts[0], 'effect')
                yield from self.slot(*parts[2], 'effect')
        elif first in JUMPS or self.begins_expression(index):
            end = self.find_end(index, ';')
            if self.tokens[end].text == ';':
                yield from self.slot(index, end + 1, 'statement')

    def slot(self, index, end, form):
        """That of an expression, a statement or, if it is a declaration, its initial value."""
        if index == end:
            return
        start, stop = self.tokens[index].start, self.tokens[end - 1].end
        text = self.code[start:stop]
        if DECLARATION.match(text) and self.tokens[index].text not in JUMPS or (
                text.startswith('auto ')):
            end -= form == 'statement'
            stop = self.tokens[end - 1].end
            form = 'value'
            index = self.find_end(index, '=') + 1
            if (index >= end or self.tokens[index].text == '{' or
                    self.find_end(index, ',;') != end or UNCONDITIONAL.search(text)):
                return
            start = self.tokens[index].start
        yield Slot(start, stop, form)

    def weaken_lock(self, match):
        self.add('lock', *match.span('lock'), f'mutant_unlocked({match["lock"]})')
        if match['kind'] == 'Writer':
            self.add('lock', match.start('kind'), match.end('kind'), 'Reader')


def make_mutants(path, code):
    """The mutants of a file, in the order of its text."""
    return Maker(path, code).make()


def find_slots(path, code):
    """The slots of a file: see schemata.py."""
    return Maker(path, code).find_slots()
