"""Tests of what the page draws: known data in, the drawn figures out."""

import base64
import math
import pathlib
import random
import string
import struct

from support import browser, tap

import pages
from pages import START, document, metric, minutes, statistics, timeline


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

    def test_thinning_keeps_every_extreme_of_a_pixel(self):
        number = random.Random(1)
        values = [number.uniform(0, 10) for _ in range(40000)]
        values[12345], values[23456], values[34567] = 1e6, -1e6, None
        times = [START + i for i in range(40000)]
        [drawn] = self.draw(metric('gauge', values), times=times)
        self.assertLess(len(drawn['times']), 12000)
        shown = dict(zip(drawn['times'], drawn['values']))
        self.assertEqual([shown.get(START + i, 'none') for i in (12345, 23456, 34567)],
                         [1e6, -1e6, None])

        width = self.browser.run('return document.querySelector("#wall .ticks").clientWidth;')
        pixels = {}
        for i, value in enumerate(values):
            if value is not None:
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
        [drawn] = self.draw(metric('gauge', values), times=minutes(1000))
        self.assertEqual(drawn['values'], values)

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

    def test_names_are_text(self):
        evil = '</script><img src=x onerror="window.evil = 1">&amp;'
        data = document([metric('gauge', [1, 2, 3, 4], evil, evil, [[evil, evil]])],
                        [timeline({evil: [START, START + 30]}, evil)], minutes(4), title=evil,
                        sources=[evil], unread={'count': 1, 'first': [evil]})
        for page in (pages.embedded(data), pages.one_file(data)):
            self.assertNotIn('</script><img', page)
        pages.server().show(self.browser, data)
        self.assertEqual(self.browser.series()[0]['name'], evil)
        self.assertIn(evil, self.browser.text('.name'))
        self.assertEqual(self.browser.text('.chips li'), [f'{evil}={evil}'])
        self.assertEqual(self.browser.text('h1'), [evil])
        self.assertEqual(self.browser.run(
            'return [document.images.length, window.evil ?? null, document.title];'),
            [0, None, evil])

    def test_the_header_tells_what_is_shown(self):
        first = [f'known.csv:{i}: not a line of figures' for i in range(20)]
        self.draw(metric('gauge', [1, 2, 3, 4]), restarts=[START + 60],
                  unread={'count': 30, 'first': first}, sources=['a.csv', 'b.json'])
        self.assertEqual(self.browser.text('#facts dd'), [
            'a.csv, b.json', '2023-11-14 22:13:20 – 22:16:20', '4 passes', '1 metric',
            '1 restart'])
        self.assertEqual(self.browser.text('#unread summary'), ['30 lines not read'])
        self.browser.click('#unread summary')
        self.assertEqual(self.browser.text('#unread li'), first)

    def test_a_page_in_one_file_draws_the_same(self):
        data = document([metric('gauge', [1, 2, 3, 4])], times=minutes(4))
        running = pages.server()
        running.show(self.browser, data)
        served = self.browser.series()
        file = pathlib.Path('one-file.html').resolve()
        file.write_text(pages.one_file(data), encoding='utf-8')
        self.browser.open(file.as_uri())
        self.assertEqual(self.browser.series(), served)

    def test_no_data_makes_the_page_complain(self):
        number = random.Random(7)
        for _ in range(40):
            pages.server().show(self.browser, strange(number))
            self.browser.series()
            self.assertEqual(self.browser.complaints(), [])


def strange(number):
    """A document of odd names, values, times and ranges."""
    values = [0, 1, -1, 0.5, 1e300, -1e300, 5e-324, 2 ** 62, None, 'inf', '-inf']

    def text():
        return ''.join(number.choices(string.printable + 'äß漢\u202e\u0000<>&', k=4))

    def line(size):
        choices = values if number.random() < 0.6 else [number.choice(values)]
        return number.choices(choices, k=size)

    sizes = [number.choice((0, 1, 2, 3, 50)) for _ in range(3)]
    times = [sorted(number.choice((0, START, START + i, START + i / 7, 1e10)) for i in range(size))
             for size in sizes]
    metrics = []
    for _ in range(number.randrange(6)):
        axis = number.randrange(3)
        kind = number.choice(('counter', 'gauge', 'meter', 'histogram', 'timer'))
        one = {'name': text(), 'dimensions': [[text(), text()]] * number.randrange(3),
               'kind': kind, 'unit': number.choice((None, '', text(), 'Bytes/Second')),
               'times': axis}
        if kind in ('histogram', 'timer'):
            names = ('samples', 'avg', 'min', 'max', 'p10', 'p50', 'p90', 'p99')
            one['statistics'] = {name: line(sizes[axis])
                                 for name in number.sample(names, number.randrange(9))}
        else:
            one['values'] = line(sizes[axis])
        metrics.append(one)
    timelines = []
    for _ in range(number.randrange(3)):
        lanes = {text(): sorted(number.choice((0, START, START + i, -5)) for i in range(8))
                 for _ in range(number.randrange(3))}
        timelines.append(timeline(lanes, text(), number.choice(('wall', 'other'))))
    return {'version': 1, 'title': text(), 'sources': [text()], 'times': times, 'passes': 0,
            'restarts': times[1][:2], 'metrics': metrics, 'timelines': timelines}


class Lanes(browser.Test):
    def draw(self, lanes, **members):
        data = document(timelines=[timeline(lanes)], times=[START, START + 100], **members)
        pages.server().show(self.browser, data)
        [drawn] = self.browser.series()
        return drawn

    def test_each_id_has_a_lane_and_each_range_a_bar(self):
        drawn = self.draw({'2': [START + 50, START + 60], '10': [START, START + 25],
                           '1': [START, START + 10, START + 20, START + 30]})
        self.assertEqual(drawn['kind'], 'timeline')
        self.assertEqual([lane['id'] for lane in drawn['lanes']], ['1', '2', '10'])
        self.assertEqual([lane['busy'] for lane in drawn['lanes']], [0.2, 0.1, 0.25])
        self.assertEqual(drawn['lanes'][0]['sublanes'], [
            {'bars': [[START, START + 10], [START + 20, START + 30]], 'shares': []}])
        self.assertEqual([text.replace('\u202f', ' ') for text in self.browser.text('.busy')],
                         ['busy 20 %', 'busy 10 %', 'busy 25 %'])

    def test_overlapping_ranges_have_sub_lanes(self):
        [lane] = self.draw({'1': [START, START + 40, START + 10, START + 50, START + 20, START + 30,
                                  START + 40, START + 60]})['lanes']
        self.assertEqual([sublane['bars'] for sublane in lane['sublanes']], [
            [[START, START + 40], [START + 40, START + 60]],
            [[START + 10, START + 50]],
            [[START + 20, START + 30]]])
        self.assertEqual(lane['busy'], 0.6)  # overlaps count once

    def test_ranges_narrower_than_a_pixel_are_shares_of_it(self):
        self.draw({'1': [START, START + 100]})
        width = self.browser.run('return document.querySelector("#wall .ticks").clientWidth;')
        pixel = 100 / width
        # Half of pixel 10 in two ranges, a range of no length in pixel 20, and one in two pixels.
        ranges = [10, 10.25, 10.5, 10.75, 20.5, 20.5, 30.75, 31.5]
        [lane] = self.draw({'1': [START + place * pixel for place in ranges]})['lanes']
        [sublane] = lane['sublanes']
        self.assertEqual(sublane['bars'], [])
        self.assertEqual([(place, round(share, 2)) for place, share in sublane['shares']],
                         [(10, 0.5), (20, 0), (30, 0.25), (31, 0.5)])

    def test_the_ten_longest_ranges_are_text(self):
        ranges = [place for i in range(12) for place in (START + 8 * i, START + 8 * i + i / 2)]
        drawn = self.draw({'a': ranges})
        self.assertEqual([round(one['end'] - one['start'], 3) for one in drawn['longest']],
                         [5.5, 5, 4.5, 4, 3.5, 3, 2.5, 2, 1.5, 1])
        self.browser.click('.longest summary')
        found = [text.replace('\u202f', ' ') for text in self.browser.text('.longest li')]
        self.assertEqual(len(found), 10)
        self.assertEqual(found[0], 'a: 5.5 s, 22:14:48 – 22:14:53.5')

    def test_a_lane_is_drawn_where_its_ranges_are(self):
        self.draw({'1': [START + 25, START + 50]})
        inked = self.browser.run('''
            const canvas = document.querySelector('.lane canvas');
            const alpha = share => canvas.getContext('2d')
              .getImageData(Math.round(share * canvas.width), 2, 1, 1).data[3];
            return [0.2, 0.3, 0.45, 0.55].map(alpha);''')
        self.assertEqual(inked, [0, 255, 255, 0])

    def test_ranges_of_another_clock_have_an_axis_of_their_own(self):
        data = document([metric('gauge', [1, 2, 3, 4])],
                        [timeline({'1': [5, 15]}, 'boot', 'other'),
                         timeline({'1': [START, START + 90]})], minutes(4))
        pages.server().show(self.browser, data)
        boot, figure, work = self.browser.series()
        self.assertEqual(boot['clock'], 'other')
        self.assertEqual(boot['lanes'][0]['busy'], 1)
        self.assertEqual(figure['times'], minutes(4))
        self.assertEqual(work['lanes'][0]['busy'], 0.5)
        self.assertEqual(self.browser.text('#other .tick')[0].replace('\u202f', ' '), '+0 s')


if __name__ == '__main__':
    tap.run([Curves, Lanes])
