/* Tests of VekServicePrometheusReporter: whole texts, and what changes them. */

#include <math.h>
#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"

#define OPENMETRICS VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS
#define TEXT VEK_SERVICE_PROMETHEUS_FORMAT_TEXT

/* Most tests play the registry themselves: they bring what a pass is to consist of. */
typedef VekServicePrometheusReporter Reporter;
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Reporter, g_object_unref)

static Reporter *set_up(void) {
  vek_testing_clock_set(1700000000 * (gint64)G_USEC_PER_SEC, G_USEC_PER_SEC);
  return vek_service_prometheus_reporter_new();
}

static VekMetricReporterInterface *get_operations(Reporter *reporter) {
  return VEK_METRIC_REPORTER_GET_IFACE(reporter);
}

/* Dimensions as "name=value name=value"; NULL for none. */
static char **parse_dimensions(const char *dimensions) {
  return dimensions ? g_strsplit_set(dimensions, "= ", -1) : NULL;
}

static void count(Reporter *reporter, const char *name, const char *dimensions, gint64 value) {
  g_auto(GStrv) vector = parse_dimensions(dimensions);
  get_operations(reporter)->process_count(VEK_METRIC_REPORTER(reporter), name, vector, NULL, 0,
                                          value);
}

static void gauge(Reporter *reporter, const char *name, const char *dimensions, double value) {
  g_auto(GStrv) vector = parse_dimensions(dimensions);
  get_operations(reporter)->process_value(VEK_METRIC_REPORTER(reporter), name, vector, NULL, 0,
                                          value);
}

/* Brings one sample, or none if it is not a number. */
static void sample(Reporter *reporter, const char *name, const char *dimensions, double value) {
  g_auto(GStrv) vector = parse_dimensions(dimensions);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(&value, !isnan(value));
  get_operations(reporter)->process_aggregated(VEK_METRIC_REPORTER(reporter), name, vector, NULL,
                                               snapshot);
}

static void flush(Reporter *reporter) {
  get_operations(reporter)->flush(VEK_METRIC_REPORTER(reporter));
}

/* Compares the families' types and samples, without help and the reporter's own, and in one line:
 * "a gauge; a 1; b unknown; b 2". */
static void assert_text(Reporter *reporter, VekServicePrometheusFormat format,
                        const char *expected) {
  g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, format);
  g_autoptr(GString) found = g_string_new(NULL);
  g_auto(GStrv) lines = g_strsplit(text, "\n", -1);
  for (char **line = lines; *line; line++) {
    if (**line == '\0' || strstr(*line, "vekmetrics_") || g_str_has_prefix(*line, "# HELP") ||
        g_str_equal(*line, "# EOF"))
      continue;
    const char *what = g_str_has_prefix(*line, "# TYPE ") ? *line + strlen("# TYPE ") : *line;
    g_string_append_printf(found, "%s%s", found->len > 0 ? "; " : "", what);
  }
  g_assert_cmpstr(found->str, ==, expected);
}

static void assert_warning(const char *message) {
  assert_logged("VEK:service", G_LOG_LEVEL_WARNING, message);
}

TEST(every_kind_is_written_in_both_formats) {
  g_autoptr(Reporter) reporter = set_up();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  static char *h1[] = {"host", "h1", NULL}, *h2[] = {"host", "h2", NULL};
  static char *quoted[] = {"host", "\"h\\", NULL};
  vek_service_prometheus_reporter_declare_monotonic(reporter, "http.requests");
  g_autoptr(VekMetricCounter) second =
      vek_metric_registry_counter_new(registry, "http.requests", "Count", h2);
  g_autoptr(VekMetricCounter) first =
      vek_metric_registry_counter_new(registry, "http.requests", "Count", h1);
  g_autoptr(VekMetricCounter) jobs = vek_metric_registry_counter_new(registry, "jobs", "", NULL);
  g_autoptr(VekMetricGauge) load = vek_metric_registry_gauge_new(registry, "load", NULL, 0, NULL);
  g_autoptr(VekMetricHistogram) size =
      vek_metric_registry_histogram_new(registry, "size", "Bytes", NULL, NULL);
  g_autoptr(VekMetricHistogram) none =
      vek_metric_registry_histogram_new(registry, "size.none", "Bytes", NULL, NULL);
  g_autoptr(VekMetricMeter) meter =
      vek_metric_registry_meter_new(registry, "a \"rate\"", "Count", quoted);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(registry, "wait", "Seconds", NULL, NULL);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "render");
  vek_metric_counter_add(first, 42);
  vek_metric_counter_add(second, 7);
  vek_metric_counter_add(jobs, -3);
  vek_metric_gauge_set_value(load, 0.25);
  for (int i = 1; i <= 4; i++)
    vek_metric_histogram_set(size, i);
  vek_metric_timer_set_usec(timer, 500000);
  vek_metric_registry_report(registry, VEK_METRIC_REPORTER(reporter));

  g_autofree char *openmetrics = vek_service_prometheus_reporter_get_text(reporter, OPENMETRICS);
  g_assert_cmpstr(openmetrics, ==,
                  "# HELP a__rate_ a \\\"rate\\\", in Count\n"
                  "# TYPE a__rate_ gauge\n"
                  "a__rate_{host=\"\\\"h\\\\\"} 0\n"
                  "# HELP http_requests http.requests, in Count\n"
                  "# TYPE http_requests counter\n"
                  "http_requests_total{host=\"h1\"} 42\n"
                  "http_requests_total{host=\"h2\"} 7\n"
                  "# HELP jobs jobs\n"
                  "# TYPE jobs unknown\n"
                  "jobs -3\n"
                  "# HELP load load\n"
                  "# TYPE load gauge\n"
                  "load 0.25\n"
                  "# HELP size size, in Bytes\n"
                  "# TYPE size summary\n"
                  "size{quantile=\"0.5\"} 2.5\n"
                  "size{quantile=\"0.9\"} 3.7\n"
                  "size{quantile=\"0.99\"} 3.9699999999999998\n"
                  "# HELP size_avg size, in Bytes: average\n"
                  "# TYPE size_avg gauge\n"
                  "size_avg 2.5\n"
                  "# HELP size_max size, in Bytes: maximum\n"
                  "# TYPE size_max gauge\n"
                  "size_max 4\n"
                  "# HELP size_min size, in Bytes: minimum\n"
                  "# TYPE size_min gauge\n"
                  "size_min 1\n"
                  "# HELP size_none_samples size.none, in Bytes: number of samples\n"
                  "# TYPE size_none_samples gauge\n"
                  "size_none_samples 0\n"
                  "# HELP size_samples size, in Bytes: number of samples\n"
                  "# TYPE size_samples gauge\n"
                  "size_samples 4\n"
                  "# HELP vekmetrics_last_pass_timestamp_seconds "
                  "vekmetrics_last_pass_timestamp_seconds, in Seconds\n"
                  "# TYPE vekmetrics_last_pass_timestamp_seconds gauge\n"
                  "vekmetrics_last_pass_timestamp_seconds 1700000000\n"
                  "# HELP vekmetrics_metrics vekmetrics_metrics, in Count\n"
                  "# TYPE vekmetrics_metrics gauge\n"
                  "vekmetrics_metrics 8\n"
                  "# HELP vekmetrics_pass_duration_seconds "
                  "vekmetrics_pass_duration_seconds, in Seconds\n"
                  "# TYPE vekmetrics_pass_duration_seconds gauge\n"
                  "vekmetrics_pass_duration_seconds 0\n"
                  "# HELP wait wait, in Seconds\n"
                  "# TYPE wait summary\n"
                  "wait{quantile=\"0.5\"} 0.5\n"
                  "wait{quantile=\"0.9\"} 0.5\n"
                  "wait{quantile=\"0.99\"} 0.5\n"
                  "# HELP wait_avg wait, in Seconds: average\n"
                  "# TYPE wait_avg gauge\n"
                  "wait_avg 0.5\n"
                  "# HELP wait_max wait, in Seconds: maximum\n"
                  "# TYPE wait_max gauge\n"
                  "wait_max 0.5\n"
                  "# HELP wait_min wait, in Seconds: minimum\n"
                  "# TYPE wait_min gauge\n"
                  "wait_min 0.5\n"
                  "# HELP wait_samples wait, in Seconds: number of samples\n"
                  "# TYPE wait_samples gauge\n"
                  "wait_samples 1\n"
                  "# EOF\n");

  g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, TEXT);
  g_assert_true(g_str_has_prefix(text,
                                 "# HELP a__rate_ a \"rate\", in Count\n"
                                 "# TYPE a__rate_ gauge\n"
                                 "a__rate_{host=\"\\\"h\\\\\"} 0\n"
                                 "# HELP http_requests_total http.requests, in Count\n"
                                 "# TYPE http_requests_total counter\n"
                                 "http_requests_total{host=\"h1\"} 42\n"
                                 "http_requests_total{host=\"h2\"} 7\n"
                                 "# HELP jobs jobs\n"
                                 "# TYPE jobs untyped\n"
                                 "jobs -3\n"));
  g_assert_true(g_str_has_suffix(text, "wait_samples 1\n"));
}

TEST(families_are_sorted_as_each_format_names_them) {
  g_autoptr(Reporter) reporter = set_up();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  count(reporter, "x", NULL, 1);
  gauge(reporter, "x_max", NULL, 2);
  flush(reporter);
  assert_text(reporter, OPENMETRICS, "x counter; x_total 1; x_max gauge; x_max 2");
  assert_text(reporter, TEXT, "x_max gauge; x_max 2; x_total counter; x_total 1");
}

TEST(samples_are_sorted_by_their_labels) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "x", "a=3", 3);
  gauge(reporter, "x", "b=1 a=2", 2);
  gauge(reporter, "x", NULL, 1);
  sample(reporter, "y", "b=2", 3);
  sample(reporter, "y", "b=1", 2);
  flush(reporter);
  assert_text(reporter, TEXT,
              "x gauge; x 1; x{a=\"2\",b=\"1\"} 2; x{a=\"3\"} 3; "
              "y summary; y{b=\"1\",quantile=\"0.5\"} 2; y{b=\"1\",quantile=\"0.9\"} 2; "
              "y{b=\"1\",quantile=\"0.99\"} 2; y{b=\"2\",quantile=\"0.5\"} 3; "
              "y{b=\"2\",quantile=\"0.9\"} 3; y{b=\"2\",quantile=\"0.99\"} 3; "
              "y_avg gauge; y_avg{b=\"1\"} 2; y_avg{b=\"2\"} 3; "
              "y_max gauge; y_max{b=\"1\"} 2; y_max{b=\"2\"} 3; "
              "y_min gauge; y_min{b=\"1\"} 2; y_min{b=\"2\"} 3; "
              "y_samples gauge; y_samples{b=\"1\"} 1; y_samples{b=\"2\"} 1");
}

TEST(total_is_not_said_twice) {
  g_autoptr(Reporter) reporter = set_up();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "sent.total");
  vek_service_prometheus_reporter_declare_monotonic(reporter, "_total");
  count(reporter, "sent.total", NULL, 1);
  count(reporter, "_total", NULL, 2);
  flush(reporter);
  assert_text(reporter, OPENMETRICS, "_total counter; _total_total 2; sent counter; sent_total 1");
}

TEST(names_declared_after_a_pass_count_in_its_text) {
  g_autoptr(Reporter) reporter = set_up();
  count(reporter, "x", NULL, 1);
  flush(reporter);
  assert_text(reporter, TEXT, "x untyped; x 1");
  vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  assert_text(reporter, TEXT, "x_total counter; x_total 1");
}

TEST(prefix_is_in_front_of_all_but_the_reporters_own) {
  g_autoptr(Reporter) reporter = set_up();
  g_object_set(reporter, "prefix", "my-", NULL);
  gauge(reporter, "load", NULL, 1);
  flush(reporter);
  assert_text(reporter, TEXT, "my_load gauge; my_load 1");
  g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, TEXT);
  g_assert_nonnull(strstr(text, "\nvekmetrics_metrics 1\n"));
  g_autofree char *prefix = NULL;
  g_object_get(reporter, "prefix", &prefix, NULL);
  g_assert_cmpstr(prefix, ==, "my-");

  g_object_set(reporter, "prefix", NULL, NULL);
  assert_text(reporter, TEXT, "load gauge; load 1");
}

TEST(help_tells_of_the_first_name_and_unit) {
  g_autoptr(Reporter) reporter = set_up();
  static const struct {
    const char *name, *unit, *host;
  } metrics[] = {
      {"a_b", "Bytes", "h1"},
      {"a.b", "Seconds", "h2"},
      {"a.b", "Count", "h3"},
      {"a.b", "Minutes", "h4"},
  };
  static const char *const expected[] = {"# HELP a_b a.b, in Count\n# TYPE a_b gauge\n",
                                         "# HELP a_b a.b, in Minutes\n# TYPE a_b gauge\n"};
  for (int pass = 0; pass < 2; pass++) {
    for (gsize i = 0; i < G_N_ELEMENTS(metrics); i++) {
      const char *dimensions[] = {"host", metrics[i].host, NULL};
      if (pass == 0 || !g_str_equal(metrics[i].unit, "Count"))
        get_operations(reporter)->process_value(VEK_METRIC_REPORTER(reporter), metrics[i].name,
                                                (char **)dimensions, metrics[i].unit, 0, 1);
    }
    flush(reporter);
    g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, TEXT);
    g_assert_true(g_str_has_prefix(text, expected[pass]));
  }
}

TEST(unit_of_a_metric_may_change) {
  g_autoptr(Reporter) reporter = set_up();
  for (const char *unit = "Bytes"; unit; unit = g_str_equal(unit, "Bytes") ? "Bits" : NULL) {
    get_operations(reporter)->process_value(VEK_METRIC_REPORTER(reporter), "x", NULL, unit, 0, 1);
    flush(reporter);
    g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, TEXT);
    g_assert_nonnull(strstr(text, unit));
  }
}

TEST(kinds_that_differ_are_unknown) {
  g_autoptr(Reporter) reporter = set_up();
  count(reporter, "a", "host=h1", 1);
  gauge(reporter, "a", "host=h2", 2);
  gauge(reporter, "b", "host=h1", 3);
  sample(reporter, "b", "host=h2", NAN);
  count(reporter, "b_samples", "host=h3", 4);
  gauge(reporter, "c-c", NULL, 5);
  sample(reporter, "c.c", NULL, 6);
  flush(reporter);
  assert_text(reporter, OPENMETRICS,
              "a unknown; a{host=\"h1\"} 1; a{host=\"h2\"} 2; b unknown; b{host=\"h1\"} 3; "
              "b_samples unknown; b_samples{host=\"h2\"} 0; b_samples{host=\"h3\"} 4; "
              "c_c unknown; c_c 5; c_c{quantile=\"0.5\"} 6; c_c{quantile=\"0.9\"} 6; "
              "c_c{quantile=\"0.99\"} 6; c_c_avg gauge; c_c_avg 6; c_c_max gauge; c_c_max 6; "
              "c_c_min gauge; c_c_min 6; c_c_samples gauge; c_c_samples 1");
}

TEST(names_and_labels_that_read_alike_are_told_apart) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "x", "bc=1", 1);
  gauge(reporter, "xb", "a=1", 2);
  gauge(reporter, "xb", "c=1", 3);
  sample(reporter, "y", "a=1", NAN);
  gauge(reporter, "y", "qa=1", 4);
  flush(reporter);
  assert_text(reporter, OPENMETRICS,
              "x gauge; x{bc=\"1\"} 1; xb gauge; xb{a=\"1\"} 2; xb{c=\"1\"} 3; "
              "y unknown; y{qa=\"1\"} 4; y_samples gauge; y_samples{a=\"1\"} 0");
}

TEST(type_follows_the_kinds_that_come_and_go) {
  g_autoptr(Reporter) reporter = set_up();
  static const char *const expected[] = {"a gauge; a{host=\"h1\"} 1",
                                         "a untyped; a{host=\"h1\"} 1; a{host=\"h2\"} 2"};
  for (int pass = 0; pass < 4; pass++) {
    gauge(reporter, "a", "host=h1", 1);
    if (pass % 2 == 1)
      count(reporter, "a", "host=h2", 2);
    flush(reporter);
    assert_text(reporter, TEXT, expected[pass % 2]);
  }
}

/* What a pass brings. The counter "cx" is declared monotonic. */
typedef struct {
  char kind; /* 'c' for a counter, 'g' for a gauge, 'h' for a histogram without samples */
  const char *name, *dimensions;
} Brought;

static void bring(Reporter *reporter, const Brought *brought, int value) {
  switch (brought->kind) {
  case 'c': count(reporter, brought->name, brought->dimensions, value); break;
  case 'g': gauge(reporter, brought->name, brought->dimensions, value); break;
  default: sample(reporter, brought->name, brought->dimensions, NAN); break;
  }
}

TEST(only_the_first_of_those_that_become_one_stays) {
  static const struct {
    const char *what;
    Brought brought[2];
    const char *expected;
    const char *left_out, *because_of; /* or NULL */
  } rows[] = {
      {"the same name",
       {{'g', "a_b", "h=1"}, {'g', "a.b", "h=1"}},
       "a_b gauge; a_b{h=\"1\"} 2",
       "a_b{h=\"1\"}",
       "a.b{h=\"1\"}"},
      {"the same labels",
       {{'g', "x", "a=1 b=2"}, {'g', "x", "b=2 a=1"}},
       "x gauge; x{a=\"1\",b=\"2\"} 1",
       "x{a=\"1\",b=\"2\"}",
       "x{a=\"1\",b=\"2\"}"},
      {"a label without name and value, which is none",
       {{'g', "x", "="}, {'g', "x", NULL}},
       "x gauge; x 2",
       "x{}",
       "x{}"},
      {"a gauge beside a histogram's",
       {{'h', "x", NULL}, {'g', "x_samples", NULL}},
       "x_samples gauge; x_samples 0",
       "x_samples{}",
       "x{}"},
      {"x_total beside a counter",
       {{'c', "cx", NULL}, {'g', "cx_total", NULL}},
       "cx_total counter; cx_total 1",
       "cx_total{}",
       "cx{}"},
      {"x_created beside a counter, by dimensions first",
       {{'c', "cx", "h=2"}, {'g', "cx_created", "h=1"}},
       "cx_created gauge; cx_created{h=\"1\"} 2",
       "cx{h=\"2\"}",
       "cx_created{h=\"1\"}"},
      {"x beside a counter",
       {{'c', "cx", "h=2"}, {'g', "cx", "h=1"}},
       "cx gauge; cx{h=\"1\"} 2",
       "cx{h=\"2\"}",
       "cx{h=\"1\"}"},
      {"x_count beside a counter",
       {{'c', "cx", NULL}, {'g', "cx_count", NULL}},
       "cx_count gauge; cx_count 2; cx_total counter; cx_total 1",
       NULL,
       NULL},
      {"x_count beside a summary",
       {{'h', "x", NULL}, {'g', "x_count", NULL}},
       "x_samples gauge; x_samples 0",
       "x_count{}",
       "x{}"},
      {"x_sum beside a summary",
       {{'h', "x", NULL}, {'g', "x_sum", NULL}},
       "x_samples gauge; x_samples 0",
       "x_sum{}",
       "x{}"},
      {"x_created beside a summary",
       {{'h', "x", NULL}, {'g', "x_created", NULL}},
       "x_samples gauge; x_samples 0",
       "x_created{}",
       "x{}"},
      {"x_total beside a summary",
       {{'h', "x", NULL}, {'g', "x_total", NULL}},
       "x_samples gauge; x_samples 0; x_total gauge; x_total 2",
       NULL,
       NULL},
      {"the reporter's own",
       {{'g', "vekmetrics.metrics", NULL}, {'g', "x", NULL}},
       "x gauge; x 2",
       "vekmetrics.metrics{}",
       "vekmetrics_metrics{}"},
  };
  for (gsize i = 0; i < 3 * G_N_ELEMENTS(rows); i++) {
    const Brought *brought = rows[i / 3].brought;
    int earlier = (int)(i % 3); /* one of them, if this is its number, comes a pass earlier */
    g_test_message("%s, %d", rows[i / 3].what, earlier);
    g_autoptr(Reporter) reporter = set_up();
    vek_service_prometheus_reporter_declare_monotonic(reporter, "cx");
    if (earlier < 2) {
      bring(reporter, &brought[earlier], earlier + 1);
      flush(reporter);
    }
    for (int pass = 0; pass < 3; pass++) {
      for (int j = 0; j < 2; j++)
        bring(reporter, &brought[j], j + 1);
      if (pass == 1)
        gauge(reporter, "zz", NULL, 0); /* so that the set of metrics changes */
      flush(reporter);
      if (rows[i / 3].left_out && pass == 0) {
        g_autofree char *message = g_strdup_printf(
            "To Prometheus %s would be the same as %s, or of a family of the same name: it is left "
            "out",
            rows[i / 3].left_out, rows[i / 3].because_of);
        assert_warning(message);
      }
      assert_nothing_logged();
      g_autofree char *with_new = g_strconcat(rows[i / 3].expected, "; zz gauge; zz 0", NULL);
      assert_text(reporter, TEXT, pass == 1 ? with_new : rows[i / 3].expected);
    }
  }
}

TEST(warning_names_the_first_of_a_family) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "x_count", "h=1", 1);
  gauge(reporter, "x_count", "h=2", 2);
  sample(reporter, "x", "h=3", 3);
  flush(reporter);
  assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING,
                     "To Prometheus x{h=\"3\"} would be the same as x_count{h=\"1\"}, *");
}

TEST(the_one_left_out_comes_when_the_other_goes) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "a.b", NULL, 1);
  gauge(reporter, "a_b", NULL, 2);
  flush(reporter);
  assert_text(reporter, TEXT, "a_b gauge; a_b 1");
  assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING, "To Prometheus a_b{} *");
  gauge(reporter, "a_b", NULL, 2);
  flush(reporter);
  assert_text(reporter, TEXT, "a_b gauge; a_b 2");
}

TEST(one_left_out_comes_when_another_makes_room) {
  static const struct {
    const char *what;
    Brought brought[4]; /* the last comes later */
    const char *before, *after;
  } rows[] = {
      {"with a gauge, whose family keeps no other names",
       {{'h', "x", "h=1"}, {'g', "x_count", NULL}, {'g', "y", NULL}, {'g', "x", NULL}},
       "x_count gauge; x_count 2; y gauge; y 3",
       "x untyped; x 4; x_count gauge; x_count 2; x_samples gauge; x_samples{h=\"1\"} 0; "
       "y gauge; y 3"},
      {"with the first of a family that is mixed already",
       {{'h', "x", "h=1"}, {'g', "x_count", "h=2"}, {'g', "x", "h=3"}, {'c', "x", NULL}},
       "x untyped; x{h=\"3\"} 3; x_samples gauge; x_samples{h=\"1\"} 0",
       "x untyped; x 4; x{h=\"3\"} 3; x_count gauge; x_count{h=\"2\"} 2; x_samples gauge; "
       "x_samples{h=\"1\"} 0"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_test_message("%s", rows[i].what);
    g_autoptr(Reporter) reporter = set_up();
    for (int pass = 0; pass < 2; pass++) {
      for (int j = 0; j < 3 + pass; j++)
        bring(reporter, &rows[i].brought[j], j + 1);
      flush(reporter);
      assert_text(reporter, TEXT, pass == 0 ? rows[i].before : rows[i].after);
    }
    assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING, "To Prometheus *");
  }
}

/* A reporter that arranges families as metrics come and go shows what one shows that has seen only
 * the last pass. */
TEST(text_does_not_depend_on_earlier_passes) {
  static const char *const names[] = {"a", "a.b", "a-b", "a_avg", "a_count", "m", "m_total", "z"};
  static const char *const dimensions[] = {NULL, "h=1", "h=2"};
  for (guint32 seed = 0; seed < 300; seed++) {
    g_autoptr(GRand) random = g_rand_new_with_seed(seed);
    int kinds[G_N_ELEMENTS(names)][G_N_ELEMENTS(dimensions)];
    g_autoptr(Reporter) kept = set_up();
    vek_service_prometheus_reporter_declare_monotonic(kept, "m");
    for (int pass = 0; pass < 12; pass++) {
      g_autoptr(Reporter) fresh = vek_service_prometheus_reporter_new();
      vek_service_prometheus_reporter_declare_monotonic(fresh, "m");
      for (gsize i = 0; i < G_N_ELEMENTS(names); i++) {
        for (gsize j = 0; j < G_N_ELEMENTS(dimensions); j++) {
          if (pass == 0 || g_rand_int_range(random, 0, 16) == 0)
            kinds[i][j] = g_rand_int_range(random, 0, seed % 2 == 0 ? 4 : 12);
          int kind = kinds[i][j];
          for (int both = 0; both < 2; both++) {
            if (kind == 0)
              count(both ? kept : fresh, names[i], dimensions[j], 1);
            else if (kind == 1)
              gauge(both ? kept : fresh, names[i], dimensions[j], 1);
            else if (kind == 2)
              sample(both ? kept : fresh, names[i], dimensions[j], 1);
          }
        }
      }
      flush(kept);
      flush(fresh);
      for (int format = OPENMETRICS; format <= TEXT; format++) {
        g_autofree char *found = vek_service_prometheus_reporter_get_text(kept, format);
        g_autofree char *expected = vek_service_prometheus_reporter_get_text(fresh, format);
        g_assert_cmpstr(found, ==, expected);
      }
    }
  }
  while (log_capture_get_n_waiting() > 0)
    assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING, "To Prometheus *");
}

TEST(what_a_pass_does_not_bring_is_gone) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "a", NULL, 1);
  gauge(reporter, "b", NULL, 2);
  flush(reporter);
  gauge(reporter, "b", NULL, 3);
  assert_text(reporter, TEXT, "a gauge; a 1; b gauge; b 2");
  flush(reporter);
  assert_text(reporter, TEXT, "b gauge; b 3");
  flush(reporter);
  assert_text(reporter, TEXT, "");
}

TEST(keep_seconds_says_how_long_it_stays) {
  g_autoptr(Reporter) reporter = set_up();
  g_object_set(reporter, "keep-seconds", 60, NULL);
  gauge(reporter, "a", NULL, 1);
  flush(reporter);
  vek_testing_clock_advance(60 * G_USEC_PER_SEC - 1);
  flush(reporter);
  assert_text(reporter, TEXT, "a gauge; a 1");
  gauge(reporter, "a", NULL, 2);
  flush(reporter);
  vek_testing_clock_advance(60 * G_USEC_PER_SEC);
  assert_text(reporter, TEXT, "a gauge; a 2");
  flush(reporter);
  assert_text(reporter, TEXT, "");
  guint seconds;
  g_object_get(reporter, "keep-seconds", &seconds, NULL);
  g_assert_cmpuint(seconds, ==, 60);
}

TEST(it_can_stay_for_longer_than_an_hour) {
  g_autoptr(Reporter) reporter = set_up();
  g_object_set(reporter, "keep-seconds", 86400, NULL);
  gauge(reporter, "a", NULL, 1);
  flush(reporter);
  vek_testing_clock_advance(86400 * (gint64)G_USEC_PER_SEC - 1);
  flush(reporter);
  assert_text(reporter, TEXT, "a gauge; a 1");
}

TEST(declared_counter_that_goes_down_is_warned_of_once) {
  g_autoptr(Reporter) reporter = set_up();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  static const gint64 counts[] = {5, 5, 4, 3};
  for (gsize i = 0; i < G_N_ELEMENTS(counts); i++) {
    count(reporter, "x", NULL, counts[i]);
    count(reporter, "not declared", NULL, -counts[i]);
    flush(reporter);
    if (counts[i] == 4)
      assert_warning("The counter x is declared monotonic, but went down");
    assert_nothing_logged();
  }
  assert_text(reporter, TEXT, "not_declared untyped; not_declared -3; x_total counter; x_total 3");
}

TEST(declaring_a_counter_again_changes_nothing) {
  g_autoptr(Reporter) reporter = set_up();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  for (int value = 5; value >= 3; value--) {
    count(reporter, "x", NULL, value);
    flush(reporter);
    if (value == 4)
      assert_warning("The counter x is declared monotonic, but went down");
    assert_nothing_logged();
    vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  }
  assert_text(reporter, TEXT, "x_total counter; x_total 3");
}

TEST(counter_that_comes_anew_has_not_gone_down) {
  g_autoptr(Reporter) reporter = set_up();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  count(reporter, "x", NULL, 5);
  flush(reporter);
  flush(reporter);
  count(reporter, "x", NULL, 1);
  flush(reporter);
  assert_text(reporter, TEXT, "x_total counter; x_total 1");
}

TEST(negative_declared_counter_is_left_out) {
  g_autoptr(Reporter) reporter = set_up();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  static const gint64 counts[] = {0, -1, -2, 0, -1, G_MININT64, G_MAXINT64};
  for (gsize i = 0; i < G_N_ELEMENTS(counts); i++) {
    count(reporter, "x", "h=1", counts[i]);
    flush(reporter);
    if (i == 1)
      assert_warning("The counter x is declared monotonic, but negative: it is left out");
    assert_nothing_logged();
    g_autofree char *expected =
        g_strdup_printf("x_total counter; x_total{h=\"1\"} %" G_GINT64_FORMAT, counts[i]);
    assert_text(reporter, TEXT, counts[i] < 0 ? "" : expected);
  }
}

TEST(family_with_a_negative_quantile_is_a_gauge_from_then_on) {
  static const double negative[][2] = {{-1, -1}, {-1, 0}, {0, -1}};
  for (gsize i = 0; i < G_N_ELEMENTS(negative); i++) {
    g_autoptr(Reporter) reporter = set_up();
    for (int pass = 0; pass < 5; pass++) {
      const double values[] = {pass == 1 ? negative[i][0] : pass,
                               pass == 1 ? negative[i][1] : pass};
      g_autofree char *expected = g_strdup_printf("# TYPE x %s\nx{h=\"1\",quantile=\"0.5\"} %g\n",
                                                  pass == 0 ? "summary" : "gauge", values[0]);
      if (pass == 3) {
        sample(reporter, "x_min", NULL, 1); /* of another type, while there is no x */
      } else {
        sample(reporter, "x", "h=1", values[0]);
        sample(reporter, "x", "h=2", values[1]);
      }
      flush(reporter);
      g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, OPENMETRICS);
      g_assert_nonnull(strstr(text, pass == 3 ? "# TYPE x_min summary\n" : expected));
    }
  }
}

TEST(family_begins_with_the_first_sample_that_is_shown) {
  g_autoptr(Reporter) reporter = set_up();
  vek_service_prometheus_reporter_declare_monotonic(reporter, "x");
  static const char *const samples[] = {"x_total{h=\"1\"} 1", "x_total{h=\"2\"} 1",
                                        "x_total{h=\"3\"} 1"};
  for (int shown = 0; shown < 1 << G_N_ELEMENTS(samples); shown++) {
    g_autoptr(GString) expected = g_string_new(shown ? "x_total counter" : "");
    for (gsize i = 0; i < G_N_ELEMENTS(samples); i++) {
      g_autofree char *dimensions = g_strdup_printf("h=%d", (int)i + 1);
      count(reporter, "x", dimensions, shown & 1 << i ? 1 : -1);
      if (shown & 1 << i)
        g_string_append_printf(expected, "; %s", samples[i]);
    }
    gauge(reporter, "y", NULL, shown);
    flush(reporter);
    if (shown == 0)
      assert_warning("The counter x is declared monotonic, but negative: it is left out");
    g_string_append_printf(expected, "%sy gauge; y %d", shown ? "; " : "", shown);
    assert_text(reporter, TEXT, expected->str);
  }
}

TEST(values_of_all_sizes_are_written) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "a", NULL, NAN);
  gauge(reporter, "b", NULL, INFINITY);
  gauge(reporter, "c", NULL, -INFINITY);
  gauge(reporter, "d", NULL, G_MAXDOUBLE);
  count(reporter, "e", NULL, G_MININT64);
  flush(reporter);
  assert_text(reporter, OPENMETRICS,
              "a gauge; a NaN; b gauge; b +Inf; c gauge; c -Inf; "
              "d gauge; d 1.7976931348623157e+308; e unknown; e -9223372036854775808");
}

TEST(pass_is_timed_from_its_first_call_to_its_flush) {
  g_autoptr(Reporter) reporter = set_up();
  vek_testing_clock_advance(G_USEC_PER_SEC);
  gauge(reporter, "a", NULL, 1);
  vek_testing_clock_advance(G_USEC_PER_SEC / 4);
  gauge(reporter, "b", NULL, 1);
  vek_testing_clock_advance(G_USEC_PER_SEC / 4);
  flush(reporter);
  g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, TEXT);
  g_assert_nonnull(strstr(text, "\nvekmetrics_pass_duration_seconds 0.5\n"));
  g_assert_nonnull(strstr(text, "\nvekmetrics_last_pass_timestamp_seconds 1700000001.5\n"));
  g_assert_nonnull(strstr(text, "\nvekmetrics_metrics 2\n"));
}

TEST(pass_of_one_metric_is_timed_and_one_of_none_takes_no_time) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "a", NULL, 1);
  vek_testing_clock_advance(G_USEC_PER_SEC / 4);
  for (int pass = 0; pass < 2; pass++) {
    flush(reporter);
    g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, TEXT);
    g_assert_nonnull(strstr(text, pass == 0 ? "\nvekmetrics_pass_duration_seconds 0.25\n"
                                            : "\nvekmetrics_pass_duration_seconds 0\n"));
  }
}

TEST(there_is_no_text_before_the_first_pass) {
  g_autoptr(Reporter) reporter = set_up();
  gauge(reporter, "a", NULL, 1);
  g_assert_null(vek_service_prometheus_reporter_get_text(reporter, TEXT));
  g_assert_null(vek_service_prometheus_reporter_get_bytes(reporter, OPENMETRICS));
}

TEST(text_is_made_once_for_each_pass_and_format) {
  g_autoptr(Reporter) reporter = set_up();
  flush(reporter);
  g_autoptr(GBytes) first = vek_service_prometheus_reporter_get_bytes(reporter, TEXT);
  g_autoptr(GBytes) again = vek_service_prometheus_reporter_get_bytes(reporter, TEXT);
  g_autoptr(GBytes) other = vek_service_prometheus_reporter_get_bytes(reporter, OPENMETRICS);
  g_assert_true(first == again);
  g_assert_true(first != other);
  get_operations(reporter)->process_value(VEK_METRIC_REPORTER(reporter), "a", NULL, "Count", 0, 1);
  g_autoptr(GBytes) during = vek_service_prometheus_reporter_get_bytes(reporter, TEXT);
  g_assert_true(first == during);
  flush(reporter);
  g_autoptr(GBytes) next = vek_service_prometheus_reporter_get_bytes(reporter, TEXT);
  g_assert_true(first != next);
}

/* Prepares a text to its end, and returns how many slices that took. */
static int prepare(Reporter *reporter, VekServicePrometheusFormat format) {
  int n_slices = 1;
  while (!vek_service_prometheus_reporter_prepare_text(reporter, format))
    n_slices++;
  return n_slices;
}

TEST(text_that_is_prepared_in_slices_is_the_same) {
  g_autoptr(Reporter) whole = set_up(), sliced = set_up();
  g_assert_cmpint(prepare(sliced, TEXT), ==, 1); /* there is nothing before the first pass */
  for (int pass = 0; pass < 2; pass++) {
    for (int i = 0; i < 1500; i++) {
      g_autofree char *name = g_strdup_printf("gauge%d", i);
      g_autofree char *dimensions = g_strdup_printf("number=%d", i);
      for (int both = 0; both < 2; both++) {
        gauge(both ? whole : sliced, name, NULL, pass);
        sample(both ? whole : sliced, "sizes", dimensions, i - 1 - 3 * pass);
      }
    }
    flush(whole);
    flush(sliced);
    for (int format = OPENMETRICS; format <= TEXT; format++) {
      g_assert_cmpint(prepare(sliced, format), ==, 13);
      g_autofree char *found = vek_service_prometheus_reporter_get_text(sliced, format);
      g_autofree char *expected = vek_service_prometheus_reporter_get_text(whole, format);
      g_assert_cmpstr(found, ==, expected);
      g_assert_cmpint(prepare(sliced, format), ==, 1);
    }
  }
}

TEST(text_that_is_begun_is_not_continued_with_other_metrics) {
  g_autoptr(Reporter) reporter = set_up();
  for (int change = 0; change < 3; change++) {
    for (int i = 0; i < 2000; i++) {
      g_autofree char *name = g_strdup_printf("a%d", i + change);
      count(reporter, name, NULL, change);
    }
    flush(reporter);
    g_assert_false(vek_service_prometheus_reporter_prepare_text(reporter, TEXT));
    if (change == 1)
      g_object_set(reporter, "prefix", "prefix_", NULL);
    if (change == 2)
      vek_service_prometheus_reporter_declare_monotonic(reporter, "a2");
    g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, TEXT);
    static const char *const first[] = {"# HELP a0 a0\n", "# HELP prefix_a1 a1\n",
                                        "# HELP prefix_a10 a10\n"};
    g_assert_true(g_str_has_prefix(text, first[change]));
    g_assert_cmpint((change == 2), ==, strstr(text, "prefix_a2_total 2\n") != NULL);
  }
}

static gpointer ask_for_texts(gpointer reporter) {
  for (int i = 0; i < 1000; i++)
    g_bytes_unref(vek_service_prometheus_reporter_get_bytes(reporter, i % 2 ? TEXT : OPENMETRICS));
  return NULL;
}

TEST(any_thread_may_ask_for_the_text) {
  g_autoptr(Reporter) reporter = set_up();
  flush(reporter);
  GThread *thread = g_thread_new("asks", ask_for_texts, reporter);
  for (int i = 0; i < 1000; i++) {
    gauge(reporter, i % 2 ? "a" : "b", NULL, i);
    gauge(reporter, "c", NULL, i);
    flush(reporter);
  }
  g_thread_join(thread);
  assert_text(reporter, TEXT, "a gauge; a 999; c gauge; c 999");
}

TEST(failed_checks_name_their_own_function) {
  g_autoptr(Reporter) reporter = set_up();
  flush(reporter);
  g_assert_null(vek_service_prometheus_reporter_get_text(NULL, TEXT));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_get_text: assertion "
                "'VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter)' failed");
  g_assert_null(vek_service_prometheus_reporter_get_bytes(NULL, TEXT));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_get_bytes: assertion "
                "'VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter)' failed");
  for (int i = 0; i < 2; i++)
    g_assert_null(i ? (gpointer)vek_service_prometheus_reporter_get_text(reporter, 2)
                    : vek_service_prometheus_reporter_get_bytes(reporter, 2));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_get_bytes: assertion 'is_format(format)' failed");
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_get_text: assertion 'is_format(format)' failed");
  g_assert_false(vek_service_prometheus_reporter_prepare_text(NULL, TEXT));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_prepare_text: assertion "
                "'VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter)' failed");
  g_assert_false(vek_service_prometheus_reporter_prepare_text(reporter, 2));
  assert_logged(
      "VEK:service", G_LOG_LEVEL_CRITICAL,
      "vek_service_prometheus_reporter_prepare_text: assertion 'is_format(format)' failed");
  vek_service_prometheus_reporter_declare_monotonic(NULL, "x");
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_declare_monotonic: assertion "
                "'VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter)' failed");
  vek_service_prometheus_reporter_declare_monotonic(reporter, NULL);
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_prometheus_reporter_declare_monotonic: assertion 'name != NULL' "
                "failed");
}

TEST(unknown_property_warns) {
  g_autoptr(Reporter) reporter = set_up();
  assert_unknown_property_warns_in("VEK:service", reporter);
}

TEST(formats_have_nicknames) {
  g_autoptr(GEnumClass) formats = g_type_class_ref(VEK_SERVICE_TYPE_PROMETHEUS_FORMAT);
  g_assert_cmpint(g_enum_get_value_by_nick(formats, "openmetrics")->value, ==, OPENMETRICS);
  g_assert_cmpint(g_enum_get_value_by_nick(formats, "text")->value, ==, TEXT);
}
