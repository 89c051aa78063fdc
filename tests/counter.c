/* Tests of VekMetricCounter. */

#include "support/fakeclock.h"
#include "support/logcapture.h"
#include "support/recordingreporter.h"

static VekMetricRegistry *registry_new(void) {
  return g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
}

static void new_counter_reports_zero_and_its_creation(void) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) reporter = recording_reporter_new("a", record);

  fake_clock_set(1000, 1);
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(registry, "requests", "Count", NULL);
  fake_clock_set(2000, 1);
  vek_metric_registry_report(registry, reporter);

  assert_recorded(record,
                  "a count requests - Count 1000 0\n"
                  "a flush\n");
}

static void failed_checks_name_their_own_function(void) {
  vek_metric_counter_inc(NULL);
  assert_failed_check("vek_metric_counter_inc", "VEK_IS_METRIC_COUNTER(counter)");
}

int main(int argc, char **argv) {
  g_test_init(&argc, &argv, NULL);
  log_capture_init();

  add_test("/counter/new-counter-reports-zero-and-its-creation",
           new_counter_reports_zero_and_its_creation);
  add_test("/counter/failed-checks-name-their-own-function", failed_checks_name_their_own_function);

  return g_test_run();
}
