/* A tour of the library in JavaScript, as TAP. Time stands still: the clock for tests is loaded. */

imports.gi.versions.Vek = '1.0';
const {GLib, Gio, GObject, Vek} = imports.gi;
const ByteArray = imports.byteArray;
const System = imports.system;

const NOW = 1000000000000000;

/* A reporter that keeps each call, as the interface makes it. */
const Recorder = GObject.registerClass({
  Implements: [Vek.MetricReporter],
}, class Recorder extends GObject.Object {
  calls = [];

  vfunc_process_count(name, dimensions, unit, timestamp, count) {
    this.calls.push(['count', name, dimensions, unit, timestamp, count]);
  }

  vfunc_process_value(name, dimensions, unit, timestamp, value) {
    this.calls.push(['value', name, dimensions, unit, timestamp, value]);
  }

  vfunc_process_timeline_samples(name, samples) {
    this.calls.push(['timeline', name, triples(samples)]);
  }

  vfunc_process_aggregated(name, dimensions, unit, snapshot) {
    this.calls.push(['aggregated', name, dimensions, unit, figures(snapshot)]);
  }

  vfunc_flush() {
    this.calls.push(['flush']);
  }
});

/* The least that a reporter can be. */
const FlushCounter = GObject.registerClass({
  Implements: [Vek.MetricReporter],
}, class FlushCounter extends GObject.Object {
  flushes = 0;

  vfunc_flush() {
    this.flushes++;
  }
});

/* A store that keeps the largest sample only. */
const LargestStore = GObject.registerClass(
class LargestStore extends Vek.MetricStore {
  largest = 0;

  vfunc_add(value) {
    this.largest = Math.max(this.largest, value);
  }

  vfunc_get_snapshot() {
    return Vek.MetricSnapshot.new([this.largest]);
  }
});

function triples(ranges) {
  return ranges.map(one => [one.id, one.start, one.end]);
}

function figures(snapshot) {
  return [snapshot.get_n_samples(), snapshot.get_sum(), snapshot.get_average(),
    snapshot.get_min(), snapshot.get_max()];
}

function equal(got, wanted) {
  const [left, right] = [JSON.stringify(got), JSON.stringify(wanted)];
  if (left !== right)
    throw new Error(`${left} is not ${right}`);
}

function same(got, wanted) {
  if (got !== wanted)
    throw new Error(`${got} is not ${wanted}`);
}

function waitFor(condition) {
  while (!condition())
    GLib.MainContext.default().iteration(true);
}

function read(path) {
  return ByteArray.toString(GLib.file_get_contents(path)[1]);
}

/* Calls the function with a new folder, and removes it. */
function inFolder(called) {
  const folder = GLib.Dir.make_tmp('vekmetrics-XXXXXX');
  try {
    called(folder);
  } finally {
    const names = Gio.File.new_for_path(folder).enumerate_children('standard::name', 0, null);
    for (let info; (info = names.next_file(null));)
      names.get_child(info).delete(null);
    GLib.rmdir(folder);
  }
}

/* A registry with two metrics, and the metrics: who drops them retires them. */
function makeRegistry() {
  const registry = new Vek.MetricRegistry();
  const timer = registry.timer_new('latency', 'Seconds', null, ['host', 'h1']);
  timer.set_usec(1500000);
  const timeline = registry.timeline_new('render');
  timeline.add_range(1, 100, 250);
  timeline.add_range(2, 300, 420);
  return [registry, timer, timeline];
}

const tests = {
  counters_count() {
    const counter = new Vek.MetricRegistry().counter_new('requests', 'Count', ['host', 'h1']);
    counter.inc();
    counter.add(5);
    counter.dec();
    equal([counter.get_count(), counter.get_time()], [5, NOW]);
  },

  metrics_say_what_they_are() {
    const counter = new Vek.MetricRegistry().counter_new('requests', 'Count', ['host', 'h1']);
    equal([counter.get_name(), counter.get_unit(), counter.get_dimensions(), counter.is_active()],
      ['requests', 'Count', ['host', 'h1'], true]);
    equal([counter.name, counter.unit, counter.dimensions, counter.active],
      ['requests', 'Count', ['host', 'h1'], true]);
    counter.mark_inactive();
    equal([counter.is_active(), counter.active], [false, false]);
  },

  arguments_that_may_be_null_are_given_as_null() {
    const counter = new Vek.MetricRegistry().counter_new('requests', null, null);
    equal([counter.get_unit(), counter.get_dimensions()], [null, null]);
  },

  gauges_hold_a_value() {
    const gauge = new Vek.MetricRegistry().gauge_new('depth', null, 0, null);
    equal(gauge.get_value(), [0, 0]);
    gauge.set_value(2.5);
    gauge.add_value(-1);
    equal(gauge.get_value(), [1.5, NOW]);
    equal([gauge.get_last_change_time(), gauge.interval], [NOW, 0]);
  },

  meters_add_up_marks_after_the_first() {
    const meter = new Vek.MetricRegistry().meter_new('received', 'Bytes/Second', null);
    for (const mark of [100, 20, 3])
      meter.mark(mark);
    equal([meter.get_total(), meter.get_rate(), meter.get_time()], [23, 0, NOW]);
    equal([meter.time_constant, meter.samplingPeriod], [60000000, 1000000]);
  },

  histograms_show_snapshots() {
    const histogram = new Vek.MetricRegistry().histogram_new('sizes', 'Bytes', null, null);
    for (const sample of [30, 10, 50, 20, 40])
      histogram.set(sample);
    const snapshot = histogram.get_snapshot();
    equal(figures(snapshot), [5, 150, 30, 10, 50]);
    equal([0, 0.5, 0.625, 1].map(q => snapshot.get_quantile(q)), [10, 30, 35, 50]);
    equal(snapshot.get_time(), NOW);
  },

  timers_measure_in_their_unit() {
    const timer = new Vek.MetricRegistry().timer_new('latency', 'Milliseconds', null, null);
    timer.set_usec(2500);
    timer.start();
    timer.stop();
    equal(figures(timer.get_snapshot()), [2, 2.5, 1.25, 0, 2.5]);
  },

  a_registry_has_one_metric_for_each_key() {
    const registry = new Vek.MetricRegistry();
    const counter = registry.counter_new('requests', 'Count', ['host', 'h1']);
    same(registry.counter_new('requests', null, ['host', 'h1']), counter);
    same(registry.get_metric('requests', ['host', 'h1']), counter);
    same(registry.get_metric('requests', ['host', 'h2']), null);
  },

  the_default_registry_is_one() {
    const registry = Vek.MetricRegistry.get_default();
    same(Vek.MetricRegistry.get_default(), registry);
    const other = new Vek.MetricRegistry();
    other.set_default();
    same(Vek.MetricRegistry.get_default(), other);
    registry.set_default();
    same(Vek.MetricRegistry.get_default(), registry);
  },

  stores_decide_which_samples_count() {
    const registry = new Vek.MetricRegistry();
    for (const [store, wanted] of [
      [Vek.MetricFixedSizeStore.new(2), [2, 70, 35, 30, 40]],
      [Vek.MetricFixedTimeStore.new(60000000, 3), [3, 90, 30, 20, 40]],
    ]) {
      const histogram = registry.histogram_new(store.constructor.name, null, store, null);
      same(histogram.store, store);
      for (const sample of [10, 20, 30, 40])
        histogram.set(sample);
      equal(figures(store.get_snapshot()), wanted);
    }
    equal(new Vek.MetricFixedSizeStore({window_size: 2}).window_size, 2);
  },

  snapshots_are_made_of_arrays() {
    equal(figures(Vek.MetricSnapshot.new([3, 1.5])), [2, 4.5, 2.25, 1.5, 3]);
    equal(figures(Vek.MetricSnapshot.new([])), [0, 0, 0, 0, 0]);
  },

  data_points_hold_what_was_set() {
    const datum = Vek.MetricDatum.new('latency');
    equal([datum.get_metric_name(), datum.get_dimensions(), datum.get_unit(),
      datum.get_value_set(), datum.get_statistic_values_set()],
    ['latency', [], null, false, false]);
    datum.set_dimensions([Vek.MetricDimension.new('host', 'h1'),
      Vek.MetricDimension.new('disk', null)]);
    datum.set_timestamp(NOW);
    datum.set_unit('Seconds');
    datum.set_value(0.5);
    datum.set_statistic_values(3, 6, 1, 3);
    System.gc();
    equal(datum.get_dimensions().map(one => [one.get_name(), one.get_value()]),
      [['host', 'h1'], ['disk', null]]);
    equal([datum.get_timestamp(), datum.get_unit(), datum.get_value(), datum.get_value_set(),
      datum.get_statistic_values(), datum.get_statistic_values_set()],
    [NOW, 'Seconds', 0.5, true, [3, 6, 1, 3], true]);
  },

  file_reporters_write_files() {
    inFolder(folder => {
      for (const [reporter, text] of [
        [Vek.MetricLogReporter.new('csv', folder),
          '1000000000000000,latency,host=h1;,1.5,1,1.5,1.5,1.5,1.5,1.5\n'],
        [Vek.MetricTimelineReporter.new('timeline', folder),
          'F,render,2,300,420\nF,render,1,100,250\n'],
      ]) {
        const [registry, ..._metrics] = makeRegistry();
        registry.report(reporter);
        equal(read(`${folder}/${reporter.basename}.csv`), text);
      }
    });
  },

  json_reporters_write_a_line_and_rotate() {
    inFolder(folder => {
      const registry = new Vek.MetricRegistry();
      const counter = registry.counter_new('frames', 'Count', null);
      counter.add(42);
      registry.report(Vek.MetricJsonLogReporter.new('log', folder, 'a1', 1, 2));
      waitFor(() => GLib.file_test(`${folder}/log.json.1`, GLib.FileTest.EXISTS));
      equal(read(`${folder}/log.json.1`),
        '2001-09-09 01:46:40,000000 [{"MetricName":"frames",' +
        '"Timestamp":"2001-09-09T01:46:40Z","Unit":"Count","Value":42.0,' +
        '"Dimensions":[{"Name":"instance","Value":"a1"}]}]\n');
      Vek.metrics_rotate_files('log.json', folder, 2);
      equal(read(`${folder}/log.json.1`), '');
      same(GLib.file_test(`${folder}/log.json.2`, GLib.FileTest.EXISTS), true);
    });
  },

  carbon_reporters_send_lines() {
    const server = new Gio.SocketService();
    const port = server.add_any_inet_port(null);
    let line = null;
    server.connect('incoming', (_server, connection) => {
      const input = new Gio.DataInputStream({base_stream: connection.get_input_stream()});
      input.read_line_async(GLib.PRIORITY_DEFAULT, null, (_input, result) => {
        line = ByteArray.toString(input.read_line_finish(result)[0]);
        connection.close(null);
      });
      return true;
    });

    const registry = new Vek.MetricRegistry();
    const counter = registry.counter_new('frames', 'Count', ['host', 'h1']);
    counter.add(42);
    registry.register_reporter(Vek.MetricCarbonReporter.new('app', '127.0.0.1', port));
    waitFor(() => line !== null);
    equal(line, 'app.host.h1.Count.frames 42 1000000000');
  },

  reporters_of_ones_own_take_every_kind() {
    const registry = new Vek.MetricRegistry();
    const counter = registry.counter_new('requests', 'Count', ['host', 'h1']);
    counter.add(3);
    const recorder = new Recorder();
    registry.report(recorder);
    equal(recorder.calls,
      [['count', 'requests', ['host', 'h1'], 'Count', NOW, 3], ['flush']]);

    counter.mark_inactive();
    const gauge = registry.gauge_new('depth', null, 0, null);
    gauge.set_value(2.5);
    const timeline = registry.timeline_new('render');
    timeline.add_range(1, 100, 250);
    timeline.add_range(2, 300, 420);
    const histogram = registry.histogram_new('sizes', 'Bytes', null, null);
    histogram.set(7);
    recorder.calls = [];
    registry.report(recorder);
    equal(recorder.calls.pop(), ['flush']);
    equal(recorder.calls.sort(), [
      ['aggregated', 'sizes', null, 'Bytes', [1, 7, 7, 7, 7]],
      ['timeline', 'render', [[2, 300, 420], [1, 100, 250]]],
      ['value', 'depth', null, null, NOW, 2.5],
    ]);
  },

  registered_reporters_are_called_in_every_pass() {
    const registry = new Vek.MetricRegistry();
    const counter = registry.counter_new('requests', null, null);
    const recorder = new Recorder();
    const flushCounter = new FlushCounter();
    registry.register_reporter(recorder);
    registry.register_reporter(flushCounter);
    counter.inc();
    waitFor(() => flushCounter.flushes === 2 && recorder.calls.length >= 4);
    equal(recorder.calls, [
      ['count', 'requests', null, null, NOW, 1], ['flush'],
      ['count', 'requests', null, null, NOW, 1], ['flush'],
    ]);
  },

  stores_of_ones_own_serve_histograms() {
    const histogram =
      new Vek.MetricRegistry().histogram_new('sizes', null, new LargestStore(), null);
    System.gc();  // the store is the histogram's now
    for (const sample of [3, 8, 5])
      histogram.set(sample);
    equal(figures(histogram.get_snapshot()), [1, 8, 8, 8, 8]);
  },
};

let failed = false;
print(`1..${Object.keys(tests).length}`);
Object.entries(tests).forEach(([name, test], index) => {
  const title = `${index + 1} /javascript/${name.replace(/_/g, '-')}`;
  try {
    test();
    print(`ok ${title}`);
  } catch (error) {
    failed = true;
    print(`not ok ${title}`);
    for (const line of `${error}\n${error.stack}`.trim().split('\n'))
      print(`# ${line}`);
  }
});
System.exit(failed ? 1 : 0);
