"""Tests of the examples in other languages, as TAP: examples.py LANGUAGE..."""

import pathlib
import sys

from policy import doccheck
from support import tap

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / 'examples'

HELLO = 'general:\ngreetings: 3\n\n'
PRINTED = {
    'hello.js': HELLO,
    'hello.py': HELLO,
    'hello.vala': HELLO,
    'reporter.py': 'metric="errors" reason="disk full" unit="Count" count=1\n'
                   'metric="latency" host="h1" unit="Milliseconds" samples=3 min=1.5 median=2.5 '
                   'max=9.0\n'
                   'metric="load" value=0.25\n',
}
LANGUAGES = {'.js': 'js', '.py': 'python', '.vala': 'vala'}


def make_test(name, language, printed):
    def test():
        source = (EXAMPLES / name).read_text(encoding='utf-8')
        output = doccheck.run(language, source)
        assert output == printed, f'it printed:\n{output}'
    test.__name__ = f'{name}_prints_what_it_measured'
    return test


tap.run([make_test(name, LANGUAGES[pathlib.Path(name).suffix], printed)
         for name, printed in PRINTED.items()
         if LANGUAGES[pathlib.Path(name).suffix] in sys.argv[1:]])
