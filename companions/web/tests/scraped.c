/* A program with a metric of every kind that Prometheus scrapes: scraped PORT HOST.
 *
 * Prints its port. Each number on its standard input is added to its counter and followed by a
 * pass, which it acknowledges by a line. A range of a second ends before each pass. The program
 * ends with its input. */

#include <stdio.h>
#include <stdlib.h>
#include <vekmetrics-web/vekmetrics-web.h>
#include <vekmetrics/vekmetrics.h>

typedef struct {
  GMainLoop *loop;
  VekMetricCounter *requests;
  VekMetricTimeline *jobs;
  VekServicePrometheusReporter *reporter;
} Work;

static gboolean on_input(GIOChannel *input, G_GNUC_UNUSED GIOCondition condition, gpointer data) {
  Work *work = data;
  g_autofree char *line = NULL;
  if (g_io_channel_read_line(input, &line, NULL, NULL, NULL) != G_IO_STATUS_NORMAL) {
    g_main_loop_quit(work->loop);
    return G_SOURCE_REMOVE;
  }
  gint64 now = g_get_real_time();
  vek_metric_timeline_add_range(work->jobs, 1, now - G_USEC_PER_SEC, now);
  vek_metric_counter_add(work->requests, g_ascii_strtoll(line, NULL, 10));
  vek_metric_registry_report(vek_metric_registry_get_default(),
                             VEK_METRIC_REPORTER(work->reporter));
  puts("passed");
  fflush(stdout);
  return G_SOURCE_CONTINUE;
}

int main(int argc, char **argv) {
  if (argc != 3)
    return 2;
  char *host[] = {"host", argv[2], NULL};
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "requests");

  g_autoptr(VekMetricCounter) requests =
      vek_metric_registry_counter_new(registry, "requests", "Count", host);
  g_autoptr(VekMetricCounter) jobs =
      vek_metric_registry_counter_new(registry, "jobs", "Count", host);
  g_autoptr(VekMetricGauge) load = vek_metric_registry_gauge_new(registry, "load", NULL, 0, NULL);
  g_autoptr(VekMetricGauge) nothing =
      vek_metric_registry_gauge_new(registry, "nothing \"yet\"", NULL, 0, host);
  g_autoptr(VekMetricMeter) meter =
      vek_metric_registry_meter_new(registry, "arrivals", "Count", host);
  (void)meter; /* nothing arrives */
  g_autoptr(VekMetricHistogram) size =
      vek_metric_registry_histogram_new(registry, "size", "Bytes", NULL, host);
  g_autoptr(VekMetricHistogram) change =
      vek_metric_registry_histogram_new(registry, "change", "Bytes", NULL, host);
  g_autoptr(VekMetricTimer) wait =
      vek_metric_registry_timer_new(registry, "wait", "Seconds", NULL, host);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "work");
  vek_metric_counter_add(jobs, -3);
  vek_metric_gauge_set_value(load, 0.1);
  vek_metric_gauge_set_value(nothing, g_ascii_strtod("nan", NULL));
  for (int i = -4; i <= 4; i++) {
    vek_metric_histogram_set(size, i + 4);
    vek_metric_histogram_set(change, i);
    vek_metric_timer_set_usec(wait, (i + 4) * 100000);
  }

  g_autoptr(VekWebServer) server = vek_web_server_new(reporter);
  g_autoptr(GError) error = NULL;
  if (!vek_web_server_listen(server, NULL, (guint)atoi(argv[1]), &error))
    g_error("%s", error->message);
  printf("%u\n", vek_web_server_get_port(server));
  fflush(stdout);

  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  Work work = {loop, requests, timeline, reporter};
  g_autoptr(GIOChannel) input = g_io_channel_unix_new(0);
  g_io_add_watch(input, G_IO_IN | G_IO_HUP, on_input, &work);
  g_main_loop_run(loop);
  return 0;
}
