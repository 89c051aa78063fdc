"""Tests of scripts/uncovered, on exports of a source that is in a folder of their own."""

import json
import pathlib
import subprocess
import tempfile
import unittest

from support import tap

UNCOVERED = pathlib.Path(__file__).resolve().parents[2] / 'scripts' / 'uncovered'
CODE, EXPANSION, BRANCH, CONDITION = 0, 1, 4, 6
SOURCE, HEADER, SYSTEM = 'vekmetrics/a.cpp', 'common/b.hpp', '/usr/include/c.h'
LINES = ('if (a)', '  return b && c;', 'vek_assert(a);', 'check(a);', 'switch (a) {')


def region(line, count, file=0, column=1, expanded=0, kind=CODE):
    return [line, column, line, column + 8, count, file, expanded, kind]


def branch(line, true, false, file=0, column=1, kind=BRANCH):
    return [line, column, line, column + 8, true, false, file, 0, kind]


def decision(line, *conditions, column=1):
    return [line, column, line, column + 8, 0, 5, list(conditions)]


class Uncovered(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        for name, lines in {SOURCE: LINES, HEADER: ['#define check']}.items():
            (self.folder / name).parent.mkdir()
            self.write(name, lines)

    def write(self, name, lines):
        (self.folder / name).write_text('\n'.join(lines))

    def function(self, *regions, branches=(), decisions=(), files=(SOURCE,)):
        """All functions have something that runs, of each kind."""
        return {
            'filenames': [str(self.folder / file) for file in files],
            'regions': [region(1, 1), *regions],
            'branches': [branch(1, 1, 1, column=5), *branches],
            'mcdc_records': [decision(1, True, column=5), *decisions],
        }

    def complaints(self, *functions):
        """The lines about what is missing, without those with figures."""
        export = self.folder / 'export.json'
        export.write_text(json.dumps({'data': [{'functions': functions}]}))
        run = subprocess.run([UNCOVERED, export.name], cwd=self.folder, text=True, check=False,
                             stdout=subprocess.PIPE)
        self.figures, complaints = run.stdout.splitlines()[:3], run.stdout.splitlines()[3:]
        self.assertEqual(run.returncode, 1 if complaints else 0)
        return complaints

    def test_whatever_is_missing_is_listed(self):
        self.assertEqual(
            self.complaints(self.function(
                region(2, 0, column=3),
                branches=[branch(1, 0, 1), branch(2, 1, 0, column=10)],
                decisions=[decision(2, True, False, column=10)])),
            ['vekmetrics/a.cpp:1:1: is never true: if (a)',
             'vekmetrics/a.cpp:2:3: never runs: return b && c;',
             'vekmetrics/a.cpp:2:10: condition 2 decides nothing: return b && c;',
             'vekmetrics/a.cpp:2:10: is never false: return b && c;'])
        self.assertEqual(self.figures, ['regions: 1 of 2, 0 excused', 'branches: 4 of 6, 0 excused',
                                        'conditions: 2 of 3, 0 excused'])

    def test_full_coverage_is_a_success(self):
        self.assertEqual(self.complaints(self.function()), [])

    def test_empty_export_is_a_failure(self):
        self.assertEqual(len(self.complaints()), 3)

    def test_instances_of_a_template_complete_each_other(self):
        self.assertEqual(self.complaints(
            self.function(region(2, 0), branches=[branch(2, 0, 1)],
                          decisions=[decision(2, True, False)]),
            self.function(region(2, 1), branches=[branch(2, 1, 0)],
                          decisions=[decision(2, False, True)])), [])

    def use(self, line, header, count):
        """A function that uses a macro of the header, a branch of which was never true."""
        return self.function(region(line, 1, expanded=1, kind=EXPANSION),
                             region(1, count, file=1), branches=[branch(1, 0, 1, file=1)],
                             files=[SOURCE, header])

    def test_each_use_of_our_macros_counts(self):
        self.assertEqual(self.complaints(self.use(4, HEADER, 0), self.use(2, HEADER, 1)),
                         ['vekmetrics/a.cpp:2:1: is never true: return b && c;',
                          'vekmetrics/a.cpp:4:1: is never true: check(a);',
                          'vekmetrics/a.cpp:4:1: never runs: check(a);'])

    def test_decision_in_a_macro_counts_where_it_is_used(self):
        uses = [region(line, 1, expanded=file, kind=EXPANSION) for file, line in ((1, 2), (2, 4))]
        conditions = [branch(1, 1, 1, file=file, kind=CONDITION) for file in (1, 2)]
        self.assertEqual(
            self.complaints(self.function(
                *uses, branches=conditions, files=[SOURCE, HEADER, HEADER],
                decisions=[decision(1, True, True), decision(1, False, True)])),
            ['vekmetrics/a.cpp:4:1: condition 1 decides nothing: check(a);'])

    def test_macros_of_others_and_code_of_others_are_left_out(self):
        self.assertEqual(self.complaints(self.use(4, SYSTEM, 0), {
            **self.function(region(2, 0)), 'filenames': [SYSTEM]}), [])

    def test_failure_of_an_assertion_is_left_out(self):
        self.assertEqual(self.complaints(self.use(3, HEADER, 0)), [])

    def test_missing_default_of_a_switch_is_left_out(self):
        self.assertEqual(self.complaints(self.function(branches=[branch(5, 0, 1, column=9)])), [])

    def test_comment_excuses_three_lines(self):
        self.write(SOURCE, ['// Untested: a is true', *LINES])
        missing = [region(line, 0, column=3) for line in (2, 3, 4)]
        self.assertEqual(self.complaints(self.function(*missing)),
                         ['vekmetrics/a.cpp:4:3: never runs: vek_assert(a);'])
        self.assertEqual(self.figures[0], 'regions: 1 of 4, 2 excused')

    def test_comment_without_need_is_a_failure(self):
        self.write(SOURCE, ['if (a)  // Untested: a is true'])
        self.assertEqual(self.complaints(self.function()),
                         ['vekmetrics/a.cpp:1:1: excuses nothing: '])

    def test_ten_comments_are_the_most(self):
        for n_comments, complaints in ((10, []), (11, ['11 comments say "Untested", and 10 may'])):
            self.write(SOURCE, ['a;', *['b;  // Untested: b'] * n_comments])
            missing = [region(2 + i, 0) for i in range(n_comments)]
            self.assertEqual(self.complaints(self.function(*missing)), complaints)


if __name__ == '__main__':
    tap.run([Uncovered])
