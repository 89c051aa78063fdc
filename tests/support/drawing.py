"""What the page must draw of a running program, computed apart from the data that it serves."""

import math

# Resolves to what is served and what is drawn, both of them after the same pass.
SAME_PASS = '''
    for (;;) {
      const served = await (await fetch('vars.json')).json();
      const drawn = vekPage.series();
      const width = document.querySelector('#wall .ticks').clientWidth;
      if (drawn.find(row => row.times)?.times.at(-1) === served.times[0].at(-1)) {
        return [served, drawn, width];
      }
      await new Promise(requestAnimationFrame);
    }'''


SHOW_TOTALS = '''
    for (const button of document.querySelectorAll('.counter [title*=total]')) {
      button.click();
    }'''


def get_key(row):
    return row['name'], row['dimensions']


def compute_rates(times, totals):
    rates, known = [], None
    for time, total in zip(times, totals):
        rates.append(None if known is None or total is None else
                     (total - known[1]) / (time - known[0]))
        known = known if total is None else (time, total)
    return rates


def compute_busy(ranges):
    """The seconds in which at least one range ran."""
    seconds, reached = 0, -math.inf
    for start, end in sorted(ranges):
        seconds += max(0, end - max(start, reached))
        reached = max(reached, end)
    return seconds


def count_deepest(ranges):
    """How many ranges run at once, at most."""
    bounds = sorted([(start, 1) for start, _ in ranges] + [(end, -1) for _, end in ranges])
    running = [0]
    for _, step in bounds:
        running.append(running[-1] + step)
    return max(running)


def compute_shares(ranges, start, scale):
    """How much of each pixel the ranges take."""
    shares = {}
    for bounds in ranges:
        left, right = ((bound - start) * scale for bound in bounds)
        for pixel in range(math.floor(left), math.ceil(right)):
            shares[pixel] = shares.get(pixel, 0) + min(right, pixel + 1) - max(left, pixel)
    return shares


def check(test, browser):
    """Compares every figure that the open page draws with the served one; leaves it with totals."""
    check_figures(test, browser, are_totals=False)
    browser.run(SHOW_TOTALS)
    check_figures(test, browser, are_totals=True)


def check_figures(test, browser, are_totals):
    served, drawn, width = browser.wait(SAME_PASS)
    rows = {str(get_key(row)): row for row in drawn}
    everything = served['metrics'] + served['timelines']
    test.assertEqual(sorted(rows), sorted(str(get_key(metric)) for metric in everything))
    for metric in served['metrics']:
        check_curve(test, rows[str(get_key(metric))], metric, served['times'][0], are_totals)
    for timeline in served['timelines']:
        check_lanes(test, rows[str(get_key(timeline))], timeline, served, width)


def check_curve(test, row, metric, times, are_totals):
    kind, unit, main, band = metric['kind'], metric['unit'], 'value', None
    if 'statistics' in metric:
        lines = {name: line for name, line in metric['statistics'].items() if name != 'samples'}
        main, band = 'p50', ['p10', 'p90']
    elif kind == 'counter' and not are_totals:
        lines = {'rate': compute_rates(times, metric['values'])}
        main, unit = 'rate', unit + '/Second'
    else:
        lines = {'value': metric['values']}
    test.assertEqual((row['kind'], row['unit'], row['line'], row['band']),
                     (kind, unit, main, band), row)
    test.assertEqual(set(row['lines']), set(lines))
    for name, line in lines.items():
        points = dict(zip(row['times'], row['lines'][name]))
        test.assertEqual([points.pop(time, None) for time in times], line, (row['name'], name))
        test.assertEqual(set(points.values()) - {None}, set())  # gaps, where a pass came late


def check_lanes(test, row, timeline, served, width):
    served_lanes = {lane['id']: list(zip(lane['ranges'][::2], lane['ranges'][1::2]))
                    for lane in timeline['lanes']}
    everything = [bounds for ranges in served_lanes.values() for bounds in ranges]
    passes = served['times'][0]
    start = min([passes[0], *(first for first, _ in everything)])
    end = max([passes[-1], *(last for _, last in everything)])
    scale = width / (end - start)
    test.assertEqual({lane['id'] for lane in row['lanes']}, set(served_lanes))
    for lane in row['lanes']:
        ranges = served_lanes[lane['id']]
        test.assertAlmostEqual(lane['busy'], compute_busy(ranges) / (end - start), places=6)
        test.assertEqual(len(lane['sublanes']), count_deepest(ranges))
        wide = [bounds for bounds in ranges if (bounds[1] - bounds[0]) * scale >= 1]
        test.assertEqual(sorted(bar for sublane in lane['sublanes'] for bar in sublane['bars']),
                         sorted(map(list, wide)))
        shares = compute_shares([bounds for bounds in ranges if bounds not in wide], start, scale)
        for sublane in lane['sublanes']:
            for pixel, share in sublane['shares']:
                shares[pixel] = shares.get(pixel, 0) - share
        test.assertLess(max(map(abs, shares.values()), default=0), 1e-3)
    lengths = sorted((last - first for first, last in everything), reverse=True)
    test.assertEqual([one['end'] - one['start'] for one in row['longest']], lengths[:10])
    for one in row['longest']:
        test.assertIn((one['start'], one['end']), served_lanes[one['id']])
