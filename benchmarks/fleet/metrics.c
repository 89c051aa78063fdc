#include "metrics.h"

static gpointer make_metric(VekMetricRegistry *registry, int number) {
  g_autofree char *name = g_strdup_printf("requests%03d", number);
  char *dimensions[] = {"service", "frontend", NULL};
  switch (number % 10) {
  case 0:
  case 1: return vek_metric_registry_gauge_new(registry, name, "Percent", 0, dimensions);
  case 2: return vek_metric_registry_meter_new(registry, name, "Count", dimensions);
  case 3: return vek_metric_registry_histogram_new(registry, name, "Bytes", NULL, dimensions);
  case 4: return vek_metric_registry_timer_new(registry, name, "Milliseconds", NULL, dimensions);
  default: return vek_metric_registry_counter_new(registry, name, "Count", dimensions);
  }
}

GPtrArray *metrics_new(VekMetricRegistry *registry, int n_metrics) {
  GPtrArray *metrics = g_ptr_array_new_with_free_func(g_object_unref);
  for (int i = 0; i < n_metrics; i++)
    g_ptr_array_add(metrics, make_metric(registry, i));
  return metrics;
}

static void update(gpointer metric, gpointer pass) {
  int number = GPOINTER_TO_INT(pass);
  if (VEK_IS_METRIC_COUNTER(metric))
    vek_metric_counter_add(metric, 1234 + number);
  else if (VEK_IS_METRIC_GAUGE(metric))
    vek_metric_gauge_set_value(metric, number / 7.0);
  else if (VEK_IS_METRIC_METER(metric))
    vek_metric_meter_mark(metric, 1000.0);
  else if (VEK_IS_METRIC_TIMER(metric))
    vek_metric_timer_set_usec(metric, 12345 + number);
  else
    vek_metric_histogram_set(metric, 1500.0 + number);
}

void metrics_update(GPtrArray *metrics, int pass) {
  g_ptr_array_foreach(metrics, update, GINT_TO_POINTER(pass));
}
