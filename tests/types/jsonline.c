/* Tests of the lines that VekMetricJsonLogReporter writes. */

#include <vekmetrics/vekmetrics.h>

#include "jsonlog.h"
#include "support/fixture.h"
#include "support/folder.h"

#include <math.h>

static void process_value(VekMetricReporter *reporter, const char *name, char **dimensions,
                          const char *unit, gint64 timestamp, gdouble value) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, name, dimensions, unit,
                                                         timestamp, value);
}

static void process_samples(VekMetricReporter *reporter, const char *name, char **dimensions,
                            const char *unit, const gdouble *samples, gsize n_samples) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, n_samples);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(reporter, name, dimensions, unit,
                                                              snapshot);
}

/* Has the one line of a test written, and drops the reporter. */
static void write_line(VekMetricReporter *reporter) {
  flush_reporter(reporter);
  drop_reporter(reporter);
}

/* Compares the one file, in which the expectation writes ' for ". */
static void assert_log(const char *json) {
  g_autofree char *line = *json ? g_strdup_printf("log.json: 2023-11-14 22:13:20,004211 %s\n", json)
                                : g_strdup("log.json: ");
  g_strdelimit(line, "'", '"');
  assert_folder(test_folder, line);
}

typedef struct {
  const char *path;
  const char *instance_id;
  const char *dimensions; /* joined by commas */
  const char *unit;
  gint64 count;
  const char *rest; /* of the object, behind the name and the timestamp */
} CountRow;

static const CountRow count_rows[] = {
    {.path = "members-that-are-not-set-are-left-out", .rest = "'Value':0.0"},
    {.path = "count-of-minus-3-is-a-double", .count = -3, .rest = "'Value':-3.0"},
    {.path = "count-that-no-double-holds-is-rounded",
     .count = G_GINT64_CONSTANT(9007199254740993),
     .rest = "'Value':9007199254740992.0"},
    {.path = "largest-count-is-a-double",
     .count = G_MAXINT64,
     .rest = "'Value':9.2233720368547758e+18"},
    {.path = "instance-comes-before-the-metrics-dimensions",
     .instance_id = "a1",
     .dimensions = "host,h1",
     .rest = "'Value':0.0,'Dimensions':["
             "{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]"},
    {.path = "dimensions-keep-their-order",
     .dimensions = "z,1,a,2,z,3",
     .rest = "'Value':0.0,'Dimensions':["
             "{'Name':'z','Value':'1'},{'Name':'a','Value':'2'},{'Name':'z','Value':'3'}]"},
    {.path = "empty-instance-counts-as-set",
     .instance_id = "",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'instance','Value':''}]"},
    {.path = "name-without-a-value-adds-no-dimension", .dimensions = "host", .rest = "'Value':0.0"},
    {.path = "odd-trailing-name-is-ignored",
     .dimensions = "host,h1,rack",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'host','Value':'h1'}]"},
    {.path = "no-dimensions-are-left-out", .dimensions = "", .rest = "'Value':0.0"},
    {.path = "empty-dimensions-are-dimensions",
     .dimensions = ",",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'','Value':''}]"},
    {.path = "ten-dimensions-are-kept",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'a','Value':'0'},{'Name':'b','Value':'1'},"
             "{'Name':'c','Value':'2'},{'Name':'d','Value':'3'},{'Name':'e','Value':'4'},"
             "{'Name':'f','Value':'5'},{'Name':'g','Value':'6'},{'Name':'h','Value':'7'},"
             "{'Name':'i','Value':'8'},{'Name':'j','Value':'9'}]"},
    {.path = "nine-dimensions-and-the-instance-are-kept",
     .instance_id = "x",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'instance','Value':'x'},{'Name':'a','Value':'0'},"
             "{'Name':'b','Value':'1'},{'Name':'c','Value':'2'},{'Name':'d','Value':'3'},"
             "{'Name':'e','Value':'4'},{'Name':'f','Value':'5'},{'Name':'g','Value':'6'},"
             "{'Name':'h','Value':'7'},{'Name':'i','Value':'8'}]"},
    {.path = "seconds-in-lower-case-are-no-known-unit", .unit = "seconds", .rest = "'Value':0.0"},
    {.path = "Seconds-are-a-known-unit", .unit = "Seconds", .rest = "'Unit':'Seconds','Value':0.0"},
    {.path = "empty-unit-is-left-out", .unit = "", .rest = "'Value':0.0"},
    {.path = "beginning-of-a-known-unit-is-left-out", .unit = "Bytes/Secon", .rest = "'Value':0.0"},
    {.path = "unit-that-goes-on-after-a-known-one-is-left-out",
     .unit = "Counts",
     .rest = "'Value':0.0"},
};

static void log_count(const CountRow *row) {
  VekMetricReporter *reporter =
      vek_metric_json_log_reporter_new("log", test_folder, row->instance_id, 0, 0);
  g_auto(GStrv) dimensions = row->dimensions ? g_strsplit(row->dimensions, ",", -1) : NULL;
  process_count(reporter, "m", dimensions, row->unit, 0, row->count);
  write_line(reporter);

  g_autofree char *json = g_strdup_printf("[{'MetricName':'m','Timestamp':null,%s}]", row->rest);
  assert_log(json);
}

TEST_ROWS(counts_by_the_table, count_rows) {
  begin_test();
  log_count(data);
  assert_nothing_logged();
  end_test();
}

static const CountRow lost_rows[] = {
    {.path = "eleven-dimensions-are-all-lost",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9,k,10",
     .rest = "'Value':0.0"},
    {.path = "instance-takes-one-of-the-ten-places",
     .instance_id = "a1",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9",
     .rest = "'Value':0.0"},
    {.path = "empty-instance-takes-one-of-the-ten-places",
     .instance_id = "",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9",
     .rest = "'Value':0.0"},
};

TEST_ROWS(lost_dimensions_by_the_table, lost_rows) {
  begin_test();
  log_count(data);
  assert_failed_check("vek_metric_datum_set_dimensions", "n_dimensions > 0 && n_dimensions <= 10");
  assert_nothing_logged();
  end_test();
}

TEST(all_members_of_a_counter_come_in_order) {
  begin_test();
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", test_folder, "a1", 0, 0);
  process_count(reporter, "frames", NULL, "Count", NOW, 42);
  write_line(reporter);
  assert_log(
      "[{'MetricName':'frames','Timestamp':'2023-11-14T22:13:20Z','Unit':'Count',"
      "'Value':42.0,'Dimensions':[{'Name':'instance','Value':'a1'}]}]");
  end_test();
}

TEST(twenty_six_units_are_known) {
  g_auto(GStrv) units = g_strsplit(
      "Seconds Microseconds Milliseconds "
      "Bytes Kilobytes Megabytes Gigabytes Terabytes Bits Kilobits Megabits Gigabits Terabits "
      "Percent Count Bytes/Second Kilobytes/Second Megabytes/Second Gigabytes/Second "
      "Terabytes/Second Bits/Second Kilobits/Second Megabits/Second Gigabits/Second "
      "Terabits/Second Count/Second",
      " ", -1);
  g_assert_cmpuint(g_strv_length(units), ==, 26);
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  g_autoptr(GString) json = g_string_new(NULL);
  for (gsize i = 0; units[i]; i++) {
    process_count(reporter, "m", NULL, units[i], 0, 0);
    g_string_append_printf(json, "%c{'MetricName':'m','Timestamp':null,'Unit':'%s','Value':0.0}",
                           i == 0 ? '[' : ',', units[i]);
  }
  write_line(reporter);

  g_string_append_c(json, ']');
  assert_log(json->str);
  end_test();
}

typedef struct {
  const char *path;
  gint64 timestamp;
  const char *text;
} TimestampRow;

static const TimestampRow timestamp_rows[] = {
    {"timestamp-of-0-is-null", 0, "null"},
    {"timestamp-of-a-microsecond-is-the-epoch", 1, "'1970-01-01T00:00:00Z'"},
    {"timestamp-has-no-fraction", G_GINT64_CONSTANT(1700000000999999), "'2023-11-14T22:13:20Z'"},
    {"timestamp-is-truncated-toward-zero", -999999, "'1970-01-01T00:00:00Z'"},
    {"timestamp-before-the-epoch-is-a-date", -1999999, "'1969-12-31T23:59:59Z'"},
    {"timestamp-in-the-year-1-is-a-date", G_GINT64_CONSTANT(-62135596800000000),
     "'0001-01-01T00:00:00Z'"},
    {"timestamp-before-the-year-1-is-null", G_GINT64_CONSTANT(-62135596801000000), "null"},
    {"timestamp-in-the-year-9999-is-a-date", G_GINT64_CONSTANT(253402300799999999),
     "'9999-12-31T23:59:59Z'"},
    {"timestamp-after-the-year-9999-is-null", G_GINT64_CONSTANT(253402300800000000), "null"},
    {"largest-timestamp-is-null", G_MAXINT64, "null"},
    {"smallest-timestamp-is-null", G_MININT64, "null"},
};

TEST_ROWS(timestamps_by_the_table, timestamp_rows) {
  const TimestampRow *row = data;
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  process_count(reporter, "m", NULL, NULL, row->timestamp, 0);
  write_line(reporter);

  g_autofree char *json =
      g_strdup_printf("[{'MetricName':'m','Timestamp':%s,'Value':0.0}]", row->text);
  assert_log(json);
  assert_nothing_logged();
  end_test();
}

typedef struct {
  const char *path;
  gdouble value;
  const char *text;
} ValueRow;

static const ValueRow value_rows[] = {
    {"whole-value-is-a-double", 42, "42.0"},
    {"value-has-full-precision", 0.1, "0.10000000000000001"},
    {"negative-zero-keeps-its-sign", -0.0, "-0.0"},
    {"exponent-without-a-point-is-json", 1e22, "1e+22"},
    {"negative-exponent-without-a-point-is-json", 1e-8, "1e-08"},
    {"first-value-with-an-exponent-is-json", 1e17, "1e+17"},
    {"large-power-of-ten-is-json", -1e100, "-1e+100"},
    {"exponent-behind-a-point-is-json", 1.5e-300, "1.5000000000000001e-300"},
    {"value-below-the-exponents-has-a-point", 1e16, "10000000000000000.0"},
    {"smallest-value-is-json", 5e-324, "4.9406564584124654e-324"},
    {"large-value-is-clamped", 1e200, "2.3485429999999998e+108"},
    {"small-value-is-clamped", -1e200, "-2.3485429999999998e+108"},
    {"infinite-value-is-clamped", INFINITY, "2.3485429999999998e+108"},
    {"negative-infinite-value-is-clamped", -INFINITY, "-2.3485429999999998e+108"},
    {"not-a-number-is-null", NAN, "null"},
};

TEST_ROWS(values_by_the_table, value_rows) {
  const ValueRow *row = data;
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  process_value(reporter, "load", (char *[]){"cpu", "0", NULL}, "Percent", NOW, row->value);
  write_line(reporter);

  g_autofree char *json = g_strdup_printf(
      "[{'MetricName':'load','Timestamp':'2023-11-14T22:13:20Z','Unit':'Percent','Value':%s,"
      "'Dimensions':[{'Name':'cpu','Value':'0'}]}]",
      row->text);
  assert_log(json);
  assert_nothing_logged();
  end_test();
}

typedef struct {
  const char *path;
  const char *text;
  const char *json;
} StringRow;

static const StringRow string_rows[] = {
    {"name-like-a-number-stays", "1e+22.0", "1e+22.0"},
    {"name-like-a-member-stays", "x\":1e+22.0,\"Value\":1e+22.0}",
     "x\\\":1e+22.0,\\\"Value\\\":1e+22.0}"},
    {"name-that-begins-like-a-value-stays", ":1e+22.0", ":1e+22.0"},
    {"backslash-before-a-quote-is-escaped", "x\\\":1e+22.0", "x\\\\\\\":1e+22.0"},
    {"control-characters-are-escaped", "\b\t\n\f\r\x01\x1f\x7f",
     "\\b\\t\\n\\f\\r\\u0001\\u001f\\u007f"},
    {"utf-8-stays", "größe ✓ 😀", "größe ✓ 😀"},
    {"what-is-not-utf-8-is-replaced",
     "a\xff"
     "b\xc3",
     "a\xef\xbf\xbd"
     "b\xef\xbf\xbd"},
    {"encoded-surrogate-is-replaced", "\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},
    {"empty-name-is-a-name", "", ""},
};

static void log_string(const StringRow *row, gdouble value, const char *value_text) {
  begin_test();
  VekMetricReporter *reporter =
      vek_metric_json_log_reporter_new("log", test_folder, row->text, 0, 0);
  char *dimensions[] = {(char *)row->text, (char *)row->text, NULL};
  process_value(reporter, row->text, dimensions, NULL, 0, value);
  write_line(reporter);

  g_autofree char *line = g_strdup_printf(
      "log.json: 2023-11-14 22:13:20,004211 [{\"MetricName\":\"%s\",\"Timestamp\":null,"
      "\"Value\":%s,\"Dimensions\":[{\"Name\":\"instance\",\"Value\":\"%s\"},"
      "{\"Name\":\"%s\",\"Value\":\"%s\"}]}]\n",
      row->json, value_text, row->json, row->json, row->json);
  assert_folder(test_folder, line);
  assert_nothing_logged();
  end_test();
}

TEST_ROWS(strings_by_the_table, string_rows) {
  log_string(data, 1, "1.0");
  log_string(data, 1e22, "1e+22");
}

TEST(snapshot_without_samples_adds_nothing) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  process_samples(reporter, "latency", NULL, "Seconds", NULL, 0);
  write_line(reporter);
  assert_log("");
  end_test();
}

TEST(snapshot_with_samples_adds_four_objects) {
  begin_test();
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", test_folder, "a1", 0, 0);
  const gdouble samples[] = {5, 1, 4, 2, 3};
  process_samples(reporter, "latency", (char *[]){"host", "h1", NULL}, "Seconds", samples, 5);
  write_line(reporter);
  assert_log(
      "[{'MetricName':'latency','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'StatisticValues':{'SampleCount':5,'Sum':15.0,'Minimum':1.0,'Maximum':5.0},"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]},"
      "{'MetricName':'latency_p50','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'Value':3.0,"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]},"
      "{'MetricName':'latency_p90','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'Value':4.5999999999999996,"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]},"
      "{'MetricName':'latency_p99','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'Value':4.96,"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]}]");
  end_test();
}

TEST(data_points_of_a_snapshot_have_its_time) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  const gdouble samples[] = {2};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, 1);
  vek_testing_clock_advance(60 * G_USEC_PER_SEC);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(reporter, "m", NULL, NULL, snapshot);
  vek_testing_clock_set(NOW, 1); /* the line is written at the time that assert_log() expects */
  write_line(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z',"
      "'StatisticValues':{'SampleCount':1,'Sum':2.0,'Minimum':2.0,'Maximum':2.0}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z','Value':2.0}]");
  end_test();
}

TEST(unknown_unit_of_a_snapshot_is_left_out) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  const gdouble samples[] = {2};
  process_samples(reporter, "m", NULL, "Bananas", samples, 1);
  write_line(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z',"
      "'StatisticValues':{'SampleCount':1,'Sum':2.0,'Minimum':2.0,'Maximum':2.0}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z','Value':2.0}]");
  end_test();
}

TEST(statistics_are_not_clamped_but_percentiles_are) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  const gdouble samples[] = {-1e300, 1e22};
  process_samples(reporter, "m", NULL, NULL, samples, 2);
  write_line(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z','StatisticValues':{"
      "'SampleCount':2,'Sum':-1.0000000000000001e+300,"
      "'Minimum':-1.0000000000000001e+300,'Maximum':1e+22}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108}]");
  end_test();
}

TEST(infinite_statistics_are_null) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  const gdouble samples[] = {-INFINITY, INFINITY};
  process_samples(reporter, "m", NULL, NULL, samples, 2);
  write_line(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z','StatisticValues':{"
      "'SampleCount':2,'Sum':null,'Minimum':null,'Maximum':null}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108}]");
  end_test();
}

TEST(eleven_dimensions_of_a_snapshot_are_lost_by_each_data_point) {
  begin_test();
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", test_folder, "a1", 0, 0);
  g_auto(GStrv) dimensions = g_strsplit("a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9", ",", -1);
  const gdouble samples[] = {2};
  process_samples(reporter, "m", dimensions, NULL, samples, 1);
  for (int i = 0; i < 4; i++)
    assert_failed_check("vek_metric_datum_set_dimensions",
                        "n_dimensions > 0 && n_dimensions <= 10");
  write_line(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z',"
      "'StatisticValues':{'SampleCount':1,'Sum':2.0,'Minimum':2.0,'Maximum':2.0}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z','Value':2.0}]");
  end_test();
}

TEST(data_points_keep_the_order_of_their_collection) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  process_value(reporter, "z", NULL, NULL, 0, 0.5);
  process_count(reporter, "a", NULL, NULL, 0, 1);
  process_value(reporter, "z", NULL, NULL, 0, 2);
  write_line(reporter);
  assert_log(
      "[{'MetricName':'z','Timestamp':null,'Value':0.5},"
      "{'MetricName':'a','Timestamp':null,'Value':1.0},"
      "{'MetricName':'z','Timestamp':null,'Value':2.0}]");
  end_test();
}

TEST(each_data_point_has_its_own_timestamp) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  static const gint64 times[] = {1000000, 2000000, 1000000, 0, 1000000, 999999999999000000,
                                 1000000, 1};
  for (gsize i = 0; i < G_N_ELEMENTS(times); i++)
    process_count(reporter, "m", NULL, NULL, times[i], 0);
  write_line(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:02Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':null,'Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':null,'Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:00Z','Value':0.0}]");
  end_test();
}

TEST(registry_pass_reaches_the_file) {
  begin_test();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(registry, "frames", "Count", NULL);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "render");
  vek_metric_timeline_add_range(timeline, 1, 2, 3);
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  g_assert_null(VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_timeline_samples);

  vek_metric_counter_add(counter, 42);
  vek_metric_registry_report(registry, reporter);
  drop_reporter(reporter);

  assert_log(
      "[{'MetricName':'frames','Timestamp':'2023-11-14T22:13:20Z','Unit':'Count',"
      "'Value':42.0}]");
  end_test();
}

TEST(line_begins_with_the_time_of_the_flush) {
  static const struct {
    gint64 now;
    const char *text;
  } rows[] = {
      {NOW, "2023-11-14 22:13:20,004211"},
      {G_GINT64_CONSTANT(1700000000000000), "2023-11-14 22:13:20,000000"},
      {G_GINT64_CONSTANT(1700000000999999), "2023-11-14 22:13:20,999999"},
      {G_GINT64_CONSTANT(1704067199999999), "2023-12-31 23:59:59,999999"},
      {G_GINT64_CONSTANT(1709186645000001), "2024-02-29 06:04:05,000001"},
      {-1, "1969-12-31 23:59:59,999999"},
      {G_GINT64_CONSTANT(253402300799999999), "9999-12-31 23:59:59,999999"},
      {G_GINT64_CONSTANT(253402300800000000), "9999-12-31 23:59:59,999999"},
      {G_MAXINT64, "9999-12-31 23:59:59,999999"},
      {G_GINT64_CONSTANT(-62135596800000000), "1-01-01 00:00:00,000000"},
      {G_GINT64_CONSTANT(-62135596800000001), "1-01-01 00:00:00,000000"},
      {G_MININT64, "1-01-01 00:00:00,000000"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    begin_test();
    VekMetricReporter *reporter = log_reporter_new(0, 0);
    process_count(reporter, "m", NULL, NULL, 0, 0);
    vek_testing_clock_set(rows[i].now, 1);
    flush_reporter(reporter);
    vek_testing_clock_set(NOW, 1);
    drop_reporter(reporter);

    g_autofree char *line = g_strdup_printf(
        "log.json: %s [{\"MetricName\":\"m\",\"Timestamp\":null,\"Value\":0.0}]\n", rows[i].text);
    assert_folder(test_folder, line);
    end_test();
  }
}
