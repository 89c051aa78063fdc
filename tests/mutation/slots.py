"""The places where a condition can choose between the code and its mutants: see schemata.py."""

import re
from dataclasses import dataclass

from mutation.syntax import DECLARATION, JUMPS, LOCK, Syntax

UNCONDITIONAL = re.compile(r'^(?:[^=]* )?(?:static|constexpr|using|thread_local) ')


@dataclass(frozen=True)
class Slot:
    """The text between two offsets: a statement with its semicolon, or an expression."""
    start: int
    end: int
    form: str  # statement, or the use of the expression: condition, value, effect


class Finder(Syntax):
    """Finds the slots of one file."""

    def find(self):
        """A function that is evaluated by the compiler has no slots."""
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


def find_slots(code):
    """The slots of a file, in no order."""
    return Finder(code).find()
