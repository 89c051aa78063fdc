"""Tests of the options of vek-plot, and of what it writes other than pages."""

import importlib.util
import json
import os
import pathlib
import pty
import re
import resource
import subprocess
import sys
import tempfile
import unittest

from plot import FIGURES, PROGRAM, RANGES, SAMPLE, Run, T, csv_lines, json_line, read_page
from support import tap


def in_folder(files, *arguments, **options):
    """Runs vek-plot as a program in a folder with some texts; returns the run, with the contents of
    all files after it.
    """
    with tempfile.TemporaryDirectory() as folder:
        for name, text in files.items():
            pathlib.Path(folder, name).write_text(text, encoding='utf-8')
        run = subprocess.run([sys.executable, PROGRAM, *arguments], cwd=folder, text=True,
                             check=False, capture_output=True, **options)
        run.contents = {path.name: path.read_text('utf-8')
                        for path in pathlib.Path(folder).iterdir()}
    return run


class Options(unittest.TestCase):
    def test_the_page_is_one_file(self):
        run = Run({'figures.csv': FIGURES}, '-o', 'page.html')
        self.assertEqual((run.printed, run.written), ('page.html\n', ['page.html']))
        page = run.contents['page.html'].decode()
        self.assertNotRegex(page, r'<script[^>]* src=|<link rel="stylesheet"')
        for line in ('window.vekPage', 'Dygraph', '<title>'):
            self.assertIn(line, page)

    def test_select_takes_globs_and_parts_of_names(self):
        files = {'figures.csv': csv_lines(*((T + 60.1, name, 0.5) for name in
                                            ('read', 'reads', 'thread', 'write'))),
                 'timeline.csv': RANGES}
        for patterns, names in ((['read'], ['read', 'reads', 'thread']),
                                (['read*'], ['read', 'reads']), (['re?d'], ['read']),
                                (['[tw]*'], ['thread', 'write', 'work']),
                                (['wri', '*s'], ['reads', 'write']), (['ork'], ['work'])):
            run = Run(files, *(f'--select={pattern}' for pattern in patterns))
            self.assertEqual([row['name'] for row in run.data['metrics'] + run.data['timelines']],
                             names, patterns)

    def test_since_and_until_leave_a_part(self):
        files = {'figures.csv': FIGURES, 'timeline.csv': RANGES}
        for arguments, times in (
                (['--since', '-1m'], [1700000120.1, 1700000180.1]),
                (['--since=-2m'], [1700000060.1, 1700000120.1, 1700000180.1]),
                (['--until', '-60s'], [1700000060.1, 1700000120.1]),
                (['--since', '-1h', '--until', '-1m'], [1700000060.1, 1700000120.1]),
                (['--since', '2023-11-14T22:14:30Z'], [1700000120.1, 1700000180.1]),
                (['--since', '2023-11-14T23:14:30+01:00'], [1700000120.1, 1700000180.1]),
                (['--until', '2023-11-14 22:14:20.1Z'], [1700000060.1])):
            self.assertEqual(Run(files, *arguments).data['times'][0], times, arguments)
        run = Run(files, '--until=2023-11-14T22:15:00Z')
        self.assertEqual(run.data['timelines'][0]['lanes'],
                         [{'id': '1', 'ranges': [1700000060, 1700000062]}])

    def test_times_are_local_unless_they_say_otherwise(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, 'figures.csv').write_text(FIGURES, encoding='utf-8')
            for zone, passes in (('UTC', 2), ('EST5', 0), ('CET-1', 3)):
                run = subprocess.run(
                    [sys.executable, PROGRAM, '--since=2023-11-14T22:15', '-o', 'page', '.'],
                    cwd=folder, env={'TZ': zone}, check=False, capture_output=True)
                self.assertEqual(run.returncode, 0 if passes else 1)
                if passes:
                    data = read_page(pathlib.Path(folder, 'page'))
                    self.assertEqual(len(data['times'][0]), passes, zone)

    def test_a_wrong_command_line_is_status_2(self):
        for arguments in (['--since', 'soon'], ['--until=-3'], ['--range-unit=h'], ['--sel=a'],
                          ['--follow', '-o', 'a'], ['--follow', '--trace=a'], ['--nothing']):
            run = Run({'figures.csv': FIGURES}, *arguments)
            self.assertEqual((run.status, run.written), (2, []), arguments)
            self.assertIn('usage: vek-plot', run.said)
        self.assertEqual(Run({}, paths=[]).status, 2)

    def test_a_log_is_not_overwritten(self):
        files = {'a.csv': FIGURES, 'b.csv': RANGES, 'c': json_line(60, ('a', {'Value': 1.5}))}
        for option in ('-o', '--svg', '--png', '--trace'):
            for name in files:
                run = in_folder(files, option, name, 'a.csv')
                self.assertEqual((run.returncode, run.contents), (2, files))
                self.assertIn(f'vek-plot: error: {name} is a log, which is not overwritten\n',
                              run.stderr)

    def test_a_page_that_cannot_be_completed_leaves_the_one_before(self):
        files = {'log.csv': FIGURES + RANGES, 'page': 'before'}
        for option in ('-o', '--trace'):
            run = in_folder(files, option, 'page', 'log.csv', preexec_fn=lambda: resource.setrlimit(
                resource.RLIMIT_FSIZE, (9, 9)))
            self.assertEqual((run.returncode, run.contents), (1, files))
            self.assertEqual(run.stderr, 'vek-plot: [Errno 27] File too large\n')

    def test_a_page_has_the_mode_of_the_one_before_or_that_of_a_new_file(self):
        for before, mode in ((0o600, 0o600), (0o664, 0o664), (None, 0o640)):
            with tempfile.TemporaryDirectory() as folder:
                log, page, link = (pathlib.Path(folder, name) for name in ('log', 'page', 'link'))
                log.write_text(FIGURES, encoding='utf-8')
                link.symlink_to('page')
                if before is not None:
                    page.touch()
                    page.chmod(before)
                subprocess.run([sys.executable, PROGRAM, '-o', link, log], check=True, umask=0o027,
                               stdout=subprocess.DEVNULL)
                self.assertTrue(link.is_symlink())
                self.assertEqual(page.stat().st_mode & 0o777, mode)

    def test_a_page_may_go_to_a_pipe(self):
        run = in_folder({'figures.csv': FIGURES}, '-o', '/dev/stdout', 'figures.csv')
        self.assertIn('<title>', run.stdout)
        self.assertTrue(run.stdout.endswith('</html>\n/dev/stdout\n'), run.stdout[-100:])

    def test_names_that_no_counter_or_gauge_has_are_said(self):
        files = {'figures.csv': FIGURES + csv_lines((T + 240.1, 'size', *SAMPLE))}
        for status, select in (0, []), (0, ['--select=requests']), (1, ['--select=none']):
            run = Run(files, '--counter=requests', '--counter=request', '--gauge=size',
                      '--gauge=load', *select)
            self.assertEqual(run.status, status)
            self.assertEqual(run.said.splitlines()[:2], [
                'vek-plot: --counter request: there is no counter or gauge with this name',
                'vek-plot: --gauge size: there is no counter or gauge with this name'])

    def test_each_option_is_documented_and_completed(self):
        run = subprocess.run([sys.executable, PROGRAM, '--help'], check=True, text=True,
                             capture_output=True)
        options = set(re.findall(r'--[a-z-]+', run.stdout))
        self.assertGreater(len(options), 10)
        completed = PROGRAM.with_name('vek-plot.bash').read_text(encoding='utf-8')
        manual = PROGRAM.with_name('vek-plot.1').read_text(encoding='utf-8')
        page = (PROGRAM.parents[1] / 'docs' / 'viewer.md').read_text(encoding='utf-8')
        for option in options - {'--help'}:
            self.assertRegex(completed, rf'{option}\b', option)
            self.assertRegex(manual, rf'(Fl -|, -){option[2:]}\b', option)
            if option != '--output':
                self.assertIn(option, page)

    def test_open_shows_the_page_in_a_browser(self):
        with tempfile.TemporaryDirectory() as folder:
            browser = pathlib.Path(folder, 'browser')
            browser.write_text(f'#!/bin/sh\necho "$1" >{folder}/address\n', encoding='utf-8')
            browser.chmod(0o755)
            pathlib.Path(folder, 'figures.csv').write_text(FIGURES, encoding='utf-8')
            subprocess.run([sys.executable, PROGRAM, '--open', 'figures.csv'], cwd=folder,
                           check=True, env={**os.environ, 'BROWSER': str(browser)},
                           capture_output=True)
            self.assertEqual(pathlib.Path(folder, 'address').read_text('utf-8'),
                             f'file://{folder}/vek-plot.html\n')

    def test_a_terminal_shows_the_progress_of_long_files(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, 'figures.csv').write_text(
                csv_lines((T, 'load' * 1000, 0.5)) * 4500, encoding='utf-8')
            terminal, theirs = pty.openpty()
            subprocess.run([sys.executable, PROGRAM, '.'], cwd=folder, check=True, stderr=theirs,
                           stdout=subprocess.DEVNULL)
            os.close(theirs)
            shown = os.read(terminal, 10000).decode()
            os.close(terminal)
        self.assertRegex(shown, r'^\r\x1b\[K\d+ % read: figures.csv\r')
        self.assertTrue(shown.endswith('100 % read: figures.csv\r\x1b[K'), shown)

    def test_a_page_that_cannot_be_written_is_status_1(self):
        run = Run({'figures.csv': FIGURES}, '-o', 'none/page.html')
        self.assertEqual((run.status, run.said), (
            1, "vek-plot: [Errno 2] No such file or directory: 'none/page.html'\n"))


class Pictures(unittest.TestCase):
    """What is drawn by matplotlib."""

    def setUp(self):
        if not importlib.util.find_spec('matplotlib'):
            self.skipTest('there is no python3-matplotlib')

    def test_pictures_show_what_is_selected(self):
        run = Run({'figures.csv': FIGURES, 'timeline.csv': RANGES}, '--svg=a.svg', '--png=a.png',
                  '--select=load', '--select=work')
        self.assertEqual((run.printed, run.written), ('a.svg\na.png\n', ['a.png', 'a.svg']))
        self.assertEqual(run.contents['a.png'][:8], b'\x89PNG\r\n\x1a\n')
        svg = run.contents['a.svg'].decode()
        self.assertEqual(re.findall(r'<!-- (load|requests|work) -->', svg), ['load', 'work'])

    def test_too_many_charts_are_refused(self):
        run = Run({'figures.csv': csv_lines(*((T, f'm{index}', 0.5) for index in range(61)))},
                  '--png=a.png')
        self.assertEqual((run.status, run.written), (1, []))
        self.assertEqual(run.said, 'vek-plot: 61 charts are too many for a picture: '
                                   '--select at most 60\n')


def without_matplotlib_the_package_is_named():
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, 'figures.csv').write_text(FIGURES, encoding='utf-8')
        run = subprocess.run([sys.executable, '-c',
                              'import importlib.util, runpy, sys; del sys.argv[0]; '
                              'importlib.util.find_spec = lambda name: None; '
                              'runpy.run_path(sys.argv[0], run_name="__main__")',
                              PROGRAM, '--png=a.png', folder],
                             cwd=folder, text=True, check=False, capture_output=True)
    assert (run.returncode, run.stderr) == (
        1, 'vek-plot: --svg and --png require matplotlib: install python3-matplotlib\n'), run


class Trace(unittest.TestCase):
    def events(self, ranges, *arguments):
        run = Run({'timeline.csv': ranges}, '--trace=trace.json', *arguments)
        self.assertEqual((run.status, run.written), (0, ['trace.json']))
        return json.loads(run.contents['trace.json'])['traceEvents']

    def test_ranges_are_complete_events_in_microseconds(self):
        events = self.events('F,work,7,1700000060000000,1700000060000250\n')
        self.assertEqual(events, [
            {'ph': 'M', 'pid': 1, 'name': 'process_name', 'args': {'name': 'work'}},
            {'ph': 'M', 'pid': 1, 'tid': 1, 'name': 'thread_name', 'args': {'name': '7'}},
            {'ph': 'M', 'pid': 1, 'tid': 1, 'name': 'thread_sort_index', 'args': {'sort_index': 1}},
            {'ph': 'X', 'pid': 1, 'tid': 1, 'name': 'work', 'cat': 'range', 'args': {'id': 7},
             'ts': 1700000060000000, 'dur': 250}])

    def test_ranges_that_overlap_are_on_threads_of_their_own(self):
        events = self.events('F,b,1,100,200\nF,b,1,150,160\nF,b,1,155,300\nF,b,1,200,210\n'
                             'F,b,2,100,200\nF,a,1,100,200\n')
        names = {(event['pid'], event['tid']): event['args']['name'] for event in events
                 if event['name'] == 'thread_name'}
        self.assertEqual(names, {(1, 1): '1', (2, 1): '1', (2, 2): '1 (2)', (2, 3): '1 (3)',
                                 (2, 4): '2'})
        self.assertEqual([(names[event['pid'], event['tid']], event['ts'], event['dur'])
                          for event in events if event['ph'] == 'X' and event['pid'] == 2],
                         [('1', 100, 100), ('1 (2)', 150, 10), ('1 (2)', 200, 10),
                          ('1 (3)', 155, 145), ('2', 100, 100)])

    def test_without_timelines_there_is_no_trace(self):
        run = Run({'figures.csv': FIGURES}, '--trace=trace.json')
        self.assertEqual((run.status, run.said, run.written), (
            1, 'vek-plot: there are no timelines for a trace\n', []))

    def test_the_unit_of_ranges_is_an_option(self):
        for unit, start, duration in (('s', 3e6, 2e6), ('ms', 3e3, 2e3), ('us', 3, 2),
                                      ('ns', 0.003, 0.002)):
            event = self.events('F,work,1,3,5\n', '--range-unit', unit)[-1]
            self.assertAlmostEqual(event['ts'], start)
            self.assertAlmostEqual(event['dur'], duration)


if __name__ == '__main__':
    tap.run([Options, Pictures, without_matplotlib_the_package_is_named, Trace])
