#!/usr/bin/env python3
"""Compiles a library's public headers as applications do:

    headers.py NAME PREFIX SYMBOLS PACKAGE HEADER...

Each header must compile by itself, in every language that applications use, without a warning and
without anything private beside it. HEADER... are those of all libraries; those of NAME need nothing
else but PACKAGE, which pkg-config knows. Every type of SYMBOLS, which is Debian's list, must have
its macros, and a g_autoptr unless it is an enumeration; the range, which is a plain record, a
g_autoptr and a g_autoslist.
CC and CXX name the compilers.
"""

import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import unittest

from support import tap
from support.symbols import read_symbols

library, prefix, symbols, package, *headers = sys.argv[1:]
headers = list(map(pathlib.Path, headers))

USE_RANGE = '''void use_range(void);
void use_range(void) {
g_autoptr(VekMetricRange) nothing = NULL;
(void)nothing;
g_autoslist(VekMetricRange) none = NULL;
(void)none;
}
'''


def use_type(get_type, declarations):
    words = get_type.removesuffix('_get_type')
    camel = ''.join(map(str.capitalize, words.split('_')))
    namespace, upper = prefix.upper(), words.removeprefix(f'{prefix}_').upper()
    lines = [f'g_type_ensure({namespace}_TYPE_{upper});']
    if f'}} {camel};' not in declarations:  # an enumeration
        lines += [f'g_autoptr({camel}) nothing = NULL;', '(void)nothing;']
    if f'_TYPE({camel},' in declarations or f'_INTERFACE({camel},' in declarations:
        lines.append(f'if ({namespace}_IS_{upper}(nothing)) '
                     f'g_object_ref({namespace}_{upper}(nothing));')
    return 'void use_%s(void);\nvoid use_%s(void) {\n%s\n}\n' % (camel, camel, '\n'.join(lines))


class Headers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        for header in headers:
            public = cls.folder / header.parent.name
            public.mkdir(exist_ok=True)
            (public / header.name).symlink_to(header.resolve())
        own = [header for header in headers if header.parent.name == library]
        for header in own:
            # The declaration is for headers of macros alone: a C file must not be empty.
            source = header.name.replace('.h', '.c')  # .c or .cpp
            (cls.folder / source).write_text(
                f'#include <{library}/{header.name}>\nextern int declaration;\n')

        declarations = ''.join(header.read_text() for header in own)
        _, functions = read_symbols(symbols)
        uses = [use_type(function, declarations) for function in functions
                if function.endswith('_get_type')]
        if library == 'vekmetrics':
            uses.append(USE_RANGE)
        (cls.folder / 'types.c').write_text(
            f'#include <{library}/{library}.h>\nextern int declaration;\n' + ''.join(uses))

    def compile(self, compiler, sources, *options):
        flags = subprocess.run(['pkg-config', '--cflags', package], check=True,
                               capture_output=True, text=True).stdout
        flags = flags.replace('-I', '-isystem ')  # what others' headers do is theirs
        result = subprocess.run(
            [*shlex.split(os.environ[compiler]), *options, '-fsyntax-only', '-Wall', '-Wextra',
             '-Wpedantic', '-Werror', f'-I{self.folder}', *shlex.split(flags),
             *sorted(self.folder.glob(sources))], stderr=subprocess.PIPE, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_compile_as_c99(self):
        self.compile('CC', '*.c', '-std=c99')

    def test_compile_as_c11(self):
        # Headers that stand alone in C99 do so here.
        self.compile('CC', f'{library}.c', '-std=c11')
        self.compile('CC', 'types.c', '-std=c11')

    def test_compile_as_cxx17(self):
        self.compile('CXX', '*.c*', '-std=c++17', '-x', 'c++')

    def test_compile_as_cxx20_without_exceptions_and_type_information(self):
        self.compile('CXX', f'{library}.c*', '-std=c++20', '-fno-exceptions', '-fno-rtti',
                     '-x', 'c++')


if __name__ == '__main__':
    tap.run([Headers])
