#!/usr/bin/python3
"""A service that measures itself, as service.c does: service.py FOLDER"""

import sys
import threading

import gi

gi.require_version('Vek', '1.0')
gi.require_version('VekService', '1.0')
from gi.repository import GLib, Vek, VekService

if len(sys.argv) != 2:
    sys.exit(f'usage: {sys.argv[0]} FOLDER')

session = VekService.Session(period=10)
session.add_reporter(Vek.MetricConsoleReporter.new())
session.add_reporter(Vek.MetricJsonLogReporter.new('service', sys.argv[1], None, 1440, 7))

registry = Vek.MetricRegistry.get_default()
requests = registry.counter_new('requests', 'Count')
sizes = registry.histogram_new('sizes', 'Bytes')
loop = GLib.MainLoop()

for stream in sys.stdin, sys.stdout:
    stream.reconfigure(encoding='latin-1')  # a character for each byte, whatever they say


def serve():
    for line in sys.stdin:
        line = line.rstrip('\n')
        requests.inc()
        sizes.set(len(line))
        print(line[::-1], flush=True)
    GLib.idle_add(loop.quit)


threading.Thread(target=serve, daemon=True).start()
session.run(loop, 5000)
