"""Reads lines of JSON, each of them a pass; docs/outputs.md describes them."""

import json
import math
import re
from datetime import datetime, timezone

from .logs import LATEST, Identity, Log, Series

LINE = re.compile(r'(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d),(\d{6}) (\[.*\])', re.ASCII)
STATISTICS = ('avg', 'samples', 'min', 'max')


def parse_time(text):
    """The µs of a date and a time in UTC."""
    time = datetime.fromisoformat(text.removesuffix('Z')).replace(tzinfo=timezone.utc)
    microseconds = round(time.timestamp()) * 1_000_000
    if not 0 <= microseconds < LATEST:
        raise ValueError(text)
    return microseconds


def parse_number(value):
    return math.nan if value is None else float(value)


def parse_figures(point):
    """The figures of a data point, by what they are called here."""
    if 'Value' in point:
        return {'value': parse_number(point['Value'])}
    statistics = point['StatisticValues']
    samples, total, low, high = (parse_number(statistics[key]) for key in
                                 ('SampleCount', 'Sum', 'Minimum', 'Maximum'))
    return dict(zip(STATISTICS, (total / samples if samples else math.nan, samples, low, high)))


class JsonReader:
    """Fills a log from lines, which can come bit by bit."""

    def __init__(self):
        self.log = Log()
        self.stamp = ('', 0)  # the last one: its text, and its time

    def parse_stamp(self, text):
        """The time of a data point; most of a pass have the same one. Without any it is 0."""
        if text != self.stamp[0]:
            self.stamp = (text, parse_time(text) if text is not None else 0)
        return self.stamp[1]

    def add(self, point):
        """Adds a data point to the last pass; raises an exception if it is not one."""
        dimensions = tuple((pair['Name'], pair['Value']) for pair in point.get('Dimensions', ()))
        name, unit = point['MetricName'], point.get('Unit')
        for text in (name, unit or '', *sum(dimensions, ())):
            if not isinstance(text, str):
                raise TypeError(text)
        figures = parse_figures(point)
        stamp = self.parse_stamp(point['Timestamp'])

        identity = Identity(name, dimensions, 'value' not in figures)
        series = self.log.series.get(identity)
        if series is None:
            series = self.log.series[identity] = Series(figures)
        current = len(self.log.times) - 1
        if series.passes and series.passes[-1] == current:
            return  # said twice
        series.unit = unit
        series.stamps.append(stamp)
        series.passes.append(current)
        series.figures.extend(figures.values())

    def read(self, batch, report):
        """Reads a list of lines, and reports the index of each one that it cannot read."""
        for index, text in enumerate(batch):
            try:
                seconds, microseconds, array = LINE.fullmatch(text).groups()
                time = parse_time(seconds) + int(microseconds)
                points = json.loads(array)
            except (AttributeError, ValueError, RecursionError):
                report(index)
                continue

            self.log.times.append(time)
            readable = True
            for point in points:
                try:
                    self.add(point)
                except (ArithmeticError, AttributeError, KeyError, TypeError, ValueError):
                    readable = False
            if not readable:
                report(index)
