"""Tests of how vek-plot reads logs."""

import json
import pathlib
import resource
import subprocess
import sys
import tempfile
import unittest

from plot import (FIGURES, PROGRAM, RANGES, SAMPLE, Run, T, csv_lines, decode, json_line,
                  read_page)
from support import tap


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

    def test_logs_whose_names_differ_in_the_extension_are_all_read(self):
        first, second, third = (csv_lines((T + second, 'a', second + 0.5),
                                          (T + second + 60, 'a', second + 60.5))
                                for second in (0, 120, 240))
        for files in ({'figures.csv': third, 'figures.csv-20231114': first,
                       'figures.csv-20231115': second},
                      {'figures.csv': third, 'figures.old': second, 'figures': first}):
            files['figures.json'] = json_line(0, ('a', {'Value': 0.5, 'Unit': 'Bytes'}))
            run = Run(files)
            self.assertEqual(run.metrics['a']['values'], [0.5, 60.5, 120.5, 180.5, 240.5, 300.5])
            self.assertEqual(run.metrics['a']['unit'], 'Bytes')
        run = Run({'a.csv': first, 'a.old': first, 'a': first},
                  paths=['logs/a.csv', 'logs'])
        self.assertEqual([metric['dimensions'] for metric in run.data['metrics']],
                         [[['file', 'a']], [['file', "a'"]], [['file', 'a.old']]])

    def test_what_cannot_be_read_is_named_by_file_and_line(self):
        lines = FIGURES.splitlines(keepends=True)
        lines.insert(2, '1700000060000000,a,b,c,,,,,,,\n')
        lines.insert(4, '1700000060000000,req1700000060000000,load,,0.5,,,,,,\n')
        run = Run({'figures.csv': ''.join(lines),
                   'figures.json': '2023-11-14 22:14:20,000000 [{]\n'},
                  paths=['logs/figures.csv', 'logs/figures.json', 'logs/none.csv'])
        self.assertEqual(run.said, 'vek-plot: logs/figures.csv:3: not a line of a log\n'
                                   'vek-plot: logs/figures.csv:5: not a line of a log\n'
                                   'vek-plot: logs/figures.json:1: not a line of a log\n'
                                   'vek-plot: logs/none.csv: No such file or directory\n')
        self.assertEqual(run.data['unread'], {'count': 4, 'first': [
            'logs/figures.csv:3: not a line of a log', 'logs/figures.csv:5: not a line of a log',
            'logs/figures.json:1: not a line of a log',
            'logs/none.csv: No such file or directory']})
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

    def test_a_long_file_that_is_no_log_is_named_if_it_was_given(self):
        run = Run({'figures.csv': FIGURES, 'notes': 'note\n' * 99999},
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


def more_files_are_read_than_may_be_open():
    with tempfile.TemporaryDirectory() as folder:
        for index in range(50):
            pathlib.Path(folder, f'{index}.csv').write_text(
                csv_lines((T + index, 'a', index + 0.5)), encoding='utf-8')
        run = subprocess.run([sys.executable, PROGRAM, '.'], cwd=folder, check=True, text=True,
                             capture_output=True, preexec_fn=lambda: resource.setrlimit(
                                 resource.RLIMIT_NOFILE, (30, 30)))
        assert run.stderr == '', run.stderr
        metric, = read_page(pathlib.Path(folder, 'vek-plot.html'))['metrics']
        assert metric['values'] == [index + 0.5 for index in range(50)], metric


def a_pipe_is_read_like_a_file():
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(['bash', '-c', '"$0" "$1" <(cat)', sys.executable, PROGRAM], cwd=folder,
                       input=FIGURES, check=True, text=True, stdout=subprocess.DEVNULL)
        assert len(read_page(pathlib.Path(folder, 'vek-plot.html'))['metrics']) == 2


if __name__ == '__main__':
    tap.run([Reading, more_files_are_read_than_may_be_open, a_pipe_is_read_like_a_file])
