#!/usr/bin/python3
"""Opens large pages in Chromium: page.py FOLDER [--out FILE] [CASE]...

FOLDER gets the pages. A page counts as drawn when all that is in view is; then it is scrolled from
its top to its end. Each figure is the median of five, and depends on what else the machine does.
"""

import itertools
import pathlib
import random
import statistics
import sys

import results

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / 'tests'), str(ROOT / 'page' / 'tests')]
from support import browser  # pylint: disable=wrong-import-position
import pages  # pylint: disable=wrong-import-position

TURNS = 5
NUMBER = random.Random(1)


def make_curves(count, passes):
    """Counters, gauges and meters."""
    metrics = []
    for i in range(count):
        kind = ('counter', 'gauge', 'meter')[i % 3]
        values = [NUMBER.randrange(1000) for _ in range(passes)]
        if kind == 'counter':
            values = list(itertools.accumulate(values))
        metrics.append(pages.metric(kind, values, f'figure{i // 4}', 'Bytes',
                                    [['host', str(i % 4)]]))
    return pages.document(metrics, times=pages.minutes(passes))


def make_ranges(count, lanes=8):
    work = {}
    for lane in range(lanes):
        time, bounds = pages.START, []
        for _ in range(count // lanes):
            end = time + NUMBER.expovariate(0.5)
            bounds += [round(time, 6), round(end, 6)]
            time = end + NUMBER.expovariate(2)
        work[str(lane)] = bounds
    return pages.document(timelines=[pages.timeline(work)])


CASES = {
    'values': ('100 metrics of 10,000 passes', lambda: make_curves(100, 10000)),
    'metrics': ('1,000 metrics of 240 passes', lambda: make_curves(1000, 240)),
    'ranges': ('100,000 ranges in 8 lanes', lambda: make_ranges(100000)),
}

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
    figures = {}
    try:
        for case in arguments.case or CASES:
            what, make = CASES[case]
            page = (folder / f'page-{case}.html').resolve()
            page.write_text(pages.one_file(make()).replace(
                '</body>', '<script>let drawnAt;\nvekPage.settled().then(() => '
                'drawnAt = performance.now());</script>\n</body>'), encoding='utf-8')
            drawn, longest = measure(chromium, page)
            figures[case] = {'drawn': drawn, 'longest task': longest}
            print(f'{what:32} drawn in {drawn:6.3f} s, longest task while scrolling '
                  f'{longest:6.3f} s', flush=True)
    finally:
        chromium.close()
    results.save(arguments.out, figures=figures)


if __name__ == '__main__':
    main()
