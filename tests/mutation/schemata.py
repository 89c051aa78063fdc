"""Mutants compiled together: each takes effect only if it is chosen when the program starts.

A slot is replaced by a choice between the slot's mutants and the code itself: see mutant.h.
"""

import collections

from mutation.slots import find_slots

FORMS = {
    # What begins and ends the choice, what stands around each text, what follows the condition,
    # what stands between the texts.
    'statement': ('{', '}', '{{{}}}', 'if ({})', 'else'),
    'condition': ('(', ')', '!!({})', '{} ?', ':'),
    'effect': ('(', ')', '(void)({})', '{} ?', ':'),
    'value': ('(', ')', '({})', '{} ?', ':'),
}


class Schemata:
    """The slots of a file, and the mutants in each."""

    def __init__(self, path, code, mutants):
        self.code = code
        self.path = path
        self.slots = sorted(find_slots(code), key=lambda slot: (slot.start, -slot.end))
        self.mutants = collections.defaultdict(list)
        self.places = {}
        for mutant in mutants:
            around = [slot for slot in self.slots
                      if slot.start <= mutant.start and mutant.end <= slot.end]
            if around:
                slot = min(around, key=lambda slot: slot.end - slot.start)
                self.mutants[slot].append(mutant)
                self.places[mutant] = slot

    def render(self, numbers):
        """The code with the mutants that have numbers.

        In messages of the compiler and of the library, the lines of the code keep their numbers.
        Those of a mutant are a hundred times its number and more.
        """
        used = [slot for slot in self.slots
                if any(mutant in numbers for mutant in self.mutants[slot])]

        def line_of(offset):
            number = self.code.count('\n', 0, offset) + 1
            return f'\n#line {number} "{self.path}"\n'

        def text_of(start, end, slots):
            parts = []
            while slots:
                slot, *rest = slots
                inside = [other for other in rest if other.end <= slot.end]
                slots = rest[len(inside):]
                parts += [self.code[start:slot.start], choice(slot, inside), line_of(slot.end)]
                start = slot.end
            return ''.join([*parts, self.code[start:end]])

        def choice(slot, inside):
            begin, close, around, condition, between = FORMS[slot.form]
            text = around.format(text_of(slot.start, slot.end, inside))
            for mutant in reversed(self.mutants[slot]):
                if number := numbers.get(mutant):
                    mutated = (self.code[slot.start:mutant.start] + mutant.text +
                               self.code[mutant.end:slot.end])
                    text = (f'\n#line {number * 100} "mutant/{self.path}"\n'
                            f'{condition.format(f"mutant({number})")} {around.format(mutated)}'
                            f'{line_of(slot.start)}{between} {text}')
            return begin + text + close

        return text_of(0, len(self.code), used)
