"""Runs functions as tests and prints TAP.

A test fails by an exception, whose traceback is shown, and is skipped by unittest's SkipTest.
"""

import sys
import traceback
import unittest


def run(group, tests):
    """Runs the tests and ends the program. What a test is called comes from its function's name."""
    print(f'1..{len(tests)}')
    failed = False
    for number, test in enumerate(tests, 1):
        name = f'/{group}/' + test.__name__.replace('_', '-')
        try:
            test()
        except unittest.SkipTest as reason:
            print(f'ok {number} {name} # SKIP {reason}')
        except Exception:  # pylint: disable=broad-except
            failed = True
            print(f'not ok {number} {name}')
            for line in traceback.format_exc().splitlines():
                print('#', line)
        else:
            print(f'ok {number} {name}')
        sys.stdout.flush()
    sys.exit(int(failed))
