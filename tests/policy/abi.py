#!/usr/bin/env python3
"""Checks what the built library shows to the linker: abi.py LIBRARY SYMBOLS [--instrumented]

Programs that link it must find exactly the functions listed in SYMBOLS, and must not notice that
it is written in C++. There is nothing to check in a library that is instrumented by a sanitizer or
for coverage: that adds symbols, constructors and libraries of its own.
"""

import pathlib
import re
import subprocess
import sys
import unittest

from support import tap

library, symbols, *instrumented = sys.argv[1:]


def run(*command):
    return subprocess.run([*command, library], check=True, capture_output=True, text=True).stdout


class Abi(unittest.TestCase):
    maxDiff = None

    def test_exports_the_listed_functions_and_no_data(self):
        exports = [line.split()[:2] for line in run('nm', '-DP', '--defined-only').splitlines()]
        listed = pathlib.Path(symbols).read_text().splitlines()
        self.assertEqual(sorted(exports), [[name, 'T'] for name in listed])

    def test_is_known_by_its_stable_name(self):
        self.assertEqual(re.findall(r'SONAME.*\[(.*)\]', run('readelf', '-dW')),
                         ['libvekmetrics.so.0'])

    def test_needs_no_library_beyond_glib_and_the_c_library(self):
        needed = re.findall(r'NEEDED.*\[lib(.*)\.so\b.*\]', run('readelf', '-dW'))
        self.assertLessEqual(set(needed),
                             {'gio-2.0', 'glib-2.0', 'gobject-2.0', 'json-glib-1.0', 'c', 'm'})

    def test_wants_no_symbol_of_the_cxx_runtime(self):
        # The linker may leave a library out of the needed ones, and the symbols unresolved.
        wanted = [line.split()[0] for line in run('nm', '-DP', '--undefined-only').splitlines()]
        runtime = [name for name in wanted if re.match('_Z|__cxa_|__gxx_|_Unwind_', name)]
        self.assertEqual([name for name in runtime if not name.startswith('__cxa_finalize')], [])

    def test_runs_no_constructors_when_loaded(self):
        # Start files of the compiler put one entry into every library; ours would be further ones.
        sizes = re.findall(r'\((?:PRE)?INIT_ARRAYSZ\)\s+(\d+)', run('readelf', '-dW'))
        pointer = 8 if 'ELF64' in run('readelf', '-h') else 4
        self.assertLessEqual(sum(map(int, sizes)), pointer)


if __name__ == '__main__':
    if instrumented:
        print('1..0 # SKIP the library is instrumented')
        sys.exit()
    tap.run([Abi])
