/* A metric of every kind, seen by the reporters whose output docs/outputs.md shows:
 *
 *   every-kind FOLDER PORT
 *
 * Prints to the console, writes figures.csv, figures.json and timelines.csv into FOLDER, and sends
 * carbon lines to PORT of this machine. The clock stands still but for the steps below. */

#include "support/tsan-tasks.h"

#include <math.h>
#include <stdlib.h>
#include <vekmetrics-testing/clock.h>
#include <vekmetrics/vekmetrics.h>

/* An operation under way holds a reference. */
static void wait_for(gpointer reporter) {
  while (G_OBJECT(reporter)->ref_count > 1)
    g_main_context_iteration(NULL, TRUE);
}

static void measure_request(VekMetricTimer *latency, gint64 duration) {
  vek_metric_timer_start(latency);
  vek_testing_clock_advance(duration);
  vek_metric_timer_stop(latency);
}

int main(int argc, char **argv) {
  if (argc != 3)
    return EXIT_FAILURE;

  vek_testing_clock_set(1700000000 * G_TIME_SPAN_SECOND, G_TIME_SPAN_HOUR);
  VekMetricReporter *reporters[] = {
      vek_metric_timeline_reporter_new("timelines", argv[1]), /* first: only one gets the ranges */
      vek_metric_log_reporter_new("figures", argv[1]),
      vek_metric_console_reporter_new(),
      vek_metric_json_log_reporter_new("figures", argv[1], "web-1", 0, 0),
      vek_metric_carbon_reporter_new("site", "127.0.0.1", strtoul(argv[2], NULL, 10)),
  };
  VekMetricReporter *carbon = reporters[4];
  wait_for(carbon);

  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  char *host[] = {"host", "a", NULL};
  char *route[] = {"host", "a", "route", "home", NULL};
  g_autoptr(VekMetricCounter) requests =
      vek_metric_registry_counter_new(registry, "requests", "Count", host);
  g_autoptr(VekMetricGauge) load = vek_metric_registry_gauge_new(registry, "load", NULL, 0, host);
  g_autoptr(VekMetricGauge) hit_ratio =
      vek_metric_registry_gauge_new(registry, "hit_ratio", NULL, 0, NULL);
  g_autoptr(VekMetricMeter) sent =
      vek_metric_registry_meter_new(registry, "sent", "Bytes/Second", NULL);
  g_autoptr(VekMetricHistogram) size =
      vek_metric_registry_histogram_new(registry, "size", "Bytes", NULL, NULL);
  g_autoptr(VekMetricTimer) latency =
      vek_metric_registry_timer_new(registry, "latency", "Seconds", NULL, route);
  g_autoptr(VekMetricTimeline) render = vek_metric_registry_timeline_new(registry, "render");

  static const struct {
    gint64 requests;
    gdouble load, hit_ratio;
    gint64 latency;
    gint64 render;
  } minutes[] = {
      {42, 0.25, NAN, 250000, 100},
      {58, 0.1, 0.5, 1500000, 500},
  };
  for (guint i = 0; i < G_N_ELEMENTS(minutes); i++) {
    vek_metric_counter_add(requests, minutes[i].requests);
    vek_metric_gauge_set_value(load, minutes[i].load);
    vek_metric_gauge_set_value(hit_ratio, minutes[i].hit_ratio);
    for (guint kilobytes = 1; kilobytes <= 5; kilobytes++) {
      vek_metric_meter_mark(sent, 1024.0 * kilobytes);
      vek_metric_histogram_set(size, 1024.0 * kilobytes);
    }
    measure_request(latency, minutes[i].latency);
    vek_metric_timeline_add_range(render, 1, minutes[i].render, minutes[i].render + 150);
    vek_metric_timeline_add_range(render, 2, minutes[i].render + 200, minutes[i].render + 320);
    vek_testing_clock_advance(60 * G_TIME_SPAN_SECOND - minutes[i].latency);

    for (guint j = 0; j < G_N_ELEMENTS(reporters); j++)
      vek_metric_registry_report(registry, reporters[j]);
    for (guint j = 0; j < G_N_ELEMENTS(reporters); j++)
      wait_for(reporters[j]);
  }
  for (guint i = 0; i < G_N_ELEMENTS(reporters); i++)
    g_object_unref(reporters[i]);
  return EXIT_SUCCESS;
}
