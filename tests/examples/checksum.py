"""Tests of the example program checksum: checksum.py CHECKSUM HURRIED-CHECKSUM

The second is the same program with a registry that reports as often as it can.
"""

import os
import pathlib
import pty
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

from support import tap

CHECKSUM, HURRIED = map(os.path.abspath, sys.argv[1:3])
ENVIRONMENT = dict(os.environ, LC_ALL='C.UTF-8')
ERASE = b'\r\x1b[K'

SECTIONS = """\
general:
errors: {errors}
file_size: {size}
folders: {folders}
skipped: {skipped}
waiting: {waiting}

algorithm={algorithm}:
bytes: {bytes}
file_time: {time}
speed: some

{reasons}algorithm={algorithm}, content=data:
files: {data}

algorithm={algorithm}, content=empty:
files: {empty}

"""


def quantile(samples, q):
    """Of sorted samples: between the two nearest, but the first of all below the second."""
    position = (len(samples) - 1) * q
    index = int(position)
    if index == 0:
        return samples[0]
    if index == len(samples) - 1:
        return samples[-1]
    return samples[index] + (position - index) * (samples[index + 1] - samples[index])


def describe(samples):
    count = len(samples)
    samples = sorted(samples) or [0]
    return 'avg: {:f}, n samples: {}, max: {:f}, min: {:f}, p10: {:f}, p50: {:f}, p90: {:f}'.format(
        sum(samples) / len(samples), count, samples[-1], samples[0],
        *[quantile(samples, q) for q in [0.1, 0.5, 0.9]])


def sections(sizes, folders=0, skipped=0, reasons={}, algorithm='sha256'):
    """A last report, with all that depends on time made the same: see settle()."""
    return SECTIONS.format(
        bytes=sum(sizes), data=len(sizes) - sizes.count(0), empty=sizes.count(0),
        size=describe(sizes), time=f'{len(sizes)} times', waiting='0.000000',
        folders=folders, skipped=skipped, algorithm=algorithm, errors=sum(reasons.values()),
        reasons=''.join(f'reason={reason}:\nerrors: {count}\n\n'
                        for reason, count in sorted(reasons.items()))).encode()


def run(*command, **options):
    return subprocess.run(command, env=ENVIRONMENT, stdin=subprocess.DEVNULL,
                          **dict(dict(stdout=subprocess.PIPE, stderr=subprocess.PIPE), **options))


def start(*command, **options):
    return subprocess.Popen(command, env=ENVIRONMENT, stdin=subprocess.DEVNULL, **options)


def run_well(*command, **options):
    result = run(*command, check=True, **options)
    assert result.stderr == b'', result.stderr
    return result.stdout


def split_lines(text):
    """The lines, sorted: files are done in any order."""
    return sorted(text.splitlines(keepends=True))


def sums(path, algorithm='sha256', **options):
    return split_lines(run_well('find', '-H', path, '-type', 'f', '-exec', f'{algorithm}sum', '{}',
                                '+', **options))


def settle(output):
    """Makes what depends on time the same in all reports."""
    value = rb'\d+\.\d{6}'
    for pattern, replacement in [
        (rb'speed: ' + value, rb'speed: some'),
        (rb'throughput: ' + value + rb'\n', rb''),  # of each second only once
        (rb'file_time: avg: V, n samples: (\d+), max: V, min: V, p10: V, p50: V, p90: V'
         .replace(b'V', value), rb'file_time: \1 times'),
    ]:
        output = re.sub(rb'(?m)^' + pattern, replacement, output)
    return output


def split_reports(output):
    """The lines of checksums, and the reports' numbers of files with data."""
    n = r'\d+'
    report = SECTIONS.format(
        data=f'({n})', bytes=n, empty=n, size='avg: .*', time=f'{n} times', waiting=r'\d+\.000000',
        folders=n, skipped=n, algorithm='sha256', errors=n, reasons='').encode()
    output = settle(output)
    return split_lines(re.sub(report, b'', output)), list(map(int, re.findall(report, output)))


def make_files(folder, count):
    for number in range(count):
        (folder / str(number)).write_text(str(number))


class Example(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.outside = pathlib.Path(folder.name)
        cls.tree = cls.outside / 'tree'
        cls.tree.mkdir()


class CommandLine(Example):
    def test_help_names_the_options_and_the_default_folder(self):
        text = run_well(CHECKSUM, '--help').decode()
        self.assertEqual(re.findall(r'^  (?:-\w, )?--([\w-]+)', text, re.MULTILINE),
                         ['help', 'algorithm', 'jobs', 'every', 'output', 'quiet', 'console', 'csv',
                          'json', 'max-reports', 'keep', 'timeline', 'carbon', 'prefix', 'wait',
                          'version'])
        self.assertIn('/usr/share/doc', text)

    def test_version_is_printed(self):
        self.assertRegex(run_well(CHECKSUM, '--version'),
                         rb'\Achecksum \(vekmetrics\) \d+\.\d+\.\d+\n\Z')

    def test_mistakes_are_named_and_nothing_is_read(self):
        for arguments, message in [
            (['--unknown'], 'Unknown option --unknown'),
            (['--algorithm=crc'], 'unknown algorithm "crc"'),
            (['--jobs=0'], '--jobs takes a number from 1 to 256'),
            (['--jobs=257'], '--jobs takes a number from 1 to 256'),
            (['--every=-1'], '--every takes seconds from 0.001 to 86400'),
            (['--every=86401'], '--every takes seconds from 0.001 to 86400'),
            (['--every=nan'], '--every takes seconds from 0.001 to 86400'),
            (['--wait=0'], '--wait takes seconds from 0.001 to 86400'),
            (['--wait=86401'], '--wait takes seconds from 0.001 to 86400'),
            (['--max-reports=-1'], '--max-reports takes a number from 0 to 2147483647'),
            (['--max-reports=1'], '--max-reports needs --json'),
            (['--json=.', '--max-reports=1', '--keep=1001'],
             '--keep takes a number from 0 to 1000'),
            (['--json=.', '--keep=1'], '--keep needs --max-reports'),
            (['--prefix=site'], '--prefix needs --carbon'),
            *[([f'--carbon={address}'],
               f'--carbon takes a numeric ADDRESS:PORT or [IPV6-ADDRESS]:PORT, not "{address}"')
              for address in ['', 'localhost:2003', '127.0.0.1:0', '127.0.0.1:65536', '127.0.0.1:',
                              ':2003', '[::1', '127.0.0.1:2003:1']],
        ]:
            with self.subTest(arguments):
                result = run(CHECKSUM, *arguments)
                self.assertEqual(result.stderr.decode(),
                                 f'checksum: {message}\nTry "checksum --help".\n')
                self.assertEqual((result.stdout, result.returncode), (b'', 2))

    def test_the_default_folder_is_hashed(self):
        lines, _ = split_reports(run(CHECKSUM).stdout)
        self.assertEqual({line[64:81] for line in lines}, {b'  /usr/share/doc/'})


class Tree(Example):
    """A tree with all that is odd in names, sizes and kinds of file."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        deep = cls.tree.joinpath(*['deep'] * 200)
        deep.mkdir(parents=True)
        (cls.tree / 'empty folder').mkdir()
        for name in ['plain', ' with spaces ', '.hidden', '-dash', '*', 'ümlaut', 'new\nline',
                     'back\\slash', 'back\\nslash', 'carriage\rreturn', "\\", '\x1b[31m']:
            (cls.tree / name).write_text(name)
        with open(os.fsencode(cls.tree) + b'/invalid \xff\xfe', 'w') as file:
            file.write('invalid')
        (deep / 'file').write_text('deep')
        (cls.tree / 'empty').touch()
        (deep / 'empty\n').touch()
        for size in [1, 65535, 65536, 65537, 1000000]:
            (cls.tree / f'{size} bytes').write_bytes(b'\0' * size)

        (cls.outside / 'not below').write_text('not below')
        (cls.tree / 'link to file').symlink_to('../not below')
        (cls.tree / 'link to folder').symlink_to('deep')
        (cls.tree / 'link up').symlink_to('..')
        (cls.tree / 'link to nothing').symlink_to('nothing')
        os.mkfifo(cls.tree / 'fifo')
        with socket.socket(socket.AF_UNIX) as unbound:
            unbound.bind(str(cls.tree / 'socket'))

    def find(self, *expression):
        return run_well('find', self.tree, *expression)

    def sections(self, algorithm='sha256'):
        return sections(
            sizes=list(map(int, self.find('-type', 'f', '-printf', '%s\n').split())),
            folders=len(self.find('-type', 'd', '-printf', 'x')),
            skipped=len(self.find('!', '-type', 'f', '!', '-type', 'd', '-printf', 'x')),
            algorithm=algorithm)

    def test_lines_and_figures_are_those_of_the_system_s_tools(self):
        for algorithm in ['md5', 'sha1', 'sha256', 'sha384', 'sha512']:
            for jobs in [1, 8]:
                with self.subTest(algorithm, jobs=jobs):
                    output = settle(run_well(CHECKSUM, f'--algorithm={algorithm}',
                                             f'--jobs={jobs}', self.tree))
                    figures = self.sections(algorithm)
                    self.assertEqual(output[-len(figures):], figures)
                    self.assertEqual(split_lines(output[:-len(figures)]),
                                     sums(self.tree, algorithm))

    def test_sha256sum_accepts_the_lines(self):
        listing = self.outside / 'listing'
        figures = settle(run_well(CHECKSUM, '--output', listing, self.tree))
        self.assertEqual(figures, self.sections())
        self.assertEqual(split_lines(listing.read_bytes()), sums(self.tree))
        run_well('sha256sum', '--check', '--strict', '--quiet', listing)

    def test_quiet_leaves_the_figures_alone(self):
        figures = settle(run_well(CHECKSUM, '--quiet', self.tree))
        self.assertEqual(figures, self.sections())

    def test_paths_begin_as_they_were_given(self):
        for given in ['.', 'deep', 'plain', 'link to folder', 'link to file']:
            with self.subTest(given):
                listing = self.outside / 'listing'
                run_well(CHECKSUM, '--output', listing, given, cwd=self.tree)
                self.assertEqual(split_lines(listing.read_bytes()), sums(given, cwd=self.tree))


class Errors(Example):
    def setUp(self):
        self.tree = self.outside / self._testMethodName
        self.tree.mkdir()

    def check(self, result, messages, figures):
        self.assertEqual(split_lines(result.stderr), sorted(messages))
        self.assertEqual(result.stdout and settle(result.stdout), figures)
        self.assertEqual(result.returncode, 1)

    def test_what_cannot_be_read_is_named_and_counted_and_the_run_goes_on(self):
        make_files(self.tree, 10)
        result = run(CHECKSUM, '--quiet', 'missing', '/proc/self/mem', '0/below', 'mis\n\x1b', '.',
                     cwd=self.tree)
        self.check(result,
                   [b'checksum: missing: No such file or directory\n',
                    b'checksum: mis??: No such file or directory\n',
                    b'checksum: 0/below: Not a directory\n',
                    b'checksum: /proc/self/mem: Input/output error\n'],
                   sections([1] * 10, folders=1,
                            reasons={'failed': 1, 'not-directory': 1, 'not-found': 2}))

    def test_paths_that_are_too_long_are_errors_inside_a_tree(self):
        folder = os.open(self.tree, os.O_RDONLY)
        path = str(self.tree)
        depth = 1
        while len(path) < 4000:
            name = 'x' * min(200, 4000 - len(path))
            os.mkdir(name, dir_fd=folder)
            inner = os.open(name, os.O_RDONLY, dir_fd=folder)
            os.close(folder)
            folder = inner
            path += '/' + name
            depth += 1
        os.mkdir('d' * 200, dir_fd=folder)
        os.close(os.open('f' * 200, os.O_CREAT, dir_fd=folder))
        os.close(folder)
        (self.tree / 'short').write_text('short')

        self.check(run(CHECKSUM, '--quiet', self.tree),
                   [f'checksum: {path}/{c * 200}: File name too long\n'.encode() for c in 'df'],
                   sections([5], folders=depth, reasons={'filename-too-long': 2}))

    def test_output_that_cannot_be_written_is_an_error(self):
        make_files(self.tree, 1)
        result = run(CHECKSUM, '--output=/dev/full', self.tree)
        self.check(result, [b'checksum: /dev/full: write error\n'],
                   sections([1], folders=1))
        result = run(CHECKSUM, '--output=missing/listing', self.tree, cwd=self.outside)
        self.check(result, [b'checksum: missing/listing: No such file or directory\n'], b'')
        with open('/dev/full', 'w') as full:
            result = run(CHECKSUM, '--quiet', self.tree, stdout=full)
        self.check(result, [b'checksum: standard output: write error\n'], None)


class LongRun(Example):
    """More files than are queued at a time, and than a pipe holds lines."""

    FILES = 1000

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        make_files(cls.tree, cls.FILES)
        cls.sums = sums(cls.tree)

    def check_reports(self, *command):
        lines, reports = split_reports(run_well(*command, self.tree))
        self.assertEqual(lines, self.sums)
        self.assertGreater(len(reports), 1)
        self.assertEqual(reports, sorted(reports))
        self.assertEqual(reports[-1], self.FILES)

    def test_the_figures_are_printed_every_so_often(self):
        self.check_reports(CHECKSUM, '--every=0.001')

    def test_the_registry_reports_by_itself(self):
        self.check_reports(HURRIED)

    def test_both_go_together(self):
        self.check_reports(HURRIED, '--every=0.001')

    def test_signals_stop_it_cleanly(self):
        for number in [signal.SIGINT, signal.SIGTERM]:
            with self.subTest(number):
                # It cannot end before the signal: it waits for somebody to read.
                with start(CHECKSUM, self.tree, 'missing', pipesize=4096,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE) as program:
                    begin = os.read(program.stdout.fileno(), 100)
                    program.send_signal(number)
                    output, messages = program.communicate()
                lines, reports = split_reports(begin + output)
                self.assertEqual((program.returncode, messages), (130, b''))
                self.assertEqual(reports, [len(lines)])
                self.assertLess(len(lines), self.FILES)
                self.assertLessEqual(set(lines), set(self.sums))

    def test_a_full_disk_ends_it(self):
        result = run(CHECKSUM, '--output=/dev/full', self.tree)
        self.assertEqual(result.stderr, b'checksum: /dev/full: write error\n')
        self.assertEqual(result.returncode, 1)
        _, reports = split_reports(result.stdout)
        self.assertLess(reports[0], self.FILES)

    def test_reports_are_seen_at_once_and_forget_no_error(self):
        result = run(HURRIED, '--quiet', 'missing', self.tree, 'missing too',
                     stderr=subprocess.STDOUT)
        sizes = [len(str(number)) for number in range(self.FILES)]
        last = sections(sizes, folders=1, reasons={'not-found': 2})
        output = settle(result.stdout)
        self.assertEqual(output[-len(last):], last)
        reports = output.partition(b'checksum: missing too')[0]
        reports = reports.replace(b'checksum: missing: No such file or directory\n', b'')
        self.assertRegex(reports, rb'(?s)\Ageneral:\n.*\n\n\Z')

    def render(self, *arguments):
        """What a terminal shows in the end."""
        terminal, end = pty.openpty()
        with start(CHECKSUM, *arguments, self.tree, stdout=end, stderr=end) as program:
            os.close(end)
            shown = b''
            try:
                while block := os.read(terminal, 65536):
                    shown += block
            except OSError:  # how a terminal ends
                pass
            os.close(terminal)
        self.assertEqual(program.returncode, 0)
        self.assertTrue(shown.startswith(ERASE + b'0 files, 0 bytes' + ERASE), shown[:100])
        return re.sub(b'[^\n]*' + re.escape(ERASE), b'', shown.replace(b'\r\n', b'\n'))

    def test_progress_is_shown_on_a_terminal_alone_and_erased(self):
        for arguments, expected in [([], self.sums), (['--quiet'], [])]:
            with self.subTest(arguments):
                lines, reports = split_reports(self.render('--every=0.001', *arguments))
                self.assertEqual(lines, expected)
                self.assertEqual(reports[-1], self.FILES)


class LargeFiles(Example):
    """Files that keep a thread busy for long, without taking room."""

    def start(self, size, *arguments):
        large = self.outside / 'large'
        large.touch()
        os.truncate(large, size)
        program = start(HURRIED, '--jobs=1', '--quiet', large, *arguments, stdout=subprocess.PIPE)
        self.addCleanup(program.wait)
        self.addCleanup(program.stdout.close)
        deadline = threading.Timer(60, program.kill)  # for what is waited for and never comes
        deadline.start()
        self.addCleanup(deadline.cancel)
        self.addCleanup(program.kill)
        return program

    def read_figure(self, program, name):
        """The next that is not zero."""
        while line := program.stdout.readline().decode():
            if line.startswith(f'{name}: ') and (value := float(line[len(name) + 2:])):
                return value
        self.fail(f'There is no {name}.')

    def test_no_more_is_queued_than_keeps_the_threads_busy(self):
        folder = self.outside / 'folder'
        folder.mkdir()
        make_files(folder, 1)
        program = self.start(1 << 36, *[folder] * 1000)
        folders = [program.stdout.readline() for _ in range(1000)]
        self.assertLess(max(int(line[9:]) for line in folders if line.startswith(b'folders:')), 20)

    def test_a_signal_leaves_the_queued_files_alone(self):
        size = 1 << 28
        program = self.start(size, *[self.outside / 'large'] * 14, self.tree)
        output = b''
        while not output.endswith(b'folders: 1\n'):  # by then all files are queued
            line = program.stdout.readline()
            self.assertTrue(line)
            output += line
        program.send_signal(signal.SIGINT)
        output += program.communicate()[0]
        self.assertEqual(program.returncode, 130)
        _, reports = split_reports(output)
        files = reports[-1]
        self.assertLess(files, 15)
        last = sections([size] * files, folders=1)
        self.assertEqual(settle(output)[-len(last):], last)

    def test_rates_are_told_while_it_runs(self):
        program = self.start(1 << 36)
        speed = self.read_figure(program, 'speed')
        throughput = self.read_figure(program, 'throughput')
        count = self.read_figure(program, 'bytes')
        self.assertLessEqual(speed, count)  # it takes a second at least to become known
        self.assertLessEqual(throughput, count)

    def test_files_wait_until_a_thread_begins_them(self):
        program = self.start(1 << 36, *[self.outside / 'large'] * 9)
        while self.read_figure(program, 'waiting') != 9.0:  # all but the first
            pass

    def test_a_second_signal_ends_it_at_once(self):
        program = self.start(1 << 36)
        self.read_figure(program, 'bytes')  # a thread is busy with it, and will be for long
        reading = threading.Thread(target=program.stdout.read)  # or the program would wait for it
        reading.start()
        while program.poll() is None:
            program.send_signal(signal.SIGINT)
        reading.join()
        self.assertEqual(program.returncode, -signal.SIGINT)


if __name__ == '__main__':
    tap.run([CommandLine, Tree, Errors, LongRun, LargeFiles])
