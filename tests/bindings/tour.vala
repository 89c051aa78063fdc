/* A tour of the library in Vala. Time stands still: the clock for tests is loaded. */

const int64 NOW = 1000000000000000;

/* A reporter that keeps each call, as the interface makes it. */
class Recorder : Object, Vek.MetricReporter {
  public string[] calls = {};

  void process_count(string name, string[]? dimensions, string? unit, int64 timestamp,
                     int64 count) {
    calls += @"count $name $(join(dimensions)) $(unit ?? "null") $timestamp $count";
  }

  void process_value(string name, string[]? dimensions, string? unit, int64 timestamp,
                     double value) {
    calls += @"value $name $(join(dimensions)) $(unit ?? "null") $timestamp $value";
  }

  void process_timeline_samples(string name, SList<Vek.MetricRange?>? samples) {
    calls += @"timeline $name$(triples(samples))";
  }

  void process_aggregated(string name, string[]? dimensions, string? unit,
                          Vek.MetricSnapshot snapshot) {
    calls += @"aggregated $name $(join(dimensions)) $(unit ?? "null") $(figures(snapshot))";
  }

  void flush() {
    calls += "flush";
  }
}

/* The least that a reporter can be. */
class FlushCounter : Object, Vek.MetricReporter {
  public int flushes = 0;

  void flush() {
    flushes++;
  }
}

/* A store that keeps the largest sample only. */
class LargestStore : Vek.MetricStore {
  double largest = 0;

  public override void add(double value) {
    largest = double.max(largest, value);
  }

  public override Vek.MetricSnapshot? get_snapshot() {
    return new Vek.MetricSnapshot({largest});
  }
}

string join(string[]? dimensions) {
  return dimensions == null ? "null" : string.joinv(",", dimensions);
}

string triples(SList<Vek.MetricRange?>? ranges) {
  var text = new StringBuilder();
  foreach (unowned Vek.MetricRange? one in ranges)
    text.append(@" $(one.id):$(one.start)-$(one.end)");
  return text.str;
}

string figures(Vek.MetricSnapshot snapshot) {
  return @"$(snapshot.get_n_samples()) $(snapshot.get_sum()) $(snapshot.get_average()) "
    + @"$(snapshot.get_min()) $(snapshot.get_max())";
}

Vek.MetricRegistry new_registry() {
  return (Vek.MetricRegistry) Object.new(typeof(Vek.MetricRegistry));
}

string make_folder() {
  try {
    return DirUtils.make_tmp("vekmetrics-XXXXXX");
  } catch (FileError error) {
    assert_not_reached();
  }
}

string take_text(string path) {
  try {
    string text;
    FileUtils.get_contents(path, out text);
    FileUtils.remove(path);
    return text;
  } catch (FileError error) {
    return error.message;
  }
}

void counters_count() {
  var counter = new_registry().counter_new("requests", "Count", {"host", "h1"});
  counter.inc();
  counter.add(5);
  counter.dec();
  assert_cmpint((int) counter.get_count(), EQ, 5);
  assert_true(counter.get_time() == NOW);
}

void metrics_say_what_they_are() {
  var counter = new_registry().counter_new("requests", "Count", {"host", "h1"});
  assert_cmpstr(counter.get_name(), EQ, "requests");
  assert_cmpstr(counter.get_unit(), EQ, "Count");
  assert_cmpstr(join(counter.get_dimensions()), EQ, "host,h1");
  assert_cmpstr(counter.name, EQ, "requests");
  assert_cmpstr(counter.unit, EQ, "Count");
  assert_cmpstr(join(counter.dimensions), EQ, "host,h1");
  assert_true(counter.is_active() && counter.active);
  counter.mark_inactive();
  assert_false(counter.is_active() || counter.active);
}

void gauges_hold_a_value() {
  var gauge = new_registry().gauge_new("depth", null, 0, null);
  int64 time;
  assert_cmpfloat(gauge.get_value(out time), EQ, 0);
  assert_true(time == 0);
  gauge.set_value(2.5);
  gauge.add_value(-1);
  assert_cmpfloat(gauge.get_value(out time), EQ, 1.5);
  assert_true(time == NOW && gauge.get_last_change_time() == NOW);
  assert_true(gauge.interval == 0);
}

void meters_add_up_marks_after_the_first() {
  var meter = new_registry().meter_new("received", "Bytes/Second", null);
  foreach (double mark in new double[] {100, 20, 3})
    meter.mark(mark);
  assert_cmpfloat(meter.get_total(), EQ, 23);
  assert_cmpfloat(meter.get_rate(), EQ, 0);
  assert_true(meter.get_time() == NOW);
  assert_true(meter.time_constant == 60000000 && meter.sampling_period == 1000000);
}

void histograms_show_snapshots() {
  var histogram = new_registry().histogram_new("sizes", "Bytes", null, null);
  foreach (double sample in new double[] {30, 10, 50, 20, 40})
    histogram.set(sample);
  var snapshot = histogram.get_snapshot();
  assert_cmpstr(figures(snapshot), EQ, "5 150 30 10 50");
  assert_cmpfloat(snapshot.get_quantile(0), EQ, 10);
  assert_cmpfloat(snapshot.get_quantile(0.625), EQ, 35);
  assert_cmpfloat(snapshot.get_quantile(1), EQ, 50);
  assert_true(snapshot.get_time() == NOW);
}

void timers_measure_in_their_unit() {
  var timer = new_registry().timer_new("latency", "Milliseconds", null, null);
  timer.set_usec(2500);
  timer.start();
  timer.stop();
  assert_cmpstr(figures(timer.get_snapshot()), EQ, "2 2.5 1.25 0 2.5");
}

void timelines_collect_ranges() {
  var timeline = new_registry().timeline_new("render");
  timeline.add_range(1, 100, 250);
  timeline.add_range(2, int64.MIN, int64.MAX);
  assert_cmpstr(triples(timeline.move_data()), EQ,
                " 2:-9223372036854775808-9223372036854775807 1:100-250");
  assert_true(timeline.move_data() == null);
}

void a_registry_has_one_metric_for_each_key() {
  var registry = new_registry();
  var counter = registry.counter_new("requests", "Count", {"host", "h1"});
  assert_true(registry.counter_new("requests", null, {"host", "h1"}) == counter);
  assert_true(registry.get_metric("requests", {"host", "h1"}) == counter);
  assert_null(registry.get_metric("requests", {"host", "h2"}));
}

void the_default_registry_is_one() {
  var registry = Vek.MetricRegistry.get_default();
  assert_true(Vek.MetricRegistry.get_default() == registry);
  var other = new_registry();
  other.set_default();
  assert_true(Vek.MetricRegistry.get_default() == other);
}

void stores_decide_which_samples_count() {
  Vek.MetricStore[] stores = {
    new Vek.MetricFixedSizeStore(2), new Vek.MetricFixedTimeStore(60000000, 3)
  };
  string[] wanted = {"2 70 35 30 40", "3 90 30 20 40"};
  for (int i = 0; i < stores.length; i++) {
    var histogram = new_registry().histogram_new("sizes", null, stores[i], null);
    assert_true(histogram.store == stores[i]);
    foreach (double sample in new double[] {10, 20, 30, 40})
      histogram.set(sample);
    assert_cmpstr(figures(stores[i].get_snapshot()), EQ, wanted[i]);
  }
}

void range_stores_give_their_ranges_away() {
  var store = new Vek.MetricRangeStore();
  store.add_range(7, 1, 2);
  assert_cmpstr(triples(store.move_data()), EQ, " 7:1-2");
  assert_true(store.move_data() == null);
}

void snapshots_are_made_of_arrays() {
  assert_cmpstr(figures(new Vek.MetricSnapshot({3, 1.5})), EQ, "2 4.5 2.25 1.5 3");
  assert_cmpstr(figures(new Vek.MetricSnapshot(null)), EQ, "0 0 0 0 0");
}

void copies_of_records_share_them() {
  var dimension = new Vek.MetricDimension("host", "h1");
  var copy = dimension;
  assert_true(copy == dimension);
  dimension = null;
  assert_cmpstr(copy.get_name(), EQ, "host");
  assert_cmpstr(copy.get_value(), EQ, "h1");
}

void data_points_hold_what_was_set() {
  var datum = new Vek.MetricDatum("latency");
  assert_cmpstr(datum.get_metric_name(), EQ, "latency");
  assert_true(datum.get_dimensions() == null && datum.get_unit() == null);
  assert_false(datum.get_value_set() || datum.get_statistic_values_set());

  datum.set_dimensions({
    new Vek.MetricDimension("host", "h1"), new Vek.MetricDimension("disk", null)
  });
  datum.set_timestamp(NOW);
  datum.set_unit("Seconds");
  datum.set_value(0.5);
  datum.set_statistic_values(3, 6, 1, 3);

  unowned Vek.MetricDimension[] dimensions = datum.get_dimensions();
  assert_cmpint(dimensions.length, EQ, 2);
  assert_cmpstr(dimensions[0].get_value(), EQ, "h1");
  assert_cmpstr(dimensions[1].get_name(), EQ, "disk");
  assert_null(dimensions[1].get_value());
  assert_true(datum.get_timestamp() == NOW);
  assert_cmpstr(datum.get_unit(), EQ, "Seconds");
  assert_cmpfloat(datum.get_value(), EQ, 0.5);
  uint64 count;
  double sum, minimum, maximum;
  datum.get_statistic_values(out count, out sum, out minimum, out maximum);
  assert_cmpstr(@"$count $sum $minimum $maximum", EQ, "3 6 1 3");
  assert_true(datum.get_value_set() && datum.get_statistic_values_set());
}

StringBuilder printed;

void console_reporters_print() {
  var registry = new_registry();
  var counter = registry.counter_new("frames", "Count", {"host", "h1"});
  counter.add(42);
  printed = new StringBuilder();
  set_print_handler(text => printed.append(text));
  registry.report(new Vek.MetricConsoleReporter());
  set_print_handler(text => stdout.puts(text));
  assert_cmpstr(printed.str, EQ, "host=h1:\nframes: 42\n\n");
}

void file_reporters_write_files() {
  var folder = make_folder();
  var registry = new_registry();
  var timer = registry.timer_new("latency", "Seconds", null, {"host", "h1"});
  timer.set_usec(1500000);
  registry.report(new Vek.MetricLogReporter("csv", folder));
  assert_cmpstr(take_text(folder + "/csv.csv"), EQ,
                "1000000000000000,latency,host=h1;,1.5,1,1.5,1.5,1.5,1.5,1.5\n");

  var timeline = registry.timeline_new("render");
  timeline.add_range(1, 100, 250);
  timeline.add_range(2, 300, 420);
  registry.report(new Vek.MetricTimelineReporter("timeline", folder));
  assert_cmpstr(take_text(folder + "/timeline.csv"), EQ,
                "F,render,2,300,420\nF,render,1,100,250\n");
  assert_cmpint(DirUtils.remove(folder), EQ, 0);
}

void json_reporters_write_a_line_and_rotate() {
  var folder = make_folder();
  var registry = new_registry();
  var counter = registry.counter_new("frames", "Count", null);
  counter.add(42);
  registry.report(new Vek.MetricJsonLogReporter("log", folder, "a1", 1, 2));
  while (!FileUtils.test(folder + "/log.json.1", EXISTS))
    MainContext.default().iteration(true);
  Vek.metrics_rotate_files("log.json", folder, 2);
  assert_cmpstr(take_text(folder + "/log.json.1"), EQ, "");
  assert_cmpstr(take_text(folder + "/log.json.2"), EQ,
                """2001-09-09 01:46:40,000000 [{"MetricName":"frames",""" +
                """"Timestamp":"2001-09-09T01:46:40Z","Unit":"Count","Value":42.0,""" +
                """"Dimensions":[{"Name":"instance","Value":"a1"}]}]""" + "\n");
  assert_cmpint(DirUtils.remove(folder), EQ, 0);
}

SocketConnection connection;

async void take_line(SocketListener server, StringBuilder line) {
  try {
    connection = yield server.accept_async();
    line.append(yield new DataInputStream(connection.input_stream).read_line_async());
  } catch (Error error) {
    line.append(error.message);
  }
}

void carbon_reporters_send_lines() {
  var server = new SocketListener();
  uint16 port = 0;
  try {
    port = server.add_any_inet_port(null);
  } catch (Error error) {
    assert_not_reached();
  }
  var line = new StringBuilder();
  take_line.begin(server, line);

  var registry = new_registry();
  var counter = registry.counter_new("frames", "Count", {"host", "h1"});
  counter.add(42);
  var reporter = new Vek.MetricCarbonReporter("app", "127.0.0.1", port);
  var is_gone = false;
  reporter.weak_ref(() => is_gone = true);
  registry.register_reporter(reporter);
  while (line.len == 0)
    MainContext.default().iteration(true);

  // What is still sent must find the connection open: writing fails with a warning, which is fatal.
  registry = null;
  reporter = null;
  while (!is_gone)
    MainContext.default().iteration(true);
  connection = null;
  assert_cmpstr(line.str, EQ, "app.host.h1.Count.frames 42 1000000000");
}

void reporters_of_ones_own_take_every_kind() {
  var registry = new_registry();
  var counter = registry.counter_new("requests", "Count", {"host", "h1"});
  counter.add(3);
  var recorder = new Recorder();
  registry.report(recorder);
  assert_cmpstr(string.joinv("\n", recorder.calls), EQ,
                "count requests host,h1 Count 1000000000000000 3\nflush");

  counter.mark_inactive();
  var gauge = registry.gauge_new("depth", null, 0, null);
  gauge.set_value(2.5);
  var timeline = registry.timeline_new("render");
  timeline.add_range(1, 100, 250);
  timeline.add_range(2, 300, 420);
  var histogram = registry.histogram_new("sizes", "Bytes", null, null);
  histogram.set(7);
  recorder.calls = {};
  registry.report(recorder);
  var calls = new GenericArray<string>();
  foreach (var call in recorder.calls)
    calls.add(call);
  assert_cmpstr(calls[3], EQ, "flush");
  calls.sort(strcmp);
  assert_cmpstr(string.joinv("\n", calls.data), EQ,
                "aggregated sizes null Bytes 1 7 7 7 7\n" +
                "flush\n" +
                "timeline render 2:300-420 1:100-250\n" +
                "value depth null null 1000000000000000 2.5");
}

void registered_reporters_are_called_in_every_pass() {
  var registry = new_registry();
  var counter = registry.counter_new("requests", null, null);
  var recorder = new Recorder();
  var flush_counter = new FlushCounter();
  registry.register_reporter(flush_counter);
  registry.register_reporter(recorder);
  counter = null;  // reported for the last time
  while (flush_counter.flushes < 3)
    MainContext.default().iteration(true);
  assert_cmpstr(string.joinv("\n", recorder.calls), EQ,
                "count requests null null 1000000000000000 0\nflush\nflush\nflush");
}

void stores_of_ones_own_serve_histograms() {
  var histogram = new_registry().histogram_new("sizes", null, new LargestStore(), null);
  foreach (double sample in new double[] {3, 8, 5})
    histogram.set(sample);
  assert_cmpstr(figures(histogram.get_snapshot()), EQ, "1 8 8 8 8");
}

int main(string[] args) {
  Test.init(ref args);
  Test.add_func("/vala/counters-count", counters_count);
  Test.add_func("/vala/metrics-say-what-they-are", metrics_say_what_they_are);
  Test.add_func("/vala/gauges-hold-a-value", gauges_hold_a_value);
  Test.add_func("/vala/meters-add-up-marks-after-the-first", meters_add_up_marks_after_the_first);
  Test.add_func("/vala/histograms-show-snapshots", histograms_show_snapshots);
  Test.add_func("/vala/timers-measure-in-their-unit", timers_measure_in_their_unit);
  Test.add_func("/vala/timelines-collect-ranges", timelines_collect_ranges);
  Test.add_func("/vala/a-registry-has-one-metric-for-each-key",
                a_registry_has_one_metric_for_each_key);
  Test.add_func("/vala/the-default-registry-is-one", the_default_registry_is_one);
  Test.add_func("/vala/stores-decide-which-samples-count", stores_decide_which_samples_count);
  Test.add_func("/vala/range-stores-give-their-ranges-away", range_stores_give_their_ranges_away);
  Test.add_func("/vala/snapshots-are-made-of-arrays", snapshots_are_made_of_arrays);
  Test.add_func("/vala/copies-of-records-share-them", copies_of_records_share_them);
  Test.add_func("/vala/data-points-hold-what-was-set", data_points_hold_what_was_set);
  Test.add_func("/vala/console-reporters-print", console_reporters_print);
  Test.add_func("/vala/file-reporters-write-files", file_reporters_write_files);
  Test.add_func("/vala/json-reporters-write-a-line-and-rotate",
                json_reporters_write_a_line_and_rotate);
  Test.add_func("/vala/carbon-reporters-send-lines", carbon_reporters_send_lines);
  Test.add_func("/vala/reporters-of-ones-own-take-every-kind",
                reporters_of_ones_own_take_every_kind);
  Test.add_func("/vala/registered-reporters-are-called-in-every-pass",
                registered_reporters_are_called_in_every_pass);
  Test.add_func("/vala/stores-of-ones-own-serve-histograms", stores_of_ones_own_serve_histograms);
  return Test.run();
}
