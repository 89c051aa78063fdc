"""Tests how the clock must be linked, as TAP: linking.py [--python]

CC names the compiler, and pkg-config finds the libraries. With --python, in Python too.
"""

import pathlib
import shlex
import subprocess
import sys
import tempfile

from support import tap

PROGRAM = '''
#include <vekmetrics-testing/clock.h>
#include <vekmetrics/vekmetrics.h>
int main(void) {
#ifdef ADVANCE_FIRST
  vek_testing_clock_advance(1);
  return 0;
#endif
  vek_testing_clock_set(1000, 1);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(NULL, 0);
  return !(g_get_real_time() == 1000 && vek_metric_snapshot_get_time(snapshot) == 1000);
}
'''

IN_PYTHON = '''
import ctypes
import gi
gi.require_version('Vek', '1.0')
from gi.repository import Vek
clock = ctypes.CDLL(None)
clock.vek_testing_clock_set(ctypes.c_int64(1000), ctypes.c_int64(1))
clock.vek_testing_clock_advance(ctypes.c_int64(500))
assert Vek.MetricSnapshot.new([]).get_time() == 1500
'''

HIDE = '-Wl,--version-script=hidden.map'
CLOCK = '$(pkg-config --cflags --libs vekmetrics-testing-clock)'
BOTH = '$(pkg-config --cflags --libs vekmetrics vekmetrics-testing-clock)'


def run(command):
    """Runs a line of shell in a folder with the program; returns its status and its errors."""
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, 'program.c').write_text(PROGRAM, encoding='utf-8')
        pathlib.Path(folder, 'program.py').write_text(IN_PYTHON, encoding='utf-8')
        pathlib.Path(folder, 'hidden.map').write_text('{ local: *; };', encoding='utf-8')
        ended = subprocess.run(['sh', '-c', command], check=False, cwd=folder, text=True,
                               stderr=subprocess.PIPE)
    return ended.returncode, ended.stderr


def build_and_run(flags):
    return run(f'$CC program.c {flags} -o program && ./program')


def works(flags):
    ended = build_and_run(flags)
    assert ended == (0, ''), ended


def is_refused(flags):
    status, errors = build_and_run(flags)
    assert status != 0 and 'a program that does not export it' in errors, (status, errors)


def pkg_config_says_all_that_it_takes():
    works(BOTH)


def order_of_the_libraries_is_no_matter():
    works(f'{CLOCK} {BOTH}')
    works(f'{BOTH} {CLOCK}')


def hidden_visibility_of_the_program_is_no_matter():
    works(f'-fvisibility=hidden {BOTH}')


def clock_that_is_not_exported_ends_the_program():
    is_refused(f'{BOTH} -Wl,--exclude-libs,ALL')
    is_refused(f'{BOTH} {HIDE}')
    is_refused(f'{BOTH} {HIDE} -DADVANCE_FIRST')


def python_sets_a_clock_that_is_loaded_first():
    status, errors = run('$CC -shared -o clock.so -Wl,--whole-archive '
                         f'{CLOCK} -Wl,--no-whole-archive '
                         f'&& LD_PRELOAD=./clock.so {shlex.quote(sys.executable)} program.py')
    assert (status, errors) == (0, ''), errors


tap.run([
    pkg_config_says_all_that_it_takes,
    order_of_the_libraries_is_no_matter,
    hidden_visibility_of_the_program_is_no_matter,
    clock_that_is_not_exported_ends_the_program,
    *([python_sets_a_clock_that_is_loaded_first] if '--python' in sys.argv else []),
])
