"""The tokens of C and C++."""

import re
from dataclasses import dataclass

TOKEN = re.compile(r'''
    (?P<blank>  \s+ | //[^\n]* | /\*.*?\*/ | ^\#(?:\\\n|[^\n])* | \[\[.*?\]\] )
  | (?P<string> \w*"(?:\\.|[^"\\\n])*" | '(?:\\.|[^'\\])' )
  | (?P<number> \.?\d(?:[eEpP][+-]|'?[\w.])* )
  | (?P<name>   [A-Za-z_]\w*(?:::~?[A-Za-z_]\w*)* )
  | (?P<sign>   <<=|>>=|<=>|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|\.\.\.|. )
''', re.VERBOSE | re.DOTALL | re.MULTILINE)

CLOSING = {'(': ')', '[': ']', '{': '}'}


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    partner: int = -1      # of a bracket: the index of the other one
    opener: str = ''       # the bracket that the token is in
    call: str = ''         # the function, if that is a call
    is_code: bool = False  # it is inside the body of a function


def read_tokens(code):
    """The tokens without comments, blanks and preprocessor lines."""
    tokens = []
    for match in TOKEN.finditer(code):
        if match.lastgroup != 'blank':
            tokens.append(Token(match.lastgroup, match.group(), match.start(), match.end()))

    opened = []
    for index, token in enumerate(tokens):
        inside = bool(opened) and tokens[opened[-1]].is_code
        token.is_code = inside
        token.opener = tokens[opened[-1]].text if opened else ''
        token.call = tokens[opened[-1] - 1].text if token.opener == '(' else ''
        if token.kind != 'sign':
            continue
        if token.text in CLOSING:
            if token.text == '{':
                token.is_code = inside or begins_body(tokens, index)
            opened.append(index)
        elif opened and token.text == CLOSING[tokens[opened[-1]].text]:
            token.partner = opened.pop()
            tokens[token.partner].partner = index
    return tokens


def begins_body(tokens, index):
    """Whether a brace outside functions opens the body of one."""
    before = [token.text for token in tokens[max(index - 2, 0):index]]
    return bool(before) and (before[-1] == ')' or
                             before[-1] in ('const', 'noexcept', 'override') and before[0] == ')')
