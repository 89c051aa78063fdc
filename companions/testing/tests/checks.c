#include "support.h"

#define A_PASS                                 \
  "count requests{host=h1} 3 Count\n"          \
  "aggregated latency n=2 sum=4 min=1 max=3\n" \
  "value load 0.25\n"                          \
  "timeline render [1:2..3]"

/* A recorder that has seen a pass. */
static VekTestingRecorder *record_pass(void) {
  VekTestingRecorder *recorder = vek_testing_recorder_new();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricCounter) requests =
      vek_metric_registry_counter_new(registry, "requests", "Count", DIMENSIONS("host", "h1"));
  g_autoptr(VekMetricGauge) load = vek_metric_registry_gauge_new(registry, "load", NULL, 0, NULL);
  g_autoptr(VekMetricHistogram) latency =
      vek_metric_registry_histogram_new(registry, "latency", NULL, NULL, NULL);
  g_autoptr(VekMetricTimeline) render = vek_metric_registry_timeline_new(registry, "render");
  vek_metric_counter_add(requests, 3);
  vek_metric_gauge_set_value(load, 0.25);
  vek_metric_histogram_set(latency, 1);
  vek_metric_histogram_set(latency, 3);
  vek_metric_timeline_add_range(render, 1, 2, 3);
  vek_metric_registry_report(registry, VEK_METRIC_REPORTER(recorder));
  return recorder;
}

TEST(checks_pass_for_what_was_brought) {
  g_autoptr(VekTestingRecorder) recorder = record_pass();
  vek_testing_assert_count(recorder, "requests", DIMENSIONS("host", "h1"), 3);
  vek_testing_assert_count(recorder, "requests", (char *[]){"host", "h1", NULL}, 3);
  vek_testing_assert_value(recorder, "load", NULL, 0.25, 0);
  vek_testing_assert_value(recorder, "load", NULL, 0.5, 0.25);
  vek_testing_assert_value(recorder, "load", NULL, 0, 0.25);
  vek_testing_assert_n_samples(recorder, "latency", NULL, 2);
  vek_testing_assert_n_ranges(recorder, "render", 1);
  vek_testing_assert_nothing(recorder, "errors");
  vek_testing_assert_text(recorder, A_PASS "\n");
}

TEST(numbers_that_are_not_finite_equal_themselves) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  VekMetricReporterInterface *operations = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  double nan = g_ascii_strtod("nan", NULL), inf = g_ascii_strtod("inf", NULL);
  operations->process_value(reporter, "nan", NULL, NULL, 0, nan);
  operations->process_value(reporter, "inf", NULL, NULL, 0, inf);
  operations->flush(reporter);
  vek_testing_assert_value(recorder, "nan", NULL, nan, 0);
  vek_testing_assert_value(recorder, "inf", NULL, inf, 0);
  g_assert_false(vek_testing_check_value(recorder, "nan", NULL, 0, inf, NULL));
  g_assert_false(vek_testing_check_value(recorder, "inf", NULL, nan, 0, NULL));
  g_assert_false(vek_testing_check_value(recorder, "inf", NULL, -inf, 1, NULL));
}

/* Takes the error of a check. */
static void assert_failed(gboolean passed, GError **error, VekTestingError code,
                          const char *message) {
  g_assert_false(passed);
  g_assert_error(*error, VEK_TESTING_ERROR, (gint)code);
  g_assert_cmpstr((*error)->message, ==, message);
  g_clear_error(error);
}

TEST(failures_need_no_error_to_fill_in) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  g_assert_false(vek_testing_check_count(recorder, "requests", NULL, 3, NULL));
  g_assert_false(vek_testing_check_value(recorder, "load", NULL, 0.25, 0, NULL));
  g_assert_false(vek_testing_check_n_samples(recorder, "latency", NULL, 2, NULL));
  g_assert_false(vek_testing_check_n_ranges(recorder, "render", 1, NULL));
  g_assert_false(vek_testing_check_nothing(recorder, "errors", NULL));
  g_assert_false(vek_testing_check_text(recorder, A_PASS "\n", NULL));
}

TEST(failures_tell_what_was_brought) {
  static const VekTestingError missing = VEK_TESTING_ERROR_MISSING;
  static const VekTestingError different = VEK_TESTING_ERROR_DIFFERENT;
  g_autoptr(VekTestingRecorder) recorder = record_pass();
  GError *error = NULL;
  assert_failed(vek_testing_check_count(recorder, "requests", DIMENSIONS("host", "h1"), -4, &error),
                &error, different,
                "count of requests{host=h1}: 3, expected -4; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_count(recorder, "requests", NULL, 3, &error), &error, missing,
                "no count of requests; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_count(recorder, "load", NULL, 0, &error), &error, missing,
                "no count of load; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_value(recorder, "load", NULL, 0.1, 0, &error), &error, different,
                "value of load: 0.25, expected 0.1; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_value(recorder, "load", NULL, 1, 0.5, &error), &error, different,
                "value of load: 0.25, expected 1 within 0.5; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_value(recorder, "load", NULL, -1, 0.5, &error), &error, different,
                "value of load: 0.25, expected -1 within 0.5; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_value(recorder, "a b", DIMENSIONS("x"), 0, 0, &error), &error,
                missing, "no value of \"a b\"{x}; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_n_samples(recorder, "latency", NULL, 3, &error), &error,
                different,
                "number of samples of latency: 2, expected 3; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_n_samples(recorder, "load", NULL, 0, &error), &error, missing,
                "no samples of load; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_n_ranges(recorder, "render", 0, &error), &error, different,
                "number of ranges of render: 1, expected 0; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_n_ranges(recorder, "load", 0, &error), &error, missing,
                "no ranges of load; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_nothing(recorder, "requests", &error), &error, different,
                "expected nothing of requests; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_nothing(recorder, "render", &error), &error, different,
                "expected nothing of render; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_text(recorder, "count a 1\n", &error), &error, different,
                "expected this:\ncount a 1\n; the pass brought:\n" A_PASS);
  assert_failed(vek_testing_check_text(recorder, "", &error), &error, different,
                "expected nothing; the pass brought:\n" A_PASS);
}

TEST(failures_tell_that_there_was_no_pass_or_an_empty_one) {
  static const VekTestingError missing = VEK_TESTING_ERROR_MISSING;
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  GError *error = NULL;
  assert_failed(vek_testing_check_count(recorder, "requests", NULL, 3, &error), &error, missing,
                "no count of requests; there was no pass");
  assert_failed(vek_testing_check_nothing(recorder, "requests", &error), &error, missing,
                "expected nothing of requests; there was no pass");
  assert_failed(vek_testing_check_text(recorder, "", &error), &error, missing,
                "expected nothing; there was no pass");

  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
  assert_failed(vek_testing_check_count(recorder, "requests", NULL, 3, &error), &error, missing,
                "no count of requests; the pass brought nothing");
  vek_testing_assert_nothing(recorder, "requests");
  vek_testing_assert_text(recorder, "");
}

TEST(missing_snapshot_has_no_number_of_samples) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  VekMetricReporterInterface *operations = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  operations->process_aggregated(reporter, "latency", NULL, NULL, NULL);
  operations->flush(reporter);
  GError *error = NULL;
  assert_failed(vek_testing_check_n_samples(recorder, "latency", NULL, 0, &error), &error,
                VEK_TESTING_ERROR_MISSING,
                "no samples of latency; the pass brought:\naggregated latency (null)");
}

TEST(failed_assertion_ends_the_test_where_it_stands) {
  if (g_test_subprocess()) {
    g_autoptr(VekTestingRecorder) recorder = record_pass();
    vek_testing_assert_count(recorder, "requests", DIMENSIONS("host", "h1"), 4);
    return;
  }
  g_autofree char *message = g_strdup_printf(
      "*ERROR:*checks.c:%d:failed_assertion_ends_the_test_where_it_stands: "
      "count of requests{host=h1}: 3, expected 4; the pass brought:\n" A_PASS "\n*",
      __LINE__ - 6);
  g_test_trap_subprocess(NULL, 0, 0);
  g_test_trap_assert_failed();
  g_test_trap_assert_stderr(message);
}

#define ERROR_IS_SET "error == NULL || *error == NULL"

TEST(failed_checks_do_nothing) {
  g_autoptr(VekTestingRecorder) recorder = record_pass();
  g_autoptr(GObject) object = g_object_new(G_TYPE_OBJECT, NULL);
  void *wrong[] = {NULL, object};
  for (gsize i = 0; i < G_N_ELEMENTS(wrong); i++) {
    ASSERT_REFUSED(vek_testing_check_count, NOT_A_RECORDER, (wrong[i], "a", NULL, 0, NULL));
    ASSERT_REFUSED(vek_testing_check_value, NOT_A_RECORDER, (wrong[i], "a", NULL, 0, 0, NULL));
    ASSERT_REFUSED(vek_testing_check_n_samples, NOT_A_RECORDER, (wrong[i], "a", NULL, 0, NULL));
    ASSERT_REFUSED(vek_testing_check_n_ranges, NOT_A_RECORDER, (wrong[i], "a", 0, NULL));
    ASSERT_REFUSED(vek_testing_check_nothing, NOT_A_RECORDER, (wrong[i], "a", NULL));
    ASSERT_REFUSED(vek_testing_check_text, NOT_A_RECORDER, (wrong[i], "a", NULL));
  }
  ASSERT_REFUSED(vek_testing_check_count, "name != NULL", (recorder, NULL, NULL, 0, NULL));
  ASSERT_REFUSED(vek_testing_check_value, "name != NULL", (recorder, NULL, NULL, 0, 0, NULL));
  ASSERT_REFUSED(vek_testing_check_n_samples, "name != NULL", (recorder, NULL, NULL, 0, NULL));
  ASSERT_REFUSED(vek_testing_check_n_ranges, "name != NULL", (recorder, NULL, 0, NULL));
  ASSERT_REFUSED(vek_testing_check_nothing, "name != NULL", (recorder, NULL, NULL));
  ASSERT_REFUSED(vek_testing_check_text, "text != NULL", (recorder, NULL, NULL));

  double nan = g_ascii_strtod("nan", NULL);
  ASSERT_REFUSED(vek_testing_check_value, "tolerance >= 0", (recorder, "load", NULL, 0, -1, NULL));
  ASSERT_REFUSED(vek_testing_check_value, "tolerance >= 0", (recorder, "load", NULL, 0, nan, NULL));

  g_autoptr(GError) error = g_error_new_literal(VEK_TESTING_ERROR, 0, "set");
  ASSERT_REFUSED(vek_testing_check_count, ERROR_IS_SET, (recorder, "a", NULL, 0, &error));
  ASSERT_REFUSED(vek_testing_check_value, ERROR_IS_SET, (recorder, "a", NULL, 0, 0, &error));
  ASSERT_REFUSED(vek_testing_check_n_samples, ERROR_IS_SET, (recorder, "a", NULL, 0, &error));
  ASSERT_REFUSED(vek_testing_check_n_ranges, ERROR_IS_SET, (recorder, "a", 0, &error));
  ASSERT_REFUSED(vek_testing_check_nothing, ERROR_IS_SET, (recorder, "a", &error));
  ASSERT_REFUSED(vek_testing_check_text, ERROR_IS_SET, (recorder, "a", &error));
}

TEST(assertion_with_wrong_arguments_fails) {
  if (g_test_subprocess()) {
    vek_testing_assert_text(NULL, "");
    return;
  }
  g_test_trap_subprocess(NULL, 0, 0);
  g_test_trap_assert_failed();
  g_test_trap_assert_stderr("*assertion_with_wrong_arguments_fails: wrong arguments\n*");
}
