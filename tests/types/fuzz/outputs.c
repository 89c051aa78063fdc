/* What the reporters write of names, dimensions and units of any bytes. */

#include "tests/support/rawcalls.h"
#include "tests/support/tsan-tasks.h"

#include <glib/gstdio.h>
#include <string.h>

/* Lets a new reporter of a file take the calls, and takes what it wrote. */
static char *report_to_file(GPtrArray *calls, VekMetricReporter *reporter, const char *folder,
                            const char *name) {
  raw_calls_report(calls, reporter);
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  while (reporter) /* its operations hold references */
    g_main_context_iteration(NULL, TRUE);

  g_autofree char *path = g_build_filename(folder, name, NULL);
  char *text;
  g_assert_true(g_file_get_contents(path, &text, NULL, NULL));
  g_assert_cmpint(g_remove(path), ==, 0);
  return text;
}

/* Calls `expect` for each call but those of timelines. */
static char *describe(GPtrArray *calls, void (*expect)(GString *text, const RawCall *call)) {
  GString *text = g_string_new(NULL);
  for (guint i = 0; i < calls->len; i++) {
    const RawCall *call = calls->pdata[i];
    if (call->kind != RAW_TIMELINE)
      expect(text, call);
  }
  return g_string_free(text, FALSE);
}

/* CSV: nothing is escaped. */

static void expect_csv(GString *text, const RawCall *call) {
  static const char *const figures[] = {"42,,,,,,", "0.5,,,,,,", "1.5,1,1.5,1.5,1.5,1.5,1.5"};
  g_string_append_printf(text, "%" G_GINT64_FORMAT ",%s,", RAW_TIME, call->name);
  for (guint i = 0; call->dimensions && call->dimensions[i]; i++)
    g_string_append_printf(text, "%s%c", call->dimensions[i], i % 2 == 0 ? '=' : ';');
  g_string_append_printf(text, ",%s\n", figures[call->kind]);
}

static void check_csv(GPtrArray *calls, const char *folder) {
  VekMetricReporter *reporter = vek_metric_log_reporter_new("log", folder);
  g_autofree char *text = report_to_file(calls, reporter, folder, "log.csv");
  g_autofree char *expected = describe(calls, expect_csv);
  g_assert_cmpstr(text, ==, expected);
}

static void check_timelines(GPtrArray *calls, const char *folder) {
  VekMetricReporter *reporter = vek_metric_timeline_reporter_new("log", folder);
  g_autofree char *text = report_to_file(calls, reporter, folder, "log.csv");
  g_autoptr(GString) expected = g_string_new(NULL);
  for (guint i = 0; i < calls->len; i++) {
    const RawCall *call = calls->pdata[i];
    if (call->kind == RAW_TIMELINE)
      g_string_append_printf(expected, "F,%s,1,2,3\n", call->name);
  }
  g_assert_cmpstr(text, ==, expected->str);
}

/* JSON: strings are escaped, and made UTF-8. */

static gboolean is_known(const char *unit) {
  return g_regex_match_simple(
      "^((Micros|Millis|S)econds|Percent|"
      "(Count|B(ytes|its)|(Kilo|Mega|Giga|Tera)b(ytes|its))(/Second)?)\\z",
      unit, G_REGEX_RAW, 0);
}

/* Its dimensions and its unit are those of the metric. */
static void expect_data_point(GString *text, const RawCall *call, const char *suffix,
                              const char *figures) {
  g_autofree char *full_name = g_strconcat(call->name, suffix, NULL);
  g_autofree char *name = raw_json_string(full_name);
  if (text->len > 0)
    g_string_append_c(text, ',');
  g_string_append_printf(text, "{\"<MetricName>\":%s,\"<Timestamp>\":\"<2023-11-14T22:13:20Z>\"",
                         name);
  if (call->unit && is_known(call->unit))
    g_string_append_printf(text, ",\"<Unit>\":\"<%s>\"", call->unit);
  g_string_append_printf(text, ",%s", figures);
  for (char **pair = call->dimensions; pair && pair[0] && pair[1]; pair += 2) {
    g_autofree char *key = raw_json_string(pair[0]);
    g_autofree char *value = raw_json_string(pair[1]);
    g_string_append(text, pair == call->dimensions ? ",\"<Dimensions>\":[" : ",");
    g_string_append_printf(text, "{\"<Name>\":%s,\"<Value>\":%s}", key, value);
  }
  g_string_append(text,
                  call->dimensions && call->dimensions[0] && call->dimensions[1] ? "]}" : "}");
}

static void expect_json(GString *text, const RawCall *call) {
  if (call->kind != RAW_AGGREGATED) {
    const char *figure = call->kind == RAW_COUNT ? "\"<Value>\":42.0" : "\"<Value>\":0.5";
    expect_data_point(text, call, "", figure);
    return;
  }
  expect_data_point(text, call, "",
                    "\"<StatisticValues>\":{\"<SampleCount>\":1,\"<Sum>\":1.5,\"<Minimum>\":1.5,"
                    "\"<Maximum>\":1.5}");
  static const char *const suffixes[] = {"_p50", "_p90", "_p99"};
  for (gsize i = 0; i < G_N_ELEMENTS(suffixes); i++)
    expect_data_point(text, call, suffixes[i], "\"<Value>\":1.5");
}

static void check_json(GPtrArray *calls, const char *folder) {
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", folder, NULL, 0, 0);
  g_autofree char *text = report_to_file(calls, reporter, folder, "log.json");
  g_autofree char *points = describe(calls, expect_json);
  g_autofree char *decoded = raw_json_decode(text);
  g_autofree char *expected =
      *points ? g_strdup_printf("2023-11-14 22:13:20,000000 [%s]\n", points) : g_strdup("");
  g_assert_cmpstr(decoded, ==, expected);
  char *end = strchr(text, '\n'); /* the only one */
  g_assert_true(!end || !end[1]);
}

/* Carbon: nothing is escaped. */

static void expect_carbon(GString *text, const RawCall *call) {
  static const char *const lines[][4] = {
      {" 42"},
      {" 0.500000"},
      {".average 1.500000", ".n_samples 1", ".min 1.500000", ".max 1.500000"}};
  g_autofree char *dimensions = call->dimensions ? g_strjoinv(".", call->dimensions) : NULL;
  g_autofree char *key =
      g_strconcat(dimensions ? dimensions : "", dimensions ? "." : "", call->unit ? call->unit : "",
                  call->unit ? "." : "", call->name, NULL);
  for (gsize i = 0; i < G_N_ELEMENTS(lines[0]) && lines[call->kind][i]; i++)
    g_string_append_printf(text, "%s%s " RAW_SECONDS "\n", key, lines[call->kind][i]);
}

static void check_carbon(GPtrArray *calls) {
  static RawSink *sink;
  static VekMetricReporter *reporter;
  if (!sink) {
    sink = raw_sink_new();
    reporter = vek_metric_carbon_reporter_new(NULL, "127.0.0.1", raw_sink_get_port(sink));
  }
  raw_calls_report(calls, reporter);
  g_autofree char *text = raw_sink_receive(sink, reporter);
  g_autofree char *expected = describe(calls, expect_carbon);
  g_assert_cmpstr(text, ==, expected);
}

/* Console: sections, sorted; nothing is escaped. */

static GString *printed;

static void take_print(const char *text) {
  g_string_append(printed, text);
}

/* A call, and the one that began its section. */
typedef struct {
  const RawCall *call;
  const RawCall *first;
  char *section;
} Line;

static void clear_line(gpointer line) {
  g_free(((Line *)line)->section);
}

static guint count_strings(const RawCall *call) {
  return call->dimensions ? g_strv_length(call->dimensions) : 0;
}

static int compare_lines(gconstpointer a, gconstpointer b) {
  const Line *left = a;
  const Line *right = b;
  guint n_left = count_strings(left->first);
  guint n_right = count_strings(right->first);
  if (n_left != n_right)
    return n_left < n_right ? -1 : 1;
  int order = strcmp(left->section, right->section);
  return order != 0 ? order : strcmp(left->call->name, right->call->name);
}

static GArray *sort_lines(GPtrArray *calls) {
  GArray *sorted = g_array_new(FALSE, FALSE, sizeof(Line));
  g_array_set_clear_func(sorted, clear_line);
  for (guint i = 0; i < calls->len; i++) {
    Line line = {.call = calls->pdata[i], .first = calls->pdata[i]};
    if (line.call->kind == RAW_TIMELINE)
      continue;
    char **dimensions = line.call->dimensions;
    line.section = dimensions ? g_strjoinv(".", dimensions) : g_strdup("general");
    for (guint j = sorted->len; j-- > 0;)
      if (g_str_equal(g_array_index(sorted, Line, j).section, line.section))
        line.first = g_array_index(sorted, Line, j).first;
    g_array_append_val(sorted, line);
  }
  g_array_sort(sorted, compare_lines);
  return sorted;
}

static void expect_header(GString *text, char **dimensions) {
  if (!dimensions)
    g_string_append(text, "general");
  for (char **pair = dimensions; pair && pair[0] && pair[1]; pair += 2)
    g_string_append_printf(text, "%s%s=%s", pair == dimensions ? "" : ", ", pair[0], pair[1]);
  g_string_append(text, ":\n");
}

static void check_console(GPtrArray *calls) {
  static const char *const figures[] = {
      "42", "0.500000",
      ("avg: 1.500000, n samples: 1, max: 1.500000, min: 1.500000, p10: 1.500000, p50: 1.500000, "
       "p90: 1.500000")};
  printed = g_string_new(NULL);
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  GPrintFunc before = g_set_print_handler(take_print);
  raw_calls_report(calls, reporter);
  g_set_print_handler(before);

  g_autoptr(GString) expected = g_string_new(NULL);
  g_autoptr(GArray) lines = sort_lines(calls);
  for (guint i = 0; i < lines->len; i++) {
    const Line *line = &g_array_index(lines, Line, i);
    const Line *next = i + 1 < lines->len ? line + 1 : NULL;
    if (i == 0 || line[-1].first != line->first)
      expect_header(expected, line->first->dimensions);
    g_string_append_printf(expected, "%s: %s\n", line->call->name, figures[line->call->kind]);
    if (!next || next->first != line->first)
      g_string_append_c(expected, '\n');
  }
  g_assert_cmpstr(printed->str, ==, expected->str);
  g_string_free(printed, TRUE);
}

int LLVMFuzzerTestOneInput(const guint8 *data, gsize size);
int LLVMFuzzerTestOneInput(const guint8 *data, gsize size) {
  g_autoptr(GPtrArray) calls = raw_calls_new(data, size);
  g_autofree char *folder = g_dir_make_tmp("vekmetrics-XXXXXX", NULL);
  check_console(calls);
  check_carbon(calls);
  check_csv(calls, folder);
  check_timelines(calls, folder);
  check_json(calls, folder);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
  return 0;
}
