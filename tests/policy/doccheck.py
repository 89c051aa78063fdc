"""Tests that what a document shows works, as TAP: doccheck.py DOCUMENT LANGUAGE...

Each fenced block of the document that is marked with one of the languages is a whole program. It
must end well and say nothing on standard error. A block marked "text" that comes before the next
program is exactly what the program prints.
"""

import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

from support import tap

COMPILED = '{compiled}'
# The companions that programs use, by how they name them.
PACKAGES = {
    'vekmetrics-service': r'\bvekmetrics-service/|\bVekService\b',
    'vekmetrics-testing': r'\bvekmetrics-testing/|\bVekTesting\b',
    'vekmetrics-testing-clock': r'\bvekmetrics-testing/clock\.h\b',
    'vekmetrics-web': r'\bvekmetrics-web/|\bVekWeb\b',
}
BUILD_C = '-Wall -Wextra -Werror {source} -o {compiled} $(pkg-config --cflags --libs {packages})'

# How to run a program, as a line of shell.
LANGUAGES = {
    'c': f'cc {BUILD_C} && {COMPILED}',
    'cpp': f'c++ -std=c++17 {BUILD_C} && {COMPILED}',
    'js': 'gjs {source}',
    'python': shlex.quote(sys.executable) + ' {source}',
    'vala': 'valac --quiet --fatal-warnings -X -w $VALAFLAGS $(printf " --pkg=%s" {packages}) '
            f'-o {{compiled}} {{source}} && {COMPILED}',
}


def run(language, source):
    """Runs a program in a new folder; returns what it prints."""
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder, f'program.{language}')
        copy.write_text(source, encoding='utf-8')
        packages = [name for name, use in PACKAGES.items() if re.search(use, source)]
        command = LANGUAGES[language].format(source=copy, compiled=copy.with_suffix(''),
                                             packages=' '.join(['vekmetrics', *packages]))
        ended = subprocess.run(command, shell=True, check=False, cwd=folder, text=True,
                               env=dict(os.environ, LC_ALL='C.UTF-8'), stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert (ended.returncode, ended.stderr) == (0, ''), f'{ended.returncode}: {ended.stderr}'
    return ended.stdout


def find_programs(text, languages):
    """Yields the line, the language, the source and the output of each program; None for any."""
    program = None
    for block in re.finditer(r'^```(\w+)\n(.*?)^```$', text, re.MULTILINE | re.DOTALL):
        mark, content = block.groups()
        if mark == 'text' and program:
            yield *program, content
            program = None
        elif mark in LANGUAGES:
            if program:
                yield *program, None
            line = text.count('\n', 0, block.start()) + 1
            program = (line, mark, content) if mark in languages else None
    if program:
        yield *program, None


def make_test(line, language, source, output):
    def test():
        printed = run(language, source)
        assert output in (None, printed), f'it printed:\n{printed}'
    test.__name__ = f'line_{line}_{language}'
    return test


def main(document, *languages):
    text = pathlib.Path(document).read_text(encoding='utf-8')
    tests = [make_test(*program) for program in find_programs(text, languages)]
    missing = set(languages) - {test.__name__.rpartition('_')[2] for test in tests}
    assert not missing, f'{document} has no programs of {missing}'
    tap.run(tests, pathlib.Path(document).name)


if __name__ == '__main__':
    main(*sys.argv[1:])
