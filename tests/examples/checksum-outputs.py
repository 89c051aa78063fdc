"""Tests of where the example program checksum sends its figures.

checksum-outputs.py CHECKSUM HURRIED-CHECKSUM: the arguments are those of checksum.py.
"""

import contextlib
import csv
import itertools
import json
import os
import pathlib
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from checksum import CHECKSUM, HURRIED, Example, describe, make_files, run, start
from support import tap
from support.row import UNITS, Row

# Longer keys than a connection holds of lines that nobody reads.
HUGE_PREFIX = 'x' * 100_000


def to_console(rows):
    """A report on the console."""
    sections = {}
    for row in rows:
        sections.setdefault(tuple(row.dimensions), []).append(row)
    text = ''
    for dimensions in sorted(sections, key=lambda pairs: (len(pairs), pairs)):
        header = ', '.join(f'{name}={value}' for name, value in dimensions) or 'general'
        lines = [row.to_console() for row in sorted(sections[dimensions], key=lambda row: row.name)]
        text += '\n'.join([f'{header}:', *lines, '', ''])
    return text


def compute_averages(points):
    """Replaces what the CSV file does not have by what it does have."""
    for point in points:
        if statistics := point.get('StatisticValues'):
            statistics['Average'] = statistics.pop('Sum') / statistics['SampleCount']
        elif point['MetricName'].endswith('_p99'):
            del point['Value']
    return points


class Server:
    """A carbon server; what it has got in the end is in lines."""

    def __init__(self, address='127.0.0.1', family=socket.AF_INET, backlog=1):
        self.socket = socket.socket(family)
        # So that a connection holds little that is not read yet.
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 16384)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, 1000)
        self.socket.settimeout(60)  # for a program that never comes
        self.socket.bind((address, 0))
        self.socket.listen(backlog)
        self.port = self.socket.getsockname()[1]
        self.thread = threading.Thread(target=self.read)
        self.lines = None

    def read(self):
        while not self.lines:  # a connection that is closed again has none
            connection, _ = self.socket.accept()
            with connection, connection.makefile() as lines:
                self.lines = lines.read().splitlines()

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.thread.join()
        self.socket.close()


class Outputs(Example):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def to_files(self, *kinds):
        return [f'--{kind}={self.folder}' for kind in kinds or ['csv', 'json', 'timeline']]

    def read_rows(self):
        with open(self.folder / 'figures.csv') as file:
            return [Row(columns) for columns in csv.reader(file)]

    def read_json(self, name='figures.json'):
        """The data points of each report."""
        lines = (self.folder / name).read_text().splitlines()
        for line in lines:
            self.assertRegex(line, r'\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{6} \[')
        return [json.loads(line[27:]) for line in lines]

    def read_ranges(self):
        with open(self.folder / 'timeline.csv') as file:
            rows = list(csv.reader(file))
        self.assertEqual({row[0] for row in rows}, {'F'})
        return [(name, *map(int, numbers)) for _, name, *numbers in rows]

    def check_same(self, items, expected):
        """Names the first that differs: to compare long lists as a whole takes unittest minutes."""
        for item in itertools.zip_longest(items, expected):
            self.assertEqual(*item)

    def check_agreement(self, console, carbon, prefix='site'):
        """Compares the outputs of one run; the rows of its last report are returned."""
        rows = self.read_rows()
        nothing, *reports = re.split(r'(?m)^(?=general:\n)', console)
        self.assertEqual(nothing, '')

        begin = 0
        for report in reports:
            end = begin + len(re.findall(r'(?m)^\w+: ', report))
            self.assertEqual(to_console(rows[begin:end]), report)
            last, begin = rows[begin:end], end
        self.assertEqual(begin, len(rows))

        self.check_same(carbon, [line for row in rows for line in row.to_carbon(prefix)])

        points = [point for report in self.read_json() for point in report]
        for p90, p99 in zip(points, points[1:]):
            if p99['MetricName'].endswith('_p99'):
                self.assertGreaterEqual(p99['Value'], p90['Value'])
        self.check_same(compute_averages(points),
                        [point for row in rows for point in row.to_json()])
        self.assertEqual(len(self.read_json()), len(reports))
        return last

    def check_ranges(self, rows, workers, files, begin):
        """Compares the ranges of one run with the last report; they fit into the last minute."""
        ranges = self.read_ranges()
        self.check_same(sorted(number for _, number, _, _ in ranges), range(1, files + 1))
        times, = [row for row in rows if row.name == 'file_time']
        self.assertEqual('file_time: ' + describe([(end - start) / 1000
                                                   for _, _, start, end in ranges]),
                         times.to_console())
        self.assertLessEqual({name for name, *_ in ranges},
                             {f'worker_{number}' for number in range(1, workers + 1)})
        bounds = {}
        for name, _, start, end in sorted(ranges, key=lambda item: item[2:]):
            self.assertLessEqual(bounds.get(name, begin), start)
            self.assertLessEqual(start, end)
            bounds[name] = end
        self.assertLessEqual(max(bounds.values()), time.time_ns() // 1000)


class Agreement(Outputs):
    FILES = 1000

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        make_files(cls.tree, cls.FILES)
        (cls.tree / '0').write_text('')

    def check(self, program, address, *arguments, family=socket.AF_INET, status=1):
        begin = time.time_ns() // 1000
        host = f'[{address}]' if ':' in address else address
        with Server(address, family) as server:
            result = run(program, '--console', '--quiet', f'--carbon={host}:{server.port}',
                         '--prefix=site', *self.to_files(), '--jobs=3', '--wait=600', self.tree,
                         *arguments)
        self.assertEqual(result.returncode, status)
        rows = self.check_agreement(result.stdout.decode(), server.lines)
        self.check_ranges(rows, 3, self.FILES, begin)
        return {row.name: row.figures for row in rows}

    def test_one_run_leaves_outputs_that_agree(self):
        figures = self.check(CHECKSUM, '127.0.0.1', 'missing')
        self.assertEqual(figures['errors'], [1.0])
        self.assertEqual(figures['bytes'], [2889.0])  # 9 of one digit, 90 of two, 900 of three
        self.assertEqual(figures['file_size'][:4], [2.889, 1000.0, 0.0, 3.0])

    def test_files_that_are_hashed_at_the_same_time_are_on_different_timelines(self):
        large = self.folder / 'large'
        large.touch()
        os.truncate(large, 1 << 26)
        result = run(CHECKSUM, '--quiet', '--jobs=3', f'--timeline={self.folder}', *[large] * 3)
        self.assertEqual(result.returncode, 0)
        self.assertEqual(sorted(name for name, *_ in self.read_ranges()),
                         ['worker_1', 'worker_2', 'worker_3'])

    def test_many_reports_agree_too(self):
        for program, *arguments in [(CHECKSUM, '--every=0.001'), (HURRIED,),
                                    (HURRIED, '--every=0.001')]:
            with self.subTest(program, arguments=arguments):
                self.setUp()
                self.check(program, '127.0.0.1', 'missing', *arguments)
                self.assertGreater(len(self.read_json()), 1)

    def test_the_server_can_have_an_ipv6_address(self):
        try:
            socket.create_server(('::1', 0), family=socket.AF_INET6).close()
        except OSError:
            self.skipTest('there is no IPv6')
        self.check(CHECKSUM, '::1', family=socket.AF_INET6, status=0)

    def test_an_interrupted_run_lets_its_last_figures_out(self):
        with Server() as server:
            # It cannot end before the signal: it waits for somebody to read.
            with start(CHECKSUM, f'--carbon=127.0.0.1:{server.port}', '--prefix=site',
                       *self.to_files(), '--console', '--wait=600', *[self.tree] * 10,
                       pipesize=4096, stdout=subprocess.PIPE) as program:
                begin = os.read(program.stdout.fileno(), 64)
                program.send_signal(signal.SIGINT)
                output = begin + program.communicate()[0]
        self.assertEqual(program.returncode, 130)
        console = output[output.index(b'general:\n'):].decode()
        rows = self.check_agreement(console, server.lines)
        self.assertEqual(len(self.read_ranges()), output.count(b'  /'))
        self.assertEqual({row.name: row.figures[0] for row in rows}['waiting'], 0)


class Choice(Outputs):
    """Which outputs there are, and what is in the way of them."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        make_files(cls.tree, 10)

    def run_quietly(self, *arguments):
        result = run(CHECKSUM, '--quiet', *arguments, self.tree)
        self.assertEqual(result.returncode, 0)
        return result.stdout.decode(), result.stderr.decode()

    def test_the_console_is_for_those_who_choose_nothing_else(self):
        for kind, name in [('csv', 'figures.csv'), ('json', 'figures.json'),
                           ('timeline', 'timeline.csv')]:
            with self.subTest(kind):
                folder = self.folder / kind
                self.assertEqual(self.run_quietly(f'--{kind}={folder}'), ('', ''))
                self.assertEqual(os.listdir(folder), [name])
                output, messages = self.run_quietly(f'--{kind}={folder}', '--console')
                self.assertRegex(output, r'\Ageneral:\n')
                self.assertEqual(messages, '')

    def test_without_a_prefix_keys_begin_with_the_dimensions(self):
        with Server() as server:
            self.assertEqual(self.run_quietly(f'--carbon=127.0.0.1:{server.port}'), ('', ''))
        self.assertIn('algorithm.sha256.content.data.Count.files 10',
                      [line.rpartition(' ')[0] for line in server.lines])

    def test_json_files_are_rotated(self):
        arguments = [f'--json={self.folder}', '--max-reports=1', '--keep=2']
        for _ in range(3):
            self.assertEqual(self.run_quietly(*arguments), ('', ''))
        self.assertEqual(sorted(os.listdir(self.folder)),
                         ['figures.json', 'figures.json.1', 'figures.json.2'])
        self.assertEqual([len(self.read_json(f'figures.json{number}'))
                          for number in ['', '.1', '.2']], [0, 1, 1])

    def test_files_that_cannot_be_made_are_told_and_change_nothing_else(self):
        below = self.tree / '0' / 'below'
        with Server() as server:
            output, messages = self.run_quietly(
                f'--csv={below}', f'--json={below}', f'--timeline={below}', '--console',
                f'--carbon=127.0.0.1:{server.port}')
        self.assertRegex(output, r'\nfiles: 10\n')
        self.assertGreater(len(server.lines), 0)
        self.assertIn(f'Cannot create metric dir "{below}": 20.\n'
                      f'Cannot create log dir "{below}".\n', messages)
        self.assertRegex(messages, rf'WARNING.*: Cannot create log dir "{below}"\.\n')

    def test_a_server_that_is_not_there_is_told(self):
        with socket.socket() as unused:
            unused.bind(('127.0.0.1', 0))
            port = unused.getsockname()[1]
            output, messages = self.run_quietly(f'--carbon=127.0.0.1:{port}', '--console')
        self.assertRegex(output, r'\nfiles: 10\n')
        self.assertEqual(re.findall(r'WARNING \*\*: [\d:.]+: (.*)', messages),
                         ['Could not connect to carbon server: Could not connect to 127.0.0.1: '
                          'Connection refused', 'Carbon reporter will be disabled'])


class Patience(Outputs):
    """Servers that take their time."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        make_files(cls.tree, 10)

    @contextlib.contextmanager
    def start(self, port, *arguments):
        """Starts the program and waits for its last report on the console."""
        with start(CHECKSUM, '--quiet', '--console', f'--carbon=127.0.0.1:{port}', *arguments,
                   self.tree, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as program:
            self.addCleanup(program.kill)
            while program.stdout.readline() != b'algorithm=sha256, content=empty:\n':
                pass
            yield program

    @contextlib.contextmanager
    def crowd(self, server):
        """Lets no connection through: others wait before the server already."""
        with contextlib.ExitStack() as stack:
            for _ in range(3):
                other = stack.enter_context(socket.socket())
                other.setblocking(False)
                other.connect_ex(server.socket.getsockname())
            yield

    def check_lateness(self, port, *arguments):
        # The JSON log could be late, too, on a busy machine.
        files = self.to_files('csv', 'timeline')
        with self.start(port, *arguments, *files, '--wait=0.01') as program:
            messages = program.communicate()[1].decode()
        self.assertEqual(messages, f'checksum: 127.0.0.1:{port}: the last figures were not taken '
                                   'within 0.01 seconds\n')
        self.assertEqual(program.returncode, 0)
        self.assertEqual({row.name for row in self.read_rows()}, set(UNITS))
        self.assertEqual(len(self.read_ranges()), 10)

    def test_a_server_that_never_answers_is_not_waited_for_long(self):
        server = Server(backlog=0)
        with server.socket, self.crowd(server):
            self.check_lateness(server.port)

    def test_a_server_that_never_reads_is_not_waited_for_long(self):
        server = Server()
        with server.socket:
            self.check_lateness(server.port, f'--prefix={HUGE_PREFIX}')

    def check_completeness(self, program, server, prefix):
        """Has the server read, only now."""
        with server:
            messages = program.communicate()[1]
        self.assertEqual((program.returncode, messages), (0, b''))
        self.check_same(server.lines, [line for row in self.read_rows()
                                       for line in row.to_carbon(prefix)])

    def test_a_server_that_reads_late_gets_everything(self):
        server = Server()
        with self.start(server.port, f'--prefix={HUGE_PREFIX}', *self.to_files('csv'),
                        '--wait=600') as program:
            self.check_completeness(program, server, HUGE_PREFIX)

    def test_a_server_that_answers_late_gets_everything(self):
        server = Server(backlog=0)
        with contextlib.ExitStack() as stack:
            with self.crowd(server):
                program = stack.enter_context(
                    self.start(server.port, '--prefix=site', *self.to_files('csv'), '--wait=600'))
            self.check_completeness(program, server, 'site')

    def test_a_server_that_hangs_up_is_told(self):
        server = Server()
        with server.socket:
            with self.start(server.port, f'--prefix={HUGE_PREFIX}', *self.to_files(),
                            '--wait=600') as program:
                connection, _ = server.socket.accept()
                connection.recv(1)  # the program has seen now that it is connected
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))
                connection.close()
                messages = program.communicate()[1].decode()
        self.assertEqual(program.returncode, 0)
        self.assertIn('Carbon reporter write operation failed with error: ', messages)
        self.assertNotIn('the last figures', messages)
        self.assertEqual([len(report) > 10 for report in self.read_json()], [True])
        self.assertEqual(len(self.read_ranges()), 10)

    def test_a_signal_ends_the_waiting(self):
        server = Server(backlog=0)
        with server.socket, self.crowd(server), self.start(server.port, '--wait=600') as program:
            program.send_signal(signal.SIGINT)
            self.assertEqual(program.communicate()[1], b'')
        self.assertEqual(program.returncode, -signal.SIGINT)


if __name__ == '__main__':
    tap.run([Agreement, Choice, Patience])
