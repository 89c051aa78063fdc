/* Tests of the C++ header. */

#include "support/fixture.h"

#include <vekmetrics/vekmetrics.hpp>

static vek::Registry make_registry() {
  return vek::Registry(VEK_METRIC_REGISTRY(g_object_new(VEK_TYPE_METRIC_REGISTRY, nullptr)));
}

static guint references(gpointer object) {
  return G_OBJECT(object)->ref_count;
}

TEST(an_owner_takes_over_copies_moves_and_drops_references) {
  vek::Registry registry = make_registry();
  vek::Counter counter(vek_metric_registry_counter_new(registry, "c", nullptr, nullptr));
  g_assert_cmpuint(references(counter), ==, 2); /* the table's and ours */
  {
    vek::Counter copy = counter;
    g_assert_cmpuint(references(counter), ==, 3);
    vek::Counter moved = std::move(copy);
    g_assert_cmpuint(references(counter), ==, 3);
    g_assert_null(static_cast<VekMetricCounter *>(copy));
    copy = moved;
    g_assert_cmpuint(references(counter), ==, 4);
    copy = vek::Counter();
    g_assert_cmpuint(references(counter), ==, 3);
    moved = *&moved;
    g_assert_cmpuint(references(counter), ==, 3);
  }
  g_assert_cmpuint(references(counter), ==, 2);
}

TEST(records_are_owned_by_their_own_counts) {
  vek::Dimension dimension(vek_metric_dimension_new("host", "h1"));
  vek::Datum datum(vek_metric_datum_new("requests"));
  VekMetricDimension *dimensions[] = {dimension};
  vek_metric_datum_set_dimensions(datum, dimensions, 1);
  vek::Datum copy = datum;
  datum = vek::Datum();
  guint n_dimensions;
  vek_metric_datum_get_dimensions(copy, &n_dimensions);
  g_assert_cmpuint(n_dimensions, ==, 1);
  g_assert_cmpstr(vek_metric_dimension_get_value(dimension), ==, "h1");
}

TEST(dimensions_come_from_braces) {
  vek::Registry registry = make_registry();
  vek::Counter counter(vek_metric_registry_counter_new(
      registry, "reads", "Count", vek::Dimensions{{"host", "h1"}, {"disk", "sda"}}));
  g_autofree char *joined = g_strjoinv(",", vek_metric_get_dimensions(VEK_METRIC(counter)));
  g_assert_cmpstr(joined, ==, "host,h1,disk,sda");
  vek::Counter none(vek_metric_registry_counter_new(registry, "reads", "Count", vek::Dimensions{}));
  g_assert_cmpuint(g_strv_length(vek_metric_get_dimensions(VEK_METRIC(none))), ==, 0);
}

TEST(a_snapshot_names_its_statistics) {
  vek_testing_clock_set(7000, 1);
  const gdouble samples[] = {5, 1, 4, 2, 3};
  vek::Snapshot snapshot(vek_metric_snapshot_new(samples, G_N_ELEMENTS(samples)));
  g_assert_cmpint(snapshot.time(), ==, 7000);
  g_assert_cmpuint(snapshot.n_samples(), ==, 5);
  g_assert_cmpfloat(snapshot.sum(), ==, 15.0);
  g_assert_cmpfloat(snapshot.average(), ==, 3.0);
  g_assert_cmpfloat(snapshot.min(), ==, 1.0);
  g_assert_cmpfloat(snapshot.max(), ==, 5.0);
  g_assert_cmpfloat(snapshot.quantile(0.5), ==, 3.0);
}

TEST(an_empty_snapshot_owner_fails_the_checks) {
  g_assert_cmpfloat(vek::Snapshot().sum(), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_sum", "snapshot != NULL");
}

TEST(scoped_timers_that_overlap_measure_each_their_own) {
  vek::Registry registry = make_registry();
  vek::Timer timer(vek_metric_registry_timer_new(registry, "t", "Microseconds", nullptr, nullptr));
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
  vek::Snapshot snapshot(vek_metric_histogram_get_snapshot(VEK_METRIC_HISTOGRAM(timer)));
  g_assert_cmpuint(snapshot.n_samples(), ==, 2);
  g_assert_cmpfloat(snapshot.min(), ==, 5.0);
  g_assert_cmpfloat(snapshot.max(), ==, 35.0);
}

TEST(a_tally_publishes_at_its_limit_when_asked_and_at_the_end) {
  vek::Registry registry = make_registry();
  vek::Counter counter(vek_metric_registry_counter_new(registry, "c", nullptr, nullptr));
  {
    vek::Tally tally(counter, 3);
    tally.inc();
    tally.inc();
    g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 0);
    tally.inc();
    g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 3);
    tally.inc();
    tally.publish();
    g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 4);
    tally.dec();
    tally.add(-2);
    g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 1);
    tally.add(2);
  }
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 3);
}

TEST(a_tally_publishes_nothing_when_it_holds_nothing) {
  vek::Registry registry = make_registry();
  vek_testing_clock_set(1000, 1);
  vek::Counter counter(vek_metric_registry_counter_new(registry, "c", nullptr, nullptr));
  vek_testing_clock_set(2000, 1);
  {
    vek::Tally tally(counter);
    tally.inc();
    tally.dec();
  }
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 1000);
}

TEST(a_tally_passes_large_values_through) {
  vek::Registry registry = make_registry();
  vek::Counter counter(vek_metric_registry_counter_new(registry, "c", nullptr, nullptr));
  vek::Tally tally(counter, 10);
  tally.add(5);
  tally.add(100);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 100);
  tally.add(-10);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 90);
  tally.publish();
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 95);
}

TEST(a_tally_does_not_overflow) {
  vek::Registry registry = make_registry();
  vek::Counter counter(vek_metric_registry_counter_new(registry, "c", nullptr, nullptr));
  vek::Tally tally(counter, G_MAXINT64);
  tally.add(G_MAXINT64 - 1);
  tally.add(G_MAXINT64);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, -3); /* wrapped by the counter */
}
