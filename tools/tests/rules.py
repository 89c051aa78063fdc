"""Tests of what vek-plot tells that the logs do not say, by logs that are made by hand."""

import unittest

from plot import SAMPLE, Run, T, csv_lines, json_line
from support import tap


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


class Passes(unittest.TestCase):
    """The times of the passes, and what counters did from one to the next."""

    def test_a_counter_has_the_time_of_the_pass_from_its_neighbours(self):
        """It stood still for an hour, and then made 600 in the last minute: 10 a second."""
        rows = []
        for minute in range(1, 62):
            rows += [(T + 60, 'requests', 100), (T + minute * 60 + 0.5, 'load', 0.25)]
        rows += [(T + 3715, 'requests', 700), (T + 3720.5, 'load', 0.25)]
        run = Run({'figures.csv': csv_lines(*rows)})
        self.assertEqual(run.data['times'][0][-3:], [1700003600.5, 1700003660.5, 1700003720.5])
        self.assertEqual(run.metrics['requests']['values'][-3:], [100, 100, 700])

    def test_a_pass_may_begin_with_a_counter(self):
        run = Run({'figures.csv': csv_lines(
            (T + 1, 'a', 1), (T + 60, 'size', *SAMPLE), (T + 2, 'b', 1),
            (T + 61, 'a', 2), (T + 120, 'size', *SAMPLE), (T + 2, 'b', 1))})
        self.assertEqual(run.data['times'], [[1700000060, 1700000120]])
        self.assertEqual(run.metrics['b']['values'], [1, 1])

    def test_without_other_metrics_idle_passes_are_spread_evenly(self):
        run = Run({'figures.csv': csv_lines(
            (T + 60, 'a', 1), (T + 120, 'a', 2), (T + 120, 'a', 2), (T + 120, 'a', 2),
            (T + 300, 'a', 9), (T + 300, 'a', 9))})
        self.assertEqual(run.data['times'], [[1700000060, 1700000120, 1700000180, 1700000240,
                                              1700000300, 1700000360]])
        self.assertEqual(run.metrics['a']['values'], [1, 2, 2, 2, 9, 9])

    def test_a_program_that_never_changed_a_counter_reported_each_minute(self):
        run = Run({'figures.csv': csv_lines((T, 'a', 0), (T, 'a', 0), (T, 'a', 0))})
        self.assertEqual(run.data['times'], [[1700000000, 1700000060, 1700000120]])

    def test_a_metric_that_comes_later_is_in_the_pass_of_its_time(self):
        """It comes before the others, and would be taken for the last of the pass before."""
        run = Run({'figures.csv': csv_lines(
            (T + 60, 'size', *SAMPLE), (T + 60, 'load', 0.5),
            (T + 120, 'new', 7.5), (T + 120, 'size', *SAMPLE), (T + 120, 'load', 0.5),
            (T + 180, 'new', 8.5), (T + 180, 'size', *SAMPLE), (T + 180, 'load', 0.5))})
        self.assertEqual(run.data['times'], [[1700000060, 1700000120, 1700000180]])
        self.assertEqual(run.metrics['new']['values'], [None, 7.5, 8.5])
        self.assertEqual(run.metrics['load']['values'], [0.5, 0.5, 0.5])

    def test_a_metric_that_misses_a_pass_has_a_gap(self):
        run = Run({'figures.csv': csv_lines(
            (T + 60.1, 'a', 1.5), (T + 60.2, 'b', 1.5), (T + 120.1, 'a', 2.5),
            (T + 180.1, 'a', 3.5), (T + 180.2, 'b', 3.5))})
        self.assertEqual(run.metrics['b']['values'], [1.5, None, 3.5])

    def test_a_wrong_time_moves_no_other_pass(self):
        run = Run({'figures.csv': csv_lines(
            (T + 60, 'a', 1.5), (T + 9e7, 'a', 2.5), (T + 180, 'a', 3.5), (T + 240, 'a', 4.5))})
        self.assertEqual(run.data['times'],
                         [[1700000060, 1700000120, 1700000180, 1700000240]])

    def test_logs_in_json_have_the_times_of_their_lines(self):
        run = Run({'figures.json': json_line(60, ('a', {'Value': 1})) +
                                   json_line(120, ('a', {'Value': 2}))})
        self.assertEqual(run.data['times'], [[1700000060.0005, 1700000120.0005]])


class Restarts(unittest.TestCase):
    def restarts(self, *rows):
        run = Run({'figures.csv': csv_lines(*rows)})
        self.assertEqual({metric['kind'] for metric in run.data['metrics']}, {'counter', 'gauge'})
        return run.data['restarts']

    def test_a_fall_of_one_counter_while_others_go_on_is_a_counter_that_went_down(self):
        self.assertEqual(self.restarts(
            (T + 51, 'open', 5), (T + 52, 'requests', 10), (T + 60, 'load', 0.5),
            (T + 101, 'open', 3), (T + 102, 'requests', 20), (T + 120, 'load', 0.5)), [])

    def test_where_every_counter_that_changed_fell_the_program_was_restarted(self):
        self.assertEqual(self.restarts(
            (T + 51, 'errors', 5), (T + 52, 'requests', 10), (T + 60, 'load', 0.5),
            (T + 91, 'errors', 0), (T + 102, 'requests', 7), (T + 120, 'load', 0.5),
            (T + 161, 'errors', 2), (T + 162, 'requests', 9), (T + 180, 'load', 0.5)),
                         [1700000120])

    def test_a_counter_that_kept_its_stamp_shows_that_the_program_went_on(self):
        self.assertEqual(self.restarts(
            (T + 51, 'open', 5), (T + 12, 'requests', 10), (T + 60, 'load', 0.5),
            (T + 101, 'open', 3), (T + 12, 'requests', 10), (T + 120, 'load', 0.5)), [])

    def test_a_counter_that_is_0_before_and_after_a_restart_stays_a_counter(self):
        run = Run({'figures.csv': csv_lines(
            (T + 1, 'errors', 0), (T + 52, 'requests', 10), (T + 60, 'load', 0.5),
            (T + 91, 'errors', 0), (T + 102, 'requests', 7), (T + 120, 'load', 0.5))})
        self.assertEqual(run.metrics['errors']['kind'], 'counter')
        self.assertEqual(run.data['restarts'], [1700000120])

    def test_another_run_may_be_in_another_file(self):
        run = Run({'b.csv': csv_lines((T + 52, 'requests', 10), (T + 60, 'load', 0.5)),
                   'a.csv': csv_lines((T + 102, 'requests', 7), (T + 120, 'load', 0.25))})
        self.assertEqual(run.metrics['load']['values'], [0.5, 0.25])
        self.assertEqual(run.data['restarts'], [1700000120])


class Json(unittest.TestCase):
    """Logs in JSON, alone and together with those in CSV."""

    def kind(self, *points):
        """The kind of a metric from pairs of the time of a pass and a value, with the same stamp.
        """
        lines = [json_line(60, ('a', {'Value': value})).replace(',000500 ', f',{time} ')
                 for time, value in points]
        return Run({'figures.json': ''.join(lines)}).metrics['a']['kind']

    def test_a_counter_may_change_in_two_passes_of_a_second(self):
        self.assertEqual(self.kind(('100000', 1), ('600000', 2), ('900000', 2)), 'counter')

    def test_a_change_after_a_pass_is_not_earlier_than_it(self):
        lines = [json_line(time, ('a', {'Timestamp': '2023-11-14T22:13:25Z', 'Value': time}))
                 for time in (60, 120)]
        self.assertEqual(Run({'figures.json': ''.join(lines)}).metrics['a']['kind'], 'gauge')

    STATISTICS = {'SampleCount': 4, 'Sum': 10.0, 'Minimum': 1.0, 'Maximum': 5.0}
    POINTS = (('a', {'Unit': 'Seconds', 'StatisticValues': STATISTICS}),
              ('a_p50', {'Unit': 'Seconds', 'Value': 2.0}),
              ('a_p90', {'Unit': 'Seconds', 'Value': 4.0}),
              ('a_p99', {'Unit': 'Seconds', 'Value': 4.5}))

    def test_percentiles_are_part_of_their_metric(self):
        run = Run({'figures.json': json_line(60, *self.POINTS)})
        self.assertEqual(run.data['metrics'], [{
            'name': 'a', 'dimensions': [], 'kind': 'timer', 'unit': 'Seconds', 'times': 0,
            'statistics': {'samples': [4], 'avg': [2.5], 'min': [1], 'max': [5], 'p50': [2],
                           'p90': [4], 'p99': [4.5]}}])

    def test_a_metric_that_is_called_like_a_percentile_stays_one(self):
        run = Run({'figures.json': json_line(60, self.POINTS[1], ('b', {'Value': 1.5}))})
        self.assertEqual(sorted(run.metrics), ['a_p50', 'b'])

    def test_a_metric_in_both_logs_is_one_row_with_the_unit(self):
        dimensions = [{'Name': 'instance', 'Value': 'web'}, {'Name': 'host', 'Value': 'h'}]
        run = Run({
            'figures.csv': csv_lines((T + 60, ('a', 'host=h;'), 2.5, 4, 1, 5, 1.5, 2, 4),
                                     (T + 50.5, ('n', 'host=h;'), 7),
                                     (T + 120, ('a', 'host=h;'), 2.5, 4, 1, 5, 1.5, 2, 4),
                                     (T + 119.5, ('n', 'host=h;'), 9)),
            'report.json': ''.join(json_line(time, *(
                (name, {**members, 'Dimensions': dimensions}) for name, members in
                (*self.POINTS, ('n', {'Unit': 'Count', 'Value': value}))))
                                    for time, value in ((60, 7.0), (120, 9.0)))})
        self.assertEqual(run.data['times'], [[1700000060.0005, 1700000120.0005]])
        self.assertEqual(run.data['metrics'], [
            {'name': 'a', 'dimensions': [['instance', 'web'], ['host', 'h']], 'kind': 'timer',
             'unit': 'Seconds', 'times': 0,
             'statistics': {'samples': [4, 4], 'avg': [2.5, 2.5], 'min': [1, 1], 'max': [5, 5],
                            'p10': [1.5, 1.5], 'p50': [2, 2], 'p90': [4, 4], 'p99': [4.5, 4.5]}},
            {'name': 'n', 'dimensions': [['instance', 'web'], ['host', 'h']], 'kind': 'counter',
             'unit': 'Count', 'times': 0, 'values': [7, 9]}])

    def test_passes_that_only_one_log_has_are_gaps_of_the_other(self):
        run = Run({
            'figures.csv': csv_lines(*((T + time, 'a', 2.5, 4, 1, 5, 1.5, 2, 4)
                                       for time in (60, 120, 180))),
            'figures.json': json_line(120, *self.POINTS) + json_line(180, *self.POINTS) +
                            json_line(240, *self.POINTS)})
        self.assertEqual(run.data['times'], [[1700000060, 1700000120.0005, 1700000180.0005,
                                              1700000240.0005]])
        statistics = run.metrics['a']['statistics']
        self.assertEqual((statistics['p10'], statistics['p99'], statistics['max']),
                         ([1.5, 1.5, 1.5, None], [None, 4.5, 4.5, 4.5], [5, 5, 5, 5]))

    def test_idle_counters_have_the_times_of_the_passes_from_json(self):
        run = Run({
            'figures.csv': csv_lines((T + 3, 'n', 7), (T + 3, 'n', 7), (T + 121, 'n', 9)),
            'figures.json': json_line(60, ('n', {'Value': 7.0})) +
                            json_line(120, ('n', {'Value': 7.0})) +
                            json_line(180, ('n', {'Value': 9.0}))})
        self.assertEqual(run.data['times'],
                         [[1700000060.0005, 1700000120.0005, 1700000180.0005]])
        self.assertEqual(run.metrics['n']['values'], [7, 7, 9])


class Programs(unittest.TestCase):
    def test_logs_of_the_same_time_are_of_several_programs(self):
        run = Run({'a.csv': csv_lines((T + 60, 'load', 0.5), (T + 120, 'load', 0.25),
                                      (T + 120, 'mine', 2.5)),
                   'b.csv': csv_lines((T + 70, 'load', 1.5), (T + 130, 'load', 1.25))})
        self.assertEqual(run.data['times'], [
            [1700000060, 1700000070, 1700000120, 1700000130],
            [1700000060, 1700000120], [1700000070, 1700000130]])
        self.assertEqual([(metric['name'], metric['dimensions'], metric['times'], metric['values'])
                          for metric in run.data['metrics']],
                         [('load', [['file', 'a']], 1, [0.5, 0.25]),
                          ('load', [['file', 'b']], 2, [1.5, 1.25]),
                          ('mine', [], 1, [None, 2.5])])

    def test_logs_of_the_same_name_are_told_apart_by_their_folders(self):
        log = csv_lines((T + 60, 'load', 0.5), (T + 120, 'load', 0.25))
        run = Run({'one/figures.csv': log, 'two/figures.csv': log},
                  paths=['logs/one', './logs/two/figures.csv'])
        self.assertEqual([metric['dimensions'] for metric in run.data['metrics']],
                         [[['file', 'one/figures']], [['file', 'two/figures']]])


class Ranges(unittest.TestCase):
    FIGURES = csv_lines((T + 60, 'load', 0.5), (T + 120, 'load', 0.25))

    def timelines(self, ranges, *arguments):
        return Run({'figures.csv': self.FIGURES, 'timeline.csv': ranges},
                   *arguments).data['timelines']

    def test_ranges_are_in_microseconds_of_the_wall_clock(self):
        self.assertEqual(
            self.timelines('F,work,2,1700000070000000,1700000071500000\n'
                           'F,work,2,1700000060000000,1700000061000000\n'
                           'F,work,-1,1700000070000000,1700000060000000\n'),
            [{'name': 'work', 'dimensions': [], 'clock': 'wall', 'lanes': [
                {'id': '-1', 'ranges': [1700000060, 1700000070]},
                {'id': '2', 'ranges': [1700000060, 1700000061, 1700000070, 1700000071.5]}]}])

    def test_other_units_are_an_option(self):
        for unit, factor in (('s', 1), ('ms', 10 ** 3), ('us', 10 ** 6), ('ns', 10 ** 9)):
            timeline, = self.timelines(f'F,work,1,{1700000070 * factor},{1700000071 * factor}\n',
                                       '--range-unit', unit)
            self.assertEqual((timeline['clock'], timeline['lanes'][0]['ranges']),
                             ('wall', [1700000070, 1700000071]))

    def test_ranges_of_another_clock_are_apart(self):
        self.assertEqual(
            self.timelines('F,work,1,1700000070000000,1700000071000000\n'
                           'F,work,1,5000000,7500000\n'),
            [{'name': 'work', 'dimensions': [], 'clock': 'other', 'lanes': [
                {'id': '1', 'ranges': [5, 7.5]}]},
             {'name': 'work', 'dimensions': [], 'clock': 'wall', 'lanes': [
                 {'id': '1', 'ranges': [1700000070, 1700000071]}]}])

    def test_without_passes_ranges_since_2000_are_of_the_wall_clock(self):
        run = Run({'timeline.csv': 'F,a,1,946684800000000,946684801000000\n'
                                   'F,b,1,946684799000000,946684800000000\n'})
        self.assertEqual([(timeline['name'], timeline['clock'])
                          for timeline in run.data['timelines']], [('a', 'wall'), ('b', 'other')])


if __name__ == '__main__':
    tap.run([Kinds, Passes, Restarts, Json, Programs, Ranges])
