"""Tests of the example program checksum, as TAP: checksum.py CHECKSUM HURRIED-CHECKSUM

The second is the same program with a registry that reports as often as it can.
"""

import csv
import json
import os
import re
import signal
import sys
import time

from support import tap
from support.example import Server, read_rows, run, started, tree
from support.row import UNITS


def split_lines(text):
    """Sorted: files are done in any order."""
    return sorted(text.splitlines(keepends=True))


def split_reports(output):
    """The lines of checksums, and the reports."""
    lines, *reports = re.split(r'(?m)^(?=general:\n)', output)
    return lines.splitlines(), reports


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


def read_json(folder):
    """The data points of each report."""
    lines = (folder / 'figures.json').read_text(encoding='utf-8').splitlines()
    return [json.loads(line[27:]) for line in lines]


def read_ranges(folder):
    with open(folder / 'timeline.csv', encoding='utf-8') as file:
        return [(name, *map(int, numbers)) for _, name, *numbers in csv.reader(file)]


def without_sums(points):
    """What the CSV file has, too."""
    for point in points:
        if statistics := point.get('StatisticValues'):
            statistics['Average'] = statistics.pop('Sum') / statistics['SampleCount']
        elif point['MetricName'].endswith('_p99'):
            del point['Value']
    return points


def lines_are_those_of_sha256sum():
    with tree() as (folder, files):
        deep = files.joinpath(*['deep'] * 100)
        deep.mkdir(parents=True)
        for name in ('plain', ' with spaces ', '.hidden', '-dash', '*', 'new\nline', 'back\\slash',
                     'carriage\rreturn', '\x1b[31m', os.fsdecode(b'invalid \xff')):
            (files / name).write_text('some')
        for size in (0, 1, 65536, 1_000_000):
            (deep / str(size)).write_bytes(b'\0' * size)
        (files / 'link').symlink_to('plain')
        os.mkfifo(files / 'fifo')

        output, messages = run(CHECKSUM, '--jobs=8', f'--csv={folder}', files)
        expected, _ = run('find', files, '-type', 'f', '-exec', 'sha256sum', '{}', '+')
        assert split_lines(output) == split_lines(expected), output
        assert messages == '', messages
        figures = {(row.name, len(row.dimensions)): row.figures for row in read_rows(folder)
                   if dict(row.dimensions).get('content') != 'empty'}
        assert figures['files', 2] == [13.0], figures
        assert figures['folders', 0] == [101.0], figures
        assert figures['skipped', 0] == [2.0], figures
        assert figures['bytes', 1] == [1_065_537.0 + 40], figures


def what_cannot_be_read_is_named_and_counted():
    with tree(10) as (_, files):
        output, messages = run(CHECKSUM, '--quiet', 'missing', '/proc/self/mem', '0/below', '.',
                               cwd=files, status=1)
        assert split_lines(messages) == [
            'checksum: /proc/self/mem: Input/output error\n',
            'checksum: 0/below: Not a directory\n',
            'checksum: missing: No such file or directory\n'], messages
        for section in (b'general:\nerrors: 3\n', b'\nreason=failed:\nerrors: 1\n',
                        b'\nreason=not-directory:\nerrors: 1\n',
                        b'\nreason=not-found:\nerrors: 1\n', b'content=data:\nfiles: 10\n'):
            assert section in output, output


def output_that_cannot_be_written_is_an_error():
    with tree(10) as (_, files), open('/dev/full', 'wb') as full:
        _, messages = run(CHECKSUM, files, '--csv=.', cwd=files, status=1, stdout=full)
        assert messages == 'checksum: standard output: write error\n', messages


def mistakes_on_the_command_line_are_named():
    for argument, message in {
            '--unknown': 'Unknown option --unknown',
            '--jobs=0': '--jobs takes a number from 1 to 256',
            '--every=61': '--every takes seconds from 1 to 60',
            '--for=-1': '--for takes seconds from 0 to 86400',
            '--wait=nan': '--wait takes seconds from 0 to 86400',
            '--carbon=localhost:2003': '--carbon takes a numeric ADDRESS:PORT or '
                                       '[IPV6-ADDRESS]:PORT, not "localhost:2003"',
    }.items():
        _, messages = run(CHECKSUM, argument, status=2)
        assert messages == f'checksum: {message}\nTry "checksum --help".\n', messages


def to_every_output(folder, server):
    """The options for every output, and no checksums."""
    return ['--quiet', '--console', server.option, '--prefix=site', '--wait=600',
            *(f'--{kind}={folder}' for kind in ('csv', 'json', 'timeline'))]


def check_outputs(folder, output, server):
    """Compares all outputs; returns how many reports they have."""
    rows = read_rows(folder)
    lines, reports = split_reports(output.decode())
    assert lines == [], lines
    begin = 0
    for report in reports:
        end = begin + len(re.findall(r'(?m)^\w+: ', report))
        assert to_console(rows[begin:end]) == report, report
        begin = end
    assert begin == len(rows)
    assert {row.name for row in rows} == set(UNITS)

    assert server.lines == [line for row in rows for line in row.to_carbon('site')]
    points = [point for report in read_json(folder) for point in report]
    assert without_sums(points) == [point for row in rows for point in row.to_json()]
    assert len(read_json(folder)) == len(reports)

    ranges = read_ranges(folder)
    counts = {tuple(row.dimensions): row.figures[0] for row in rows if row.name == 'files'}
    assert len(ranges) == sum(counts.values()), (len(ranges), counts)
    assert {name for name, *_ in ranges} == {'workers'}
    assert {worker for _, worker, *_ in ranges} <= {1, 2, 3}
    assert all(start <= end for _, _, start, end in ranges)
    return len(reports)


def every_output_has_the_same_figures():
    with tree(1000) as (folder, files):
        with Server() as server:
            output, messages = run(CHECKSUM, '--jobs=3', *to_every_output(folder, server), files)
        assert messages == '', messages
        assert check_outputs(folder, output, server) == 1
        assert len(read_ranges(folder)) == 1000


def every_output_has_the_same_figures_in_many_reports():
    with tree(1000) as (folder, files):
        with Server() as server, started(HURRIED, '--repeat', '--jobs=3',
                                         *to_every_output(folder, server), files) as program:
            output = b''
            while output.count(b'general:\n') < 10:
                output += os.read(program.stdout.fileno(), 4096)
            program.send_signal(signal.SIGINT)
            rest, messages = program.communicate()
        assert (program.returncode, messages) == (130, b''), messages
        assert check_outputs(folder, output + rest, server) > 10


def signal_ends_the_run_with_its_last_figures():
    for number in (signal.SIGINT, signal.SIGTERM):
        # It cannot end before the signal: it waits for somebody to read.
        with tree(1000) as (_, files), started(CHECKSUM, *[files] * 10, pipesize=4096) as program:
            begin = os.read(program.stdout.fileno(), 64)
            program.send_signal(number)
            output, messages = program.communicate()
            lines, (report,) = split_reports((begin + output).decode())
            assert (program.returncode, messages) == (130, b''), messages
            assert 0 < len(lines) < 10_000, len(lines)
            assert f'content=data:\nfiles: {len(lines)}\n' in report, report


def repeated_walk_begins_again_until_the_signal():
    with tree(10) as (_, files), \
            started(CHECKSUM, '--repeat', '--progress', files, 'missing') as program:
        names = [program.stdout.readline().split()[1] for _ in range(25)]
        assert len(set(names)) == 10, names
        program.send_signal(signal.SIGINT)
        _, messages = program.communicate()
        assert messages.count(b'checksum: missing: No such file or directory\n') == 1, messages


def repeated_walk_ends_where_there_is_no_file():
    with tree() as (_, files):
        output, _ = run(CHECKSUM, '--repeat', files)
        assert b'\nfolders: 1\n' in output, output


def time_limit_ends_a_repeated_walk():
    with tree(10) as (_, files):
        output, messages = run(CHECKSUM, '--repeat', '--for=0.01', '--quiet', files)
        # On a busy machine, no file may have been read by then, and there is no speed.
        assert (b'\nspeed: ' in output) != (b'\nbytes: 0\n' in output) and messages == '', output


def progress_says_what_was_done():
    with tree(10) as (folder, files):
        _, messages = run(CHECKSUM, '--progress', '--quiet', '--jobs=1', f'--csv={folder}', files)
    begin, end = messages.splitlines()
    assert begin == f'Hashes the files below {files} on 1 thread, and measures itself.', begin
    pattern = r'Hashed 10 files, 0\.0 MB, in \d+\.\d s: \d+\.\d MB/s, 0 errors\.'
    assert re.fullmatch(pattern, end), end


def progress_on_a_terminal_is_one_line():
    master, terminal = os.openpty()
    with tree(10) as (folder, files):
        run(CHECKSUM, '--progress', '--quiet', '--for=600', f'--csv={folder}', files,
            stderr=terminal)
    shown = ''
    while shown.count('\n') < 2:
        shown += os.read(master, 1000).decode()
    os.close(terminal)
    os.close(master)
    begin, end, rest = shown.split('\r\n')
    *lines, end = end.split('\r')
    assert ' for 600 seconds, ' in begin and rest == '', shown
    assert end.startswith('\033[KHashed 10 files, '), shown
    assert lines, shown
    for line in lines:
        assert re.fullmatch(r'\033\[K +\d+ s  \d+ files  0\.0 MB  \d+\.\d MB/s', line), line


def speed_is_the_average_since_the_start():
    with tree() as (folder, files):
        (files / 'zeros').write_bytes(b'\0' * 10_000_000)
        begin = time.monotonic()
        run(CHECKSUM, '--quiet', f'--csv={folder}', files)
        seconds = time.monotonic() - begin
        speed, = (row.figures[0] for row in read_rows(folder) if row.name == 'speed')
        assert 10_000_000 / seconds <= speed < 1e12, (speed, seconds)


if __name__ == '__main__':
    CHECKSUM, HURRIED = map(os.path.abspath, sys.argv[1:3])
    tap.run((
        lines_are_those_of_sha256sum, what_cannot_be_read_is_named_and_counted,
        output_that_cannot_be_written_is_an_error, mistakes_on_the_command_line_are_named,
        every_output_has_the_same_figures, every_output_has_the_same_figures_in_many_reports,
        signal_ends_the_run_with_its_last_figures, repeated_walk_begins_again_until_the_signal,
        repeated_walk_ends_where_there_is_no_file, time_limit_ends_a_repeated_walk,
        progress_says_what_was_done, progress_on_a_terminal_is_one_line,
        speed_is_the_average_since_the_start))
