"""The command line."""

import argparse
import re
from datetime import datetime
from typing import NamedTuple

from .files import is_log
from .logs import SECOND
from .timelines import UNITS

DURATION = re.compile(r'-(\d+)([smhd])')
SECONDS = {'s': 1, 'm': 60, 'h': 3600, 'd': 86400}


class Moment(NamedTuple):
    """A time in µs, since the epoch or relative to the last pass."""
    time: int
    is_relative: bool

    def resolve(self, end):
        return end + self.time if self.is_relative else self.time


def parse_moment(text):
    if match := DURATION.fullmatch(text):
        return Moment(-int(match[1]) * SECONDS[match[2]] * SECOND, True)
    try:
        return Moment(round(datetime.fromisoformat(text).timestamp() * SECOND), False)
    except (ValueError, OverflowError):
        raise argparse.ArgumentTypeError(
            f'not a time such as 2026-01-31T12:00, 2026-01-31T12:00Z or -10m: {text}') from None


def join_moments(arguments):
    """Joins times to their options: argparse would take -10m for an option."""
    joined = []
    for argument in arguments:
        if joined and joined[-1] in ('--since', '--until'):
            joined[-1] += f'={argument}'
        else:
            joined.append(argument)
    return joined


def make_parser():
    parser = argparse.ArgumentParser(
        prog='vek-plot', allow_abbrev=False,
        description='Draws the logs of a program that measures itself with vekmetrics.')
    parser.add_argument('paths', metavar='FOLDER|FILE', nargs='+',
                        help='CSV logs, JSON logs and timeline files, or a folder with any of them')
    parser.add_argument('-o', '--output', metavar='FILE',
                        help='the page to write (vek-plot.html)')
    parser.add_argument('--open', action='store_true', help='open the page in a browser')
    parser.add_argument('--follow', action='store_true',
                        help='serve the page, and add to it what the files gain')
    parser.add_argument('--select', metavar='PATTERN', action='append', default=[],
                        help='only metrics with such a name: a glob, or a part of the name')
    parser.add_argument('--since', metavar='TIME', type=parse_moment,
                        help='a date and time, or -10m: ten minutes before the last figures')
    parser.add_argument('--until', metavar='TIME', type=parse_moment, help='likewise')
    parser.add_argument('--counter', metavar='NAME', action='append', default=[],
                        help='a metric that is a counter')
    parser.add_argument('--gauge', metavar='NAME', action='append', default=[],
                        help='a metric that is no counter')
    parser.add_argument('--range-unit', metavar='UNIT', choices=UNITS, default='us',
                        help='of timelines: s, ms, us (the default) or ns')
    parser.add_argument('--svg', metavar='FILE', help='write a picture')
    parser.add_argument('--png', metavar='FILE', help='write a picture')
    parser.add_argument('--trace', metavar='FILE', help='write timelines as Chrome trace events')
    return parser


def parse(arguments):
    parser = make_parser()
    options = parser.parse_args(join_moments(arguments))
    outputs = list(filter(None, (options.output, options.svg, options.png, options.trace)))
    if options.follow and outputs:
        parser.error('--follow serves the page and writes no file')
    for path in filter(is_log, outputs):
        parser.error(f'{path} is a log, which is not overwritten')
    return options
