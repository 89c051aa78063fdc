"""What a log says of each metric.

Times are in µs since the epoch.
"""

from array import array
from typing import NamedTuple

SECOND = 1_000_000
DAY = 86_400 * SECOND

# Times below this, which is in the year 2255, are exact as the numbers of JavaScript. A line that
# continues one that was cut off usually begins with a later time.
LATEST = 2 ** 53


class Identity(NamedTuple):
    """Tells metrics apart."""
    name: str
    dimensions: tuple  # of pairs of a name and a value
    is_distribution: bool


class Series:
    """One metric in one log: its lines."""

    def __init__(self, statistics):
        self.statistics = tuple(statistics)
        self.stamps = array('q')  # of each line, as the metric gave it
        self.passes = array('i')  # of each line: the index of its pass
        self.figures = array('d')  # of each line: one for each statistic
        self.unit = None

    def get_column(self, statistic):
        """The figures of a statistic. All of a line are together because they come so."""
        count = len(self.statistics)
        return self.figures[self.statistics.index(statistic)::count] if count > 1 else self.figures


class Log:
    """What one program wrote in one format, and when."""

    def __init__(self):
        self.series = {}  # by identity
        self.times = array('q')  # of each pass: what the log says of its time
        self.ranges = {}  # by the name of a timeline and an id: starts and ends, one after another

    def append(self, later):
        """Appends a log with later passes."""
        first_pass = len(self.times)
        self.times += later.times
        for identity, added in later.series.items():
            series = self.series.setdefault(identity, Series(added.statistics))
            series.stamps += added.stamps
            series.passes += array('i', (first_pass + index for index in added.passes))
            series.figures += added.figures
        for lane, ranges in later.ranges.items():
            self.ranges.setdefault(lane, array('q')).extend(ranges)
