"""Tests of what the page draws of metrics: known data in, the drawn figures out."""

import base64
import math
import random
import struct

from support import browser, tap

import pages
from pages import START, document, metric, minutes, statistics


class Curves(browser.Test):
    def draw(self, *metrics, **members):
        data = document(metrics, times=members.pop('times', minutes(4)), **members)
        pages.server().show(self.browser, data)
        return self.browser.series()

    def test_a_counter_is_drawn_as_its_rate(self):
        [drawn] = self.draw(metric('counter', [0, 60, 180, 180], 'requests', 'Count',
                                   [['host', 'a'], ['disk', 'sda']]))
        self.assertEqual(drawn['name'], 'requests')
        self.assertEqual(drawn['dimensions'], [['host', 'a'], ['disk', 'sda']])
        self.assertEqual(drawn['kind'], 'counter')
        self.assertEqual(drawn['unit'], 'Count/Second')
        self.assertEqual(drawn['line'], 'rate')
        self.assertEqual(drawn['times'], minutes(4))
        self.assertEqual(drawn['values'], [None, 1, 2, 0])

    def test_a_click_shows_the_total(self):
        self.draw(metric('counter', [0, 60, 180, 180], unit='Count'))
        self.browser.click('.buttons button')
        [drawn] = self.browser.series()
        self.assertEqual(drawn['unit'], 'Count')
        self.assertEqual(drawn['values'], [0, 60, 180, 180])
        self.browser.click('.buttons button')
        self.assertEqual(self.browser.series()[0]['values'], [None, 1, 2, 0])

    def test_a_counter_that_falls_has_a_negative_rate(self):
        [drawn] = self.draw(metric('counter', [600, 0, 60, 0]))
        self.assertEqual(drawn['values'], [None, -10, 1, -1])

    def test_a_rate_is_over_the_time_since_the_last_known_total(self):
        [drawn] = self.draw(metric('counter', [0, None, 240, 300]))
        self.assertEqual(drawn['values'], [None, None, 2, 1])

    def test_no_rate_is_computed_across_a_restart(self):
        [drawn] = self.draw(metric('counter', [60, 120, 0, 180]), restarts=[START + 100])
        self.assertEqual(drawn['times'], [START, START + 60, START + 90, START + 120, START + 180])
        self.assertEqual(drawn['values'], [None, 1, None, None, 3])

    def test_a_restart_is_a_line_through_all_charts(self):
        self.draw(metric('gauge', [1, 2, 3, 4]), metric('gauge', [4, 3, 2, 1], 'other'),
                  restarts=[START + 60])
        line, ticks, rows = self.browser.run('''
            return ['.restart', '#wall .ticks', '#wall .rows'].map(name =>
              document.querySelector(name).getBoundingClientRect());''')
        self.assertAlmostEqual(line['left'], ticks['left'] + ticks['width'] / 3, delta=1)
        self.assertLessEqual(line['top'], rows['top'])
        self.assertGreaterEqual(line['bottom'], rows['bottom'])

    def test_unknown_values_are_gaps(self):
        drawn = self.draw(metric('gauge', [1, None, 3, 4]), metric('meter', [5, 6, None, 7], 'm'))
        self.assertEqual([one['values'] for one in drawn], [[1, None, 3, 4], [5, 6, None, 7]])

    def test_nothing_is_drawn_in_a_gap(self):
        self.draw(metric('gauge', [5, 5.5, None, 5.5, 5]), times=minutes(5))
        inked = self.browser.run('''
            const [canvas] = document.querySelectorAll('.plot canvas');
            const axis = parseFloat(getComputedStyle(document.body).getPropertyValue('--axis'));
            const context = canvas.getContext('2d');
            const column = share => {
              const x = Math.round(axis + share * (canvas.width - axis));
              return context.getImageData(x, 0, 1, canvas.height).data;
            };
            const strong = share => column(share).some((value, i) => i % 4 === 3 && value > 200);
            return [0.1, 0.5, 0.9].map(strong);''')
        self.assertEqual(inked, [True, False, True])

    def test_a_pass_that_did_not_come_is_a_gap(self):
        times = [START, START + 60, START + 120, START + 300, START + 360]
        [drawn] = self.draw(metric('gauge', [1, 2, 3, 4, 5]), times=times)
        self.assertEqual(drawn['times'], [*times[:3], START + 210, *times[3:]])
        self.assertEqual(drawn['values'], [1, 2, 3, None, 4, 5])

    def test_passes_in_whole_seconds_leave_no_gap(self):
        times = [START, START + 1, START + 2, START + 4, START + 5]
        [drawn] = self.draw(metric('gauge', [1, 2, 3, 4, 5]), times=times)
        self.assertEqual(drawn['values'], [1, 2, 3, 4, 5])

    def test_infinities_are_marked_at_the_edge(self):
        [drawn] = self.draw(metric('gauge', [1, 'inf', '-inf', 4]))
        self.assertEqual(drawn['values'], [1, 'inf', '-inf', 4])
        self.assertEqual(drawn['marks'], [
            {'time': START + 60, 'edge': 'top', 'line': 'value', 'infinite': True},
            {'time': START + 120, 'edge': 'bottom', 'line': 'value', 'infinite': True}])
        low, high = drawn['range']
        self.assertTrue(0 <= low < 1 and 4 < high < 6, drawn['range'])

    def test_a_distribution_is_a_median_in_a_band(self):
        lines = {'avg': [2, 3, 4, 5], 'min': [0, 1, 1, 1], 'max': [9, 8, 9, 8],
                 'p10': [1, 1, 2, 2], 'p50': [2, 2, 3, 3], 'p90': [4, 5, 6, 7]}
        [drawn] = self.draw(statistics(samples=[10, 10, 20, 20], **lines))
        self.assertEqual(drawn['line'], 'p50')
        self.assertEqual(drawn['values'], [2, 2, 3, 3])
        self.assertEqual(drawn['band'], ['p10', 'p90'])
        self.assertEqual(drawn['lines'], lines)
        self.assertEqual(drawn['unit'], 'Seconds')

    def test_the_quantiles_of_a_json_log_make_a_band(self):
        [drawn] = self.draw(statistics(
            'histogram', avg=[2, 3, 4, 5], min=[0] * 4, max=[9] * 4, p50=[2, 2, 3, 3],
            p90=[4, 5, 6, 7], p99=[5, 6, 7, 8]))
        self.assertEqual(drawn['line'], 'p50')
        self.assertEqual(drawn['band'], ['p50', 'p90'])
        self.assertEqual(drawn['lines']['p99'], [5, 6, 7, 8])

    def test_a_maximum_does_not_flatten_the_rest(self):
        largest = [9, 5000, 9, 8]
        [drawn] = self.draw(statistics(min=[1] * 4, max=largest, p10=[2] * 4, p50=[3, 4, 3, 4],
                                       p90=[5] * 4))
        self.assertEqual(drawn['lines']['max'], largest)
        self.assertLess(drawn['range'][1], 20)
        self.assertEqual(drawn['marks'], [
            {'time': START + 60, 'edge': 'top', 'line': 'max', 'infinite': False}])

        self.browser.click('.buttons button')
        [drawn] = self.browser.series()
        self.assertTrue(drawn['logarithmic'])
        self.assertGreater(drawn['range'][1], 5000)
        self.assertEqual(drawn['marks'], [])

    def test_a_logarithmic_scale_shows_no_values_of_0_or_less(self):
        self.draw(metric('gauge', [-5, 0, 10, 100]))
        self.browser.click('.buttons button')
        [drawn] = self.browser.series()
        low, high = drawn['range']
        self.assertTrue(5 < low < 10 and 100 < high < 200, drawn['range'])
        self.assertEqual(drawn['marks'], [])

    def test_thinning_keeps_every_extreme_of_a_pixel(self):
        number = random.Random(1)
        values = [number.uniform(0, 10) for _ in range(40000)]
        values[12345], values[23456], values[34567] = 1e6, -1e6, None
        values[5432], values[5433] = 'inf', '-inf'
        times = [START + i for i in range(40000)]
        [drawn] = self.draw(metric('gauge', values), times=times)
        self.assertLess(len(drawn['times']), 12000)
        shown = dict(zip(drawn['times'], drawn['values']))
        self.assertEqual([shown.get(START + i, 'none') for i in (12345, 23456, 34567, 5432, 5433)],
                         [1e6, -1e6, None, 'inf', '-inf'])

        width = self.browser.run('return document.querySelector("#wall .ticks").clientWidth;')
        pixels = {}
        for i, value in enumerate(values):
            if isinstance(value, float):
                pixels.setdefault(i * width // 39999, []).append((value, START + i))
        for found in pixels.values():
            for value, time in (min(found), max(found)):
                self.assertEqual(shown.get(time), value)

    def test_values_may_be_binary(self):
        values = [0.1, -2.5e-300, math.inf, math.nan]
        binary = base64.b64encode(struct.pack('<4d', *values)).decode()
        [drawn] = self.draw(metric('gauge', binary))
        self.assertEqual(drawn['values'], [0.1, -2.5e-300, 'inf', None])

    def test_a_chart_shows_every_value_of_a_short_log(self):
        values = [float(i * i % 97) for i in range(1000)]
        times = [START + i for i in range(999)] + [START + 1e6]  # nearly all are in one pixel
        [drawn] = self.draw(metric('gauge', values), times=times)
        self.assertEqual(drawn['values'], [*values[:-1], None, values[-1]])

    def test_metrics_that_never_changed_are_one_line(self):
        drawn = self.draw(metric('gauge', [3, 3, None, 3], 'threads', 'Count'),
                          metric('gauge', [2048] * 4, 'limit', 'Bytes', [['disk', 'sda']]),
                          metric('gauge', [1, 2, 3, 4], 'load'))
        self.assertEqual([(one['name'], one['constant']) for one in drawn],
                         [('limit', True), ('load', False), ('threads', True)])
        self.assertEqual(self.browser.text('#constant summary'), [
            '2 metrics never changed: limit (disk=sda) 2.05\u202fkB, threads 3'])
        self.assertEqual(self.browser.text('#wall > .rows .name'), ['load'])

    def test_a_single_pass_is_shown(self):
        [drawn] = self.draw(metric('gauge', [7]), times=minutes(1))
        self.assertEqual((drawn['values'], drawn['constant']), ([7], False))

    def test_last_values_are_scaled_for_people(self):
        one = {'unit': 'Bytes', 'last': 2500}
        cases = [one, {'unit': 'Seconds', 'last': 0.0031}, {'unit': 'Percent', 'last': 12.5},
                 {'unit': 'Kilobits/Second', 'last': 1500}, {'unit': 'Count', 'last': 1234567},
                 {'unit': None, 'last': 0.25}, {'unit': 'Milliseconds', 'last': 150000},
                 {'unit': 'Files', 'last': -12}]
        self.draw(*(metric('gauge', [1, 2, 3, case['last']], f'g{i}', case['unit'])
                    for i, case in enumerate(cases)))
        self.assertEqual([text.replace('\u202f', ' ') for text in self.browser.text('.value')],
                         ['2.5 kB', '3.1 ms', '12.5 %', '1.5 Mbit/s', '1.23 M', '0.25',
                          '2.5 min', '−12 Files'])


if __name__ == '__main__':
    tap.run([Curves])
