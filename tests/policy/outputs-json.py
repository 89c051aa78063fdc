"""Tests of who reads the JSON log, and of how docs/outputs.md tells it:

    outputs-json.py CLIENT EVERY-KIND

CLIENT and EVERY-KIND are the programs that json-client.c and every-kind.c become.
"""

import functools
import json
import os
import pathlib
import random
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

from support import tap
from outputspage import check_commands, read_blocks

CLIENT, EVERY_KIND = (pathlib.Path(path).resolve() for path in sys.argv[1:3])

LIMIT = 2.348543e108  # of values; statistics have none
INFINITY = float('inf')

# Names that a reader may stumble over, and what it must find for those that are no UTF-8.
NAMES = [(name.encode(), name) for name in (
    '', ' ', '1e+22.0', '-1e+22.0}', ':1e+22.0', '"', '\\', '\\"', '":1e+22.0', 'x":1e+22.0,',
    'x\\":1e+22.0,', '"Value":1e+22.0', '},{"MetricName":"x","Value":1e+22.0', 'e.0', '[]{},:',
    'null', 'größe', '😀', '\u2028\u0085', '/', '<', "'",
    ''.join(map(chr, range(1, 32))), '\x7f')] + [
    (b'\xff', '\ufffd'), (b'a\xc3', 'a\ufffd'), (b'\xc0\x80', '\ufffd\ufffd'),
    (b'"\xfe":1e+22.0', '"\ufffd":1e+22.0'), (b'\xed\xa0\x80', '\ufffd\ufffd\ufffd')]


def make_doubles():
    """Doubles of all magnitudes, the same ones each time."""
    generator = random.Random(1)
    doubles = [0.0, -0.0, 1e22, 1e16, 1e17, 5e-324, sys.float_info.min, sys.float_info.max, 0.1,
               LIMIT, -LIMIT, INFINITY, -INFINITY, float('nan')]
    doubles += [sign * float(f'{digit}e{exponent}') for exponent in range(-323, 309)
                for digit in (1, generator.randint(2, 9)) for sign in (1, -1)]
    doubles += [float(generator.randint(-2 ** 63, 2 ** 63)) for _ in range(200)]
    doubles += [struct.unpack('<d', generator.randbytes(8))[0] for _ in range(3000)]
    doubles += [struct.unpack('<d', generator.randbytes(6) + b'\0\0')[0] for _ in range(300)]
    return doubles


def identify(double):
    """What tells a double from all others, and -0.0 from 0.0; None for what is not finite."""
    return struct.pack('<d', double) if double is not None and abs(double) < INFINITY else None


def clamp(double):
    return max(-LIMIT, min(double, LIMIT)) if double == double else double


def make_locale(folder):
    """Makes a locale with a decimal comma and returns the environment that chooses it."""
    name = 'de_DE.ISO-8859-1'
    path = pathlib.Path(folder, name)
    try:
        subprocess.run(['localedef', '-i', 'de_DE', '-f', 'ISO-8859-1', path], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    except (OSError, subprocess.CalledProcessError):
        raise unittest.SkipTest(f'localedef cannot make {name}: '
                                "Debian's package locales is missing") from None
    return {'LOCPATH': folder, 'LC_ALL': name}


def refuse(constant):
    raise ValueError(f'{constant} is not JSON')


read_json = functools.partial(json.loads, parse_constant=refuse, parse_int=float)


def read_with_python(path):
    with open(path, encoding='utf-8') as file:
        return [point for line in file for point in read_json(line.split(' ', 2)[2])]


def read_with_jq(path):
    if not shutil.which('jq'):
        raise unittest.SkipTest('there is no jq')
    with open(path, 'rb') as file:
        text = b''.join(line.split(b' ', 2)[2] for line in file)
    run = subprocess.run(['jq', '-c', '.[]'], input=text, stdout=subprocess.PIPE, check=True)
    return list(map(read_json, run.stdout.splitlines()))


def temporary_folder(case):
    folder = tempfile.TemporaryDirectory()
    case.addCleanup(folder.cleanup)
    return folder.name


class Readers(unittest.TestCase):
    def write(self, figures, environment):
        """Has pairs of a name and a double written; returns the file and the decimal point."""
        folder = temporary_folder(self)
        lines = ''.join(f'{struct.pack(">d", double).hex()} {name.hex()}\n'
                        for name, double in figures)
        run = subprocess.run([CLIENT, folder], input=lines, text=True, check=True,
                             stdout=subprocess.PIPE, env={**os.environ, **environment})
        return pathlib.Path(folder, 'numbers.json'), run.stdout.rstrip('\n')

    def check(self, environment, decimal_point):
        numbers = [(b'n%d' % i, double) for i, double in enumerate(make_doubles())]
        names = [(name, 1.0) for name, _ in NAMES]
        for figures in (numbers, names):
            path, found_point = self.write(figures, environment)
            self.assertEqual(found_point, decimal_point)
            for read in (read_with_python, read_with_jq):
                with self.subTest(read.__name__):
                    self.check_points(figures, read(path))

    def check_points(self, figures, found):
        points = {(point['Dimensions'][0]['Name'], point['MetricName']): point for point in found}
        self.assertEqual(len(points), 5 * len(figures))
        readable = dict(NAMES)
        for name, double in figures:
            name = readable.get(name) or name.decode()
            gauge, histogram = points['gauge', name], points['histogram', name]
            self.assertEqual(gauge['Dimensions'], [{'Name': 'gauge', 'Value': name}])
            self.assertEqual(identify(gauge['Value']), identify(clamp(double)), double)
            self.assertEqual(
                {member: identify(found) for member, found in histogram['StatisticValues'].items()},
                {'SampleCount': identify(1.0), 'Sum': identify(0.0 + double),
                 'Minimum': identify(double), 'Maximum': identify(double)}, double)
            for suffix in ('p50', 'p90', 'p99'):
                point = points['histogram', f'{name}_{suffix}']
                self.assertEqual(identify(point['Value']), identify(clamp(double)), double)

    def test_every_figure_and_name_reads_back(self):
        self.check({'LC_ALL': 'C'}, '.')

    def test_decimal_comma_of_the_program_changes_nothing(self):
        self.check(make_locale(temporary_folder(self)), ',')


class Page(unittest.TestCase):
    def setUp(self):
        self.folder = temporary_folder(self)
        with socket.create_server(('127.0.0.1', 0)) as server:
            subprocess.run([EVERY_KIND, self.folder, str(server.getsockname()[1])], check=True,
                           stdout=subprocess.DEVNULL)
        self.blocks = read_blocks()['JSON']

    def test_excerpt_is_what_the_program_wrote(self):
        with open(pathlib.Path(self.folder, 'figures.json'), encoding='utf-8') as file:
            line = file.readline()
        head, line = line[:line.index('{')], line[line.index('{'):]
        written = line.removesuffix(']\n').replace('},{"MetricName"', '},\n{"MetricName"')

        language, excerpt = self.blocks[0]
        self.assertEqual(language, 'text')
        shown_head, *objects, end = excerpt.splitlines()
        self.assertEqual((shown_head, end), (head, ']'))
        # The order within a pass is not defined.
        self.assertEqual(sorted(shown.rstrip(',') for shown in objects),
                         sorted(found.rstrip(',') for found in written.splitlines()))

    def test_commands_print_what_the_page_shows(self):
        if not shutil.which('jq'):
            self.skipTest('there is no jq')
        check_commands(self, self.blocks[1:], self.folder, 5)


if __name__ == '__main__':
    tap.run([Readers, Page])
