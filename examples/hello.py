#!/usr/bin/python3
"""The smallest program that measures itself: it counts, and reports once."""

import gi

gi.require_version('Vek', '1.0')
from gi.repository import Vek

registry = Vek.MetricRegistry.get_default()
console = Vek.MetricConsoleReporter.new()
greetings = registry.counter_new('greetings', 'Count')

greetings.inc()
greetings.add(2)

registry.report(console)
