"""The JSON in which the page gets what it draws; page/README.md describes it."""

import base64
import json
import sys

from .logs import SECOND

MANY = 1000

def format_figures(figures):
    """Figures in JSON. Many fractions are written in binary: Python takes microseconds for the
    digits of one, and browsers read this faster, too.
    """
    if len(figures) < MANY or all(map(float.is_integer, figures)):
        return format_numbers(figures)
    return f'"{base64.b64encode(to_little_endian(figures)).decode()}"'


def to_little_endian(figures):
    if sys.byteorder == 'big':
        figures = figures[:]
        figures.byteswap()
    return figures


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


def write_document(document, write, **live):
    """Writes the JSON; adds members for a page that stays up to date."""
    axes = list({id(axis): axis for axis in
                 (document.axis, *(metric.axis for metric in document.metrics))}.values())
    head = {'version': 1, 'title': document.title, 'sources': document.sources, **live}
    if document.unread.count:
        head['unread'] = {'count': document.unread.count, 'first': document.unread.first}
    write(format_text(head)[:-1])
    write(',"times":[')
    for index, axis in enumerate(axes):
        write(',' * bool(index) + format_numbers(to_seconds(document.get_times(axis))))
    write(f'],"passes":0,"restarts":{format_numbers(to_seconds(document.restarts))},"metrics":[')
    places = {id(axis): index for index, axis in enumerate(axes)}
    for index, metric in enumerate(document.metrics):
        write(',' * bool(index) + '\n')
        write_metric(document, metric, places[id(metric.axis)], write)
    write('],"timelines":[')
    for index, timeline in enumerate(document.timelines):
        write(',' * bool(index) + '\n')
        write_timeline(timeline, write)
    write(']}')


def write_metric(document, metric, axis, write):
    head = {'name': metric.name, 'dimensions': metric.dimensions, 'kind': metric.kind,
            'unit': metric.unit, 'times': axis}
    columns = document.get_columns(metric)
    write(format_text(head)[:-1])
    if 'value' in columns:
        write(f',"values":{format_figures(columns["value"])}}}')
    else:
        pairs = (f'"{statistic}":{format_figures(column)}'
                 for statistic, column in columns.items())
        write(f',"statistics":{{{",".join(pairs)}}}}}')


def write_timeline(timeline, write):
    head = {'name': timeline.name, 'dimensions': [], 'clock': timeline.clock}
    write(format_text(head)[:-1])
    lanes = (f'{{"id":"{lane}","ranges":%s}}' % format_numbers(
        to_seconds(bound for bounds in ranges for bound in bounds))
             for lane, ranges in timeline.lanes.items())
    write(f',"lanes":[{",".join(lanes)}]}}')
