#!/usr/bin/python3
"""A reporter of one's own: each metric becomes a line of logfmt, as log collectors read it."""

import json

import gi

gi.require_version('Vek', '1.0')
from gi.repository import GObject, Vek


class LogfmtReporter(GObject.Object, Vek.MetricReporter):
    def __init__(self):
        super().__init__()
        self.lines = []

    def do_process_count(self, name, dimensions, unit, timestamp, count):
        self.add(name, dimensions, unit, count=count)

    def do_process_value(self, name, dimensions, unit, timestamp, value):
        self.add(name, dimensions, unit, value=value)

    def do_process_aggregated(self, name, dimensions, unit, snapshot):
        self.add(name, dimensions, unit, samples=snapshot.get_n_samples(), min=snapshot.get_min(),
                 median=snapshot.get_quantile(0.5), max=snapshot.get_max())

    def do_flush(self):
        for line in sorted(self.lines):  # metrics come in any order
            print(line, flush=True)
        self.lines.clear()

    def add(self, name, dimensions, unit, **figures):
        pairs = dict(zip(dimensions[::2], dimensions[1::2]))
        fields = {'metric': name, **pairs, 'unit': unit, **figures}
        self.lines.append(' '.join(f'{key}={json.dumps(value)}' for key, value in fields.items()
                                   if value is not None))


registry = Vek.MetricRegistry.get_default()
errors = registry.counter_new('errors', 'Count', ['reason', 'disk full'])
load = registry.gauge_new('load', None, 0)
latency = registry.timer_new('latency', 'Milliseconds', None, ['host', 'h1'])

errors.inc()
load.set_value(0.25)
for duration in 1500, 2500, 9000:
    latency.set_usec(duration)

registry.report(LogfmtReporter())
