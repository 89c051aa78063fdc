#!/usr/bin/env python3
"""Checks what a built library shows to the linker:

    abi.py [--instrumented] LIBRARY SYMBOLS LINKED...

Programs that link it must find exactly the functions of SYMBOLS, which is Debian's list of them,
and must not notice that it is written in C++. Beyond GLib and the C library it needs the libraries
LINKED alone. There is nothing to check in a library that is instrumented by a sanitizer or for
coverage: that adds symbols, constructors and libraries of its own.
"""

import _ctypes
import ctypes
import pathlib
import re
import subprocess
import sys
import unittest

from support import tap
from support.symbols import read_symbols

instrumented = sys.argv[1] == '--instrumented'
library, symbols, *linked = sys.argv[2 if instrumented else 1:]
soname, functions = read_symbols(symbols)


def run(*command):
    return subprocess.run([*command, library], check=True, capture_output=True, text=True).stdout


class Abi(unittest.TestCase):
    maxDiff = None

    def test_exports_the_listed_functions_and_no_data(self):
        exports = [line.split()[:2] for line in run('nm', '-DP', '--defined-only').splitlines()]
        self.assertEqual(sorted(exports), [[name, 'T'] for name in functions])

    def test_is_known_by_its_stable_name(self):
        self.assertEqual(re.findall(r'SONAME.*\[(.*)\]', run('readelf', '-dW')), [soname])

    def test_needs_no_library_beyond_those_it_says(self):
        needed = re.findall(r'NEEDED.*\[lib(.*)\.so\b.*\]', run('readelf', '-dW'))
        self.assertLessEqual(set(needed),
                             {'gio-2.0', 'glib-2.0', 'gobject-2.0', 'c', 'm', *linked})

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

    def test_stays_in_memory_when_a_plugin_that_used_it_is_closed(self):
        # GObject keeps what it has registered for good: types, and through them addresses here.
        get_type = next(name for name in functions if name.endswith('_get_type'))
        types = []
        for _ in range(2):
            loaded = ctypes.CDLL(library)
            getattr(loaded, get_type).restype = ctypes.c_size_t
            types.append(getattr(loaded, get_type)())
            _ctypes.dlclose(loaded._handle)
        self.assertEqual(types[1], types[0])
        self.assertIn(library, pathlib.Path('/proc/self/maps').read_text(encoding='utf-8'))


if __name__ == '__main__':
    if instrumented:
        print('1..0 # SKIP the library is instrumented')
        sys.exit()
    tap.run([Abi])
