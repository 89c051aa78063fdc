"""All that is drawn."""

import copy
import fnmatch
import os
from array import array
from bisect import bisect_left, bisect_right
from types import MappingProxyType

from .files import get_base
from .logs import LATEST
from .metrics import Axis
from .programs import find_programs, tell_apart
from .timelines import UNITS, find_timelines

STATISTICS = ('samples', 'avg', 'min', 'max', 'p10', 'p50', 'p90', 'p99')


def make_filter(patterns):
    """Returns a function: whether a name matches one of the patterns, or there are none."""
    globs = [pattern if any(char in pattern for char in '*?[') else f'*{pattern}*'
             for pattern in patterns]
    return lambda name: not globs or any(fnmatch.fnmatchcase(name, glob) for glob in globs)


def get_title(paths):
    """The name of the folder or of the first log."""
    path = os.path.abspath(paths[0])
    name = path if os.path.isdir(path) else os.path.splitext(get_base(path))[0]
    return os.path.basename(name)


class Document:
    """All that is drawn. The logs may have more meanwhile, which it leaves out."""

    def __init__(self, files, options):
        self.logs = files.logs
        self.ranges = files.count_ranges()
        self.options = options
        self.is_selected = make_filter(options.select)
        self.title = get_title(options.paths)
        self.sources = files.sources
        self.unread = files.unread

        programs = find_programs(self.logs, options.counter, options.gauge)
        singles = {metric.name for program in programs.values() for metric in program.metrics
                   if not metric.is_distribution}
        self.missing = [(option, name) for option in ('counter', 'gauge')
                        for name in getattr(options, option) if name not in singles]
        self.is_one_program = len(programs) < 2
        if len(programs) == 1:
            self.axis = next(iter(programs.values())).axis
        else:
            self.axis = Axis(array('q', sorted(
                {time for program in programs.values() for time in program.axis.times})))
        if not self.is_one_program:
            tell_apart(programs)
        self.first = 0  # pass that is drawn
        self.since, self.until = 0, LATEST
        self.complete = LATEST  # no pass after this time is drawn
        self.restarts = sorted(program.axis.times[place] for program in programs.values()
                               for place in program.restarts)
        self.timelines = self.find_timelines()
        self.metrics = [metric for program in programs.values() for metric in program.metrics
                        if self.is_selected(metric.name)]
        self.metrics.sort(key=lambda metric: (metric.name, metric.dimensions))
        if options.since or options.until:
            self.cut(options.since, options.until)

    def find_timelines(self, skip=MappingProxyType({})):
        times = self.axis.times
        timelines = find_timelines(self.logs, UNITS[self.options.range_unit],
                                   (times[0], times[-1]) if times else None, skip, self.ranges)
        return [timeline for timeline in map(self.cut_timeline, timelines)
                if timeline.lanes and self.is_selected(timeline.name)]

    def cut_timeline(self, timeline):
        """The ranges in the time that is drawn; all of them, if they are of another clock."""
        if timeline.clock != 'wall' or (self.since, self.until) == (0, LATEST):
            return timeline
        lanes = {lane: [(start, end) for start, end in ranges
                        if end >= self.since and start <= self.until]
                 for lane, ranges in timeline.lanes.items()}
        return timeline._replace(lanes={lane: ranges for lane, ranges in lanes.items() if ranges})

    def cut(self, since, until):
        """Leaves what is not in a part of the time, which may be relative to the last pass."""
        end = self.axis.times[-1] if self.axis.times else max(
            (last for timeline in self.timelines if timeline.clock == 'wall'
             for ranges in timeline.lanes.values() for _, last in ranges), default=0)
        self.since = since.resolve(end) if since else 0
        self.until = until.resolve(end) if until else LATEST
        self.restarts = [time for time in self.restarts if self.since <= time <= self.until]
        self.timelines = self.find_timelines()
        self.metrics = [metric for metric in self.metrics
                        if any(figure == figure for column in self.get_columns(metric).values()
                               for figure in column)]

    def get_part(self, axis):
        """Which times of an axis are drawn."""
        first = bisect_left(axis.places, self.first) if axis.places else self.first
        return slice(max(first, bisect_left(axis.times, self.since)),
                     bisect_right(axis.times, min(self.until, self.complete)))

    def get_times(self, axis):
        return axis.times[self.get_part(axis)]

    def get_columns(self, metric):
        """The figures of a metric by statistic."""
        part = self.get_part(metric.axis)
        return {statistic: metric.align(statistic)[part]
                for statistic in ('value', *STATISTICS) if statistic in metric.layers}

    def count_passes(self):
        return bisect_right(self.axis.times, min(self.until, self.complete))

    def leave_last_pass(self):
        """Leaves the last pass, which is not complete; ranges are, as far as they are known."""
        if self.axis.times:
            self.complete = self.axis.times[-1] - 1
            self.restarts = [time for time in self.restarts if time <= self.complete]

    def describe(self, passes):
        """What was told of the first passes; something else, if that was told differently."""
        metrics = [(metric.name, metric.dimensions, metric.kind, metric.unit,
                    metric.axis is self.axis)
                   for metric in self.metrics if metric.get_first_place() < passes]
        return metrics, self.axis.times[:passes], self.is_one_program or object()

    def after(self, passes, skip):
        """What comes after some passes and ranges."""
        later = copy.copy(self)
        later.first = passes
        later.restarts = [time for time in self.restarts
                          if passes == 0 or time > self.axis.times[passes - 1]]
        later.timelines = self.find_timelines(skip)
        return later

    def is_empty(self):
        return not self.metrics and not self.timelines
