"""A tour of the library in Python, as TAP. Time stands still: the clock for tests is loaded."""

import gc
import os
import pathlib
import socket
import sys
import tempfile

import gi

gi.require_version('Vek', '1.0')
from gi.repository import GLib, GObject, Vek  # pylint: disable=wrong-import-position

from support import tap  # pylint: disable=wrong-import-position

NOW = 1000000000000000


class Recorder(GObject.Object, Vek.MetricReporter):
    """A reporter that keeps each call, as the interface makes it."""

    def __init__(self):
        super().__init__()
        self.calls = []

    def do_process_count(self, name, dimensions, unit, timestamp, count):
        self.calls.append(('count', name, dimensions, unit, timestamp, count))

    def do_process_value(self, name, dimensions, unit, timestamp, value):
        self.calls.append(('value', name, dimensions, unit, timestamp, value))

    def do_process_timeline_samples(self, name, samples):
        self.calls.append(('timeline', name, triples(samples)))

    def do_process_aggregated(self, name, dimensions, unit, snapshot):
        self.calls.append(('aggregated', name, dimensions, unit, snapshot))

    def do_flush(self):
        self.calls.append(('flush',))


class FlushCounter(GObject.Object, Vek.MetricReporter):
    """The least that a reporter can be."""

    flushes = 0

    def do_flush(self):
        self.flushes += 1


class LargestStore(Vek.MetricStore):
    """A store that keeps the largest sample only."""

    largest = 0.0

    def do_add(self, value):
        self.largest = max(self.largest, value)

    def do_get_snapshot(self):
        return Vek.MetricSnapshot.new([self.largest])


def triples(ranges):
    return [(one.id, one.start, one.end) for one in ranges]


def figures(snapshot):
    return (snapshot.get_n_samples(), snapshot.get_sum(), snapshot.get_average(),
            snapshot.get_min(), snapshot.get_max())


def equal(got, wanted):
    assert got == wanted, f'{got!r} is not {wanted!r}'


def wait_for(condition):
    while not condition():
        GLib.MainContext.default().iteration(True)


def counters_count():
    counter = Vek.MetricRegistry().counter_new('requests', 'Count', ['host', 'h1'])
    counter.inc()
    counter.add(5)
    counter.dec()
    equal((counter.get_count(), counter.get_time()), (5, NOW))


def metrics_say_what_they_are():
    counter = Vek.MetricRegistry().counter_new('requests', 'Count', ['host', 'h1'])
    equal((counter.get_name(), counter.get_unit(), counter.get_dimensions(), counter.is_active()),
          ('requests', 'Count', ['host', 'h1'], True))
    equal((counter.props.name, counter.props.unit, counter.props.dimensions, counter.props.active),
          ('requests', 'Count', ['host', 'h1'], True))
    counter.mark_inactive()
    equal((counter.is_active(), counter.props.active), (False, False))


def arguments_that_may_be_null_are_left_out_at_the_end():
    counter = Vek.MetricRegistry().counter_new('requests')
    equal((counter.get_unit(), counter.get_dimensions()), (None, []))


def gauges_hold_a_value():
    gauge = Vek.MetricRegistry().gauge_new('depth', None, 0)
    equal(gauge.get_value(), (0.0, 0))
    gauge.set_value(2.5)
    gauge.add_value(-1)
    equal(gauge.get_value(), (1.5, NOW))
    equal((gauge.get_last_change_time(), gauge.props.interval), (NOW, 0))


def meters_add_up_marks_after_the_first():
    meter = Vek.MetricRegistry().meter_new('received', 'Bytes/Second')
    for mark in 100, 20, 3:
        meter.mark(mark)
    equal((meter.get_total(), meter.get_rate(), meter.get_time()), (23.0, 0.0, NOW))
    equal((meter.props.time_constant, meter.props.sampling_period), (60000000, 1000000))


def histograms_show_snapshots():
    histogram = Vek.MetricRegistry().histogram_new('sizes', 'Bytes')
    for sample in 30, 10, 50, 20, 40:
        histogram.set(sample)
    snapshot = histogram.get_snapshot()
    equal(figures(snapshot), (5, 150.0, 30.0, 10.0, 50.0))
    equal([snapshot.get_quantile(q) for q in (0, 0.5, 0.625, 1)], [10.0, 30.0, 35.0, 50.0])
    equal(snapshot.get_time(), NOW)


def timers_measure_in_their_unit():
    timer = Vek.MetricRegistry().timer_new('latency', 'Milliseconds')
    timer.set_usec(2500)
    timer.start()
    timer.stop()
    equal(figures(timer.get_snapshot()), (2, 2.5, 1.25, 0.0, 2.5))


def timelines_collect_ranges():
    timeline = Vek.MetricRegistry().timeline_new('render')
    timeline.add_range(1, 100, 250)
    timeline.add_range(2, -(2 ** 63), 2 ** 63 - 1)
    equal(triples(timeline.move_data()), [(2, -(2 ** 63), 2 ** 63 - 1), (1, 100, 250)])
    equal(timeline.move_data(), [])


def a_registry_has_one_metric_for_each_key():
    registry = Vek.MetricRegistry()
    counter = registry.counter_new('requests', 'Count', ['host', 'h1'])
    assert registry.counter_new('requests', None, ['host', 'h1']) is counter
    assert registry.get_metric('requests', ['host', 'h1']) is counter
    equal(registry.get_metric('requests', ['host', 'h2']), None)


def the_default_registry_is_one():
    registry = Vek.MetricRegistry.get_default()
    assert Vek.MetricRegistry.get_default() is registry
    other = Vek.MetricRegistry()
    other.set_default()
    assert Vek.MetricRegistry.get_default() is other
    registry.set_default()
    assert Vek.MetricRegistry.get_default() is registry


def stores_decide_which_samples_count():
    registry = Vek.MetricRegistry()
    for store, wanted in ((Vek.MetricFixedSizeStore.new(2), (2, 70.0, 35.0, 30.0, 40.0)),
                          (Vek.MetricFixedTimeStore.new(60000000, 3),
                           (3, 90.0, 30.0, 20.0, 40.0))):
        histogram = registry.histogram_new(type(store).__name__, None, store)
        assert histogram.props.store is store
        for sample in 10, 20, 30, 40:
            histogram.set(sample)
        equal(figures(store.get_snapshot()), wanted)
    equal(Vek.MetricFixedSizeStore(window_size=2).props.window_size, 2)


def range_stores_give_their_ranges_away():
    store = Vek.MetricRangeStore.new()
    store.add_range(7, 1, 2)
    equal(triples(store.move_data()), [(7, 1, 2)])
    equal(store.move_data(), [])


def snapshots_are_made_of_lists():
    equal(figures(Vek.MetricSnapshot.new([3, 1.5])), (2, 4.5, 2.25, 1.5, 3.0))
    equal(figures(Vek.MetricSnapshot.new([])), (0, 0.0, 0.0, 0.0, 0.0))


def copies_of_records_share_them():
    dimension = Vek.MetricDimension.new('host', 'h1')
    copy = dimension.copy()
    del dimension
    gc.collect()
    equal((copy.get_name(), copy.get_value()), ('host', 'h1'))
    snapshot = Vek.MetricSnapshot.new([1, 2])
    assert snapshot == snapshot.copy()


def data_points_hold_what_was_set():
    datum = Vek.MetricDatum.new('latency')
    equal((datum.get_metric_name(), datum.get_dimensions(), datum.get_unit(),
           datum.get_value_set(), datum.get_statistic_values_set()),
          ('latency', [], None, False, False))
    datum.set_dimensions([Vek.MetricDimension.new('host', 'h1'),
                          Vek.MetricDimension.new('disk', None)])
    datum.set_timestamp(NOW)
    datum.set_unit('Seconds')
    datum.set_value(0.5)
    datum.set_statistic_values(3, 6.0, 1.0, 3.0)
    gc.collect()
    equal([(one.get_name(), one.get_value()) for one in datum.get_dimensions()],
          [('host', 'h1'), ('disk', None)])
    equal((datum.get_timestamp(), datum.get_unit(), datum.get_value(), datum.get_value_set(),
           datum.get_statistic_values(), datum.get_statistic_values_set()),
          (NOW, 'Seconds', 0.5, True, (3, 6.0, 1.0, 3.0), True))


def make_registry():
    """A registry with two metrics, and the metrics: who drops them retires them."""
    registry = Vek.MetricRegistry()
    timer = registry.timer_new('latency', 'Seconds', None, ['host', 'h1'])
    timer.set_usec(1500000)
    timeline = registry.timeline_new('render')
    timeline.add_range(1, 100, 250)
    timeline.add_range(2, 300, 420)
    return registry, timer, timeline


def console_reporters_print():
    registry, *_metrics = make_registry()
    with tempfile.TemporaryFile() as file:
        sys.stdout.flush()
        stdout = os.dup(1)
        os.dup2(file.fileno(), 1)
        registry.report(Vek.MetricConsoleReporter.new())
        os.dup2(stdout, 1)
        os.close(stdout)
        file.seek(0)
        equal(file.read(), b'host=h1:\nlatency: avg: 1.500000, n samples: 1, max: 1.500000, '
                           b'min: 1.500000, p10: 1.500000, p50: 1.500000, p90: 1.500000\n\n')


def file_reporters_write_files():
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder)
        for reporter, text in (
                (Vek.MetricLogReporter.new('csv', folder),
                 '1000000000000000,latency,host=h1;,1.5,1,1.5,1.5,1.5,1.5,1.5\n'),
                (Vek.MetricTimelineReporter.new('timeline', folder),
                 'F,render,2,300,420\nF,render,1,100,250\n')):
            registry, *_metrics = make_registry()
            registry.report(reporter)
            equal((path / f'{reporter.props.basename}.csv').read_text(), text)


def json_reporters_write_a_line_and_rotate():
    with tempfile.TemporaryDirectory() as folder:
        registry = Vek.MetricRegistry()
        counter = registry.counter_new('frames', 'Count')
        counter.add(42)
        path = pathlib.Path(folder)
        registry.report(Vek.MetricJsonLogReporter.new('log', folder, 'a1', 1, 2))
        wait_for((path / 'log.json.1').exists)
        equal((path / 'log.json.1').read_text(),
              '2001-09-09 01:46:40,000000 [{"MetricName":"frames",'
              '"Timestamp":"2001-09-09T01:46:40Z","Unit":"Count","Value":42.0,'
              '"Dimensions":[{"Name":"instance","Value":"a1"}]}]\n')
        Vek.metrics_rotate_files('log.json', folder, 2)
        equal(sorted(file.name for file in path.iterdir()), ['log.json.1', 'log.json.2'])


def carbon_reporters_send_lines():
    received = []

    def on_connected(server, _condition):
        connection = server.accept()[0]
        GLib.io_add_watch(connection, GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN, on_readable)
        return False

    def on_readable(connection, _condition):
        received.append(connection.recv(1000))
        connection.close()
        return False

    with socket.create_server(('127.0.0.1', 0)) as server:
        GLib.io_add_watch(server, GLib.PRIORITY_DEFAULT, GLib.IOCondition.IN, on_connected)
        registry = Vek.MetricRegistry()
        counter = registry.counter_new('frames', 'Count', ['host', 'h1'])
        counter.add(42)
        registry.register_reporter(
            Vek.MetricCarbonReporter.new('app', '127.0.0.1', server.getsockname()[1]))
        wait_for(lambda: received)
    equal(received[0].split(b'\n')[0], b'app.host.h1.Count.frames 42 1000000000')


def reporters_of_ones_own_take_every_kind():
    registry = Vek.MetricRegistry()
    counter = registry.counter_new('requests', 'Count', ['host', 'h1'])
    counter.add(3)
    recorder = Recorder()
    registry.report(recorder)
    equal(recorder.calls, [('count', 'requests', ['host', 'h1'], 'Count', NOW, 3), ('flush',)])

    counter.mark_inactive()
    gauge = registry.gauge_new('depth', None, 0)
    gauge.set_value(2.5)
    timeline = registry.timeline_new('render')
    timeline.add_range(1, 100, 250)
    histogram = registry.histogram_new('sizes', 'Bytes')
    histogram.set(7)
    recorder.calls.clear()
    registry.report(recorder)
    calls = sorted(recorder.calls[:-1], key=lambda call: call[0])
    snapshot = calls[0][-1]  # kept after the pass
    equal(calls, [('aggregated', 'sizes', [], 'Bytes', snapshot),
                  ('timeline', 'render', [(1, 100, 250)]),
                  ('value', 'depth', [], None, NOW, 2.5)])
    equal(recorder.calls[-1], ('flush',))
    equal(figures(snapshot), (1, 7.0, 7.0, 7.0, 7.0))


def registered_reporters_are_called_in_every_pass():
    registry = Vek.MetricRegistry()
    counter = registry.counter_new('requests')
    recorder, flush_counter = Recorder(), FlushCounter()
    registry.register_reporter(recorder)
    registry.register_reporter(flush_counter)
    del counter  # reported for the last time
    wait_for(lambda: flush_counter.flushes == 3)
    wait_for(lambda: recorder.calls.count(('flush',)) == 3)
    equal(recorder.calls, [('count', 'requests', [], None, NOW, 0)] + 3 * [('flush',)])


def stores_of_ones_own_serve_histograms():
    histogram = Vek.MetricRegistry().histogram_new('sizes', None, LargestStore())
    for sample in 3, 8, 5:
        histogram.set(sample)
    gc.collect()  # the store is the histogram's now
    equal(figures(histogram.get_snapshot()), (1, 8.0, 8.0, 8.0, 8.0))


tap.run([
    counters_count,
    metrics_say_what_they_are,
    arguments_that_may_be_null_are_left_out_at_the_end,
    gauges_hold_a_value,
    meters_add_up_marks_after_the_first,
    histograms_show_snapshots,
    timers_measure_in_their_unit,
    timelines_collect_ranges,
    a_registry_has_one_metric_for_each_key,
    the_default_registry_is_one,
    stores_decide_which_samples_count,
    range_stores_give_their_ranges_away,
    snapshots_are_made_of_lists,
    copies_of_records_share_them,
    data_points_hold_what_was_set,
    console_reporters_print,
    file_reporters_write_files,
    json_reporters_write_a_line_and_rotate,
    carbon_reporters_send_lines,
    reporters_of_ones_own_take_every_kind,
    registered_reporters_are_called_in_every_pass,
    stores_of_ones_own_serve_histograms,
])
