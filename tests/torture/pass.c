#include "faults.h"
#include "support/fixture.h"
#include "torture.h"

static GSList *metrics; /* of the pass */

static void add_metric(gpointer metric) {
  metrics = g_slist_prepend(metrics, metric);
}

void begin_pass(VekMetricRegistry *registry) {
  guint pass = faults_get_pass() + 1;
  faults_set_pass(pass);
  vek_testing_clock_advance(60 * G_USEC_PER_SEC);

  g_autofree char *count = g_strdup_printf("p%u.count", pass);
  VekMetricCounter *counter = vek_metric_registry_counter_new(registry, count, "Count", NULL);
  vek_metric_counter_add(counter, pass);
  add_metric(counter);

  g_autofree char *size = g_strdup_printf("p%u.size", pass);
  VekMetricHistogram *histogram =
      vek_metric_registry_histogram_new(registry, size, "Bytes", NULL, NULL);
  vek_metric_histogram_set(histogram, pass);
  add_metric(histogram);

  g_autofree char *work = g_strdup_printf("p%u.work", pass);
  VekMetricTimeline *timeline = vek_metric_registry_timeline_new(registry, work);
  vek_metric_timeline_add_range(timeline, (gint)pass, 1, 2);
  add_metric(timeline);
}

static void release(gpointer metric) {
  vek_metric_mark_inactive(metric);
  g_object_unref(metric);
}

void end_pass(void) {
  g_slist_free_full(g_steal_pointer(&metrics), release);
}

void report_pass(VekMetricReporter *reporter) {
  begin_pass(fixture.registry);
  vek_metric_registry_report(fixture.registry, reporter);
  end_pass();
}

void settle(void) {
  while (g_main_context_iteration(NULL, FALSE))
    ;
}
