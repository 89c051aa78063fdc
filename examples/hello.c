/* The smallest program that measures itself: it counts, and reports once. */

#include <vekmetrics/vekmetrics.h>

int main(void) {
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  g_autoptr(VekMetricReporter) console = vek_metric_console_reporter_new();
  g_autoptr(VekMetricCounter) greetings =
      vek_metric_registry_counter_new(registry, "greetings", "Count", NULL);

  vek_metric_counter_inc(greetings);
  vek_metric_counter_add(greetings, 2);

  vek_metric_registry_report(registry, console);
  return 0;
}
