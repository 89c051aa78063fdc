/* Tests of the C++ interface. */

#include "support/fixture.h"

#include <vekmetrics/vekmetrics.hpp>

#include <map>
#include <string>
#include <type_traits>

template <typename... Owners>
constexpr bool are_pointers = ((sizeof(Owners) == sizeof(gpointer)) && ...);
static_assert(are_pointers<vek::Timer, vek::ConsoleReporter, vek::FixedSizeStore, vek::Snapshot>);

template <typename Derived, typename... Bases>
constexpr bool converts = (std::is_convertible_v<const Derived &, Bases> && ...);
static_assert(converts<vek::Timer, vek::Histogram, vek::Metric, VekMetricTimer *,
                       VekMetricHistogram *, VekMetric *, gpointer>);
static_assert(converts<vek::Counter, vek::Metric, VekMetricCounter *, VekMetric *>);
static_assert(converts<vek::Gauge, vek::Metric> && converts<vek::Meter, vek::Metric>);
static_assert(converts<vek::Histogram, vek::Metric> && converts<vek::Timeline, vek::Metric>);
static_assert(converts<vek::FixedSizeStore, vek::Store, VekMetricStore *>);
static_assert(converts<vek::FixedTimeStore, vek::Store> && converts<vek::RangeStore, vek::Store>);
static_assert(converts<vek::ConsoleReporter, vek::Reporter, VekMetricReporter *>);
static_assert(converts<vek::CarbonReporter, vek::Reporter>);
static_assert(converts<vek::JsonLogReporter, vek::Reporter>);
static_assert(converts<vek::LogReporter, vek::Reporter>);
static_assert(converts<vek::TimelineReporter, vek::Reporter>);
static_assert(!converts<vek::Metric, vek::Counter> && !converts<vek::Histogram, vek::Timer>);
static_assert(!converts<vek::Counter, bool> && !converts<VekMetricCounter *, vek::Counter>);

static guint references(gpointer object) {
  return G_OBJECT(object)->ref_count;
}

static void assert_joined(gchar **strings, const char *expected) {
  g_autofree char *joined = g_strjoinv(",", strings);
  g_assert_cmpstr(joined, ==, expected);
}

TEST(an_owner_takes_over_copies_moves_and_drops_references) {
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("c");
  g_assert_cmpuint(references(counter), ==, 2); /* the table's and ours */
  {
    vek::Counter copy = counter;
    g_assert_cmpuint(references(counter), ==, 3);
    vek::Counter moved = std::move(copy);
    g_assert_cmpuint(references(counter), ==, 3);
    g_assert_true(copy == nullptr);
    copy = moved;
    g_assert_cmpuint(references(counter), ==, 4);
    copy = vek::Counter();
    g_assert_cmpuint(references(counter), ==, 3);
    moved = *&moved;
    g_assert_cmpuint(references(counter), ==, 3);
  }
  g_assert_cmpuint(references(counter), ==, 2);
}

TEST(copies_of_records_share_them) {
  const gdouble sample = 2;
  vek::Snapshot snapshot = vek::Snapshot::create(&sample, 1), shared = snapshot;
  snapshot = vek::Snapshot();
  g_assert_cmpfloat(shared.max(), ==, 2.0);

  vek::Dimension dimension = vek::Dimension::create("host", "h1"), same = dimension;
  dimension = vek::Dimension();
  g_assert_cmpstr(same.value(), ==, "h1");
}

TEST(a_copy_of_an_empty_owner_is_empty) {
  vek::Counter none, copy = none;
  g_assert_true(copy == nullptr);
}

TEST(an_owner_is_shared_and_moved_as_what_it_derives_from) {
  auto registry = vek::Registry::create();
  vek::Timer timer = registry.timer("t", "Seconds");
  const vek::Metric &same = timer;
  g_assert_cmpuint(references(timer), ==, 2);
  vek::Metric metric = timer;
  g_assert_cmpuint(references(timer), ==, 3);
  g_assert_cmpstr(metric.name(), ==, "t");
  g_assert_true(metric == same);
  vek::Histogram histogram = std::move(timer);
  g_assert_cmpuint(references(histogram), ==, 3);
  g_assert_true(!timer);
  histogram.set(2.0);
  g_assert_cmpfloat(histogram.snapshot().max(), ==, 2.0);
}

TEST(an_owner_compares_as_the_pointer_that_it_is) {
  auto registry = vek::Registry::create();
  vek::Counter a = registry.counter("a"), b = registry.counter("b"), none;
  VekMetricCounter *pointer = a;
  g_assert_true(a == registry.counter("a") && a != b && a == pointer && b != pointer);
  g_assert_true(a && a != nullptr && !none && none == nullptr);
}

TEST(an_empty_owner_fails_the_checks) {
  vek::Counter().inc();
  assert_failed_check("vek_metric_counter_inc", "VEK_IS_METRIC_COUNTER(counter)");
  g_assert_cmpfloat(vek::Snapshot().sum(), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_sum", "snapshot != NULL");
  g_assert_true(!vek::Histogram().snapshot());
  assert_failed_check("vek_metric_histogram_get_snapshot", "VEK_IS_METRIC_HISTOGRAM(histogram)");
  g_assert_true(!vek::Registry().counter("c"));
  assert_failed_check("vek_metric_registry_counter_new", "VEK_IS_METRIC_REGISTRY(registry)");
}

TEST(dimensions_come_from_braces) {
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("reads", "Count", {{"host", "h1"}, {"disk", "sda"}});
  assert_joined(counter.dimensions(), "host,h1,disk,sda");
}

TEST(no_pairs_are_no_dimensions) {
  auto registry = vek::Registry::create();
  g_assert_null(registry.counter("reads", "Count", {}).dimensions());
  g_assert_null(static_cast<gchar **>(vek::Dimensions(std::map<std::string, std::string>())));
}

TEST(dimensions_own_strings_computed_at_run_time) {
  auto number = std::make_unique<std::string>("a number that is too long to be kept in place: 7");
  std::map<std::string, std::string> pairs{{"worker", *number}, {"empty", ""}};
  vek::Dimensions braces{{"worker", *number + "!"}, {std::string("host"), "h1"}};
  vek::Dimensions container(pairs);
  number.reset();
  pairs.clear();
  assert_joined(braces, "worker,a number that is too long to be kept in place: 7!,host,h1");
  assert_joined(container, "empty,,worker,a number that is too long to be kept in place: 7");
}

TEST(dimensions_are_copied_and_moved) {
  vek::Dimensions copy, none;
  {
    vek::Dimensions original{{"host", "h1"}};
    copy = original;
    g_assert_true(static_cast<gchar **>(copy) != static_cast<gchar **>(original));
    vek::Dimensions moved = std::move(original);
    g_assert_null(static_cast<gchar **>(original));
    assert_joined(moved, "host,h1");
  }
  assert_joined(copy, "host,h1");
  copy = none;
  g_assert_null(static_cast<gchar **>(copy));
}

TEST(a_counter_counts) {
  vek_testing_clock_set(7000, 1);
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("requests", "Count", {{"host", "h1"}});
  counter.add(5);
  counter.inc();
  counter.inc();
  counter.dec();
  g_assert_cmpint(counter.count(), ==, 6);
  g_assert_cmpint(counter.time(), ==, 7000);
  g_assert_cmpstr(counter.name(), ==, "requests");
  g_assert_cmpstr(counter.unit(), ==, "Count");
  g_assert_true(counter.is_active());
  counter.mark_inactive();
  g_assert_false(counter.is_active());
}

TEST(a_gauge_is_set_and_added_to) {
  vek_testing_clock_set(7000, 1);
  auto registry = vek::Registry::create();
  vek::Gauge gauge = registry.gauge("load", "Percent");
  gauge.set(2.5);
  gauge.add(0.5);
  vek_testing_clock_advance(1000);
  gint64 time;
  g_assert_cmpfloat(gauge.value(&time), ==, 3.0);
  g_assert_cmpint(time, ==, 8000);
  g_assert_cmpfloat(gauge.value(), ==, 3.0);
  g_assert_cmpint(gauge.last_change_time(), ==, 7000);
}

TEST(a_gauge_has_its_interval_and_dimensions) {
  auto registry = vek::Registry::create();
  vek::Gauge gauge = registry.gauge("load", nullptr, 60 * G_USEC_PER_SEC, {{"host", "h1"}});
  gint64 interval;
  g_object_get(gauge, "interval", &interval, nullptr);
  g_assert_cmpint(interval, ==, 60000000);
  assert_joined(gauge.dimensions(), "host,h1");
}

TEST(a_meter_is_marked) {
  vek_testing_clock_set(7000, 1);
  auto registry = vek::Registry::create();
  vek::Meter meter = registry.meter("sent", "Bytes/Second", {{"host", "h1"}});
  g_assert_cmpstr(meter.name(), ==, "sent");
  g_assert_cmpstr(meter.unit(), ==, "Bytes/Second");
  meter.mark(0);
  vek_testing_clock_advance(2 * G_USEC_PER_SEC);
  meter.mark(10);
  g_assert_cmpfloat(meter.rate(), ==, 5.0);
  g_assert_cmpfloat(meter.total(), ==, 10.0);
  g_assert_cmpint(meter.time(), ==, 2007000);
  assert_joined(meter.dimensions(), "host,h1");
}

TEST(a_histogram_takes_its_store) {
  auto registry = vek::Registry::create();
  auto store = vek::FixedSizeStore::create(2);
  vek::Histogram histogram = registry.histogram("sizes", "Bytes", store, {{"host", "h1"}});
  g_assert_cmpstr(histogram.name(), ==, "sizes");
  g_assert_cmpstr(histogram.unit(), ==, "Bytes");
  for (int size : {1, 2, 3})
    histogram.set(size);
  store.add(4);
  g_assert_cmpfloat(histogram.snapshot().min(), ==, 3.0);
  g_assert_cmpfloat(store.snapshot().max(), ==, 4.0);
  assert_joined(histogram.dimensions(), "host,h1");
}

TEST(a_store_of_a_recent_time_forgets) {
  vek_testing_clock_set(1, 1000);
  auto store = vek::FixedTimeStore::create(G_USEC_PER_SEC, 10);
  store.add(1);
  vek_testing_clock_advance(2 * G_USEC_PER_SEC);
  store.add(2);
  vek::Snapshot snapshot = store.snapshot();
  g_assert_cmpuint(snapshot.n_samples(), ==, 1);
  g_assert_cmpfloat(snapshot.max(), ==, 2.0);
}

TEST(a_timer_measures) {
  vek_testing_clock_set(1, 1000);
  auto registry = vek::Registry::create();
  auto store = vek::FixedSizeStore::create(2);
  vek::Timer timer = registry.timer("latency", "Milliseconds", store, {{"host", "h1"}});
  timer.start();
  vek_testing_clock_advance(5000);
  timer.stop();
  timer.set_usec(7000);
  timer.set_usec(9000);
  g_assert_cmpfloat(timer.snapshot().min(), ==, 7.0);
  g_assert_cmpfloat(timer.snapshot().max(), ==, 9.0);
  assert_joined(timer.dimensions(), "host,h1");
}

TEST(a_timer_stops_its_own_start) {
  vek_testing_clock_set(1, 1000);
  auto registry = vek::Registry::create();
  vek::Timer timer = registry.timer("latency", "Microseconds");
  timer.start();
  vek_testing_clock_advance(5);
  timer.stop();
  g_assert_cmpfloat(timer.snapshot().sum(), ==, 5.0);
}

static void assert_walked(const vek::Ranges &ranges, const char *expected) {
  std::string walked;
  for (const VekMetricRange &range : ranges)
    walked += std::to_string(range.id) + ':' + std::to_string(range.start) + '-' +
              std::to_string(range.end) + ' ';
  g_assert_cmpstr(walked.c_str(), ==, expected);
}

TEST(ranges_are_walked_the_newest_first) {
  auto registry = vek::Registry::create();
  vek::Timeline timeline = registry.timeline("render");
  timeline.add_range(1, 100, 250);
  timeline.add_range(2, 300, 420);
  assert_walked(timeline.move_data(), "2:300-420 1:100-250 ");
  assert_walked(timeline.move_data(), "");

  auto store = vek::RangeStore::create();
  store.add_range(3, 1, 2);
  vek::Store(store).add_range(4, 5, 9);
  assert_walked(store.move_data(), "4:5-9 3:1-2 ");
}

TEST(a_snapshot_names_its_statistics) {
  vek_testing_clock_set(7000, 1);
  const gdouble samples[] = {5, 1, 4, 2, 3};
  vek::Snapshot snapshot = vek::Snapshot::create(samples, G_N_ELEMENTS(samples));
  g_assert_cmpint(snapshot.time(), ==, 7000);
  g_assert_cmpuint(snapshot.n_samples(), ==, 5);
  g_assert_cmpfloat(snapshot.sum(), ==, 15.0);
  g_assert_cmpfloat(snapshot.average(), ==, 3.0);
  g_assert_cmpfloat(snapshot.min(), ==, 1.0);
  g_assert_cmpfloat(snapshot.max(), ==, 5.0);
  g_assert_cmpfloat(snapshot.quantile(0.5), ==, 3.0);
}

TEST(a_datum_is_filled_and_read) {
  auto dimension = vek::Dimension::create("host", "h1");
  g_assert_cmpstr(dimension.name(), ==, "host");
  auto datum = vek::Datum::create("requests");
  VekMetricDimension *dimensions[] = {dimension};
  datum.set_dimensions(dimensions, 1);
  datum.set_timestamp(7000);
  datum.set_unit("Count");
  g_assert_false(datum.value_set() || datum.statistic_values_set());
  datum.set_value(2.5);
  datum.set_statistic_values(4, 10, 1, 5);

  vek::Datum copy = datum;
  datum = vek::Datum();
  g_assert_cmpstr(copy.metric_name(), ==, "requests");
  guint n_dimensions;
  g_assert_cmpstr(vek_metric_dimension_get_value(copy.dimensions(&n_dimensions)[0]), ==, "h1");
  g_assert_cmpuint(n_dimensions, ==, 1);
  g_assert_cmpstr(dimension.value(), ==, "h1");
  g_assert_cmpint(copy.timestamp(), ==, 7000);
  g_assert_cmpstr(copy.unit(), ==, "Count");
  g_assert_cmpfloat(copy.value(), ==, 2.5);
  g_assert_true(copy.value_set() && copy.statistic_values_set());
  guint64 n_samples;
  gdouble sum, min, max;
  copy.statistic_values(&n_samples, &sum, &min, &max);
  g_assert_cmpuint(n_samples, ==, 4);
  g_assert_true(sum == 10 && min == 1 && max == 5);
}

TEST(a_metric_is_found_as_the_kind_that_it_is) {
  auto registry = vek::Registry::create();
  vek::Timer timer = registry.timer("latency", "Seconds", nullptr, {{"host", "h1"}});
  vek::Metric metric = registry.get_metric("latency", {{"host", "h1"}});
  g_assert_true(metric == timer && metric.as<vek::Timer>() == timer);
  g_assert_true(metric.as<vek::Histogram>() == timer);
  g_assert_true(!metric.as<vek::Counter>() && !metric.as<vek::Gauge>());
  g_assert_true(!metric.as<vek::Meter>() && !metric.as<vek::Timeline>());
  g_assert_true(!registry.get_metric("latency") && !vek::Metric().as<vek::Timer>());
  g_assert_cmpuint(references(timer), ==, 3);

  vek::Counter counter = registry.counter("c");
  g_assert_true(registry.get_metric("c").as<vek::Counter>() == counter);
  g_assert_true(!registry.get_metric("c").as<vek::Histogram>());
}

TEST(the_default_registry_is_shared) {
  auto registry = vek::Registry::create();
  registry.set_default();
  g_assert_true(vek::Registry::get_default() == registry);
  g_assert_cmpuint(references(registry), ==, 2);
  vek_metric_registry_set_default(nullptr);
  g_assert_cmpuint(references(registry), ==, 1);
}

TEST(a_registry_reports) {
  vek_testing_clock_set(7000, 1);
  g_autoptr(GString) record = g_string_new(nullptr);
  vek::Reporter reporter(record_to(record, "a"));
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("requests", "Count", {{"host", "h1"}});
  registry.report(reporter);
  assert_recorded(record, "a count requests{host=h1} 0 Count @7000\na flush\n");

  auto console = vek::ConsoleReporter::create();
  registry.register_reporter(console);
  g_assert_cmpuint(references(console), ==, 2);
}

static void assert_has_basename(const vek::Reporter &reporter, GType type) {
  g_assert_true(G_TYPE_CHECK_INSTANCE_TYPE(static_cast<VekMetricReporter *>(reporter), type));
  g_autofree char *basename = nullptr;
  g_object_get(reporter, "basename", &basename, nullptr);
  g_assert_cmpstr(basename, ==, "name");
}

TEST(reporters_are_made_of_their_types) {
  g_assert_true(VEK_IS_METRIC_CONSOLE_REPORTER(vek::ConsoleReporter::create()));
  assert_has_basename(vek::LogReporter::create("name", nullptr), VEK_TYPE_METRIC_LOG_REPORTER);
  assert_has_basename(vek::TimelineReporter::create("name", nullptr),
                      VEK_TYPE_METRIC_TIMELINE_REPORTER);

  auto carbon = vek::CarbonReporter::create("site", nullptr, 2003);
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_WARNING, "*");
  g_autofree char *prefix = nullptr;
  guint port;
  g_object_get(carbon, "prefix", &prefix, "server-port", &port, nullptr);
  g_assert_cmpstr(prefix, ==, "site");
  g_assert_cmpuint(port, ==, 2003);

  auto json = vek::JsonLogReporter::create("name", nullptr, "i", 3, 4);
  assert_has_basename(json, VEK_TYPE_METRIC_JSON_LOG_REPORTER);
  g_autofree char *instance_id = nullptr;
  guint max_reports, rotate;
  g_object_get(json, "instance-id", &instance_id, "max-reports", &max_reports, "rotate", &rotate,
               nullptr);
  g_assert_cmpstr(instance_id, ==, "i");
  g_assert_cmpuint(max_reports, ==, 3);
  g_assert_cmpuint(rotate, ==, 4);
}

TEST(scoped_timers_that_overlap_measure_each_their_own) {
  auto registry = vek::Registry::create();
  vek::Timer timer = registry.timer("t", "Microseconds");
  vek_testing_clock_set(1, 1000);
  {
    vek::ScopedTimer outer(timer);
    vek_testing_clock_advance(10);
    {
      vek::ScopedTimer inner(timer);
      vek_testing_clock_advance(5);
    }
    vek_testing_clock_advance(20);
  }
  vek::Snapshot snapshot = timer.snapshot();
  g_assert_cmpuint(snapshot.n_samples(), ==, 2);
  g_assert_cmpfloat(snapshot.min(), ==, 5.0);
  g_assert_cmpfloat(snapshot.max(), ==, 35.0);
}

TEST(a_tally_publishes_at_its_limit_when_asked_and_at_the_end) {
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("c");
  {
    vek::Tally tally(counter, 3);
    tally.inc();
    tally.inc();
    g_assert_cmpint(counter.count(), ==, 0);
    tally.inc();
    g_assert_cmpint(counter.count(), ==, 3);
    tally.inc();
    tally.publish();
    g_assert_cmpint(counter.count(), ==, 4);
    tally.dec();
    tally.add(-2);
    g_assert_cmpint(counter.count(), ==, 1);
    tally.add(2);
  }
  g_assert_cmpint(counter.count(), ==, 3);
}

TEST(a_tally_publishes_nothing_when_it_holds_nothing) {
  auto registry = vek::Registry::create();
  vek_testing_clock_set(1000, 1);
  vek::Counter counter = registry.counter("c");
  vek_testing_clock_set(2000, 1);
  {
    vek::Tally tally(counter);
    tally.inc();
    tally.dec();
  }
  g_assert_cmpint(counter.time(), ==, 1000);
}

TEST(a_tally_passes_large_values_through) {
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("c");
  vek::Tally tally(counter, 10);
  tally.add(5);
  tally.add(100);
  g_assert_cmpint(counter.count(), ==, 100);
  tally.add(-10);
  g_assert_cmpint(counter.count(), ==, 90);
  tally.publish();
  g_assert_cmpint(counter.count(), ==, 95);
}

TEST(a_tally_holds_a_thousand_by_default) {
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("c");
  vek::Tally tally(counter);
  tally.add(1023);
  g_assert_cmpint(counter.count(), ==, 0);
  tally.inc();
  g_assert_cmpint(counter.count(), ==, 1024);
}

TEST(limits_of_a_tally_that_are_out_of_range_become_the_nearest) {
  auto registry = vek::Registry::create();
  vek_testing_clock_set(1000, 1);
  vek::Counter counter = registry.counter("c");
  vek_testing_clock_set(2000, 1);
  vek::Tally low(counter, 0);
  low.add(0);
  g_assert_cmpint(counter.time(), ==, 1000);
  low.inc();
  g_assert_cmpint(counter.count(), ==, 1);
  vek::Tally high(counter, G_MAXINT64);
  high.add(G_MAXINT64 / 2 - 1);
  g_assert_cmpint(counter.count(), ==, 1);
  high.inc();
  g_assert_cmpint(counter.count(), ==, 1 + G_MAXINT64 / 2);
}

TEST(a_tally_does_not_overflow) {
  auto registry = vek::Registry::create();
  vek::Counter counter = registry.counter("c");
  vek::Tally tally(counter, G_MAXINT64);
  tally.add(G_MAXINT64 - 1);
  tally.add(G_MAXINT64);
  g_assert_cmpint(counter.count(), ==, -3); /* wrapped by the counter */
}
