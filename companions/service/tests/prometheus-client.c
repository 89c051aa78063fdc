/* Makes registries that are described on the standard input and prints the texts of their passes,
 * each behind a line with its size in bytes: first OpenMetrics, then the text format.
 *
 * A line has fields between tabs, in C's escapes:
 *
 *   new PREFIX                              a registry and a reporter
 *   declare NAME
 *   KIND NAME UNIT VALUES DIMENSION...      makes or finds a metric and hands it the values
 *   report
 *
 * VALUES are numbers between spaces. */

#include <stdio.h>
#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

static VekMetricRegistry *registry;
static VekServicePrometheusReporter *reporter;
static GPtrArray *metrics; /* held, so that no pass retires them */

static void begin(const char *prefix) {
  g_clear_object(&registry);
  g_clear_object(&reporter);
  g_ptr_array_set_size(metrics, 0);
  registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  reporter = vek_service_prometheus_reporter_new();
  g_object_set(reporter, "prefix", prefix, NULL);
}

static void update(char **fields) {
  const char *kind = fields[0], *name = fields[1], *unit = *fields[2] ? fields[2] : NULL;
  char **dimensions = fields[4] ? fields + 4 : NULL;
  g_auto(GStrv) values = g_strsplit(fields[3], " ", -1);
  VekMetric *metric = NULL;
  if (g_str_equal(kind, "counter"))
    metric = VEK_METRIC(vek_metric_registry_counter_new(registry, name, unit, dimensions));
  else if (g_str_equal(kind, "gauge"))
    metric = VEK_METRIC(vek_metric_registry_gauge_new(registry, name, unit, 0, dimensions));
  else if (g_str_equal(kind, "meter"))
    metric = VEK_METRIC(vek_metric_registry_meter_new(registry, name, unit, dimensions));
  else if (g_str_equal(kind, "histogram"))
    metric = VEK_METRIC(vek_metric_registry_histogram_new(registry, name, unit, NULL, dimensions));
  else if (g_str_equal(kind, "timer"))
    metric = VEK_METRIC(vek_metric_registry_timer_new(registry, name, unit, NULL, dimensions));
  else
    g_error("There is no kind %s", kind);

  g_ptr_array_add(metrics, metric);
  for (char **value = values; *value; value++) {
    if (g_str_equal(kind, "counter"))
      vek_metric_counter_add(VEK_METRIC_COUNTER(metric), g_ascii_strtoll(*value, NULL, 10));
    else if (g_str_equal(kind, "gauge"))
      vek_metric_gauge_set_value(VEK_METRIC_GAUGE(metric), g_ascii_strtod(*value, NULL));
    else if (g_str_equal(kind, "meter"))
      vek_metric_meter_mark(VEK_METRIC_METER(metric), g_ascii_strtod(*value, NULL));
    else if (g_str_equal(kind, "histogram"))
      vek_metric_histogram_set(VEK_METRIC_HISTOGRAM(metric), g_ascii_strtod(*value, NULL));
    else
      vek_metric_timer_set_usec(VEK_METRIC_TIMER(metric), g_ascii_strtoll(*value, NULL, 10));
  }
}

static void print_texts(void) {
  vek_metric_registry_report(registry, VEK_METRIC_REPORTER(reporter));
  for (int format = 0; format < 2; format++) {
    g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, format);
    printf("%zu\n%s", strlen(text), text);
  }
}

static void obey(char **fields) {
  if (g_str_equal(fields[0], "new"))
    begin(fields[1]);
  else if (g_str_equal(fields[0], "declare"))
    vek_service_prometheus_reporter_declare_monotonic(reporter, fields[1]);
  else if (g_str_equal(fields[0], "report"))
    print_texts();
  else
    update(fields);
}

int main(void) {
  metrics = g_ptr_array_new_with_free_func(g_object_unref);
  char *line = NULL;
  size_t size = 0;
  while (getline(&line, &size, stdin) > 0) {
    line[strcspn(line, "\n")] = '\0';
    g_auto(GStrv) fields = g_strsplit(line, "\t", -1);
    for (char **field = fields; *field; field++) {
      char *escaped = *field;
      *field = g_strcompress(escaped);
      g_free(escaped);
    }
    obey(fields);
  }
  free(line);
  g_ptr_array_unref(metrics);
  g_clear_object(&registry);
  g_clear_object(&reporter);
  return 0;
}
