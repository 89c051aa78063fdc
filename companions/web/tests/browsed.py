#!/usr/bin/python3
"""The page of a running program in a browser: browsed.py SCRAPED"""

import json
import pathlib
import subprocess
import sys
import urllib.request

from support import browser, tap

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
SIZES = (1600, 800, 400)


class Browsed(browser.Test):
    def setUp(self):
        super().setUp()
        self.program = subprocess.Popen([PROGRAM, '0', 'a'], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.end)
        self.url = f'http://127.0.0.1:{int(self.program.stdout.readline())}/'
        self.skip_without_page()

    def skip_without_page(self):
        try:
            urllib.request.urlopen(self.url).close()
        except urllib.error.HTTPError as error:
            error.close()
            self.skipTest('built without the page')

    def end(self):
        self.browser.call('POST', '/url', {'url': 'about:blank'})  # which leaves the program first
        self.program.stdin.close()
        self.program.wait()
        self.program.stdout.close()

    def pass_with(self, count):
        print(count, file=self.program.stdin, flush=True)
        assert self.program.stdout.readline() == 'passed\n'

    def passes(self):
        with urllib.request.urlopen(self.url + 'vars.json') as answer:
            return json.load(answer)

    def rates(self, *counts):
        """What the page draws of a counter, by the times of the passes."""
        times = self.passes()['times'][0]
        return [None] + [count / (end - start)
                         for start, end, count in zip(times[:-1], times[1:], counts, strict=True)]

    def open(self, **options):
        self.browser.open(self.url, **options)
        self.browser.until('document.getElementById("state").className === "running"')
        self.browser.settle()

    def drawn(self, name):
        [series] = [series for series in self.browser.series() if series['name'] == name]
        return series

    def assert_close(self, found, expected):
        self.assertEqual(len(found), len(expected))
        for value, other in zip(found, expected):
            if other is None:
                self.assertIsNone(value)
            else:
                self.assertAlmostEqual(value, other, delta=1e-6 * abs(other))

    def test_figures_of_every_kind_are_drawn(self):
        for count in (5, 7, 0):
            self.pass_with(count)
        for width in SIZES:
            with self.subTest(width=width):
                self.open(width=width, height=1300)
                self.browser.screenshot(f'program-{width}')
                self.assertLessEqual(
                    self.browser.run('return document.documentElement.scrollWidth;'), width)
                requests = self.drawn('requests')
                self.assertEqual((requests['kind'], requests['unit'], requests['dimensions']),
                                 ('counter', 'Count/Second', [['host', 'a']]))
                self.assert_close(requests['values'], self.rates(7, 0))
                self.assertEqual(self.drawn('arrivals')['kind'], 'meter')
                self.assertEqual(self.drawn('load')['values'], [0.1, 0.1, 0.1])
                wait = self.drawn('wait')
                self.assertEqual((wait['kind'], wait['band']), ('timer', ['p10', 'p90']))
                for name, value in {'p50': 0.4, 'max': 0.8, 'avg': 0.4, 'min': 0}.items():
                    self.assert_close(wait['lines'][name], [value] * 3)
                self.assertEqual(self.drawn('size')['kind'], 'histogram')

    def test_ranges_are_drawn_by_the_wall_clock(self):
        self.pass_with(1)
        self.pass_with(1)
        self.open()
        work = self.drawn('work')
        [timeline] = self.passes()['timelines']
        [lane] = timeline['lanes']
        self.assertEqual((work['clock'], [lane['id'] for lane in work['lanes']]), ('wall', ['1']))
        self.assertEqual(sorted((found['start'], found['end']) for found in work['longest']),
                         list(zip(lane['ranges'][::2], lane['ranges'][1::2])))

    def test_further_pass_comes_by_itself(self):
        self.pass_with(5)
        self.open()
        for n_passes in (2, 3, 4):
            self.pass_with(n_passes)
            self.browser.until('document.querySelectorAll("#facts dd")[2].innerText === '
                               f'"{n_passes} passes"')
            self.browser.settle()
            self.assertEqual(len(self.drawn('work')['longest']), n_passes)

    def test_page_says_when_the_program_has_ended(self):
        self.pass_with(5)
        self.open()
        self.program.stdin.close()
        self.program.wait()
        self.browser.until('document.getElementById("state").className === "gone"')
        self.assertEqual(self.drawn('load')['values'], [0.1])
        self.browser.complaints()  # of the refused connections


if __name__ == '__main__':
    tap.run([Browsed])
