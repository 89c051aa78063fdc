"""Runs the tests over mutants of the sources; see scripts/check-mutation."""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import random
import re
import sys
import threading

from covered import Coverage
from equivalents import key_of, read_equivalents
from mutants import make_mutants
from tree import ROOT, Tree, find_sources, run

FOLDER = ROOT / 'build-check' / 'mutation'

KILLED = 'killed'
INVALID = 'does not compile'
SAME = 'gives the same code'
PENDING = 'passes the plain tests'
SURVIVED = 'survived'


class Bench:
    """A tree in which one mutant at a time is tested."""

    def __init__(self, tree, coverage):
        self.tree = tree
        self.coverage = coverage
        self.tests = {'plain': tree.set_up('plain')}
        self.kills = collections.Counter()  # of each file and test
        self.originals = {}                 # optimised code
        self.inside = {name for name, test in self.tests['plain'].items() if test.is_inside()}

    def judge(self, mutant, code, kind):
        """Returns what becomes of a mutant in a build, and the tests that decided it."""
        copy = self.tree.folder / mutant.path
        copy.write_text(mutant.apply(code))
        try:
            if kind not in self.tests:
                self.tests[kind] = self.tree.set_up(kind)
            names = sorted(self.coverage.tests_of(mutant),
                           key=lambda name: self.rank(mutant, name))
            if not self.tree.ninja(kind, self.targets(mutant, kind, names)):
                return INVALID, []
            for name in names:
                outcome = self.tests[kind][name].run(self.patience(kind, name))
                if outcome != 'passes':
                    self.kills[mutant.path, name] += 1
                    return KILLED, [name, kind, outcome]
            if kind != 'plain' or not names:
                return SURVIVED, names
            if not mutant.path.endswith('.hpp') and self.is_same_code(mutant):
                return SAME, []
            return PENDING, names
        finally:
            copy.write_text(code)

    def targets(self, mutant, kind, names):
        """A program that uses a library is not linked again if only a source of it changes."""
        if mutant.path.endswith('.cpp'):
            names = self.inside.intersection(names)
        return self.tree.libraries(kind) + [self.tests[kind][name].target for name in names]

    def patience(self, kind, name):
        """The seconds after which a test hangs. The sanitizer slows it down."""
        return 10 + (20 if kind == 'plain' else 200) * self.coverage.seconds[name]

    def rank(self, mutant, name):
        """The test that found most mutants of the file comes first, at the beginning its own."""
        is_own = pathlib.Path(mutant.path).stem == name
        return -self.kills[mutant.path, name], not is_own, self.coverage.seconds[name]

    def is_same_code(self, mutant):
        if mutant.path not in self.originals:
            path = self.tree.folder / mutant.path
            mutated = path.read_text()
            path.write_text((ROOT / mutant.path).read_text())
            self.originals[mutant.path] = self.tree.optimised(mutant.path)
            path.write_text(mutated)
        return self.tree.optimised(mutant.path) == self.originals[mutant.path]


class Results:
    """What became of mutants, in a file, so that an interrupted run can go on."""

    def __init__(self, file):
        self.file = file
        self.known = {}
        self.lock = threading.Lock()
        if file.exists():
            for line in file.read_text().splitlines():
                identity, *result = json.loads(line)
                self.known[identity] = result

    def add(self, identity, result):
        with self.lock, self.file.open('a') as file:
            self.known[identity] = result
            print(json.dumps([identity, *result]), file=file)


def identify(mutant, code):
    """The result of a mutant holds as long as its file is the same."""
    return (f'{mutant.path} {hashlib.sha1(code.encode()).hexdigest()[:12]} '
            f'{mutant.start} {mutant.end} {mutant.text}')


def changed_lines(commit):
    """The numbers of the lines of each source that differ from a commit."""
    lines = collections.defaultdict(set)
    for line in run('git', 'diff', '--unified=0', commit, '--', *find_sources(),
                    cwd=ROOT).splitlines():
        if line.startswith('+++ b/'):
            path = line.removeprefix('+++ b/')
        elif match := re.match(r'@@ -\S+ \+(\d+)(?:,(\d+))? @@', line):
            first, number = int(match[1]), int(match[2] or 1)
            lines[path].update(range(first, first + number))
    return lines


def choose(mutants, sample, seed):
    """A sample of the mutants, the same for the same seed."""
    if sample is None or sample >= len(mutants):
        return mutants
    print(f'{len(mutants) - sample} of {len(mutants)} mutants are left out')
    return sorted(random.Random(seed).sample(mutants, sample))


def judge_all(mutants, codes, results):
    """Tests mutants, as many at a time as there are processors."""
    folders = [FOLDER / str(number) for number in range(os.cpu_count())]
    trees = [Tree(folder) for folder in folders]
    coverage = Coverage(FOLDER / 'covered.json', trees[0])
    waiting = collections.deque((mutant, 'plain') for mutant in mutants)

    def work(tree):
        bench = Bench(tree, coverage)
        while True:
            try:
                mutant, kind = waiting.popleft()
            except IndexError:
                return
            code = codes[mutant.path]
            result = results.known.get(identify(mutant, code), [None])
            if kind != 'plain' or result[0] != PENDING:
                result = bench.judge(mutant, code, kind)
                results.add(identify(mutant, code), result)
            if result[0] == PENDING:
                waiting.append((mutant, 'address'))

    with concurrent.futures.ThreadPoolExecutor(len(trees)) as pool:
        try:
            for worker in [pool.submit(work, tree) for tree in trees]:
                worker.result()
        finally:
            waiting.clear()


def main():
    parser = argparse.ArgumentParser(usage='see scripts/check-mutation')
    parser.add_argument('--again', action='store_true')
    parser.add_argument('--changed')
    parser.add_argument('--sample', nargs=2, type=int, default=(None, 0))
    parser.add_argument('files', nargs='*')
    options = parser.parse_args()

    lines = changed_lines(options.changed) if options.changed else None
    codes = {path: (ROOT / path).read_text()
             for path in options.files or (find_sources() if lines is None else sorted(lines))}
    mutants = [mutant for path, code in codes.items() for mutant in make_mutants(path, code)]
    keys = set(map(key_of, mutants))
    equivalents = read_equivalents()
    stale = [key for key in equivalents - keys if key[0].split()[0] in codes]
    chosen = choose([mutant for mutant in mutants
                     if lines is None or mutant.line in lines[mutant.path]], *options.sample)

    FOLDER.mkdir(parents=True, exist_ok=True)
    results = Results(FOLDER / 'results')

    def result_of(mutant):
        if key_of(mutant) in equivalents:
            return ['equivalent', []]
        return results.known.get(identify(mutant, codes[mutant.path]), [None, []])

    unknown = {None, PENDING, SURVIVED} if options.again else {None, PENDING}
    open_ones = [mutant for mutant in chosen if result_of(mutant)[0] in unknown]
    if open_ones:
        judge_all(open_ones, codes, results)

    counts = collections.Counter()
    for mutant in chosen:
        verdict, names = result_of(mutant)
        counts[verdict] += 1
        if verdict == SURVIVED:
            print(f'{mutant.path}:{mutant.line} {mutant.function}\n- {mutant.before}\n'
                  f'+ {mutant.after}\n  {" ".join(names) or "no test runs this file"}')
    for place, before, after in stale:
        print(f'equivalents.txt lists no mutant here: {place}\n- {before}\n+ {after}')
    print(', '.join(f'{number} {verdict}' for verdict, number in sorted(counts.items())))
    failed = counts[SURVIVED] + len(stale)
    print(f'{len(chosen) - counts[INVALID] - counts[SURVIVED]} passed, {failed} failed')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
