"""Tests of what vek-plot tells that the logs do not say, by logs that are made by hand."""

import json
import unittest

from plot import Run, csv_lines
from support import tap

T = 1_700_000_000  # a time; most of these programs report a minute later for the first time
SAMPLE = (2, 5, 1, 3, 1, 2, 3)  # average, samples, minimum, maximum, quantiles


def json_line(time, *points):
    """A line of a JSON log, T + time seconds, from pairs of a name and other members."""
    stamp = f'2023-11-14T22:{13 + (time + 20) // 60:02}:{(time + 20) % 60:02}Z'
    array = [{'MetricName': name, 'Timestamp': stamp, **members} for name, members in points]
    return f'{stamp[:10]} {stamp[11:19]},000500 {json.dumps(array)}\n'


class Kinds(unittest.TestCase):
    def kind(self, log, name, *arguments):
        return Run({'figures.csv': log}, *arguments).metrics[name]['kind']

    def test_seven_statistics_are_a_histogram(self):
        run = Run({'figures.csv': csv_lines((T + 60, 'size', *SAMPLE), (T + 120, 'size', *SAMPLE))})
        self.assertEqual(run.data['metrics'], [{
            'name': 'size', 'dimensions': [], 'kind': 'histogram', 'unit': None, 'times': 0,
            'statistics': {'samples': [5, 5], 'avg': [2, 2], 'min': [1, 1], 'max': [3, 3],
                           'p10': [1, 1], 'p50': [2, 2], 'p90': [3, 3]}}])
        self.assertEqual(run.data['times'], [[1700000060, 1700000120]])

    def test_integers_whose_stamp_stands_still_where_they_do_are_a_counter(self):
        log = csv_lines((T + 50.1, 'a', 4), (T + 60.2, 'size', *SAMPLE),
                        (T + 50.1, 'a', 4), (T + 120.3, 'size', *SAMPLE),
                        (T + 170.7, 'a', 9), (T + 180.4, 'size', *SAMPLE))
        self.assertEqual(self.kind(log, 'a'), 'counter')

    def test_integers_whose_stamp_moves_while_they_do_not_are_a_gauge(self):
        log = csv_lines((T + 60.1, 'a', 4), (T + 120.2, 'a', 4), (T + 180.3, 'a', 9))
        self.assertEqual(self.kind(log, 'a'), 'gauge')

    def test_values_that_move_while_the_stamp_does_not_are_a_gauge(self):
        log = csv_lines((T + 60.1, 'a', 4), (T + 61.1, 'size', *SAMPLE),
                        (T + 60.1, 'a', 5), (T + 121.2, 'size', *SAMPLE))
        self.assertEqual(self.kind(log, 'a'), 'gauge')

    def test_fractions_are_a_gauge(self):
        log = csv_lines((T + 50.1, 'a', 4.5), (T + 60.2, 'size', *SAMPLE),
                        (T + 50.1, 'a', 4.5), (T + 120.3, 'size', *SAMPLE))
        self.assertEqual(self.kind(log, 'a'), 'gauge')

    def test_stamps_on_a_grid_are_a_gauge_with_an_interval_and_its_own_times(self):
        run = Run({'figures.csv': csv_lines(
            (T + 60, 'sum', 5), (T + 60.7, 'size', *SAMPLE),
            (T + 120, 'sum', 3), (T + 120.8, 'size', *SAMPLE),
            (T + 180.9, 'size', *SAMPLE),
            (T + 240, 'sum', 8), (T + 240.6, 'size', *SAMPLE))}, '--select=sum')
        self.assertEqual(run.data['times'][0],
                         [1700000060.7, 1700000120.8, 1700000180.9, 1700000240.6])
        self.assertEqual(run.data['times'][1], [1700000060, 1700000120, 1700000180.9, 1700000240])
        self.assertEqual(run.data['metrics'], [{
            'name': 'sum', 'dimensions': [], 'kind': 'gauge', 'unit': None, 'times': 1,
            'values': [5, 3, None, 8]}])

    def test_a_total_on_a_grid_that_only_rises_is_a_counter(self):
        log = csv_lines((T + 55, 'a', 5), (T + 60.7, 'size', *SAMPLE),
                        (T + 115, 'a', 8), (T + 120.8, 'size', *SAMPLE),
                        (T + 175, 'a', 9), (T + 179.9, 'size', *SAMPLE))
        self.assertEqual(self.kind(log, 'a'), 'counter')

    def test_options_overrule(self):
        log = csv_lines((T + 60.1, 'a', 4), (T + 120.2, 'a', 4), (T + 180.3, 'a', 9))
        self.assertEqual(self.kind(log, 'a', '--counter', 'a'), 'counter')
        log = csv_lines((T + 60.1, 'a', 4), (T + 120.2, 'a', 6))
        self.assertEqual(self.kind(log, 'a'), 'counter')
        self.assertEqual(self.kind(log, 'a', '--gauge', 'a'), 'gauge')
        self.assertEqual(self.kind(log, 'a', '--gauge', 'b'), 'counter')


if __name__ == '__main__':
    tap.run([Kinds])
