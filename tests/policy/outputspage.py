"""docs/outputs.md as tests read it.

A block marked as sh or python is run where the program's files are; the block of text after it
shows what it prints.
"""

import contextlib
import io
import pathlib
import re
import subprocess
import sys

PAGE = pathlib.Path(__file__).resolve().parents[2] / 'docs' / 'outputs.md'


def read_blocks():
    """The page's blocks as pairs of language and text, by the title of their section."""
    sections = re.split(r'^## (.*)\n', PAGE.read_text(encoding='utf-8'), flags=re.MULTILINE)[1:]
    return {title: re.findall(r'^```(\w+)\n(.*?)^```$', text, re.MULTILINE | re.DOTALL)
            for title, text in zip(sections[::2], sections[1::2])}


def run_python(code):
    with contextlib.redirect_stdout(io.StringIO()) as printed:
        exec(compile(code, PAGE, 'exec'), {})  # pylint: disable=exec-used
    return printed.getvalue()


def forget_empty_fractions(text):
    """Newer versions of jq print 256.0 as it is in the file; older ones print 256."""
    return re.sub(r'\b(\d+)\.0\b', r'\1', text)


def check_commands(case, blocks, folder, least):
    """Runs the commands, of which there are at least this many, for the test case."""
    case.assertGreaterEqual(len(blocks), 2 * least)
    for (language, command), (shown_as, shown) in zip(blocks[::2], blocks[1::2]):
        with case.subTest(command):
            case.assertEqual(shown_as, 'text')
            program = {'python': sys.executable, 'sh': 'sh'}[language]
            run = subprocess.run([program, '-c', command], cwd=folder, text=True,
                                 stdout=subprocess.PIPE, check=True)
            case.assertEqual(*map(forget_empty_fractions, (run.stdout, shown)))
