#!/usr/bin/python3
"""The page of a running program in a browser: browsed.py SCRAPED"""

import json
import pathlib
import subprocess
import sys
import urllib.request

from support import browser, drawing, tap

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
SIZES = (1600, 800, 400)

# What the program measures: numbers from 0 to 8, in bytes and in tenths of a second, and the same
# numbers less 4.
TOTALS = {'requests': [5, 12, 12], 'jobs': [-3, -3, -3]}
SINGLE = {'arrivals': 0, 'load': 0.1, 'nothing "yet"': None}
STATISTICS = {
    'size': {'avg': 4, 'min': 0, 'max': 8, 'p10': 0, 'p50': 4, 'p90': 7.2, 'p99': 7.92},
    'wait': {'avg': 0.4, 'min': 0, 'max': 0.8, 'p10': 0, 'p50': 0.4, 'p90': 0.72, 'p99': 0.792},
    'change': {'avg': 0, 'min': -4, 'max': 4, 'p10': -4, 'p50': 0, 'p90': 3.2, 'p99': 3.92},
}


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

    def open(self, **options):
        self.browser.open(self.url, **options)
        self.browser.until('document.getElementById("state").className === "running"')
        self.browser.settle()

    def drawn(self, name):
        [series] = [series for series in self.browser.series() if series['name'] == name]
        return series

    def test_figures_of_every_kind_are_drawn(self):
        for count in (5, 7, 0):
            self.pass_with(count)
        for width in SIZES:
            with self.subTest(width=width):
                self.open(width=width, height=1300)
                self.browser.screenshot(f'program-{width}')
                self.assertLessEqual(
                    self.browser.run('return document.documentElement.scrollWidth;'), width)
                drawing.check(self, self.browser)
                self.assertEqual({row['kind'] for row in self.browser.series()}, {
                    'counter', 'gauge', 'meter', 'histogram', 'timer', 'timeline'})
                for name, value in SINGLE.items():
                    self.assertEqual(self.drawn(name)['values'], [value] * 3)
                for name, statistics in STATISTICS.items():
                    lines = self.drawn(name)['lines']
                    self.assertEqual(set(lines), set(statistics))
                    for line, value in statistics.items():
                        for drawn in lines[line]:
                            self.assertAlmostEqual(drawn, value, msg=(name, line))
                for name, totals in TOTALS.items():
                    self.assertEqual(self.drawn(name)['values'], totals)

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
