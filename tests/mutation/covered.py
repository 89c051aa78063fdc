"""Which functions the test programs run."""

import hashlib
import json
import time

from tree import ROOT, find_sources, run


class Coverage:
    """Of each test program: how long it takes, and the functions that it runs."""

    def __init__(self, file, tree):
        """Reads them from a file, or measures them if the sources are others since then."""
        digest = hashlib.sha1(b''.join((ROOT / path).read_bytes()
                                       for path in find_sources())).hexdigest()
        known = json.loads(file.read_text()) if file.exists() else {}
        if known.get('digest') != digest:
            known = {'digest': digest, 'seconds': time_tests(tree),
                     'functions': find_functions(tree)}
            file.write_text(json.dumps(known))
        self.seconds = known['seconds']
        self.functions = known['functions']

    def tests_of(self, mutant):
        """The programs that run the innermost function around a mutant.

        If there is none, as for a constant, or if it ends the process before it is counted, these
        are all programs that run anything of the file.
        """
        functions = self.functions.get(mutant.path, [])
        around = [(last - first, names) for first, last, names in functions
                  if first <= mutant.line <= last]
        tests = min(around)[1] if around else []
        return tests or sorted({name for _, _, names in functions for name in names})


def time_tests(tree):
    """The seconds that each test takes; without mutants all must pass."""
    seconds = {}
    for name, test in tree.set_up('plain').items():
        start = time.monotonic()
        if test.run() != 'passes':
            raise SystemExit(f'The test {name} fails without any mutant.')
        seconds[name] = time.monotonic() - start
    return seconds


def find_functions(tree):
    """The functions of each source: their first and last line, and the tests that run them."""
    functions = {}
    for name, test in tree.set_up('coverage').items():
        for old in test.build.rglob('*.gcda'):
            old.unlink()
        test.run()
        files = [str(path) for path in test.build.rglob('*.gcda')]
        for line in run('gcov', '--json-format', '--stdout', *files, cwd=test.build).splitlines():
            for source in json.loads(line)['files'] if line.startswith('{') else []:
                path = (test.build / source['file']).resolve()
                if tree.folder not in path.parents:
                    continue
                ranges = functions.setdefault(str(path.relative_to(tree.folder)), {})
                for function in source['functions']:
                    names = ranges.setdefault((function['start_line'], function['end_line']), set())
                    if function['execution_count']:
                        names.add(name)
    return {path: [(*lines, sorted(names)) for lines, names in ranges.items()]
            for path, ranges in functions.items()}
