"""The mutants that change nothing that a test could see."""

import pathlib

FILE = pathlib.Path(__file__).with_name('equivalents.txt')


def read_equivalents():
    """Returns the keys of the mutants that are listed; see the file for its format."""
    keys = set()
    for entry in FILE.read_text().split('\n\n'):
        lines = [line for line in entry.splitlines() if not line.startswith('#')]
        if not lines:
            continue
        place, before, after, *reason = lines
        if not before.startswith('- ') or not after.startswith('+ ') or not reason:
            raise SystemExit(f'{FILE.name}: this is no entry:\n{entry}')
        keys.add((place, before[2:], after[2:]))
    return keys


def key_of(mutant):
    return f'{mutant.path} {mutant.function}'.strip(), mutant.before, mutant.after
