"""The programs that wrote the logs."""

import os
from collections import Counter

from .logs import Log
from .metrics import Program


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
    """Gives metrics that several programs have another dimension: the name of the log, with its
    folder if the logs are in several.
    """
    paths = {name: os.path.abspath(name) for name in programs}
    base = os.path.commonpath([os.path.dirname(path) for path in paths.values()])
    counts = Counter((metric.name, metric.dimensions) for program in programs.values()
                     for metric in program.metrics)
    for name, program in programs.items():
        for metric in program.metrics:
            if counts[metric.name, metric.dimensions] > 1:
                metric.dimensions += (('file', os.path.relpath(paths[name], base)),)
