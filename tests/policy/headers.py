#!/usr/bin/env python3
"""Compiles the public headers as applications do: headers.py SYMBOLS HEADER...

Each header must compile by itself, in every language that applications use, without a warning and
without anything private beside it. Every type of SYMBOLS must have its macros and a g_autoptr, and
the range, which is a plain record, a g_autoptr and a g_autoslist.
CC and CXX name the compilers.
"""

import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

from support import tap

symbols, *headers = map(pathlib.Path, sys.argv[1:])

# These are no objects and so have no casts.
BOXED = {'VekMetricDatum', 'VekMetricDimension', 'VekMetricSnapshot'}

USE_RANGE = '''void use_range(void);
void use_range(void) {
g_autoptr(VekMetricRange) nothing = NULL;
(void)nothing;
g_autoslist(VekMetricRange) none = NULL;
(void)none;
}
'''


def use_type(get_type):
    words = get_type.removeprefix('vek_').removesuffix('_get_type').split('_')
    camel = 'Vek' + ''.join(map(str.capitalize, words))
    upper = '_'.join(words).upper()
    lines = [f'g_autoptr({camel}) nothing = NULL;', '(void)nothing;',
             f'g_type_ensure(VEK_TYPE_{upper});']
    if camel not in BOXED:
        lines.append(f'if (VEK_IS_{upper}(nothing)) g_object_ref(VEK_{upper}(nothing));')
    return 'void use_%s(void);\nvoid use_%s(void) {\n%s\n}\n' % (camel, camel, '\n'.join(lines))


class Headers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        public = cls.folder / 'vekmetrics'
        public.mkdir()
        for header in headers:
            (public / header.name).symlink_to(header.resolve())
            # The declaration is for headers of macros alone: a C file must not be empty.
            (cls.folder / f'{header.stem}.c').write_text(
                f'#include <vekmetrics/{header.name}>\nextern int declaration;\n')

        get_types = re.findall(r'^vek_\w+_get_type$', symbols.read_text(), re.MULTILINE)
        uses = [USE_RANGE, *map(use_type, get_types)]
        (cls.folder / 'types.c').write_text('#include <vekmetrics/vekmetrics.h>\n' + ''.join(uses))

    def compile(self, compiler, *options):
        flags = subprocess.run(['pkg-config', '--cflags', 'gio-2.0'], check=True,
                               capture_output=True, text=True).stdout
        result = subprocess.run(
            [*shlex.split(os.environ[compiler]), *options, '-fsyntax-only', '-Wall', '-Wextra',
             '-Wpedantic', '-Werror', f'-I{self.folder}', *shlex.split(flags),
             *sorted(self.folder.glob('*.c'))], stderr=subprocess.PIPE, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_compile_as_c99(self):
        self.compile('CC', '-std=c99')

    def test_compile_as_c11(self):
        self.compile('CC', '-std=c11')

    def test_compile_as_cxx17(self):
        self.compile('CXX', '-std=c++17', '-x', 'c++')


if __name__ == '__main__':
    tap.run([Headers])
