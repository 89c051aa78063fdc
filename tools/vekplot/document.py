"""All that is drawn, and the JSON in which the page gets it; page/README.md describes that."""

import fnmatch
import json
import os
from array import array
from bisect import bisect_left, bisect_right
from collections import Counter
from typing import NamedTuple

from .files import get_base
from .logs import LATEST, Log
from .metrics import Axis, Program

SECOND = 1_000_000  # µs
DAY = 86_400 * SECOND
YEAR_2000 = 946_684_800 * SECOND
RANGE_UNITS = {'s': 1e6, 'ms': 1e3, 'us': 1, 'ns': 1e-3}  # in µs
STATISTICS = ('samples', 'avg', 'min', 'max', 'p10', 'p50', 'p90', 'p99')


class Timeline(NamedTuple):
    """The ranges of a timeline on one clock."""
    name: str
    clock: str  # "wall" or "other"
    lanes: dict  # by id: pairs of a start and an end in µs, sorted


def overlap(spans):
    """Whether any two spans of time overlap."""
    spans = sorted(spans)
    return any(later[0] <= earlier[1] for earlier, later in zip(spans, spans[1:]))


def chain(logs):
    """Joins logs that were written one after the other; logs are by their names. Those that were
    written at the same time come from several programs, and stay apart.
    """
    logs = {name: log for name, log in logs.items() if log.times}
    if len(logs) < 2 or overlap((min(log.times), max(log.times)) for log in logs.values()):
        return logs
    chained = Log()
    for log in sorted(logs.values(), key=lambda log: log.times[0]):
        chained.append(log)
    return {next(iter(logs)): chained}


def find_programs(logs, counters, gauges):
    """The programs that wrote the logs, by their names."""
    csv, json_ = (chain({name: log for (name, kind), log in logs.items() if kind == of})
                  for of in ('csv', 'json'))
    if len(csv) == len(json_) == 1:
        json_ = dict(zip(csv, json_.values()))
    return {name: Program(csv.get(name), json_.get(name), counters, gauges)
            for name in {**csv, **json_}}


def tell_apart(programs):
    """Gives metrics that several programs have another dimension: the name of the log."""
    counts = Counter((metric.name, metric.dimensions) for program in programs.values()
                     for metric in program.metrics)
    for name, program in programs.items():
        for metric in program.metrics:
            if counts[metric.name, metric.dimensions] > 1:
                metric.dimensions += (('file', os.path.basename(name)),)


def find_timelines(logs, unit, span):
    """The timelines of all logs; the span is the time of the passes, if there are any.

    Ranges within a day of the passes are on the wall clock, and without passes those that begin in
    2000 or later. Ranges of another clock are a timeline of their own.
    """
    earliest, latest = (span[0] - DAY, span[1] + DAY) if span else (YEAR_2000, LATEST)
    timelines = {}
    for log in logs:
        for (name, lane), bounds in log.ranges.items():
            for start, end in zip(bounds[::2], bounds[1::2]):
                first, last = sorted((start * unit, end * unit))
                clock = 'wall' if earliest <= first and last <= latest else 'other'
                lanes = timelines.setdefault((name, clock), {})
                lanes.setdefault(lane, []).append((first, last))
    return [Timeline(name, clock, {lane: sorted(lanes[lane]) for lane in sorted(lanes)})
            for (name, clock), lanes in sorted(timelines.items())]


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


def format_numbers(numbers):
    """An array in JSON; NaN is null, and infinities are strings."""
    text = ','.join(map(repr, numbers))
    text = (text + ',').replace('.0,', ',')[:-1]  # an integer
    if 'n' in text:
        text = text.replace('nan', 'null').replace('inf', '"inf"').replace('-"inf"', '"-inf"')
    return f'[{text}]'


def to_seconds(times):
    return [time / SECOND for time in times]


def format_text(value):
    """Any other value in JSON, which can be part of a script in HTML."""
    return json.dumps(value).replace('<', r'\u003c')


class Document:
    """All that is drawn."""

    def __init__(self, files, options):
        programs = find_programs(files.logs, options.counter, options.gauge)
        if len(programs) == 1:
            self.axis = next(iter(programs.values())).axis
        else:
            tell_apart(programs)
            self.axis = Axis(array('q', sorted(
                {time for program in programs.values() for time in program.axis.times})))
        times = self.axis.times
        span = (times[0], times[-1]) if times else None
        unit = RANGE_UNITS[options.range_unit]
        self.timelines = find_timelines(files.logs.values(), unit, span)
        self.metrics = [metric for program in programs.values() for metric in program.metrics]
        self.metrics.sort(key=lambda metric: (metric.name, metric.dimensions))
        self.restarts = sorted(program.axis.times[place] for program in programs.values()
                               for place in program.restarts)
        self.title = get_title(options.paths)
        self.sources = files.sources
        self.unread = files.unread
        self.since, self.until = 0, LATEST
        self.select(make_filter(options.select))
        self.cut(options.since, options.until)

    def select(self, is_selected):
        """Keeps what has such a name."""
        self.metrics = [metric for metric in self.metrics if is_selected(metric.name)]
        self.timelines = [timeline for timeline in self.timelines if is_selected(timeline.name)]

    def cut(self, since, until):
        """Keeps what is in a part of the time, which may be given relative to the last pass."""
        if since is None and until is None:
            return
        end = self.axis.times[-1] if self.axis.times else max(
            (last for timeline in self.timelines if timeline.clock == 'wall'
             for ranges in timeline.lanes.values() for _, last in ranges), default=0)
        self.since = 0 if since is None else since.resolve(end)
        self.until = LATEST if until is None else until.resolve(end)
        self.restarts = [time for time in self.restarts if self.since <= time <= self.until]
        self.metrics = [metric for metric in self.metrics
                        if any(figure == figure for column in self.get_columns(metric).values()
                               for figure in column)]
        self.timelines = [timeline for timeline in map(self.cut_timeline, self.timelines)
                          if timeline.lanes]

    def cut_timeline(self, timeline):
        """What the part of the time has of a timeline; all of it, if it has another clock."""
        if timeline.clock != 'wall':
            return timeline
        lanes = {lane: [(start, end) for start, end in ranges
                        if end >= self.since and start <= self.until]
                 for lane, ranges in timeline.lanes.items()}
        return timeline._replace(lanes={lane: ranges for lane, ranges in lanes.items() if ranges})

    def get_part(self, axis):
        """Which times of an axis are drawn."""
        return slice(bisect_left(axis.times, self.since), bisect_right(axis.times, self.until))

    def get_columns(self, metric):
        """The figures of a metric by statistic."""
        part = self.get_part(metric.axis)
        return {statistic: metric.align(statistic)[part]
                for statistic in ('value', *STATISTICS) if statistic in metric.layers}

    def is_empty(self):
        return not self.metrics and not self.timelines

    def write(self, write, **live):
        """Writes the JSON; adds members for a page that stays up to date."""
        axes = list({id(axis): axis for axis in
                     (self.axis, *(metric.axis for metric in self.metrics))}.values())
        head = {'version': 1, 'title': self.title, 'sources': self.sources, **live}
        if self.unread.count:
            head['unread'] = {'count': self.unread.count, 'first': self.unread.first}
        write(format_text(head)[:-1])
        write(',"times":[')
        for index, axis in enumerate(axes):
            write(',' * bool(index) + format_numbers(to_seconds(axis.times[self.get_part(axis)])))
        write(f'],"passes":0,"restarts":{format_numbers(to_seconds(self.restarts))},"metrics":[')
        places = {id(axis): index for index, axis in enumerate(axes)}
        for index, metric in enumerate(self.metrics):
            write(',' * bool(index) + '\n')
            self.write_metric(metric, places[id(metric.axis)], write)
        write('],"timelines":[')
        for index, timeline in enumerate(self.timelines):
            write(',' * bool(index) + '\n')
            self.write_timeline(timeline, write)
        write(']}')

    def write_metric(self, metric, axis, write):
        head = {'name': metric.name, 'dimensions': metric.dimensions, 'kind': metric.kind,
                'unit': metric.unit, 'times': axis}
        columns = self.get_columns(metric)
        write(format_text(head)[:-1])
        if 'value' in columns:
            write(f',"values":{format_numbers(columns["value"])}}}')
        else:
            pairs = (f'"{statistic}":{format_numbers(column)}'
                     for statistic, column in columns.items())
            write(f',"statistics":{{{",".join(pairs)}}}}}')

    def write_timeline(self, timeline, write):
        head = {'name': timeline.name, 'dimensions': [], 'clock': timeline.clock}
        write(format_text(head)[:-1])
        lanes = (f'{{"id":"{lane}","ranges":%s}}' % format_numbers(
            to_seconds(bound for bounds in ranges for bound in bounds))
                 for lane, ranges in timeline.lanes.items())
        write(f',"lanes":[{",".join(lanes)}]}}')
