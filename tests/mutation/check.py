"""Runs the tests over mutants of the sources; see scripts/check-mutation."""

import argparse
import collections
import concurrent.futures
import itertools
import json
import os
import random
import re
import subprocess
import sys

from mutation.bench import Bench
from mutation.equivalents import key_of, read_equivalents
from mutation.mutants import make_mutants
from mutation.tree import ROOT, find_sources, run

FOLDER = ROOT / 'build-check' / 'mutation'

KILLED = 'killed'
INVALID = 'does not compile'
SAME = 'gives the same code'
SURVIVED = 'survived'
PENDING = 'passes the plain tests'


class Results:
    """What became of mutants, in a file, so that an interrupted run can go on."""

    def __init__(self, file):
        self.file = file
        self.known = {}
        if file.exists():
            for line in file.read_text().splitlines():
                identity, *result = json.loads(line)
                self.known[identity] = result

    def get(self, mutant):
        return self.known.get(mutant.identity, [None, []])

    def add(self, mutant, verdict, cases=()):
        with self.file.open('a') as file:
            self.known[mutant.identity] = [verdict, list(cases)]
            print(json.dumps([mutant.identity, verdict, list(cases)]), file=file)


def changed_lines(commit):
    """The numbers of the lines of each source that differ from a commit."""
    lines = collections.defaultdict(set)
    if subprocess.run(['git', 'rev-parse', '--quiet', '--verify', commit], cwd=ROOT, check=False,
                      stdout=subprocess.DEVNULL).returncode:
        print(f'This clone has no commit "{commit}", so that no line counts as changed.')
        return lines
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


def kinds_of(mutant):
    """The builds whose tests it must pass to survive, one after the other."""
    return ('thread',) if mutant.kind == 'lock' else ('plain', 'address')


def judge_all(codes, mutants, locks, results):
    """Tests mutants: first those that are compiled together, then the others, in each build.

    Where the locks are tells which test cases reach a source in several threads.
    """
    built = sorted({*mutants, *locks})
    bench = Bench(FOLDER / 'tree', codes, built,
                  {mutant for mutant in built if results.get(mutant)[0] == INVALID})
    for mutant in bench.compile():
        results.add(mutant, INVALID)
    bench.record(FOLDER / 'reached.json')

    def judge(mutant, kind):
        case, n_cases = bench.test(mutant, kind)
        if not case and kind != 'address':  # what is random may find it the next time
            case, _ = bench.test(mutant, kind)
        if case:
            return results.add(mutant, KILLED, [case, kind])
        if kind == 'plain' and n_cases and bench.gives_same_code(mutant):
            return results.add(mutant, SAME)
        if kind == 'plain' and n_cases:
            return results.add(mutant, PENDING)
        return results.add(mutant, SURVIVED, [f'{n_cases} test cases'])

    def judge_alone(mutant, kind):
        with bench.alone(mutant, kind) as is_valid:
            if is_valid:
                judge(mutant, kind)
            else:
                results.add(mutant, INVALID)

    for is_together, kind in itertools.product((True, False), ('plain', 'address', 'thread')):
        todo = [mutant for mutant in mutants if kind in kinds_of(mutant) and
                (mutant in bench.numbers) == is_together and
                results.get(mutant)[0] not in (KILLED, INVALID, SAME, SURVIVED) and
                (kind == kinds_of(mutant)[0]) == (results.get(mutant)[0] != PENDING)]
        if not todo:
            continue
        bench.build(kind)
        if kind != 'plain':
            bench.check(kind, todo)
        if not is_together:
            for mutant in todo:
                judge_alone(mutant, kind)
        else:
            with concurrent.futures.ThreadPoolExecutor(4 * os.cpu_count()) as pool:
                for _ in pool.map(lambda mutant, kind=kind: judge(mutant, kind), todo):
                    pass


def main():
    parser = argparse.ArgumentParser(usage='see scripts/check-mutation')
    parser.add_argument('--again', action='store_true')
    parser.add_argument('--changed', nargs='?', const='HEAD~1')
    parser.add_argument('--sample', nargs=2, type=int, default=(None, 0))
    parser.add_argument('files', nargs='*')
    options = parser.parse_args()

    lines = None if options.changed is None else changed_lines(options.changed)
    codes = {path: (ROOT / path).read_text() for path in find_sources()}
    paths = options.files or (codes if lines is None else sorted(lines))
    mutants = [mutant for path in paths for mutant in make_mutants(path, codes[path])]
    keys = set(map(key_of, mutants))
    equivalents = read_equivalents()
    stale = [key for key in equivalents - keys if key[0].split()[0] in paths]
    chosen = choose([mutant for mutant in mutants
                     if lines is None or mutant.line in lines[mutant.path]], *options.sample)

    FOLDER.mkdir(parents=True, exist_ok=True)
    results = Results(FOLDER / 'results')
    if options.again:
        for mutant in chosen:
            if results.get(mutant)[0] == SURVIVED:
                results.add(mutant, None)

    def result_of(mutant):
        return ['equivalent', []] if key_of(mutant) in equivalents else results.get(mutant)

    if any(result_of(mutant)[0] in (None, PENDING) for mutant in chosen):
        judge_all(codes, [mutant for mutant in chosen if key_of(mutant) not in equivalents],
                  [mutant for mutant in mutants if mutant.kind == 'lock'], results)

    counts = collections.Counter()
    for mutant in chosen:
        verdict, cases = result_of(mutant)
        counts[verdict] += 1
        if verdict == SURVIVED:
            print(f'{mutant.path}:{mutant.line} {mutant.function}\n- {mutant.before}\n'
                  f'+ {mutant.after}\n  {" ".join(cases)}')
    for place, before, after in stale:
        print(f'tests/mutation/equivalents lists no mutant here: {place}\n- {before}\n+ {after}')
    if counts:
        print(', '.join(f'{number} {verdict}' for verdict, number in sorted(counts.items())))
    failed = counts[SURVIVED] + len(stale)
    print(f'{len(chosen) - counts[INVALID] - counts[SURVIVED]} passed, {failed} failed')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
