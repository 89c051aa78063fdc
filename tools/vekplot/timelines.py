"""The ranges of timelines."""

from typing import NamedTuple

from .logs import DAY, LATEST, SECOND

YEAR_2000 = 946_684_800 * SECOND
UNITS = {'s': 1e6, 'ms': 1e3, 'us': 1, 'ns': 1e-3}  # in µs


class Timeline(NamedTuple):
    """The ranges of a timeline on one clock."""
    name: str
    clock: str  # "wall" or "other"
    lanes: dict  # by id: pairs of a start and an end in µs, sorted


def find_timelines(logs, unit, span, skip, counts):
    """The timelines of all logs; the span is the time of the passes, if there are any. Of each lane
    there are the bounds up to its count, but for the first ones where it says how many to skip.

    Ranges within a day of the passes are on the wall clock, and without passes those that begin in
    2000 or later. Ranges of another clock are a timeline of their own.
    """
    earliest, latest = (span[0] - DAY, span[1] + DAY) if span else (YEAR_2000, LATEST)
    timelines = {}
    for key, log in logs.items():
        for (name, lane), bounds in log.ranges.items():
            bounds = bounds[skip.get((key, name, lane), 0):counts.get((key, name, lane), 0)]
            for start, end in zip(bounds[::2], bounds[1::2]):
                first, last = sorted((start * unit, end * unit))
                clock = 'wall' if earliest <= first and last <= latest else 'other'
                lanes = timelines.setdefault((name, clock), {})
                lanes.setdefault(lane, []).append((first, last))
    return [Timeline(name, clock, {lane: sorted(lanes[lane]) for lane in sorted(lanes)})
            for (name, clock), lanes in sorted(timelines.items())]
