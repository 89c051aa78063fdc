#include "support.h"

static void report(VekTestingRecorder *recorder) {
  vek_metric_registry_report(fixture.registry, VEK_METRIC_REPORTER(recorder));
}

static VekMetricReporterInterface *get_operations(VekTestingRecorder *recorder) {
  return VEK_METRIC_REPORTER_GET_IFACE(recorder);
}

static void assert_text(VekTestingRecorder *recorder, const char *expected) {
  g_autofree char *text = vek_testing_recorder_get_text(recorder);
  g_assert_cmpstr(text, ==, expected);
}

TEST(text_has_a_line_for_each_call_sorted_by_key) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  g_autoptr(VekMetricCounter) requests = vek_metric_registry_counter_new(
      fixture.registry, "requests", "Count", DIMENSIONS("host", "h1", "zone", "b"));
  g_autoptr(VekMetricCounter) errors =
      vek_metric_registry_counter_new(fixture.registry, "errors", NULL, NULL);
  g_autoptr(VekMetricGauge) load =
      vek_metric_registry_gauge_new(fixture.registry, "load", "Percent", 0, NULL);
  g_autoptr(VekMetricHistogram) latency =
      vek_metric_registry_histogram_new(fixture.registry, "latency", "Seconds", NULL, NULL);
  g_autoptr(VekMetricTimeline) render =
      vek_metric_registry_timeline_new(fixture.registry, "render");
  vek_metric_counter_add(requests, 42);
  vek_metric_gauge_set_value(load, 0.1);
  vek_metric_histogram_set(latency, 1);
  vek_metric_histogram_set(latency, 3);
  vek_metric_timeline_add_range(render, 1, 100, 250);
  vek_metric_timeline_add_range(render, 2, -300, -420);

  report(recorder);
  assert_text(recorder,
              "count errors 0\n"
              "count requests{host=h1,zone=b} 42 Count\n"
              "aggregated latency n=2 sum=4 min=1 max=3 Seconds\n"
              "value load 0.1 Percent\n"
              "timeline render [2:-300..-420 1:100..250]\n");
}

TEST(lines_of_the_same_key_stay_as_they_came) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  VekMetricReporterInterface *operations = get_operations(recorder);
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  operations->process_count(reporter, "b.c", DIMENSIONS("a"), NULL, 0, 1);
  operations->process_count(reporter, "a.b.c", NULL, NULL, 0, 2);
  operations->process_count(reporter, "c", DIMENSIONS("a", "b"), NULL, 0, 3);
  operations->process_count(reporter, "a", NULL, NULL, 0, 4);
  operations->flush(reporter);
  assert_text(recorder, "count a 4\ncount b.c{a} 1\ncount a.b.c 2\ncount c{a=b} 3\n");
}

TEST(odd_strings_are_quoted) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  static const struct {
    const char *string, *shown;
  } rows[] = {
      {"a-b_c.d/e:f%#", "a-b_c.d/e:f%#"},
      {"größe", "größe"},
      {"", "\"\""},
      {"a b", "\"a b\""},
      {"größe der", "\"größe der\""},
      {"Ā Ā", "\"Ā Ā\""},
      {"a\nb\tc\001", "\"a\\nb\\tc\\001\""},
      {"\177", "\"\\177\""},
      {"\xff\xc3\xa4", "\"\\377\\303\\244\""},
      {"\xc1\xa1", "\"\\301\\241\""},
      {"no\xc2\xa0"
       "break",
       "\"no\xc2\xa0"
       "break\""},
      {"\"", "\"\\\"\""},
      {"\\", "\"\\\\\""},
      {"{", "\"{\""},
      {"}", "\"}\""},
      {"=", "\"=\""},
      {",", "\",\""},
      {"(null)", "\"(null)\""},
      {"@1", "\"@1\""},
      {NULL, "(null)"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    char *string = (char *)rows[i].string;
    const char *shown = rows[i].shown;
    VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
    get_operations(recorder)->process_count(reporter, string, DIMENSIONS("x", string), string, 0,
                                            1);
    get_operations(recorder)->flush(reporter);

    const char *value = string ? shown : NULL;
    g_autofree char *expected = value
                                    ? g_strdup_printf("count %s{x=%s} 1 %s\n", shown, value, value)
                                    : g_strdup("count (null){x} 1\n");
    assert_text(recorder, expected);
    g_autofree char *text = vek_testing_recorder_get_text(recorder);
    g_assert_true(g_utf8_validate(text, -1, NULL));
  }
}

TEST(no_dimensions_and_an_empty_vector_are_told_apart) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  char *none[] = {NULL};
  g_autoptr(VekMetricCounter) with =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, none);
  g_autoptr(VekMetricCounter) without =
      vek_metric_registry_counter_new(fixture.registry, "requests", "", NULL);
  vek_metric_counter_add(with, 1);
  vek_metric_counter_add(without, 2);
  report(recorder);
  assert_text(recorder, "count requests{} 1\ncount requests 2 \"\"\n");

  gint64 count;
  g_assert_true(vek_testing_recorder_get_count(recorder, "requests", none, &count));
  g_assert_cmpint(count, ==, 1);
  g_assert_true(vek_testing_recorder_get_count(recorder, "requests", NULL, &count));
  g_assert_cmpint(count, ==, 2);
}

TEST(numbers_are_as_long_as_they_need) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  static const struct {
    double value;
    const char *shown;
  } rows[] = {
      {0, "0"},
      {-0.0, "-0"},
      {0.1, "0.1"},
      {2.5, "2.5"},
      {1.0 / 3, "0.3333333333333333"},
      {0.1 + 0.2, "0.30000000000000004"},
      {1e22, "1e+22"},
      {G_MAXDOUBLE, "1.7976931348623157e+308"},
      {5e-324, "4.94065645841247e-324"},
      {G_MAXDOUBLE * 10, "inf"},
      {-G_MAXDOUBLE * 10, "-inf"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
    get_operations(recorder)->process_value(reporter, "load", NULL, NULL, 0, rows[i].value);
    get_operations(recorder)->flush(reporter);
    g_autofree char *expected = g_strdup_printf("value load %s\n", rows[i].shown);
    assert_text(recorder, expected);
  }
}

TEST(numbers_that_are_none_have_no_sign) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  double nan = g_ascii_strtod("nan", NULL);
  get_operations(recorder)->process_value(reporter, "a", NULL, NULL, 0, nan);
  get_operations(recorder)->process_value(reporter, "b", NULL, NULL, 0, -nan);
  get_operations(recorder)->flush(reporter);
  assert_text(recorder, "value a nan\nvalue b nan\n");
}

TEST(times_are_shown_when_asked_for) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  double samples[] = {1, 3};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, 2);
  GSList range = {&(VekMetricRange){1, 2, 3}, NULL};
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  VekMetricReporterInterface *operations = get_operations(recorder);
  operations->process_count(reporter, "a", NULL, "Count", 1000, 1);
  operations->process_value(reporter, "b", NULL, NULL, -1, 0.5);
  operations->process_aggregated(reporter, "c", NULL, NULL, snapshot);
  operations->process_timeline_samples(reporter, "d", &range);
  operations->flush(reporter);
  assert_text(recorder,
              "count a 1 Count\n"
              "value b 0.5\n"
              "aggregated c n=2 sum=4 min=1 max=3\n"
              "timeline d [1:2..3]\n");

  gboolean times;
  g_object_get(recorder, "times", &times, NULL);
  g_assert_false(times);
  GParamSpec *property = g_object_class_find_property(G_OBJECT_GET_CLASS(recorder), "times");
  g_assert_false(g_value_get_boolean(g_param_spec_get_default_value(property)));
  g_object_set(recorder, "times", TRUE, NULL);
  g_object_get(recorder, "times", &times, NULL);
  g_assert_true(times);
  assert_text(recorder,
              "count a 1 Count @1000\n"
              "value b 0.5 @-1\n"
              "aggregated c n=2 sum=4 min=1 max=3 @1000\n"
              "timeline d [1:2..3]\n");
}

TEST(figures_can_be_asked_for_one_by_one) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  double sample = 2.5;
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(&sample, 1);
  static VekMetricRange first = {1, 100, 250}; /* static: its padding is compared as well */
  static VekMetricRange second = {2, 3, 4};
  GSList old = {&first, NULL};
  GSList ranges = {&second, &old};
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  VekMetricReporterInterface *operations = get_operations(recorder);
  operations->process_count(reporter, "all", NULL, NULL, 1, 1);
  operations->process_count(reporter, "all", DIMENSIONS("host", "h1"), NULL, 1, 2);
  operations->process_value(reporter, "all", DIMENSIONS("host", "h1"), NULL, 1, 0.25);
  operations->process_value(reporter, "all", DIMENSIONS("host", "h1"), NULL, 2, 0.5);
  operations->process_aggregated(reporter, "all", DIMENSIONS("host", "h1"), NULL, snapshot);
  operations->process_timeline_samples(reporter, "all", &ranges);
  operations->flush(reporter);

  gint64 count = -1;
  double value = -1;
  g_assert_true(vek_testing_recorder_get_count(recorder, "all", NULL, &count));
  g_assert_cmpint(count, ==, 1);
  g_assert_true(vek_testing_recorder_get_count(recorder, "all", DIMENSIONS("host", "h1"), &count));
  g_assert_cmpint(count, ==, 2);
  g_assert_true(vek_testing_recorder_get_count(recorder, "all", NULL, NULL));
  g_assert_true(vek_testing_recorder_get_value(recorder, "all", DIMENSIONS("host", "h1"), &value));
  g_assert_cmpfloat(value, ==, 0.5); /* of two the last */
  g_assert_true(vek_testing_recorder_get_value(recorder, "all", DIMENSIONS("host", "h1"), NULL));
  g_assert_true(vek_testing_recorder_get_snapshot(recorder, "all", DIMENSIONS("host", "h1")) ==
                snapshot);
  GSList *kept = vek_testing_recorder_get_ranges(recorder, "all");
  g_assert_cmpuint(g_slist_length(kept), ==, 2);
  g_assert_true(kept->data != &second);
  g_assert_cmpmem(kept->data, sizeof second, &second, sizeof second);
  g_assert_cmpmem(kept->next->data, sizeof first, &first, sizeof first);

  g_assert_false(vek_testing_recorder_get_count(recorder, "none", NULL, &count));
  g_assert_cmpint(count, ==, 0);
  g_assert_false(vek_testing_recorder_get_count(recorder, "all", DIMENSIONS("host"), NULL));
  g_assert_false(vek_testing_recorder_get_value(recorder, "all", NULL, &value));
  g_assert_cmpfloat(value, ==, 0);
  g_assert_null(vek_testing_recorder_get_snapshot(recorder, "all", NULL));
  g_assert_null(vek_testing_recorder_get_ranges(recorder, "none"));
}

TEST(missing_snapshot_is_shown_as_such) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  get_operations(recorder)->process_aggregated(reporter, "latency", NULL, "Seconds", NULL);
  get_operations(recorder)->process_timeline_samples(reporter, "render", NULL);
  get_operations(recorder)->flush(reporter);
  assert_text(recorder, "aggregated latency (null) Seconds\ntimeline render []\n");
  g_object_set(recorder, "times", TRUE, NULL);
  assert_text(recorder, "aggregated latency (null) Seconds @0\ntimeline render []\n");
  g_assert_null(vek_testing_recorder_get_snapshot(recorder, "latency", NULL));
}

TEST(only_the_last_pass_that_ended_is_kept) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  assert_text(recorder, NULL);
  report(recorder);
  assert_text(recorder, "");

  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  get_operations(recorder)->process_count(reporter, "a", NULL, NULL, 0, 1);
  assert_text(recorder, "");
  get_operations(recorder)->flush(reporter);
  assert_text(recorder, "count a 1\n");
  get_operations(recorder)->process_count(reporter, "b", NULL, NULL, 0, 2);
  g_assert_true(vek_testing_recorder_get_count(recorder, "a", NULL, NULL));
  get_operations(recorder)->flush(reporter);
  assert_text(recorder, "count b 2\n");

  vek_testing_recorder_clear(recorder);
  assert_text(recorder, NULL);
  g_assert_false(vek_testing_recorder_get_count(recorder, "b", NULL, NULL));
}

static void append_line(VekTestingRecorder *recorder, const char *line, gpointer record) {
  (void)recorder;
  g_string_append_printf(record, "%s\n", line);
}

TEST(each_call_is_signalled_as_it_comes) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_signal_connect(recorder, "recorded", G_CALLBACK(append_line), record);
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(recorder);
  get_operations(recorder)->process_count(reporter, "b", NULL, NULL, 1, 1);
  g_object_set(recorder, "times", TRUE, NULL);
  get_operations(recorder)->process_count(reporter, "a", NULL, NULL, 2, 2);
  get_operations(recorder)->flush(reporter);
  g_assert_cmpstr(record->str, ==, "count b 1\ncount a 2 @2\nflush\n");
}

TEST(failed_checks_do_nothing) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  void *wrong[] = {NULL, fixture.registry};
  for (gsize i = 0; i < G_N_ELEMENTS(wrong); i++) {
    ASSERT_REFUSED(vek_testing_recorder_get_text, NOT_A_RECORDER, (wrong[i]));
    ASSERT_REFUSED(vek_testing_recorder_get_count, NOT_A_RECORDER, (wrong[i], "a", NULL, NULL));
    ASSERT_REFUSED(vek_testing_recorder_get_value, NOT_A_RECORDER, (wrong[i], "a", NULL, NULL));
    ASSERT_REFUSED(vek_testing_recorder_get_snapshot, NOT_A_RECORDER, (wrong[i], "a", NULL));
    ASSERT_REFUSED(vek_testing_recorder_get_ranges, NOT_A_RECORDER, (wrong[i], "a"));
    vek_testing_recorder_clear(wrong[i]);
    ASSERT_FAILED_CHECK("vek_testing_recorder_clear", NOT_A_RECORDER);
  }
  ASSERT_REFUSED(vek_testing_recorder_get_count, "name != NULL", (recorder, NULL, NULL, NULL));
  ASSERT_REFUSED(vek_testing_recorder_get_value, "name != NULL", (recorder, NULL, NULL, NULL));
  ASSERT_REFUSED(vek_testing_recorder_get_snapshot, "name != NULL", (recorder, NULL, NULL));
  ASSERT_REFUSED(vek_testing_recorder_get_ranges, "name != NULL", (recorder, NULL));
}

TEST(unknown_property_warns) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  assert_unknown_property_warns_in("VEK:testing", recorder);
}
