"""Tests of scripts/tally and scripts/steps."""

import json
import pathlib
import subprocess
import tempfile
import unittest

from support import tap

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / 'scripts'
TALLY = SCRIPTS / 'tally'

# What a program printed, how Meson judged it, and what the tally says.
ROWS = (
    ('tap programs count by their tests',
     '1..2\nok 1 /a/b\nok 2 /a/c\n', 'OK', '2 passed, 0 failed\n'),
    ('a failed test is one failure',
     '1..2\nok 1 /a/b\nnot ok 2 /a/c - why\n', 'FAIL',
     'failed program: /a/c - why\n1 passed, 1 failed\n'),
    ('a program that crashes between tests has failed',
     '1..2\nok 1 /a/b\n', 'ERROR',
     'failed program: ERROR\n1 passed, 1 failed\n'),
    ('a program that hangs has failed',
     '1..2\n', 'TIMEOUT', 'failed program: TIMEOUT\n0 passed, 1 failed\n'),
    ('other programs count as one',
     'okay so far\nokay still\n  not ok\n', 'OK', '1 passed, 0 failed\n'),
    ('other programs fail as one',
     None, 'FAIL', 'failed program: FAIL\n0 passed, 1 failed\n'),
    ('skipped tests are named and not counted',
     '1..2\nok 1 /a/b\nok 2 /a/c # SKIP no tool\n', 'OK',
     'skipped program: /a/c: no tool\n1 passed, 0 failed\n'),
    ('skipped programs are named and not counted',
     '', 'SKIP', 'skipped program\n0 passed, 0 failed\n'),
)


class Tally(unittest.TestCase):
    def tally(self, *runs):
        with tempfile.NamedTemporaryFile('w', suffix='.json') as log:
            for stdout, result in runs:
                run = {'name': 'program', 'result': result, 'stdout': stdout}
                print(json.dumps(run), file=log, flush=True)
            run = subprocess.run([TALLY, log.name], stdout=subprocess.PIPE, text=True, check=False)
        return run.stdout, run.returncode

    def test_rows(self):
        for sentence, stdout, result, printed in ROWS:
            with self.subTest(sentence):
                self.assertEqual(self.tally((stdout, result))[0], printed)

    def test_runs_are_summed_up(self):
        self.assertEqual(self.tally(('ok 1 /a\n', 'OK'), ('', 'OK'), ('not ok 1 /b\n', 'FAIL')),
                         ('failed program: /b\n2 passed, 1 failed\n', 1))

    def test_only_passing_is_a_success(self):
        self.assertEqual(self.tally(('', 'OK')), ('1 passed, 0 failed\n', 0))
        self.assertEqual(self.tally(), ('0 passed, 0 failed\n', 1))


# Its n-th reading is n * n.
CLOCK = """
    date() {
      echo >>"$work/readings"
      local n
      n=$(wc -l <"$work/readings")
      echo $((n * n))
    }"""


def run_check(*lines):
    """Runs a check of these lines; returns the lines that it prints, and its exit status."""
    run = subprocess.run(
        ['bash', '-c', '\n'.join([f'. {SCRIPTS}/steps', CLOCK, *lines, 'finish'])],
        stdout=subprocess.PIPE, text=True, check=False)
    return run.stdout.splitlines(), run.returncode


class Step(unittest.TestCase):
    FAILING = 'fail() { echo said; (exit 7); true; }'

    def test_function_stops_at_its_first_failing_command_in_every_condition(self):
        for line in ('step name fail', 'if step name fail; then echo went on; fi',
                     'if false; then :; elif step name fail; then echo went on; fi',
                     'while step name fail; do echo went on; break; done',
                     'step name fail && echo went on', 'true && step name fail || true',
                     'check() { step name fail && echo went on; }; check || true',
                     '{ ! step name fail; } || echo went on'):
            with self.subTest(line):
                self.assertEqual(run_check(self.FAILING, line),
                                 (['not ok name (3 s)', 'said', 'failed name',
                                   '0 passed, 1 failed'], 1))

    def test_condition_has_the_status_of_the_step(self):
        self.assertEqual(run_check('if step name true; then echo went on; fi')[0],
                         ['ok name (3 s)', 'went on', '1 passed, 0 failed'])
        self.assertEqual(run_check(self.FAILING, 'step name fail || echo "status $?"')[0],
                         ['not ok name (3 s)', 'said', 'status 7', 'failed name',
                          '0 passed, 1 failed'])

    def test_passing_step_is_silent_and_changes_nothing_of_the_check(self):
        self.assertEqual(run_check('talk() { echo said; value=2; cd /; }', 'value=1 before=$PWD',
                                   'step name talk',
                                   'echo "$value"; [ "$PWD" = "$before" ] || echo moved'),
                         (['ok name (3 s)', '1', '1 passed, 0 failed'], 0))


class Count(unittest.TestCase):
    def count(self, *commands):
        lines, status = run_check(*(f"count sh -c '{command}'" for command in commands))
        return lines[-1], status

    def test_sums_are_added(self):
        self.assertEqual(self.count('echo 2 passed, 0 failed', 'echo 3 passed, 0 failed'),
                         ('5 passed, 0 failed', 0))

    def test_bad_end_is_a_failure_whatever_was_counted(self):
        self.assertEqual(self.count('echo 2 passed, 0 failed; exit 3'), ('2 passed, 1 failed', 1))
        self.assertEqual(self.count('echo 2 passed, 2 failed; exit 3'), ('2 passed, 2 failed', 1))

    def test_command_without_a_sum_passes_by_its_status(self):
        good = 'echo 1 passed, 0 failed'
        self.assertEqual(self.count(good, 'echo said'), ('1 passed, 0 failed', 0))
        self.assertEqual(self.count(good, 'echo said; exit 3'), ('1 passed, 1 failed', 1))

    def test_only_a_last_line_is_a_sum(self):
        good = 'echo 2 passed, 0 failed'
        self.assertEqual(self.count(good, 'echo 7 passed, 0 failed; echo said'),
                         ('2 passed, 0 failed', 0))

    def test_failures_are_named_once_at_the_end(self):
        inner = (f"bash -c '. {SCRIPTS}/steps; count sh -c \"echo failed x: /y; echo 1 passed, "
                 "1 failed; exit 1\"; step z false; finish'")
        self.assertEqual(run_check(f'count {inner}', 'count false', 'step name true')[0][-4:],
                         ['failed x: /y', 'failed z', 'failed false', '2 passed, 3 failed'])
        lines, _ = run_check(f'count {inner}')
        self.assertEqual(lines.count('failed x: /y'), 1)

    def test_each_command_and_each_step_says_how_long_it_took(self):
        self.assertEqual(run_check('count true', 'count false', 'step name true')[0][:-2],
                         ['== true', '== true took 3 s', '== false', '== false took 7 s',
                          'ok name (11 s)'])

    def test_no_test_at_all_is_a_failure(self):
        self.assertEqual(self.count('true'), ('0 passed, 0 failed', 1))


if __name__ == '__main__':
    tap.run([Tally, Step, Count])
