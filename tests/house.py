"""Tests of the house rules that a tool can check, as TAP: house.py HELLO

HELLO is the program that examples/hello.c becomes. A rule whose tool is not installed is skipped.
"""

import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CODE_FOLDERS = ('benchmarks', 'examples', 'tests', 'vekmetrics')
CODE_SUFFIXES = ('.c', '.cpp', '.h', '.hpp')
FORMAT_VERSION = '14'  # others break lines differently


class Skip(Exception):
    """Why a rule could not be checked."""


def find_code():
    files = (path for folder in CODE_FOLDERS for path in (ROOT / folder).rglob('*'))
    return sorted(path for path in files if path.suffix in CODE_SUFFIXES)


def find_scripts():
    files = (path for folder in ('.ci', 'scripts') for path in (ROOT / folder).iterdir())
    return sorted(path for path in files if path.read_text().startswith('#!/bin/bash\n'))


def check(command, files):
    """Runs a tool over files, of which there are some; returns what it complains of."""
    assert files
    run = subprocess.run([*command, *files], cwd=ROOT, text=True, stderr=subprocess.STDOUT,
                         stdout=subprocess.PIPE, check=False)
    return run.stdout if run.returncode else ''


def code_follows_clang_format():
    tool = f'clang-format-{FORMAT_VERSION}'
    if not shutil.which(tool):
        raise Skip(f'there is no {tool}')
    return check([tool, '--dry-run', '-Werror'], find_code())


def scripts_pass_shellcheck():
    if not shutil.which('shellcheck'):
        raise Skip('there is no shellcheck')
    return check(['shellcheck'], find_scripts())


def quotes(language, page='README.md'):
    """The quoted blocks of a page that are marked with the language."""
    text = (ROOT / page).read_text(encoding='utf-8')
    return re.findall(rf'^```{language}\n(.*?)^```$', text, re.MULTILINE | re.DOTALL)


def readme_quotes_hello():
    hello = (ROOT / 'examples' / 'hello.c').read_text(encoding='utf-8')
    return '' if quotes('c') == [hello] else 'README.md and examples/hello.c differ'


def guide_begins_with_hello():
    """In every language, without what the examples say of themselves."""
    examples = {'c': 'c', 'cpp': 'cpp', 'js': 'js', 'python': 'py', 'vala': 'vala'}
    return '\n'.join(f'docs/guide.md and examples/hello.{suffix} differ'
                     for language, suffix in examples.items()
                     if quotes(language, 'docs/guide.md')[0] not in
                     (ROOT / 'examples' / f'hello.{suffix}').read_text(encoding='utf-8'))


def shutdown_quotes_the_example():
    finish = (ROOT / 'examples' / 'checksum' / 'finish.c').read_text(encoding='utf-8')
    return '' if finish in quotes('c', 'docs/shutdown.md') else 'docs/shutdown.md and finish.c differ'


def readme_shows_what_hello_prints():
    printed = subprocess.run([HELLO], check=True, stdout=subprocess.PIPE, text=True).stdout
    return '' if printed in quotes('text') else f'README.md does not show:\n{printed}'


def header_tells_the_version():
    build = (ROOT / 'meson.build').read_text(encoding='utf-8')
    header = (ROOT / 'vekmetrics' / 'version.h').read_text(encoding='utf-8')
    version = '.'.join(re.findall(r'^#define VEK_\w+_VERSION \((\d+)\)$', header, re.MULTILINE))
    return '' if f"version: '{version}'" in build else f'version.h tells {version}'


def papers():
    """Each paper, and its text without the programs in it."""
    for paper in [*ROOT.glob('*.md'), *(ROOT / 'docs').glob('*.md')]:
        text = paper.read_text(encoding='utf-8')
        yield paper, re.sub(r'^```.*?^```$', '', text, flags=re.MULTILINE | re.DOTALL)


def links_of_papers_lead_somewhere():
    return '\n'.join(f'{paper.name}: {link}' for paper, text in papers()
                     for link in re.findall(r'\]\(([^):#]+)[^)]*\)', text)
                     if not (paper.parent / link).exists())


def papers_keep_to_100_columns():
    """Except for tables, which cannot."""
    return '\n'.join(f'{paper.name}: {line}' for paper, text in papers()
                     for line in text.splitlines() if len(line) > 100 and '|' not in line)


HELLO = sys.argv[1]
RULES = (code_follows_clang_format, scripts_pass_shellcheck, header_tells_the_version,
         readme_quotes_hello, readme_shows_what_hello_prints, guide_begins_with_hello,
         shutdown_quotes_the_example, links_of_papers_lead_somewhere, papers_keep_to_100_columns)


def main():
    print(f'1..{len(RULES)}')
    failed = False
    for number, rule in enumerate(RULES, 1):
        name = '/house/' + rule.__name__.replace('_', '-')
        try:
            complaint = rule()
        except Skip as reason:
            print(f'ok {number} {name} # SKIP {reason}')
            continue
        failed = failed or bool(complaint)
        print(f'{"not ok" if complaint else "ok"} {number} {name}')
        for line in complaint.splitlines():
            print('#', line)
    return int(failed)


if __name__ == '__main__':
    sys.exit(main())
