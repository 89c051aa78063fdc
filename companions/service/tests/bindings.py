"""The companion in Python, as TAP."""

import socket

import gi

gi.require_version('Vek', '1.0')
gi.require_version('VekService', '1.0')
from gi.repository import GLib, Vek, VekService  # pylint: disable=wrong-import-position

from support import tap  # pylint: disable=wrong-import-position


def graphite_reporters_send_lines():
    with socket.create_server(('127.0.0.1', 0)) as server:
        reporter = VekService.GraphiteReporter.new('site', '127.0.0.1', server.getsockname()[1])
        reporter.set_property('quantiles', GLib.Variant('ad', [0.5]))
        reporter.props.tags = True
        registry = Vek.MetricRegistry()
        counter = registry.counter_new('requests', 'Count', ['host', 'h1'])
        counter.add(3)
        registry.report(reporter)
        assert reporter.is_busy() and reporter.props.queued_lines == 1
        while reporter.is_busy():
            GLib.MainContext.default().iteration(True)
        connection, _ = server.accept()
        with connection:
            seconds = counter.get_time() // 1_000_000
            line = f'site.Count.requests;host=h1 3 {seconds}\n'
            assert connection.makefile().readline() == line
        assert reporter.props.sent_lines == 1 and reporter.props.dropped_lines == 0
        assert reporter.props.connected and reporter.props.max_lines == 100000


tap.run([graphite_reporters_send_lines])
