/* Tests of VekMetricTimer. */

#include "support/fixture.h"

#include <math.h>

static VekMetricTimer *timer_new(const char *unit) {
  return vek_metric_registry_timer_new(fixture.registry, "render", unit, NULL, NULL);
}

static void assert_warned(const char *message) {
  assert_logged_from("../vekmetrics/timer", "vek_metric_timer_constructed", G_LOG_LEVEL_WARNING,
                     message);
}

/* Asserts the samples of the timer, in ascending order, as reports print them. */
static void assert_samples(gpointer timer, const char *samples) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_histogram_get_snapshot(timer);
  gsize n = vek_metric_snapshot_get_n_samples(snapshot);
  g_autoptr(GString) text = g_string_new(NULL);
  if (n == 1)
    g_string_printf(text, "%.17g", vek_metric_snapshot_get_max(snapshot));
  if (n == 2)
    g_string_printf(text, "%.17g %.17g", vek_metric_snapshot_get_min(snapshot),
                    vek_metric_snapshot_get_max(snapshot));
  g_assert_cmpuint(n, <=, 2);
  g_string_replace(text, "-nan", "nan", 0);
  g_assert_cmpstr(text->str, ==, samples);
}

TEST(durations_are_recorded_in_the_unit) {
  static const struct {
    const char *unit;
    gint64 usec;
    const char *samples;
  } rows[] = {
      {"Seconds", 1500000, "1.5"},
      {"Seconds", 0, "0"},
      {"Seconds", -250000, "-0.25"},
      {"Milliseconds", 1500, "1.5"},
      {"Milliseconds", 1, "0.001"},
      {"Microseconds", 1500, "1500"},
      {"Microseconds", G_MAXINT64, "9.2233720368547758e+18"},
      {"Microseconds", G_MININT64, "-9.2233720368547758e+18"},
  };

  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    fixture_reset();
    g_autoptr(VekMetricTimer) timer = timer_new(rows[i].unit);
    vek_metric_timer_set_usec(timer, rows[i].usec);
    assert_samples(timer, rows[i].samples);
  }
}

TEST(stop_records_the_time_since_the_start) {
  g_autoptr(VekMetricTimer) timer = timer_new("Seconds");
  vek_testing_clock_set(1, 3000000);
  vek_metric_timer_start(timer);
  assert_samples(timer, "");
  /* Real time does not matter. */
  vek_testing_clock_set(999000000, 3250000);
  vek_metric_timer_stop(timer);
  assert_samples(timer, "0.25");
}

TEST(second_stop_measures_again_from_the_same_start) {
  g_autoptr(VekMetricTimer) timer = timer_new("Milliseconds");
  vek_metric_timer_start(timer);
  vek_testing_clock_advance(2000);
  vek_metric_timer_stop(timer);
  vek_testing_clock_advance(500);
  vek_metric_timer_stop(timer);
  assert_samples(timer, "2 2.5");
}

TEST(stop_without_a_start_measures_from_monotonic_time_zero) {
  g_autoptr(VekMetricTimer) timer = timer_new("Seconds");
  vek_testing_clock_set(1, 5500000);
  vek_metric_timer_stop(timer);
  assert_samples(timer, "5.5");
}

TEST(start_replaces_an_earlier_one) {
  g_autoptr(VekMetricTimer) timer = timer_new("Milliseconds");
  vek_metric_timer_start(timer);
  vek_testing_clock_advance(2000);
  vek_metric_timer_start(timer);
  vek_testing_clock_advance(500);
  vek_metric_timer_stop(timer);
  assert_samples(timer, "0.5");
}

TEST(unknown_unit_warns_and_divides_by_zero) {
  static const struct {
    const char *unit;
    const char *warning;
  } rows[] = {
      {"seconds", "Invalid unit seconds for timer metric render"},
      {"Second", "Invalid unit Second for timer metric render"},
      {"Seconds ", "Invalid unit Seconds  for timer metric render"},
      {"Count", "Invalid unit Count for timer metric render"},
      {"", "Invalid unit  for timer metric render"},
  };

  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    fixture_reset();
    g_autoptr(VekMetricTimer) timer = timer_new(rows[i].unit);
    assert_warned(rows[i].warning);
    vek_metric_timer_set_usec(timer, 1);
    assert_samples(timer, "inf");
    vek_metric_timer_set_usec(timer, -1);
    assert_samples(timer, "-inf inf");
  }
}

TEST(zero_duration_of_an_unknown_unit_is_not_a_number) {
  g_autoptr(VekMetricTimer) timer = timer_new("seconds");
  assert_warned("Invalid unit seconds for timer metric render");
  vek_metric_timer_start(timer);
  vek_metric_timer_stop(timer);
  assert_samples(timer, "nan");
}

TEST(unknown_unit_warns_at_each_construction) {
  g_autoptr(VekMetricTimer) timer = timer_new("Seconds");
  for (guint i = 0; i < 2; i++) {
    g_autoptr(VekMetricTimer) again = timer_new("Minutes");
    assert_warned("Invalid unit Minutes for timer metric render");
    g_assert_true(again == timer);
  }
  g_assert_cmpstr(vek_metric_get_unit(VEK_METRIC(timer)), ==, "Seconds");
}

TEST(timer_made_without_a_unit_warns_and_divides_by_zero) {
  g_autoptr(VekMetricTimer) timer = g_object_new(VEK_TYPE_METRIC_TIMER, "name", "render", NULL);
  assert_warned("Unspecified unit for timer metric render");
  vek_metric_timer_set_usec(timer, 1);
  assert_samples(timer, "inf");
}

TEST(timer_reports_as_a_histogram_of_60_samples) {
  char *dimensions[] = {"host", "h1", NULL};
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(fixture.registry, "render", "Milliseconds", NULL, dimensions);
  for (guint i = 1; i <= 61; i++)
    vek_metric_timer_set_usec(timer, i * 1000);

  vek_testing_clock_set(1000, 1);
  fixture_report();
  assert_recorded(fixture.record,
                  "a aggregated render{host=h1} n=60 sum=1890 min=2 max=61 Milliseconds @1000\n"
                  "a flush\n");
}

TEST(given_store_is_used) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(1);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(fixture.registry, "render", "Seconds", store, NULL);
  vek_metric_timer_set_usec(timer, 1000000);
  vek_metric_timer_set_usec(timer, 2000000);
  assert_samples(timer, "2");
  g_autoptr(VekMetricStore) read = NULL;
  g_object_get(timer, "store", &read, NULL);
  g_assert_true(read == store);
}

TEST(failed_checks_do_nothing) {
  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(fixture.registry, "latency", "Seconds", NULL, NULL);
  /* A histogram is not yet a timer. */
  gpointer others[] = {NULL, histogram};

  for (gsize i = 0; i < G_N_ELEMENTS(others); i++) {
    vek_metric_timer_start(others[i]);
    assert_failed_check("vek_metric_timer_start", "VEK_IS_METRIC_TIMER(timer)");
    vek_metric_timer_stop(others[i]);
    assert_failed_check("vek_metric_timer_stop", "VEK_IS_METRIC_TIMER(timer)");
    vek_metric_timer_set_usec(others[i], 1);
    assert_failed_check("vek_metric_timer_set_usec", "VEK_IS_METRIC_TIMER(timer)");
  }
  assert_samples(histogram, "");
}

TEST(constructor_checks_registry_name_and_unit_in_this_order) {
  g_assert_null(vek_metric_registry_timer_new(NULL, NULL, NULL, NULL, NULL));
  assert_failed_check("vek_metric_registry_timer_new", "VEK_IS_METRIC_REGISTRY(registry)");
  g_assert_null(vek_metric_registry_timer_new(fixture.registry, NULL, NULL, NULL, NULL));
  assert_failed_check("vek_metric_registry_timer_new", "name != NULL");
  g_assert_null(vek_metric_registry_timer_new(fixture.registry, "render", NULL, NULL, NULL));
  assert_failed_check("vek_metric_registry_timer_new", "unit != NULL");
}

TEST(histogram_asked_for_as_a_timer_is_returned_with_a_warning) {
  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(fixture.registry, "render", "Seconds", NULL, NULL);
  g_autoptr(GObject) returned = (gpointer)timer_new("Seconds");
  assert_invalid_cast("VekMetricHistogram", "VekMetricTimer");
  g_assert_true(returned == (gpointer)histogram);
}

enum { N_THREADS = 4, N_DURATIONS = 2000 };

static void set_many(guint thread, gpointer timer) {
  (void)thread;
  for (guint i = 0; i < N_DURATIONS; i++)
    vek_metric_timer_set_usec(timer, 500000);
}

TEST(threads_lose_and_double_no_duration) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(N_THREADS * N_DURATIONS + 1);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(fixture.registry, "render", "Seconds", store, NULL);
  fixture_run_threads(N_THREADS, set_many, timer);
  g_string_truncate(fixture.record, 0);

  vek_testing_clock_set(1000, 1);
  fixture_report();
  assert_recorded(fixture.record,
                  "a aggregated render n=8000 sum=4000 min=0.5 max=0.5 Seconds @1000\n"
                  "a flush\n");
}
