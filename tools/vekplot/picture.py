"""A picture of the charts, drawn by matplotlib."""

import importlib.util
import math
from datetime import datetime

from .failure import Failure
from .logs import SECOND

LIMIT = 60  # charts of a picture
WIDTH, HEIGHT = 10, 1.6  # inches of a chart
FEW = 100  # points, which are marked


def check():
    """Raises an exception if there is no matplotlib."""
    if not importlib.util.find_spec('matplotlib'):
        raise Failure('--svg and --png require matplotlib: install python3-matplotlib')


def get_rates(times, totals, restarts):
    """The rate of a counter per second, which has no value at the first pass of a run."""
    rates = [math.nan]
    restarts = set(restarts)
    for index in range(1, len(times)):
        is_known = times[index] not in restarts and times[index] > times[index - 1]
        rates.append((totals[index] - totals[index - 1]) / (times[index] - times[index - 1]) * 1e6
                     if is_known else math.nan)
    return rates


def to_dates(times):
    return [datetime.fromtimestamp(time / SECOND) for time in times]


def draw_metric(chart, document, metric):
    times = document.get_times(metric.axis)
    columns = document.get_columns(metric)
    dates = to_dates(times)
    style = {'linewidth': 1, 'marker': '.' if len(dates) <= FEW else ''}
    if metric.kind == 'counter':
        chart.plot(dates, get_rates(times, columns['value'], document.restarts), **style)
    elif metric.is_distribution:
        if 'p10' in columns:
            chart.fill_between(dates, columns['p10'], columns['p90'], alpha=0.25, linewidth=0)
        lines = ('p50', 'avg') if 'p10' in columns else ('p50', 'avg', 'p90', 'p99')
        for statistic in lines:
            if statistic in columns:
                chart.plot(dates, columns[statistic], label=statistic, **style)
        chart.legend(loc='upper left', fontsize='x-small')
    else:
        chart.plot(dates, columns['value'], **style)
    for restart in to_dates(document.restarts):
        chart.axvline(restart, linestyle=':', linewidth=1, color='gray')


def get_label(metric):
    """What a chart shows: the name, the dimensions and the unit."""
    dimensions = ', '.join(map('='.join, metric.dimensions))
    unit = metric.unit or ''
    if metric.kind == 'counter':
        unit += '/s'
    return ' '.join(filter(None, (metric.name, dimensions, f'[{unit}]' if unit else '')))


def draw_timeline(chart, timeline):
    for row, (lane, ranges) in enumerate(timeline.lanes.items()):
        starts = to_dates(start for start, _ in ranges)
        ends = to_dates(end for _, end in ranges)
        chart.hlines([row] * len(starts), starts, ends, linewidth=6)
    chart.set_yticks(range(len(timeline.lanes)), list(map(str, timeline.lanes)))


def draw(document, kind, file):
    """Writes a picture: "svg" or "png"."""
    timelines = [timeline for timeline in document.timelines if timeline.clock == 'wall']
    count = len(document.metrics) + len(timelines)
    if count > LIMIT:
        raise Failure(f'{count} charts are too many for a picture: --select at most {LIMIT}')
    if count == 0:
        raise Failure('a picture shows no ranges of another clock than that of the passes')

    from matplotlib.figure import Figure  # pylint: disable=import-outside-toplevel
    figure = Figure(figsize=(WIDTH, HEIGHT * count + 0.4), layout='constrained')
    charts = figure.subplots(count, sharex=True, squeeze=False)[:, 0]
    for chart, metric in zip(charts, document.metrics):
        chart.set_title(get_label(metric), loc='left', fontsize='small', parse_math=False)
        draw_metric(chart, document, metric)
    for chart, timeline in zip(charts[len(document.metrics):], timelines):
        chart.set_title(timeline.name, loc='left', fontsize='small', parse_math=False)
        draw_timeline(chart, timeline)
    figure.savefig(file.buffer, format=kind)
