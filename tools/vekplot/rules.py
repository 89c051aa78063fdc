"""What the logs do not say: which of the single figures are counters, which are gauges with an
interval, and when the program was restarted. docs/viewer.md gives the rules.

A line has the values of a metric, its stamps and the places of its passes.
"""

from bisect import bisect_left
from math import gcd
from operator import eq, gt, lt

from .logs import SECOND

SHORTEST_INTERVAL = 1000  # µs; times that are not on a grid have smaller common divisors


def find_interval(line, times):
    """The interval of a gauge, or None; the times are those of the passes.

    The stamps are multiples of it, each of them is there once, and is the last one before its pass.
    """
    stamps = line.stamps
    if gcd(*stamps[:3]) < SHORTEST_INTERVAL or not all(map(lt, stamps, stamps[1:])):
        return None
    interval = gcd(*stamps)
    delays = [times[place] - stamp for place, stamp in zip(line.places, stamps)]
    if interval < SHORTEST_INTERVAL or not 0 <= min(delays) <= max(delays) < interval:
        return None
    return interval if len(stamps) > 1 and any(delays) else None


def is_counter(line, times, restarts=()):
    """Whether all values are integers, and the stamp stands still exactly where the value does.

    In a restart the stamp moves even if the value is the same. A stamp in whole seconds stands
    still where the value changes twice in a second, with a pass between.
    """
    if not all(map(float.is_integer, line.values)):
        return False
    values_stand, stamps_stand = (list(map(eq, column, column[1:]))
                                  for column in (line.values, line.stamps))
    for restart in restarts:
        index = bisect_left(line.places, restart)
        if 0 < index < len(line.places):
            values_stand[index - 1] = stamps_stand[index - 1]
    if not line.is_exact:
        for index, (value_stands, stamp_stands) in enumerate(zip(values_stand, stamps_stand)):
            if stamp_stands and not value_stands:
                stamps_stand[index] = line.stamps[index] <= times[line.places[index]] - SECOND
    return values_stand == stamps_stand


def ever_falls(line):
    return any(map(gt, line.values, line.values[1:]))


def find_restarts(counters):
    """The passes before which the program was restarted, in order.

    Every counter that changed since it was last reported has fallen. A counter that kept its stamp
    shows that the program went on, because a new one gives a stamp to each.
    """
    fell, went_on = set(), set()
    for line in counters:
        falls = map(gt, line.values, line.values[1:])
        fell.update(place for place, falling in zip(line.places[1:], falls) if falling)
    for line in counters:
        values, stamps, places = line.values, line.stamps, line.places
        for restart in fell - went_on:
            index = bisect_left(places, restart)
            if 0 < index < len(places) and places[index] == restart and (
                    values[index] > values[index - 1] or stamps[index] == stamps[index - 1]):
                went_on.add(restart)
    return sorted(fell - went_on)
