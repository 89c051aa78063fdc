#include "support.h"

static void assert_times(gint64 real_time, gint64 monotonic_time) {
  for (int i = 0; i < 2; i++) {
    g_assert_cmpint(g_get_real_time(), ==, real_time);
    g_assert_cmpint(g_get_monotonic_time(), ==, monotonic_time);
  }
}

static gint64 start, monotonic_start;

/* Before any test sets the clock. */
__attribute__((constructor)) static void read_clocks(void) {
  start = g_get_real_time();
  monotonic_start = g_get_monotonic_time();
}

TEST(starts_at_round_seconds) {
  g_assert_cmpint(start, ==, 1000000000 * (gint64)G_USEC_PER_SEC);
  g_assert_cmpint(monotonic_start, ==, 1000 * (gint64)G_USEC_PER_SEC);
}

TEST(stands_still_until_it_is_moved) {
  vek_testing_clock_set(1000, 1);
  assert_times(1000, 1);
  vek_testing_clock_advance(G_USEC_PER_SEC);
  assert_times(1001000, 1000001);
  vek_testing_clock_advance(-2000000);
  assert_times(-999000, -999999);
}

TEST(is_read_by_the_library) {
  vek_testing_clock_set(1000, 1);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(NULL, 0);
  g_assert_cmpint(vek_metric_snapshot_get_time(snapshot), ==, 1000);

  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(registry, "work", "Microseconds", NULL, NULL);
  vek_metric_timer_start(timer);
  vek_testing_clock_advance(250);
  vek_metric_timer_stop(timer);
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  vek_metric_registry_report(registry, VEK_METRIC_REPORTER(recorder));
  vek_testing_assert_text(recorder, "aggregated work n=1 sum=250 min=250 max=250 Microseconds\n");
}

static guint n_real, n_monotonic;

static void count_and_advance(gboolean monotonic) {
  (*(monotonic ? &n_monotonic : &n_real))++;
  vek_testing_clock_advance(5);
}

TEST(hook_is_called_after_each_reading) {
  vek_testing_clock_set(1000, 1);
  vek_testing_clock_set_hook(count_and_advance);
  g_assert_cmpint(g_get_monotonic_time(), ==, 1);
  g_assert_cmpint(g_get_real_time(), ==, 1005);
  g_assert_cmpint(g_get_monotonic_time(), ==, 11);
  vek_testing_clock_set_hook(NULL);
  assert_times(1015, 16);
  g_assert_cmpuint(n_real, ==, 1);
  g_assert_cmpuint(n_monotonic, ==, 2);
}

static gboolean on_timeout(gpointer n_dispatched) {
  (*(guint *)n_dispatched)++;
  return G_SOURCE_REMOVE;
}

TEST(main_loop_keeps_to_the_real_clock) {
  guint n_dispatched = 0;
  vek_testing_clock_set(1000, 1);
  g_timeout_add(1, on_timeout, &n_dispatched);
  while (n_dispatched == 0)
    g_main_context_iteration(NULL, TRUE);
  assert_times(1000, 1);
}
