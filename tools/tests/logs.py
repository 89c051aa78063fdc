"""Tests of how vek-plot reads logs, and of its options."""

import importlib.util
import json
import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import unittest

from plot import PROGRAM, SAMPLE, Run, T, csv_lines, decode, json_line, read_page
from support import tap

FIGURES = csv_lines((T + 55.5, 'requests', 5), (T + 60.1, 'load', 0.5),
                    (T + 119.5, 'requests', 8), (T + 120.1, 'load', 0.25),
                    (T + 177.5, 'requests', 9), (T + 180.1, 'load', 1.5))
RANGES = 'F,work,1,1700000060000000,1700000062000000\nF,work,2,1700000119000000,1700000125000000\n'


class Reading(unittest.TestCase):
    def test_contents_tell_files_apart(self):
        run = Run({'a.txt': FIGURES, 'b': RANGES, 'c.csv': json_line(60, ('a', {'Value': 1.5})),
                   'notes.csv': 'name,value\n', 'picture.json': bytes(range(256)) * 999,
                   'empty': ''})
        self.assertEqual(run.data['sources'], ['a.txt', 'b', 'c.csv'])
        self.assertEqual(sorted(run.metrics), ['a', 'load', 'requests'])
        self.assertEqual((run.status, run.said, run.printed), (0, '', 'vek-plot.html\n'))

    def test_figures_and_ranges_may_share_a_file(self):
        run = Run({'log.csv': RANGES + FIGURES})
        self.assertEqual(sorted(run.metrics), ['load', 'requests'])
        self.assertEqual(run.data['timelines'], [
            {'name': 'work', 'dimensions': [], 'clock': 'wall', 'lanes': [
                {'id': '1', 'ranges': [1700000060, 1700000062]},
                {'id': '2', 'ranges': [1700000119, 1700000125]}]}])

    def test_rotated_logs_are_read_in_order(self):
        run = Run({f'figures.json{suffix}': json_line(time, ('a', {'Value': time + 0.5}))
                   for suffix, time in (('', 12), ('.1', 11), ('.2', 10), ('.10', 2), ('.9', 3))})
        self.assertEqual(run.data['sources'], ['figures.json.10', 'figures.json.9',
                                               'figures.json.2', 'figures.json.1', 'figures.json'])
        self.assertEqual(run.metrics['a']['values'], [2.5, 3.5, 10.5, 11.5, 12.5])

    def test_what_cannot_be_read_is_named_by_file_and_line(self):
        lines = FIGURES.splitlines(keepends=True)
        lines.insert(2, '1700000060000000,a,b,c,,,,,,,\n')
        lines.insert(4, '1700000060000000,req1700000060000000,load,,0.5,,,,,,\n')
        run = Run({'figures.csv': ''.join(lines),
                   'figures.json': '2023-11-14 22:14:20,000000 [{]\n'},
                  paths=['logs/figures.csv', 'logs/figures.json', 'logs/none.csv'])
        self.assertEqual(run.said, 'vek-plot: logs/none.csv: No such file or directory\n'
                                   'vek-plot: logs/figures.csv:3: not a line of a log\n'
                                   'vek-plot: logs/figures.csv:5: not a line of a log\n'
                                   'vek-plot: logs/figures.json:1: not a line of a log\n')
        self.assertEqual(run.data['unread'], {'count': 4, 'first': [
            'logs/none.csv: No such file or directory', 'logs/figures.csv:3: not a line of a log',
            'logs/figures.csv:5: not a line of a log', 'logs/figures.json:1: not a line of a log']})
        self.assertEqual(run.status, 0)
        self.assertEqual(run.metrics['load']['values'], [0.5, 0.25, 1.5])

    def test_of_many_lines_the_first_20_are_named(self):
        run = Run({'figures.csv': FIGURES + '-\n' * 25})
        self.assertEqual(len(run.said.splitlines()), 21)
        self.assertEqual(run.said.splitlines()[19:], [
            'vek-plot: figures.csv:26: not a line of a log', 'vek-plot: 5 more could not be read'])
        self.assertEqual(run.data['unread']['count'], 25)
        self.assertEqual(len(run.data['unread']['first']), 20)

    def test_each_line_is_read_or_named(self):
        sound = '1700000060000000,a,,1.5,,,,,,\n'
        for line in ('x,a,,1,,,,,,', '1,a,,1,,,,,', '1,a,,1,,,,,,,', '1,a,,,,,,,,', '1,a,,x,,,,,,',
                     '-1,a,,1,,,,,,', '9007199254740992,a,,1,,,,,,',
                     '99999999999999999999,a,,1,,,,,,',
                     '1,a,,1,2,,,,,', '1,a,,1,2,3,4,5,6,x', '1,a,b,1,2,3,4,5,6,7,8', '',
                     'F,a,1,2', 'F,a,1,2,x', 'F,a,1,2,99999999999999999999', 'F,a,x,2,3',
                     'G,a,1,2,3'):
            run = Run({'figures.csv': f'{sound}{line}\n{sound}'})
            self.assertEqual(run.said, 'vek-plot: figures.csv:2: not a line of a log\n', line)
            self.assertEqual(run.metrics['a']['values'], [1.5, 1.5], line)

    def test_each_data_point_is_read_or_its_line_is_named(self):
        sound = {'MetricName': 'a', 'Timestamp': '2023-11-14T22:14:20Z', 'Value': 1.5}
        for change in ({'MetricName': 1}, {'MetricName': None}, {'Timestamp': 'x'}, {'Value': 'x'},
                       {'Timestamp': '0001-01-01T00:00:00Z'}, {'Value': []}, {'Unit': 1},
                       {'Dimensions': 1}, {'Dimensions': [1]}, {'Dimensions': [{'Name': 'a'}]},
                       {'Dimensions': [{'Name': 'a', 'Value': 1}]}, {'Value': 10 ** 400}):
            points = json.dumps([sound, {**sound, 'MetricName': 'b', **change}, 1])
            run = Run({'figures.json': f'2023-11-14 22:14:20,000000 {points}\n'})
            self.assertEqual(run.said, 'vek-plot: figures.json:1: not a line of a log\n', change)
            self.assertEqual(run.metrics['a']['values'], [1.5], change)
        for line in ('2023-11-14 22:14:20,000000 []x', '2023-11-14 22:14:20,000000 [1', 'x',
                     '2023-99-14 22:14:20,000000 []',
                     '2023-11-14 22:14:20,000000 ' + '[' * 99999 + ']'):
            points = json.dumps([sound])
            run = Run({'figures.json': f'2023-11-14 22:14:20,000000 {points}\n{line}\n'})
            self.assertEqual(run.said, 'vek-plot: figures.json:2: not a line of a log\n', line[:40])

    def test_a_last_line_that_was_cut_off_is_no_error(self):
        for cut in range(1, 60):
            run = Run({'figures.csv': FIGURES + csv_lines((T + 240.1, 'size', *SAMPLE))[:-cut],
                       'timeline.csv': RANGES + RANGES[:-cut]})
            self.assertEqual((run.status, run.said), (0, ''))
            self.assertEqual(sorted(run.metrics), ['load', 'requests'])

    def test_a_file_that_is_no_log_is_named_if_it_was_given(self):
        run = Run({'figures.csv': FIGURES, 'notes': 'note\n'},
                  paths=['logs/figures.csv', 'logs/notes'])
        self.assertEqual((run.status, run.said), (0, 'vek-plot: logs/notes: not a log\n'))

    def test_without_anything_to_draw_the_status_is_1_and_there_is_no_page(self):
        for run in (Run({'notes': 'note\n'}), Run({'figures.csv': FIGURES}, '--select=none'),
                    Run({}, paths=['none']), Run({'figures.csv': FIGURES}, '--until=2020-01-01')):
            self.assertEqual((run.status, run.written), (1, []))
            self.assertIn('vek-plot: there is nothing to draw\n', run.said)

    def test_special_figures_are_gaps_and_infinities(self):
        run = Run({'figures.csv': csv_lines(
            (T + 60.1, 'load', 'nan'), (T + 120.1, 'load', 'inf'), (T + 180.1, 'load', '-inf'),
            (T + 240.1, 'load', '-nan'), (T + 300.1, 'load', '1e+22'))})
        self.assertEqual(run.metrics['load']['values'], [None, 'inf', '-inf', None, 1e22])

    def test_without_samples_there_are_no_statistics(self):
        run = Run({'figures.csv': csv_lines((T + 60.1, 'size', 0, 0, 0, 0, 0, 0, 0),
                                            (T + 120.1, 'size', *SAMPLE))})
        self.assertEqual(run.metrics['size']['statistics'], {
            'samples': [0, 5], 'avg': [None, 2], 'min': [None, 1], 'max': [None, 3],
            'p10': [None, 1], 'p50': [None, 2], 'p90': [None, 3]})

    def test_many_fractions_are_written_in_binary(self):
        rows = [(T + minute * 60 + 0.1, 'load', minute / 8) for minute in range(999)]
        self.assertIsInstance(Run({'a.csv': csv_lines(*rows)}).metrics['load']['values'], list)
        for figure, read in (('nan', None), ('-inf', '-inf'), (0.1, 0.1)):
            run = Run({'a.csv': csv_lines(*rows, (T + 999 * 60, 'load', figure))})
            self.assertIsInstance(run.metrics['load']['values'], str)
            self.assertEqual(decode(run.metrics['load']['values']),
                             [minute / 8 for minute in range(999)] + [read])

    def test_names_and_dimensions_are_kept_as_they_are(self):
        run = Run({'figures.csv': csv_lines(
            (T + 60.1, ('</script>', 'a=b=c;</b>=&;odd='), 1.5),
            (T + 60.1, 'größe', 2.5)).encode() + b'1700000060100000,\xff,,3.5,,,,,,\n'})
        self.assertEqual([(metric['name'], metric['dimensions']) for metric in run.data['metrics']],
                         [('</script>', [['a', 'b=c'], ['</b>', '&'], ['odd', '']]),
                          ('größe', []), ('\ufffd', [])])


def a_pipe_is_read_like_a_file():
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(['bash', '-c', '"$0" "$1" <(cat)', sys.executable, PROGRAM], cwd=folder,
                       input=FIGURES, check=True, text=True, stdout=subprocess.DEVNULL)
        assert len(read_page(pathlib.Path(folder, 'vek-plot.html'))['metrics']) == 2


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
    tap.run([Reading, a_pipe_is_read_like_a_file, Options, Pictures, without_matplotlib_the_package_is_named, Trace])
