/* Tests of the reporters that follow a VekServicePrometheusReporter, and of
 * vek_service_get_reporting_metric(). */

#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"

typedef VekServicePrometheusReporter Reporter;
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Reporter, g_object_unref)

static Reporter *set_up_followed(void) {
  Reporter *reporter = vek_service_prometheus_reporter_new();
  vek_service_prometheus_reporter_add_follower(reporter, fixture.reporter);
  return reporter;
}

static void report(Reporter *reporter) {
  vek_metric_registry_report(fixture.registry, VEK_METRIC_REPORTER(reporter));
}

TEST(follower_gets_each_call_of_a_pass) {
  g_autoptr(Reporter) reporter = set_up_followed();
  char *dimensions[] = {"host", "h1", NULL};
  static const struct {
    const char *make, *lines;
  } rows[] = {
      {"counter", "a count x{host=h1} 2 Count @1000\na flush\n"},
      {"gauge", "a value x{host=h1} 0.5 Count @1000\na flush\n"},
      {"histogram", "a aggregated x{host=h1} n=1 sum=3 min=3 max=3 Count @1000\na flush\n"},
      {"timeline", "a timeline x [2:30..40 1:10..20]\na flush\n"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
    g_autoptr(VekMetric) metric = NULL;
    switch (i) {
    case 0:
      metric = VEK_METRIC(vek_metric_registry_counter_new(registry, "x", "Count", dimensions));
      vek_metric_counter_add(VEK_METRIC_COUNTER(metric), 2);
      break;
    case 1:
      metric = VEK_METRIC(vek_metric_registry_gauge_new(registry, "x", "Count", 0, dimensions));
      vek_metric_gauge_set_value(VEK_METRIC_GAUGE(metric), 0.5);
      break;
    case 2:
      metric =
          VEK_METRIC(vek_metric_registry_histogram_new(registry, "x", "Count", NULL, dimensions));
      vek_metric_histogram_set(VEK_METRIC_HISTOGRAM(metric), 3);
      break;
    default:
      metric = VEK_METRIC(vek_metric_registry_timeline_new(registry, "x"));
      vek_metric_timeline_add_range(VEK_METRIC_TIMELINE(metric), 1, 10, 20);
      vek_metric_timeline_add_range(VEK_METRIC_TIMELINE(metric), 2, 30, 40);
    }
    g_test_message("%s", rows[i].make);
    vek_metric_registry_report(registry, VEK_METRIC_REPORTER(reporter));
    assert_recorded(fixture.record, rows[i].lines);
  }
}

TEST(follower_is_called_as_often_as_it_was_added) {
  g_autoptr(Reporter) reporter = set_up_followed();
  vek_service_prometheus_reporter_add_follower(reporter, fixture.reporter);
  report(reporter);
  assert_recorded(fixture.record, "a flush\na flush\n");
  g_assert_true(vek_service_prometheus_reporter_remove_follower(reporter, fixture.reporter));
  report(reporter);
  assert_recorded(fixture.record, "a flush\n");
  g_assert_true(vek_service_prometheus_reporter_remove_follower(reporter, fixture.reporter));
  g_assert_false(vek_service_prometheus_reporter_remove_follower(reporter, fixture.reporter));
  report(reporter);
  assert_recorded(fixture.record, "");
}

static void remove_at_first_call(VekMetricReporter *follower, const char *line, gpointer reporter) {
  (void)line;
  vek_service_prometheus_reporter_remove_follower(reporter, follower);
}

TEST(pass_goes_to_those_who_followed_when_it_began) {
  g_autoptr(Reporter) reporter = set_up_followed();
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "x", NULL, NULL);
  on_recorded(fixture.reporter, remove_at_first_call, reporter);
  report(reporter);
  assert_recorded(fixture.record, "a count x 0 @1000\na flush\n");
  report(reporter);
  assert_recorded(fixture.record, "");
}

static void ask_for_text(VekMetricReporter *follower, const char *line, gpointer reporter) {
  (void)follower;
  g_autofree char *text =
      vek_service_prometheus_reporter_get_text(reporter, VEK_SERVICE_PROMETHEUS_FORMAT_TEXT);
  g_assert_cmpint(text != NULL, ==, g_str_equal(line, "flush"));
}

TEST(follower_is_flushed_when_the_text_is_new) {
  g_autoptr(Reporter) reporter = set_up_followed();
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "x", NULL, NULL);
  on_recorded(fixture.reporter, ask_for_text, reporter);
  report(reporter);
  assert_recorded(fixture.record, "a count x 0 @1000\na flush\n");
}

static void note_metric(VekMetricReporter *follower, const char *line, gpointer types) {
  (void)follower, (void)line;
  VekMetric *metric = vek_service_get_reporting_metric();
  g_string_append_printf(types, "%s ", metric ? G_OBJECT_TYPE_NAME(metric) : "none");
}

TEST(reporting_metric_tells_kinds_apart) {
  g_autoptr(Reporter) reporter = set_up_followed();
  g_autoptr(GString) types = g_string_new(NULL);
  on_recorded(fixture.reporter, note_metric, types);
  g_autoptr(VekMetricMeter) meter =
      vek_metric_registry_meter_new(fixture.registry, "x", NULL, NULL);
  report(reporter);
  g_assert_cmpstr(types->str, ==, "VekMetricMeter none ");
  g_assert_null(vek_service_get_reporting_metric());

  g_string_truncate(types, 0);
  g_autoptr(VekMetricRegistry) other = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(other, "x", "Seconds", NULL, NULL);
  vek_metric_registry_report(other, VEK_METRIC_REPORTER(reporter));
  g_assert_cmpstr(types->str, ==, "VekMetricTimer none ");
}

/* Runs a pass over another registry within a pass. */
static void report_inner(VekMetricReporter *outer, const char *line, gpointer types) {
  if (g_str_equal(line, "flush"))
    return;
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricMeter) meter = vek_metric_registry_meter_new(registry, "x", NULL, NULL);
  g_autoptr(VekMetricReporter) inner = record_to(fixture.record, "b");
  on_recorded(inner, note_metric, types);
  vek_metric_registry_report(registry, inner);
  note_metric(outer, line, types);
}

TEST(reporting_metric_is_that_of_the_innermost_pass) {
  g_autoptr(Reporter) reporter = set_up_followed();
  g_autoptr(GString) types = g_string_new(NULL);
  on_recorded(fixture.reporter, report_inner, types);
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "x", NULL, NULL);
  report(reporter);
  g_assert_cmpstr(types->str, ==, "VekMetricMeter VekMetricCounter VekMetricCounter ");
}

static gpointer follow_and_leave(gpointer reporter) {
  for (int i = 0; i < 1000; i++) {
    g_autoptr(VekMetricReporter) console = vek_metric_log_reporter_new(NULL, NULL);
    vek_service_prometheus_reporter_add_follower(reporter, console);
    g_assert_true(vek_service_prometheus_reporter_remove_follower(reporter, console));
  }
  return NULL;
}

TEST(any_thread_may_change_who_follows) {
  g_autoptr(Reporter) reporter = vek_service_prometheus_reporter_new();
  GThread *thread = g_thread_new("follows", follow_and_leave, reporter);
  for (int i = 0; i < 1000; i++)
    report(reporter);
  g_thread_join(thread);
}

TEST(failed_checks_name_their_own_function) {
  g_autoptr(Reporter) reporter = vek_service_prometheus_reporter_new();
  vek_service_prometheus_reporter_add_follower(NULL, fixture.reporter);
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_add_follower: assertion "
                "'VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter)' failed");
  vek_service_prometheus_reporter_add_follower(reporter, NULL);
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_add_follower: assertion "
                "'VEK_IS_METRIC_REPORTER(follower)' failed");
  vek_service_prometheus_reporter_add_follower(reporter, VEK_METRIC_REPORTER(reporter));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_add_follower: assertion "
                "'follower != (gpointer)reporter' failed");
  g_assert_false(vek_service_prometheus_reporter_remove_follower(NULL, fixture.reporter));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_remove_follower: assertion "
                "'VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter)' failed");
  g_assert_false(vek_service_prometheus_reporter_remove_follower(reporter, NULL));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_remove_follower: assertion "
                "'VEK_IS_METRIC_REPORTER(follower)' failed");
}
