#!/usr/bin/python3
"""Opens large pages in Chromium: page.py FOLDER [--out FILE] [CASE]...

FOLDER gets the pages; vek-plot makes those of a million lines. A page counts as drawn when all that
is in view is; then it is scrolled from its top to its end. Both figures are medians of five, and
depend on what else the machine does.
"""

import functools
import itertools
import pathlib
import random
import statistics
import sys

import plot
import results

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / 'tests'), str(ROOT / 'page' / 'tests')]
from support import browser  # pylint: disable=wrong-import-position
import pages  # pylint: disable=wrong-import-position

TURNS = 5
NUMBER = random.Random(1)


def make_curves(page):
    """1,000 counters, gauges and meters of 240 passes."""
    metrics = []
    for i in range(1000):
        kind = ('counter', 'gauge', 'meter')[i % 3]
        values = [NUMBER.randrange(1000) for _ in range(240)]
        if kind == 'counter':
            values = list(itertools.accumulate(values))
        metrics.append(pages.metric(kind, values, f'figure{i // 4}', 'Bytes',
                                    [['host', str(i % 4)]]))
    page.write_text(pages.one_file(pages.document(metrics, times=pages.minutes(240))), 'utf-8')
    return []


def make_ranges(page):
    """100,000 ranges in 8 lanes."""
    work = {}
    for lane in range(8):
        time, bounds = pages.START, []
        for _ in range(12500):
            end = time + NUMBER.expovariate(0.5)
            bounds += [round(time, 6), round(end, 6)]
            time = end + NUMBER.expovariate(2)
        work[str(lane)] = bounds
    page.write_text(pages.one_file(pages.document(timelines=[pages.timeline(work)])), 'utf-8')
    return []


def draw_lines(case, page):
    return plot.measure(ROOT / 'tools' / 'vek-plot', case, page)


# What is drawn, what makes the page and measures that, and the most seconds until it is drawn and
# of a task while it is scrolled.
CASES = {case: (f'a million lines of {plot.describe(case)}', functools.partial(draw_lines, case),
                2, None) for case in plot.CASES} | {
    'metrics': ('1,000 metrics of 240 passes', make_curves, 3, 0.1),
    'ranges': ('100,000 ranges in 8 lanes', make_ranges, 2, None),
}

# Notes when the page is drawn. Pages are not changed for it: they are large, and the memory of this
# program would count as that of vek-plot, which it starts.
WATCH = '''
    addEventListener('DOMContentLoaded', async () => {
      await window.vekPage?.settled();
      window.drawnAt = performance.now();
    });'''

# Resolves to the milliseconds of the longest task while the page is scrolled.
SCROLL = '''
    let longest = 0;
    const observer = new PerformanceObserver(list => {
      longest = Math.max(longest, ...list.getEntries().map(task => task.duration));
    });
    observer.observe({type: 'longtask'});
    for (let y = 0; y < document.documentElement.scrollHeight; y += innerHeight / 2) {
      scrollTo(0, y);
      await new Promise(requestAnimationFrame);
    }
    await vekPage.settled();
    await new Promise(done => setTimeout(done, 100));  // tasks are told a little later
    return longest;'''


def measure(chromium, page):
    """The seconds until the page is drawn, and those of the longest task while it is scrolled."""
    drawn, longest = [], []
    for _ in range(TURNS):
        chromium.open(page.as_uri())
        drawn.append(chromium.wait('await vekPage.settled(); return drawnAt;') / 1000)
        longest.append(chromium.wait(SCROLL) / 1000)
    return statistics.median(drawn), statistics.median(longest)


def main():
    arguments = results.make_parser(__doc__, case=CASES).parse_args()
    folder = pathlib.Path(arguments.folder)
    chromium = browser.Browser()
    chromium.devtools('Page.addScriptToEvaluateOnNewDocument', source=WATCH)
    figures = {}
    try:
        for case in arguments.case or CASES:
            what, make, most_seconds, longest_task = CASES[case]
            page = (folder / f'page-{case}.html').resolve()
            figures[case] = make(page)
            drawn, longest = measure(chromium, page)
            figures[case] += [
                results.make_record('the page, drawn', drawn, 's', most_seconds),
                results.make_record('the longest task while scrolling', longest, 's', longest_task)]
            results.show(f'{case}: {what}', figures[case])
    finally:
        chromium.close()
    results.save(arguments.out, cases=figures)


if __name__ == '__main__':
    main()
