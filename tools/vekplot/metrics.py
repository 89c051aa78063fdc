"""The metrics of a program, from its log in CSV, its log in JSON, or both."""

import math
from array import array
from bisect import bisect_left
from functools import partial

from . import rules
from .logs import Identity, Log
from .passes import unite

PERCENTILES = ('p50', 'p90', 'p99')
TIMES = ('Seconds', 'Milliseconds', 'Microseconds')


def is_run(numbers):
    """Whether each number is the successor of the one before, if they ascend."""
    return numbers[-1] - numbers[0] == len(numbers) - 1


class Axis:
    """Times of figures: those of the passes, or others."""

    def __init__(self, times, places=None):
        self.times = times
        self.places = places  # the pass of each time, if these are not the passes


class Metric:
    """A metric: its figures by statistic, or the single ones as "value".

    The figures are in layers, one from each log: pairs of their places on the axis and a function
    that returns the figures.
    """

    def __init__(self, identity, unit, layers):
        self.name, self.dimensions, self.is_distribution = identity
        self.unit = unit
        self.layers = layers
        self.kind = None
        self.axis = None

    def get_first_place(self):
        """The first pass that has a figure of it."""
        if self.axis.places:
            return self.axis.places[0]
        return min(places[0] for layers in self.layers.values() for places, _ in layers)

    def align(self, statistic):
        """A figure for each time of the axis: that of the first layer which has one, or NaN."""
        layers = self.layers[statistic]
        size = len(self.axis.times)
        places, get_figures = layers[0]
        if len(layers) == 1 and len(places) == size and is_run(places):
            return get_figures()
        aligned = array('d', [math.nan]) * size
        for places, get_figures in reversed(layers):
            known = places[:bisect_left(places, size)]  # a log may have later passes meanwhile
            for place, figure in zip(known, get_figures()):
                aligned[place] = figure
        return aligned


class Line:
    """The lines of a metric in one log."""

    def __init__(self, series, places, is_exact):
        self.is_exact = is_exact  # the stamps are; otherwise they are whole seconds
        self.unit = series.unit
        self.stamps = series.stamps
        self.places = series.passes
        if places and not (places[0] == 0 and is_run(places)):
            self.places = array('i', map(places.__getitem__, series.passes))
        self.layers = {statistic: (self.places, partial(series.get_column, statistic))
                       for statistic in series.statistics}

    @property
    def values(self):
        return self.layers['value'][1]()


def read_json(log, places):
    """The lines of a log in JSON, with the percentiles of each distribution."""
    lines = {identity: Line(series, places, False) for identity, series in log.series.items()}
    for name, dimensions, is_distribution in list(lines):
        if is_distribution:
            for percentile in PERCENTILES:
                single = lines.pop(Identity(f'{name}_{percentile}', dimensions, False), None)
                if single:
                    lines[name, dimensions, True].layers[percentile] = single.layers['value']
    return lines


def find_partners(lines, json_lines):
    """What each metric is called in JSON, where an instance may be its first dimension."""
    without_instance = {}
    for identity in json_lines:
        name, dimensions, is_distribution = identity
        if dimensions and dimensions[0][0] == 'instance':
            shorter = Identity(name, dimensions[1:], is_distribution)
            without_instance.setdefault(shorter, []).append(identity)
    partners = {}
    for identity in lines:
        candidates = [identity] if identity in json_lines else without_instance.get(identity, ())
        if len(candidates) == 1:
            partners[identity] = candidates[0]
    return partners


class Program:
    """What the logs say of a program, and what can be told from them."""

    def __init__(self, csv=None, json=None, counters=(), gauges=()):
        """Metrics with a name among the counters or the gauges are that, whatever the rules say."""
        csv, json = csv or Log(), json or Log()
        times, csv_places, json_places = unite(csv.times, json.times)
        self.axis = Axis(times)
        self.other_axes = {}  # by their times
        self.metrics = []
        self.restarts = []  # passes

        lines = {identity: Line(series, csv_places, True)
                 for identity, series in csv.series.items()}
        json_lines = read_json(json, json_places)
        partners = find_partners(lines, json_lines)
        self.lines = {}  # which tell the kind of a metric
        for identity, line in lines.items():
            self.add(partners.get(identity, identity),
                     [line, *filter(None, [json_lines.pop(partners.get(identity), None)])])
        for identity, line in json_lines.items():
            self.add(identity, [line])
        self.find_kinds(counters, gauges)

    def add(self, identity, lines):
        layers = {}
        for line in lines:
            for statistic, layer in line.layers.items():
                layers.setdefault(statistic, []).append(layer)
        metric = Metric(identity, lines[-1].unit, layers)
        metric.axis = self.axis
        self.metrics.append(metric)
        self.lines[metric] = lines[0]

    def find_kinds(self, counters, gauges):
        undecided = []
        for metric in self.metrics:
            if metric.is_distribution:
                metric.kind = 'timer' if metric.unit in TIMES else 'histogram'
            elif metric.name in counters:
                metric.kind = 'counter'
            elif metric.name in gauges:
                metric.kind = 'gauge'
            else:
                undecided.append(metric)

        # Restarts are told by counters, and hide a few counters until they are known.
        self.find_counters(undecided)
        self.restarts = rules.find_restarts(
            [self.lines[metric] for metric in self.metrics if metric.kind == 'counter'])
        self.find_counters([metric for metric in undecided if metric.kind != 'counter'])

        for metric in self.metrics:
            if metric.kind == 'gauge' and self.find_interval(metric):
                self.show_intervals(metric)

    def find_interval(self, metric):
        line = self.lines[metric]
        return rules.find_interval(line, self.axis.times) if line.is_exact else None

    def find_counters(self, metrics):
        for metric in metrics:
            line = self.lines[metric]
            if not rules.is_counter(line, self.axis.times, self.restarts):
                metric.kind = 'gauge'
            elif rules.ever_falls(line) and self.find_interval(metric):
                metric.kind = 'gauge'  # the sums of its intervals
            else:
                metric.kind = 'counter'

    def show_intervals(self, metric):
        """Gives a gauge an axis with the ends of its intervals, and the passes that had none."""
        line = self.lines[metric]
        figures = dict(zip(line.places, zip(line.stamps, line.values)))
        places = array('i', range(line.places[0], line.places[-1] + 1))
        times, values = array('q'), array('d')
        latest = 0
        for place in places:
            time, value = figures.get(place, (self.axis.times[place], math.nan))
            latest = max(latest, time)
            times.append(latest)
            values.append(value)
        metric.axis = self.other_axes.setdefault(times.tobytes(), Axis(times, places))
        metric.layers = {'value': [(array('i', range(len(values))), lambda: values)]}
