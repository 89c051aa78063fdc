"""Tests of how the page is used: filter, order, zoom, cursor, keyboard, address and sizes."""

from support import browser, tap

import pages
from pages import START, document, metric, minutes, statistics, timeline

SIZES = (1600, 800, 400)

# What a program with a metric of every kind could write.
KINDS = document([
    metric('counter', [0, 600, 3000, 3000, 9000, 9300], 'requests', 'Count', [['host', 'a']]),
    metric('counter', [0, 60, 120, 180, 240, 300], 'requests', 'Count', [['host', 'b']]),
    metric('gauge', [3, 5, None, 'inf', 4, 2], 'queue'),
    metric('meter', [1e6, 2e6, 2.5e6, 1.5e6, 5e5, 8e5], 'sent', 'Bytes/Second'),
    metric('gauge', [4] * 6, 'threads', 'Count'),
    statistics(samples=[60] * 6, avg=[0.02, 0.03, 0.02, 0.02, 0.03, 0.03], min=[0.001] * 6,
               max=[0.2, 3, 0.1, 0.1, 0.2, 0.2], p10=[0.005] * 6,
               p50=[0.015, 0.02, 0.015, 0.01, 0.02, 0.03],
               p90=[0.05, 0.06, 0.05, 0.04, 0.06, 0.07]),
], [timeline({'worker 1': [START + 5, START + 60, START + 70, START + 200],
              'worker 2': [START + 20, START + 280]}, 'files'),
    timeline({'boot': [0.1, 0.4, 0.3, 0.9]}, 'start', 'other')],
    minutes(6), restarts=[START + 150], unread={'count': 1, 'first': ['known.csv:7: not read']})


class Viewing(browser.Test):
    def open(self, data=KINDS, address='', **options):
        pages.server().show(self.browser, data, address, **options)

    def address(self):
        return self.browser.run('return location.hash;')

    def names(self):
        return [drawn['name'] for drawn in self.browser.series()]

    def plot(self):
        """Left, top, right and bottom of the first chart, without the labels of its axis."""
        return self.browser.run('''
            const [x, y] = ['.ticks', '.plot'].map(name =>
              document.querySelector(name).getBoundingClientRect());
            return [x.left, y.top, x.right, y.bottom];''')

    def drag(self, first, last):
        """Drags over shares of the plot's width."""
        left, top, right, bottom = self.plot()
        places = [left + share * (right - left) for share in (first, (first + last) / 2, last)]
        middle = (top + bottom) / 2
        self.browser.mouse('Moved', places[0], middle)
        self.browser.mouse('Pressed', places[0], middle, 1)
        for place in places[1:]:
            self.browser.mouse('Moved', place, middle)
        self.browser.mouse('Released', places[2], middle, 1)
        self.browser.settle()

    def type(self, text):
        self.browser.run('document.getElementById("filter").focus();')
        for letter in text:
            self.browser.key(letter)

    def test_typing_filters_by_every_word(self):
        self.open()
        self.type('HOST=A req')
        [drawn] = self.browser.series()
        self.assertEqual((drawn['name'], drawn['dimensions']), ('requests', [['host', 'a']]))
        self.assertEqual(self.browser.text('.name'), ['requests'])
        self.assertEqual(self.address(), '#filter=HOST%3DA+req')

    def test_the_filter_finds_kinds_and_units(self):
        self.open(address='#filter=bytes')
        self.assertEqual(self.names(), ['sent'])
        self.open(address='#filter=timer')
        self.assertEqual(self.names(), ['latency'])
        self.open(address='#filter=nothing+of+this')
        self.assertEqual(self.browser.text('#nothing'), ['No metric matches the filter.'])

    def test_rows_are_grouped_by_name(self):
        self.open()
        self.assertEqual(self.names(), ['files', 'latency', 'queue', 'requests', 'requests', 'sent',
                                        'start', 'threads'])
        self.assertEqual(self.browser.run('''
            return [...document.querySelectorAll('.group')].map(group =>
              group.querySelectorAll('.name').length);'''), [1, 1, 1, 2, 1, 1, 1])

    def test_rows_are_sorted_by_change_and_by_size(self):
        flat, high, moving = (metric('gauge', values, name) for name, values in
                              {'b': [10, 11, 10], 'c': [1000, 1100, 1000], 'a': [1, 5, 1]}.items())
        data = document([flat, high, moving], times=minutes(3))
        self.open(data)
        self.assertEqual(self.names(), ['a', 'b', 'c'])
        self.open(data, '#sort=size')
        self.assertEqual(self.names(), ['c', 'b', 'a'])
        self.open(data, '#sort=change')
        self.assertEqual(self.names(), ['a', 'b', 'c'])
        self.browser.run('''
            const sort = document.getElementById('sort');
            sort.value = 'size';
            sort.dispatchEvent(new Event('change', {bubbles: true}));''')
        self.assertEqual(self.names(), ['c', 'b', 'a'])
        self.assertEqual(self.address(), '#sort=size')

    def test_timelines_are_sorted_by_their_busy_shares(self):
        data = document(timelines=[
            timeline({'1': [START, START + length], '2': [START, START + length]}, name)
            for name, length in (('a', 20), ('b', 60), ('c', 40))], times=minutes(2))
        self.open(data, '#sort=size')
        self.assertEqual(self.names(), ['b', 'c', 'a'])

    def test_dragging_zooms_all_charts(self):
        data = document([metric('gauge', list(range(100)), name) for name in ('a', 'b')],
                        [timeline({'1': [START, START + 99 * 15, START + 99 * 45,
                                         START + 99 * 60]})], minutes(100))
        self.open(data)
        self.drag(0.25, 0.75)
        first, second, work = self.browser.series()
        for drawn in (first, second):
            self.assertAlmostEqual(drawn['values'][1], 25, delta=1)
            self.assertAlmostEqual(drawn['values'][-2], 74, delta=1)
        self.assertAlmostEqual(work['lanes'][0]['busy'], 0, delta=0.01)
        self.assertRegex(self.address(), r'^#from=17000014\d\d(\.\d+)?&to=17000044\d\d(\.\d+)?$')

        self.browser.run('history.back();')
        self.browser.until('location.hash === ""')
        self.browser.settle()
        self.assertEqual(len(self.browser.series()[0]['values']), 100)

    def test_a_double_click_shows_all_again(self):
        self.open(address=f'#from={START + 60}&to={START + 180}&filter=queue')
        self.assertEqual(self.browser.series()[0]['times'][0], START)
        self.assertEqual(len(self.browser.series()[0]['times']), 6)
        left, top, right, bottom = self.plot()
        for clicks in (1, 2):
            self.browser.mouse('Pressed', (left + right) / 2, (top + bottom) / 2, clicks)
            self.browser.mouse('Released', (left + right) / 2, (top + bottom) / 2, clicks)
        self.browser.settle()
        self.assertEqual(self.address(), '#filter=queue')

    def test_the_address_brings_back_the_zoom(self):
        data = document([metric('gauge', list(range(100)))], times=minutes(100))
        self.open(data, f'#from={START + 600}&to={START + 1200}')
        [drawn] = self.browser.series()
        self.assertEqual(drawn['values'], list(range(9, 22)))

    def ticks(self):
        return [label for label in self.browser.text('.tick') if label]

    def test_the_shortest_ranges_are_zoomed_to(self):
        start = START + 30.123456
        for length in (1e-6, 0):
            self.open(document([metric('gauge', [1, 2])],
                               [timeline({'1': [start, start + length]})], minutes(2)))
            self.browser.click('.longest li button')
            shown = self.ticks()
            self.assertGreater(len(shown), 4)
            self.assertEqual(len(set(shown)), len(shown))
            self.assertIn('22:13:50.123456', shown)
            work = self.browser.series()[1]
            self.assertAlmostEqual(work['lanes'][0]['busy'], length / 1.7e-5, delta=0.02)

            address = self.address()
            self.browser.key('+')
            self.assertEqual(self.address(), address)
            self.browser.run('location.hash = "";')
            self.browser.until('document.querySelector(".tick").innerText === "22:13:20"')
            self.browser.run('location.hash = arguments[0];', address)
            self.browser.until('document.querySelector(".tick").innerText.includes(".")')
            self.browser.settle()
            self.assertEqual(self.ticks(), shown)

    def test_every_window_has_few_ticks(self):
        self.open()
        counts = self.browser.run("""
            return [[0, 1e-9], [1.7e9, 1.7e9 + 1e-6], [1.7e9, 1.7e9], [1e10, 1e10 + 1e-5],
                    [8e12, 8e12 + 0.002], [1e17, 1e17 + 16], [-1e300, 1e300]].flatMap(window =>
              [true, false].map(isWall => vek.format.ticks(...window, 4000, isWall).length));""")
        self.assertLess(max(counts), 50)
        labels = self.browser.run("""
            return vek.format.ticks(1700000000.123456, 1700000000.123466, 4000, true)
              .map(tick => tick.label);""")
        self.assertEqual(len(set(labels)), len(labels))

    def test_nonsense_in_the_address_is_ignored(self):
        self.open()
        expected = self.browser.series()
        for address in ('#from=9&to=4&sort=evil&otherFrom=x', '#from=nan&to=1e999&%', '#filter'):
            self.open(address=address)
            self.assertEqual(self.browser.series(), expected)

    def test_the_cursor_shows_exact_values(self):
        self.open(document([metric('gauge', [1.5, 1234.5678, 3], 'a', 'Bytes'),
                            metric('counter', [0, 90, 240], 'b', 'Count')],
                           [timeline({'1': [START + 30, START + 90]}, 'c')], minutes(3)))
        left, top, right, bottom = self.plot()
        self.browser.mouse('Moved', left + 0.48 * (right - left), (top + bottom) / 2)
        figures = [text.replace('\u202f', ' ').split() for text in self.browser.text('.figures')]
        self.assertEqual(figures, [['1234.5678', 'Bytes', 'at', '22:14:20'],
                                   ['1.5', 'Count/Second', 'total', '90', 'at', '22:14:20'],
                                   ['60', 's,', '22:13:50', '–', '22:14:50']])
        self.assertRegex(self.browser.text('.tag')[0], '^2023-11-14 22:14:1')

    def test_the_keyboard_does_it_all(self):
        self.open(document([metric('gauge', list(range(100)))], times=minutes(100)))
        self.browser.key('ArrowRight')
        self.browser.key('ArrowRight')
        self.assertEqual(self.browser.text('.tag'), ['2023-11-14 22:14:20'])
        self.browser.key('ArrowLeft')
        self.assertEqual(self.browser.text('.tag'), ['2023-11-14 22:13:20'])
        self.browser.key('+')
        self.assertLess(len(self.browser.series()[0]['values']), 55)
        before = self.browser.series()[0]['times'][0]
        self.browser.key('ArrowRight', modifiers=8)
        self.assertGreater(self.browser.series()[0]['times'][0], before)
        self.browser.key('-')
        self.browser.key('0')
        self.assertEqual(self.address(), '')
        self.assertEqual(len(self.browser.series()[0]['values']), 100)
        self.browser.key('/')
        self.browser.key('x')
        self.assertEqual(self.names(), [])
        self.browser.key('Escape')
        self.assertEqual(self.names(), ['figure'])

    def test_only_charts_in_view_are_drawn(self):
        data = document([metric('gauge', [1, 2, i], f'g{i}') for i in range(3, 303)],
                        times=minutes(3))
        self.open(data)
        drawn = '''return [...document.querySelectorAll('.plot')]
            .map(plot => plot.querySelector('canvas') !== null);'''
        before = self.browser.run(drawn)
        self.assertTrue(before[0])
        self.assertLess(sum(before), 30)
        self.browser.run('scrollTo(0, document.documentElement.scrollHeight);')
        self.browser.until('document.querySelectorAll(".plot")[299].querySelector("canvas")')
        self.browser.settle()
        after = self.browser.run(drawn)
        self.assertFalse(after[0])
        self.assertLess(sum(after), 30)

    def test_all_charts_are_printed(self):
        self.open(document([metric('gauge', [1, 2, i], f'g{i}') for i in range(3, 103)],
                           [timeline({'1': [START, START + 60]})], times=minutes(3)))
        self.browser.run("""
            window.drawn = () => {
              const canvases = [...document.querySelectorAll('.plot canvas:first-of-type')];
              const {right} = document.querySelector('.ticks').getBoundingClientRect();
              return [canvases.filter(canvas => canvas.width).length, document.body.offsetWidth,
                canvases.every(canvas => canvas.getBoundingClientRect().right === right),
                [...document.querySelectorAll('#wall .tick')].every(tick =>
                  tick.getBoundingClientRect().left < right)];
            };
            addEventListener('beforeprint', () => window.printed = drawn());""")
        self.browser.devtools('Page.printToPDF')
        self.assertEqual(self.browser.run('return printed;'), [101, 900, True, True])
        self.browser.settle()
        self.assertLess(self.browser.run('return drawn();')[0], 30)

    def test_a_wider_window_draws_again(self):
        self.open(width=800)
        self.browser.devtools('Emulation.setDeviceMetricsOverride', width=1200, height=900,
                              deviceScaleFactor=1, mobile=False)
        self.browser.until('''innerWidth === 1200 &&
            document.querySelector('.lane canvas').width ===
            document.querySelector('.lane canvas').clientWidth''')

    def test_charts_and_lanes_share_the_time_axis(self):
        for width in SIZES:
            self.open(width=width)
            left, right, *canvases = self.browser.run('''
                const {left, right} = document.querySelector('.ticks').getBoundingClientRect();
                const lane = document.querySelector('.lane canvas').getBoundingClientRect();
                const curve = document.querySelector('.plot > div canvas').getBoundingClientRect();
                return [left, right, lane.left, lane.right, curve.left + 56, curve.right];''')
            self.assertEqual(canvases, [left, right, left, right])

    def test_every_size_shows_the_same_figures(self):
        expected = None
        for width in SIZES:
            for scheme in ('light', 'dark'):
                with self.subTest(width=width, scheme=scheme):
                    self.open(width=width, height=1300, scheme=scheme)
                    self.browser.screenshot(f'page-{width}-{scheme}')
                    self.assertLessEqual(self.browser.run(
                        'return document.documentElement.scrollWidth;'), width)
                    drawn = self.browser.series()
                    if expected is None:
                        expected = drawn
                    self.assertEqual(drawn, expected)

    def test_long_names_do_not_widen_the_page(self):
        long = 'a_very_long_name_without_any_space' * 8
        self.open(document([metric('gauge', [1, 2, 3], long, long, [[long, long]])],
                           [timeline({long: [START, START + 60]}, long)], minutes(3), title=long,
                           sources=[long] * 3, unread={'count': 1, 'first': [long]}), width=400)
        self.assertLessEqual(self.browser.run('''
            return Math.max(...[...document.querySelectorAll('html, .row, .label')].map(element =>
              element.scrollWidth));'''), 400)


if __name__ == '__main__':
    tap.run([Viewing])
