"""Reads lines of figures and of ranges; docs/outputs.md describes them.

Nothing marks where a pass begins, and a metric need not be in each. A metric has one line in a
pass, so a second one is of the next pass. The line of a histogram or a timer has the time of its
pass, so a much later time is of the next pass, too.
"""

import math
from array import array

from .logs import LATEST, Identity, Log, Series

VALUE = ('value',)
STATISTICS = ('avg', 'samples', 'min', 'max', 'p10', 'p50', 'p90')  # the order of the columns
SAMPLES = STATISTICS.index('samples')
NOTHING = [0 if statistic == 'samples' else math.nan for statistic in STATISTICS]  # no samples
NO_STATISTICS = ',,,,,,'

# In µs: more than what passes between two lines of a pass, even on a busy machine.
PAUSE = 100_000
NEVER = 2 ** 63


def parse_dimensions(text):
    """The pairs of `host=a;route=home;`, whose names and values are not escaped."""
    pairs = (pair.partition('=') for pair in text.removesuffix(';').split(';'))
    return tuple((name, value) for name, _, value in pairs) if text else ()


class CsvReader:
    """Fills a log from lines, which can come bit by bit."""

    def __init__(self):
        self.log = Log()
        self.lines = {}  # of each metric: lists, which read() explains
        self.latest = -1  # time of the pass, as far as its lines tell
        self.limit = NEVER  # a later time is of the next pass

    def open(self, name, dimensions, is_single):
        """Begins a metric."""
        identity = Identity(name, parse_dimensions(dimensions), not is_single)
        series = self.log.series.setdefault(identity, Series(VALUE if is_single else STATISTICS))
        line = [-1, series.stamps.append, series.passes.append, series.figures.fromlist]
        self.lines[name, dimensions, is_single] = line
        return line

    def add_range(self, name, lane, start, end):
        """Adds a line of a timeline."""
        bounds = array('q', (int(start), int(end)))
        self.log.ranges.setdefault((name, int(lane)), array('q')).extend(bounds)

    def read(self, batch, report):
        """Reads a list of lines, and reports the index of each one that it cannot read.

        This loop takes most of the time of all. What it needs of a metric is a list: the last pass
        with a line of it, and the functions that append a time, a pass and a list of figures.
        """
        # pylint: disable=too-many-locals
        get_line = self.lines.get
        times = self.log.times
        current, latest, limit = len(times) - 1, self.latest, self.limit
        previous = times[-2] if current > 0 else -1
        for index, text in enumerate(batch):
            try:
                stamp, name, dimensions, rest = text.split(',', 3)
                if stamp == 'F':
                    self.add_range(name, dimensions, *rest.split(','))
                    continue
                is_single = rest.endswith(NO_STATISTICS)
                if is_single:
                    figures = [float(rest[:-len(NO_STATISTICS)])]
                else:
                    figures = list(map(float, rest.split(',')))
                    if len(figures) != len(STATISTICS):
                        raise ValueError(rest)
                    if figures[SAMPLES] == 0:
                        figures = NOTHING
                stamp = int(stamp)
                if not 0 <= stamp < LATEST:
                    raise ValueError(stamp)
            except (TypeError, ValueError, OverflowError):
                report(index)
                continue

            line = get_line((name, dimensions, is_single)) or self.open(name, dimensions, is_single)
            if line[0] == current or stamp > limit:
                if current >= 0:
                    times[current] = previous = latest
                times.append(stamp)
                current += 1
                latest = stamp
                limit = NEVER
            elif stamp > latest:
                latest = stamp
            line[0] = current
            line[1](stamp)
            line[2](current)
            line[3](figures)
            if not is_single and stamp > previous:
                limit = stamp + PAUSE

        if current >= 0:
            times[current] = latest
        self.latest, self.limit = latest, limit
