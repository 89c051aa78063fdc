"""Runs tests and prints TAP.

A test is a function, or a method of a unittest.TestCase whose name begins with "test_". It fails by
an exception, whose traceback is shown, and is skipped by unittest.SkipTest.
"""

import pathlib
import sys
import unittest


class Result(unittest.TestResult):
    """Prints a line for each test. What a failure says goes to stderr, which Meson shows."""

    def __init__(self, group):
        super().__init__()
        self.group = group

    def startTest(self, test):
        super().startTest(test)
        self.running, self.outcome, self.comment = test, 'ok', ''

    def fail(self, test, error):
        self.failures.append(test)
        self.outcome = 'not ok'
        print(self._exc_info_to_string(error, test), file=sys.stderr)
        if not isinstance(test, unittest.TestCase):  # what a class sets up
            print('Bail out!', test)

    addError = addFailure = fail

    def addSubTest(self, test, subtest, err):
        if err:
            print(subtest, file=sys.stderr)
            self.fail(test, err)

    def addSkip(self, test, reason):
        if test is self.running:  # and not a part of it
            self.comment = f' # SKIP {reason}'

    def stopTest(self, test):
        super().stopTest(test)
        scope = f'{type(test).__module__}.{type(test).__qualname__}.'
        name = test.id().removeprefix(scope).removeprefix('test_').replace('_', '-')
        print(f'{self.outcome} {self.testsRun} /{self.group}/{name}{self.comment}', flush=True)


def collect(test):
    if isinstance(test, type):
        return unittest.defaultTestLoader.loadTestsFromTestCase(test)
    return unittest.FunctionTestCase(test)


def run(tests, group=pathlib.Path(sys.argv[0]).stem):
    """Runs functions and classes as tests, and ends the program.

    What a test is called comes from the name of the function or method.
    """
    suite = unittest.TestSuite(map(collect, tests))
    print(f'1..{suite.countTestCases()}')
    result = Result(group)
    suite.run(result)
    sys.exit(bool(result.failures))
