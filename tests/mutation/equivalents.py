"""The mutants that change nothing that a test could see."""

import pathlib

FILES = sorted(pathlib.Path(__file__).with_name('equivalents').glob('*.txt'))


def read_entry(entry):
    """Places, the mutants of each as scripts/check-mutation prints them, and the reason."""
    keys = []
    place = before = reason = ''
    lines = entry.splitlines()
    for line, following in zip(lines, [*lines[1:], '']):
        if line.startswith('- '):
            before = line[2:]
        elif line.startswith('+ '):
            keys.append((place, before, line[2:]))
        elif following.startswith('- '):
            place = line
        else:
            reason += line
    if not keys or not reason:
        raise SystemExit(f'This is no entry, or it has no reason:\n{entry}')
    return keys


def read_equivalents():
    """Returns the keys of the mutants that are listed."""
    return {key for file in FILES for entry in file.read_text().strip().split('\n\n')
            for key in read_entry(entry)}


def key_of(mutant):
    return f'{mutant.path} {mutant.function}'.strip(), mutant.before, mutant.after
