"""Mutants in a tree, and the test cases that reach them."""

import collections
import concurrent.futures
import contextlib
import json
import math
import os
import pathlib
import re
import tempfile
import threading

from mutation.schemata import Schemata
from mutation.tree import Tree

FEW = 1000  # mutants of a file
SLOWNESS = {'plain': 1, 'address': 10, 'thread': 10}  # of the test cases in each build


def refuse(failing):
    """Ends the program if test cases fail by themselves: they would find every mutant."""
    if failing:
        raise SystemExit('\n'.join(['Without any mutant, these test cases fail:', *failing]))


class Bench:
    """A tree in which mutants are tested."""

    def __init__(self, folder, codes, mutants, invalid):
        self.codes = codes
        self.tree = Tree(folder)
        self.kills = collections.Counter()  # of each file and test case
        self.seconds = {}                   # of each test case, without a mutant
        self.reached = collections.defaultdict(set)  # the test cases of each mutant and place
        self.threaded = collections.defaultdict(set)  # of each file: those with several threads
        self.originals = {}                 # optimised code
        self.compiling = threading.Lock()
        by_path = {path: [] for path in codes}
        for mutant in mutants:
            by_path[mutant.path].append(mutant)
        self.schemata = {path: Schemata(path, codes[path], of_path)
                         for path, of_path in by_path.items()}
        self.numbers = {}
        for index, of_path in enumerate(by_path.values()):
            for position, mutant in enumerate(of_path):
                if mutant in self.schemata[mutant.path].places and mutant not in invalid:
                    self.numbers[mutant] = index * FEW + position + 1

    def render(self):
        for path, schemata in self.schemata.items():
            self.tree.write(path, schemata.render(self.numbers))

    def compile(self):
        """Compiles the mutants that have slots together, without those that cause errors.

        Returns these: they would not compile alone either, since what else stands in a slot is of
        the same type.
        """
        invalid = []
        mutants = {number: mutant for mutant, number in self.numbers.items()}
        self.render()
        while errors := self.tree.build('plain'):
            numbers = {int(number) // 100 for number in re.findall(
                r'^mutant/\S+:(\d+):\d+: +(?:error|required from)', errors, re.MULTILINE)}
            if not numbers:
                raise SystemExit(errors)
            for number in numbers:
                invalid.append(mutants[number])
                del self.numbers[mutants[number]]
            self.render()
        return invalid

    def build(self, kind):
        self.render()
        if errors := self.tree.build(kind):
            raise SystemExit(errors)

    def check(self, kind, mutants):
        """Makes sure that what is going to test these mutants passes without any in this build."""
        cases = sorted(set().union(*map(self.cases_of, mutants)))
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            runs = pool.map(lambda case: self.run(case, kind, {}), cases)
        refuse([' '.join(case) for case, passes in zip(cases, runs) if not passes])

    def run(self, case, kind, variables):
        """Runs a test case; returns whether it passes."""
        program, name = case
        seconds = SLOWNESS[kind] * self.seconds[case]
        return self.tree.programs[kind][program].run(name, variables, seconds)[0]

    def record(self, file):
        """Runs each test case without a mutant, to see which of them it reaches.

        The file keeps this for as long as the program and the libraries are the same.
        """
        known = json.loads(file.read_text()) if file.exists() else {}
        programs = self.tree.programs['plain']
        digests = {name: self.tree.digest(program) for name, program in programs.items()}
        known = {name: known[name] if known.get(name, [None])[0] == digest else [digest, {}]
                 for name, digest in digests.items()}

        def run(program, case):
            with tempfile.NamedTemporaryFile() as reached:
                reached.truncate(FEW * len(self.codes))
                passes, seconds = program.run(case, {'MUTANTS': reached.name}, 20)
                if not passes:
                    return f'{program.name} {case}'
                known[program.name][1][case] = seconds, {
                    match.start(): match[0][0] for match in re.finditer(b'[^\0]', reached.read())}
            return None

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            runs = [pool.submit(run, program, case) for program in programs.values()
                    for case in program.cases() if case not in known[program.name][1]]
            failing = [run.result() for run in runs if run.result()]
        file.write_text(json.dumps(known))
        refuse(failing)

        mutants = {number: mutant for mutant, number in self.numbers.items()}
        for name, (_, cases) in known.items():
            for case, (seconds, numbers) in cases.items():
                self.seconds[name, case] = max(seconds, 0.001)
                for number, threads in numbers.items():
                    mutant = mutants[int(number)]
                    for place in (mutant, (mutant.path, mutant.function), mutant.path):
                        self.reached[place].add((name, case))
                    if threads > 1:
                        self.threaded[mutant.path].add((name, case))

    def cases_of(self, mutant):
        """The test cases that reach a mutant, the likeliest to find it first.

        Of a mutant that is compiled alone, these are the cases that reach others of its function,
        or of its file. A lock matters only to cases that reach its file in several threads.
        """
        if mutant in self.numbers:
            cases = self.reached[mutant]
        else:
            cases = (self.reached[mutant.path, mutant.function] or self.reached[mutant.path] or
                     self.seconds.keys())
        if mutant.kind == 'lock':
            cases = cases & self.threaded[mutant.path]
        stem = pathlib.Path(mutant.path).stem
        return sorted(cases, key=lambda case: (
            -(self.kills[mutant.path, case] + (0.5 if case[0] == stem else 0.05)) /
            self.seconds[case], case))

    def test(self, mutant, kind):
        """Returns the test case that finds a mutant, or None, and how many there are.

        What is wrong with memory shows wherever the mutant is reached, so that cases of a second
        are enough with the address sanitizer.
        """
        left = 1 if kind == 'address' else math.inf
        cases = self.cases_of(mutant)
        variables = {'MUTANT': str(self.numbers.get(mutant, 0))}
        for case in cases:
            if not self.run(case, kind, variables):
                self.kills[mutant.path, case] += 1
                return ' '.join(case), len(cases)
            left -= self.seconds[case]
            if left < 0:
                break
        return None, len(cases)

    @contextlib.contextmanager
    def alone(self, mutant, kind):
        """Builds a mutant that cannot be compiled together with others. Says whether it can be."""
        path = mutant.path
        self.tree.write(path, mutant.apply(self.codes[path]))
        try:
            yield not self.tree.build(kind, path)
        finally:
            self.tree.write(path, self.schemata[path].render(self.numbers))

    def gives_same_code(self, mutant):
        path, code = mutant.path, self.codes[mutant.path]
        if path.endswith('.hpp'):
            return False
        with self.compiling:
            if path not in self.originals:
                self.originals[path] = self.tree.optimised(path, code)
            return self.tree.optimised(path, mutant.apply(code)) == self.originals[path]
