"""Tests of the house rules that a tool can check, as TAP: house.py HELLO

HELLO is the program that examples/hello.c becomes. A rule whose tool is not installed is skipped.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import unittest

from support import tap

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE_FOLDERS = ('benchmarks', 'common', 'companions', 'examples', 'page', 'tests', 'tools',
                'vekmetrics')
CODE_SUFFIXES = ('.c', '.cpp', '.h', '.hpp')
FORMAT_VERSION = '14'  # others break lines differently
ANSWERS = ('faq', 'reliability', 'security')  # pages of which each section names its tests


def find_code():
    files = (path for folder in CODE_FOLDERS for path in (ROOT / folder).rglob('*'))
    return sorted(path for path in files if path.suffix in CODE_SUFFIXES)


def find_scripts():
    files = (path for folder in ('.ci', 'scripts') for path in (ROOT / folder).iterdir())
    return sorted(path for path in files if path.read_text().startswith('#!/bin/bash\n'))


def check(command, files):
    """Runs a tool over files, at least one; returns its complaints."""
    assert files
    run = subprocess.run([*command, *files], cwd=ROOT, text=True, stderr=subprocess.STDOUT,
                         stdout=subprocess.PIPE, check=False)
    return run.stdout if run.returncode else ''


def code_follows_clang_format():
    tool = f'clang-format-{FORMAT_VERSION}'
    if not shutil.which(tool):
        raise unittest.SkipTest(f'there is no {tool}')
    return check([tool, '--dry-run', '-Werror'], find_code())


def scripts_pass_shellcheck():
    if not shutil.which('shellcheck'):
        raise unittest.SkipTest('there is no shellcheck')
    return check(['shellcheck'], find_scripts())


def quotes(language, page='README.md'):
    """The quoted blocks of a page that are marked with the language."""
    text = (ROOT / page).read_text(encoding='utf-8')
    return re.findall(rf'^```{language}\n(.*?)^```$', text, re.MULTILINE | re.DOTALL)


def readme_quotes_hello():
    hello = (ROOT / 'examples' / 'hello.c').read_text(encoding='utf-8')
    return '' if quotes('c') == [hello] else 'README.md and examples/hello.c differ'


def guide_begins_with_hello():
    """In every language, without the header comments of the examples."""
    examples = {'c': 'c', 'cpp': 'cpp', 'js': 'js', 'python': 'py', 'vala': 'vala'}
    return '\n'.join(f'docs/guide.md and examples/hello.{suffix} differ'
                     for language, suffix in examples.items()
                     if quotes(language, 'docs/guide.md')[0] not in
                     (ROOT / 'examples' / f'hello.{suffix}').read_text(encoding='utf-8'))


def shutdown_quotes_the_examples():
    examples = {'c': 'c', 'python': 'py'}
    return '\n'.join(f'docs/shutdown.md and examples/service.{suffix} differ'
                     for language, suffix in examples.items()
                     if quotes(language, 'docs/shutdown.md') !=
                     [(ROOT / 'examples' / f'service.{suffix}').read_text(encoding='utf-8')])


def readme_shows_what_hello_prints():
    printed = subprocess.run([HELLO], check=True, stdout=subprocess.PIPE, text=True).stdout
    return '' if printed in quotes('text') else f'README.md does not show:\n{printed}'


def header_has_the_version():
    build = (ROOT / 'meson.build').read_text(encoding='utf-8')
    header = (ROOT / 'vekmetrics' / 'version.h').read_text(encoding='utf-8')
    version = '.'.join(re.findall(r'^#define VEK_\w+_VERSION \((\d+)\)$', header, re.MULTILINE))
    return '' if f"version: '{version}'" in build else f'version.h has {version}'


def pages():
    """Yields each page, and its text without the programs in it."""
    for page in [*ROOT.glob('*.md'), *(ROOT / 'docs').glob('*.md'), *(ROOT / 'page').glob('*.md')]:
        text = page.read_text(encoding='utf-8')
        yield page, re.sub(r'^```.*?^```$', '', text, flags=re.MULTILINE | re.DOTALL)


def links_of_pages_lead_somewhere():
    return '\n'.join(f'{page.name}: {link}' for page, text in pages()
                     for link in re.findall(r'\]\(([^):#]+)[^)]*\)', text)
                     if not (page.parent / link).exists())


def find_tests():
    """The paths of the tests, as the pages name them: /PROGRAM/TEST."""
    programs = {}  # for each source, those that are made of it
    builds = [ROOT / 'tests/types/meson.build', *ROOT.glob('companions/*/tests/meson.build')]
    for build in builds:
        for program, files in re.findall(r"'([\w-]+)': files\(([^)]*)\)",
                                         build.read_text(encoding='utf-8')):
            for name in re.findall(r"'([^']+)'", files):
                programs.setdefault(build.parent / name, []).append(program)
    for build in ROOT.glob('tests/*/meson.build'):  # of a folder that is one program
        folder = build.parent
        if f"executable('test-{folder.name}'" in build.read_text(encoding='utf-8'):
            programs |= {source: [folder.name] for source in folder.glob('*.c')}

    pythons = [path for folder in ('tests/*', 'companions/*/tests', 'tools/tests')
               for path in ROOT.glob(f'{folder}/*.py')]
    for path in [*find_code(), *pythons]:
        text = path.read_text(encoding='utf-8')
        if path.suffix == '.py':
            names = re.findall(r'^ *def (?:test_)?(\w+)\(', text, re.MULTILINE)
        else:
            names = re.findall(r'^TEST\((\w+)\)', text, re.MULTILINE)
            if 'TEST_ROWS(' in text:
                names += re.findall(r'{(?:\.path = )?"([a-z0-9-]+)"', text)
        for program in programs.get(path, [path.stem]):
            yield from (f'/{program}/{name}'.replace('_', '-') for name in names)


def answers_name_tests_that_exist():
    """And each of them names at least one."""
    tests = set(find_tests())
    complaints = []
    for page in ANSWERS:
        text = (ROOT / 'docs' / f'{page}.md').read_text(encoding='utf-8')
        for section in text.split('\n## ')[1:]:
            title = section.splitlines()[0]
            named = re.findall(r'`(/[\w-]+/[\w-]+)`', section)
            if not named:
                complaints.append(f'{page}: {title}: there is no test')
            complaints += [f'{page}: {title}: {name}' for name in named if name not in tests]
    return '\n'.join(complaints)


def lines_keep_to_100_columns():
    """Except for tables, programs in pages, and files that clang-format checks."""
    builds = [path for path in ROOT.rglob('meson.build')
              if not path.relative_to(ROOT).parts[0].startswith('build')]
    others = [path for folder in CODE_FOLDERS for suffix in ('css', 'js', 'py')
              for path in (ROOT / folder).rglob(f'*.{suffix}')]
    texts = [*pages(), *((path, path.read_text(encoding='utf-8'))
                          for path in [*builds, *others, *find_scripts()])]
    return '\n'.join(f'{path.relative_to(ROOT)}: {line}' for path, text in texts
                     for line in text.splitlines() if len(line) > 100 and not line.startswith('|'))


def make_test(rule):
    def test():
        complaint = rule()
        assert not complaint, complaint
    test.__name__ = rule.__name__
    return test


RULES = (code_follows_clang_format, scripts_pass_shellcheck, header_has_the_version,
         readme_quotes_hello, readme_shows_what_hello_prints, guide_begins_with_hello,
         shutdown_quotes_the_examples, links_of_pages_lead_somewhere,
         answers_name_tests_that_exist, lines_keep_to_100_columns)

if __name__ == '__main__':
    HELLO = sys.argv[1]
    tap.run(list(map(make_test, RULES)))
