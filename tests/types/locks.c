/* Two threads that meet where a lock keeps one of them waiting, or take turns. */

#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "support/replace.h"
#include "support/twothreads.h"

/* In place of GLib's: while a pass takes metrics out of its registry, it stops. */
guint g_hash_table_foreach_remove(GHashTable *table, GHRFunc function, gpointer data) {
  stop_first();
  return NEXT(g_hash_table_foreach_remove)(table, function, data);
}

static void run_pass(gpointer data) {
  (void)data;
  run_periodic_pass(fixture.registry);
}

static void assert_no_counter(gpointer data) {
  (void)data;
  g_assert_null(vek_metric_registry_get_metric(fixture.registry, "counter", NULL));
}

TEST(metric_that_is_taken_out_of_its_registry_is_not_found) {
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  g_object_unref(vek_metric_registry_counter_new(fixture.registry, "counter", NULL, NULL));
  run_to_meet(run_pass, assert_no_counter, NULL);
}

static void report_once(gpointer registry) {
  vek_metric_registry_report(registry, fixture.reporter);
}

static void dispose(gpointer registry) {
  g_object_run_dispose(registry);
}

static void on_stop_within_pass(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)reporter, (void)line;
  gpointer *counter = data;
  stop_first();
  g_assert_nonnull(*counter);
}

TEST(registry_that_is_disposed_of_keeps_its_metrics_until_a_pass_has_ended) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  gpointer counter = vek_metric_registry_counter_new(registry, "counter", NULL, NULL);
  g_object_add_weak_pointer(counter, &counter);
  g_object_unref(counter);
  on_recorded(fixture.reporter, on_stop_within_pass, &counter);
  run_to_meet(report_once, dispose, registry);
  g_assert_null(counter);
}

static void read_gauge(gpointer gauge) {
  g_assert_cmpfloat(vek_metric_gauge_get_value(gauge, NULL), ==, 1);
}

TEST(gauge_that_begins_an_interval_is_read_by_another_thread) {
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "gauge", NULL, 100, NULL);
  vek_testing_clock_set(1050, 1050);
  vek_metric_gauge_set_value(gauge, 1);
  vek_testing_clock_set(1100, 1100);
  run_in_turn(read_gauge, read_gauge, gauge);
}
