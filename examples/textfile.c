/* The last report pass as a file, for the textfile folder of a node exporter.
 *
 * After each pass the file is replaced as a whole: whoever reads it sees one report or the next,
 * and never half of one.
 *
 *   textfile /var/lib/prometheus/node-exporter/example.prom
 */

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

static void write_report(VekServicePrometheusReporter *reporter, const char *path) {
  vek_metric_registry_report(vek_metric_registry_get_default(), VEK_METRIC_REPORTER(reporter));
  g_autofree char *text =
      vek_service_prometheus_reporter_get_text(reporter, VEK_SERVICE_PROMETHEUS_FORMAT_TEXT);
  g_autoptr(GError) error = NULL;
  if (!g_file_set_contents(path, text, (gssize)strlen(text), &error))
    g_warning("Could not write the report: %s", error->message);
}

/* Reports metrics of every kind in each pass. */
int main(int argc, char **argv) {
  if (argc != 2 && argc != 3) {
    g_printerr("Usage: %s FILE.prom [PASSES]\n", argv[0]);
    return 2;
  }
  gint64 n_passes = argc == 3 ? g_ascii_strtoll(argv[2], NULL, 10) : 1;
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "http.requests");

  char *h1[] = {"host", "h1", NULL}, *h2[] = {"host", "\"h2\\", NULL};
  g_autoptr(VekMetricCounter) some =
      vek_metric_registry_counter_new(registry, "http.requests", "Count", h1);
  g_autoptr(VekMetricCounter) others =
      vek_metric_registry_counter_new(registry, "http.requests", "Count", h2);
  g_autoptr(VekMetricCounter) connections =
      vek_metric_registry_counter_new(registry, "connections", "Count", NULL);
  g_autoptr(VekMetricGauge) load = vek_metric_registry_gauge_new(registry, "load", NULL, 0, NULL);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(registry, "response", "Seconds", NULL, h1);

  vek_metric_counter_add(connections, 99);
  for (gint64 pass = 0; pass < n_passes; pass++) {
    vek_metric_counter_add(some, 42);
    vek_metric_counter_add(others, 7);
    vek_metric_counter_add(connections, pass % 2 == 0 ? 1 : -1); /* one is opened or closed */
    vek_metric_gauge_set_value(load, 0.25);
    for (int i = 1; i <= 4; i++)
      vek_metric_timer_set_usec(timer, i * 250000);
    write_report(reporter, argv[1]);
  }
  return 0;
}
