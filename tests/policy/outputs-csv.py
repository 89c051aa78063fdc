"""Tests of docs/outputs.md, and of the CSV that it tells how to read: outputs-csv.py EVERY-KIND

EVERY-KIND is the program that every-kind.c becomes. Each section of the page that is named below
begins with an excerpt, in a block marked as text, that must be what the program wrote.
"""

import csv
import math
import pathlib
import socket
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

from support import tap
from outputspage import check_commands, read_blocks, run_python

EVERY_KIND = pathlib.Path(sys.argv[1]).resolve()

NAN = math.nan
FIRST, SECOND = 1700000060000000, 1700000120000000  # the passes
FIGURES = [
    (1700000000000000, 'requests', 'host=a;', [42.0]),
    (FIRST, 'load', 'host=a;', [0.25]),
    (FIRST, 'hit_ratio', '', [NAN]),
    (FIRST, 'sent', '', [238.93333333333334]),
    (FIRST, 'size', '', [3072.0, 5.0, 1024.0, 5120.0, 1024.0, 3072.0, 4710.4]),
    (FIRST, 'latency', 'host=a;route=home;', [0.25, 1.0, 0.25, 0.25, 0.25, 0.25, 0.25]),
    (FIRST, 'requests', 'host=a;', [100.0]),
    (SECOND, 'load', 'host=a;', [0.1]),
    (SECOND, 'hit_ratio', '', [0.5]),
    (SECOND, 'sent', '', [256.0]),
    (SECOND, 'size', '', [3072.0, 10.0, 1024.0, 5120.0, 1024.0, 3072.0, 5120.0]),
    (SECOND, 'latency', 'host=a;route=home;', [0.875, 2.0, 0.25, 1.5, 0.25, 0.25, 0.25]),
]
TIMELINES = [['F', 'render', '2', '300', '420'], ['F', 'render', '1', '100', '250'],
             ['F', 'render', '2', '700', '820'], ['F', 'render', '1', '500', '650']]


class Outputs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.blocks = read_blocks()
        cls.carbon_reader = cls.blocks['Carbon'].pop()

        # The page's own reader, which begins with a server, gets what the program sends.
        server = socket.create_server(('127.0.0.1', 0))
        server.settimeout(20)
        with subprocess.Popen([EVERY_KIND, folder.name, str(server.getsockname()[1])],
                              stdout=subprocess.PIPE, text=True) as program:
            with unittest.mock.patch('socket.create_server', return_value=server) as create:
                carbon = run_python(cls.carbon_reader[1])
            create.assert_called_once_with(('127.0.0.1', 2003))
            console = program.communicate()[0]
        assert program.returncode == 0
        cls.written = {
            'Console': console,
            'Carbon': carbon,
            'CSV': (cls.folder / 'figures.csv').read_text(encoding='utf-8'),
            'Timelines': (cls.folder / 'timelines.csv').read_text(encoding='utf-8'),
        }

    def test_excerpts_are_what_the_program_wrote(self):
        for title, written in self.written.items():
            with self.subTest(title):
                language, excerpt = self.blocks[title][0]
                self.assertEqual(language, 'text')
                if title in ('Carbon', 'CSV'):  # the order within a pass is not defined
                    excerpt, written = (sorted(text.splitlines()) for text in (excerpt, written))
                self.assertEqual(excerpt, written)

    def test_commands_print_what_the_page_shows(self):
        for title, least in (('CSV', 5), ('Timelines', 3)):
            check_commands(self, self.blocks[title][1:], self.folder, least)

    def read(self, name):
        with open(self.folder / name, encoding='utf-8', newline='') as file:
            return list(csv.reader(file, quoting=csv.QUOTE_NONE))

    def test_figures_read_back(self):
        rows = self.read('figures.csv')
        self.assertEqual({len(row) for row in rows}, {10})
        found = {(int(time), name, dimensions): [float(figure) for figure in figures if figure]
                 for time, name, dimensions, *figures in rows}
        self.assertEqual(len(found), len(rows))
        expected = {tuple(identity): figures for *identity, figures in FIGURES}
        self.assertEqual(repr(sorted(found.items())), repr(sorted(expected.items())))

    def test_timelines_read_back(self):
        self.assertEqual(self.read('timelines.csv'), TIMELINES)


if __name__ == '__main__':
    tap.run([Outputs])
