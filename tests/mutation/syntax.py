"""What the tokens of C and C++ are part of."""

import re

from mutation.tokens import CLOSING, read_tokens

JUMPS = {'break', 'continue', 'return'}
KEYWORDS = JUMPS | {'case', 'default', 'do', 'else', 'for', 'if', 'switch', 'while'}
# The beginning of a declaration: a type, and a name.
DECLARATION = re.compile(r'(?:[\w:]+(?:<[^;=]*?>|\(\w+\))?[ \n]+)+(?:\(\*|[*&]*)\w')
LOCK = re.compile(r'(?:\w+::)?(?P<kind>Mutex|Reader|Writer)Lock \w+\((?P<lock>[^;]*)\)(?=;)')


class Syntax:
    """The tokens of a file, and where statements and expressions begin and end."""

    def __init__(self, code):
        self.code = code
        self.tokens = read_tokens(code)

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
