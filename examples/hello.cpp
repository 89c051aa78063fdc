// The smallest program that measures itself: it counts, and reports once.

#include <vekmetrics/vekmetrics.hpp>

int main() {
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  vek::Reporter console(vek_metric_console_reporter_new());
  vek::Counter greetings(vek_metric_registry_counter_new(registry, "greetings", "Count", nullptr));

  vek_metric_counter_inc(greetings);
  vek_metric_counter_add(greetings, 2);

  vek_metric_registry_report(registry, console);
}
