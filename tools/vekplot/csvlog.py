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
NO_STATISTICS = b',,,,,,\n'
NO_SAMPLES = (math.nan, 0.0, *[math.nan] * 5)

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
        self.lines = {}  # by the name and the dimensions: a list that add() explains
        self.distributions = {}
        self.latest = -1  # time of the pass, as far as its lines tell
        self.limit = NEVER  # a later time is of the next pass

    def open(self, lines, name, dimensions, statistics):
        """Begins a metric."""
        identity = Identity(name.decode('utf-8', 'replace'),
                            parse_dimensions(dimensions.decode('utf-8', 'replace')),
                            statistics is STATISTICS)
        series = self.log.series.setdefault(identity, Series(statistics))
        line = lines[name, dimensions] = [-1, series.stamps.append, series.passes.append,
                                          *(column.append for column in series.columns.values())]
        return line

    def add_range(self, line):
        """Adds a line of a timeline."""
        name, number, start, end = line[2:].split(b',')
        bounds = array('q', (int(start), int(end)))
        lane = name.decode('utf-8', 'replace'), int(number)
        self.log.ranges.setdefault(lane, array('q')).extend(bounds)

    def read(self, batch, report):
        """Reads a list of lines, and reports the index of each one that it cannot read.

        This loop takes most of the time of all. What it needs of a metric is a list: the last pass
        with a line of it, and the functions that append a time, a pass and each figure.
        """
        # pylint: disable=too-many-locals
        get_line, get_distribution = self.lines.get, self.distributions.get
        times = self.log.times
        current, latest, limit = len(times) - 1, self.latest, self.limit
        previous = times[-2] if current > 0 else -1
        for index, text in enumerate(batch):
            try:
                if text.endswith(NO_STATISTICS):
                    stamp, name, dimensions, value = text[:-7].split(b',')
                    figures = None
                    value = float(value)
                elif text.startswith(b'F,'):
                    self.add_range(text)
                    continue
                else:
                    stamp, name, dimensions, value, samples, *rest = text.split(b',')
                    low, high, p10, p50, p90 = map(float, rest)
                    figures = (float(value), float(samples), low, high, p10, p50, p90)
                    if figures[1] == 0:
                        figures = NO_SAMPLES
                stamp = int(stamp)
                if not 0 <= stamp < LATEST:
                    raise ValueError(stamp)
            except (ValueError, OverflowError):
                report(index)
                continue

            if figures is None:
                line = get_line((name, dimensions)) or self.open(self.lines, name, dimensions, VALUE)
            else:
                line = get_distribution((name, dimensions)) or self.open(
                    self.distributions, name, dimensions, STATISTICS)
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
            if figures is None:
                line[3](value)
            else:
                for append, figure in zip(line[3:], figures):
                    append(figure)
                if stamp > previous:
                    limit = stamp + PAUSE

        if current >= 0:
            times[current] = latest
        self.latest, self.limit = latest, limit
