/* What Prometheus reads of names, dimensions and units of any bytes, in both formats. */

#include "tests/support/rawcalls.h"

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>

/* A text as far as it has been read. */
typedef struct {
  gboolean is_openmetrics;
  const char *rest;
  GHashTable *families; /* their names */
  GHashTable *samples;  /* their names and labels */
  const RawCall *only;  /* the call from which all comes, or NULL for several */
  guint n_own;          /* samples of the reporter's own metrics */
} Text;

/* What the reporter calls its own metrics. */
#define OWN "vekmetrics_"

static gboolean skip(Text *text, const char *prefix) {
  if (!g_str_has_prefix(text->rest, prefix))
    return FALSE;
  text->rest += strlen(prefix);
  return TRUE;
}

static void expect(Text *text, const char *prefix) {
  g_assert_true(skip(text, prefix));
}

static char *read_name(Text *text, const char *punctuation) {
  const char *start = text->rest;
  g_assert_false(g_ascii_isdigit(*start));
  while (*text->rest && (g_ascii_isalnum(*text->rest) || strchr(punctuation, *text->rest)))
    text->rest++;
  g_assert_true(text->rest > start);
  return g_strndup(start, (gsize)(text->rest - start));
}

/* Reads up to a character that is not escaped. */
static char *read_escaped(Text *text, char end, gboolean has_quotes) {
  GString *meaning = g_string_new(NULL);
  for (; *text->rest != end; text->rest++) {
    g_assert_true(*text->rest != '\0' && *text->rest != '\n');
    if (*text->rest == '\\') {
      text->rest++;
      g_assert_true(*text->rest == '\\' || *text->rest == 'n' ||
                    (*text->rest == '"' && has_quotes));
      g_string_append_c(meaning, *text->rest == 'n' ? '\n' : *text->rest);
    } else {
      g_assert_false(*text->rest == '"' && has_quotes);
      g_string_append_c(meaning, *text->rest);
    }
  }
  text->rest++;
  return g_string_free(meaning, FALSE);
}

static int compare_strings(gconstpointer a, gconstpointer b) {
  return strcmp(*(const char *const *)a, *(const char *const *)b);
}

/* Empty labels are left out. */
static char *join_values(const RawCall *call) {
  g_autoptr(GPtrArray) values = g_ptr_array_new_with_free_func(g_free);
  for (char **pair = call->dimensions; pair && pair[0] && pair[1]; pair += 2)
    if (*pair[1])
      g_ptr_array_add(values, g_utf8_make_valid(pair[1], -1));
  g_ptr_array_sort(values, compare_strings);
  g_ptr_array_add(values, NULL);
  return g_strjoinv("\1", (char **)values->pdata);
}

/* Reads labels; those that are dimensions have the values of these. */
static void read_labels(Text *text, GString *sample) {
  g_autoptr(GHashTable) names = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, NULL);
  g_autoptr(GPtrArray) values = g_ptr_array_new_with_free_func(g_free);
  if (skip(text, "{")) {
    do {
      char *name = read_name(text, "_");
      expect(text, "=\"");
      g_autofree char *value = read_escaped(text, '"', TRUE);
      g_string_append_printf(sample, ",%s=%s", name, value);
      g_assert_false(g_str_has_prefix(name, "__"));
      if (!g_str_equal(name, "quantile"))
        g_ptr_array_add(values, g_strdup(value));
      g_assert_true(g_hash_table_add(names, name));
    } while (skip(text, ","));
    expect(text, "}");
  }
  if (text->only && !g_str_has_prefix(sample->str, OWN)) {
    g_ptr_array_sort(values, compare_strings);
    g_ptr_array_add(values, NULL);
    g_autofree char *found = g_strjoinv("\1", (char **)values->pdata);
    g_autofree char *expected = join_values(text->only);
    g_assert_cmpstr(found, ==, expected);
  }
}

static void read_sample(Text *text, const char *family, gboolean is_counter) {
  g_autoptr(GString) sample = g_string_new(NULL);
  g_autofree char *name = read_name(text, "_:");
  g_autofree char *expected =
      g_strconcat(family, is_counter && text->is_openmetrics ? "_total" : "", NULL);
  g_assert_cmpstr(name, ==, expected);
  g_string_append(sample, name);
  read_labels(text, sample);

  char *end;
  expect(text, " ");
  gdouble number = g_ascii_strtod(text->rest, &end);
  text->rest = end;
  expect(text, "\n");
  if (g_str_has_prefix(name, OWN))
    text->n_own++;
  else
    g_assert_true(number == 42 || number == 0.5 || number == 1.5 || number == 1);
  g_assert_true(g_hash_table_add(text->samples, g_strdup(sample->str)));
}

static void check_help(const Text *text, const char *help) {
  if (!text->only || g_str_has_prefix(help, OWN))
    return;
  const char *unit = text->only->unit ? text->only->unit : "";
  g_autofree char *name = g_utf8_make_valid(text->only->name, -1);
  g_autofree char *valid_unit = g_utf8_make_valid(unit, -1);
  g_autofree char *start = g_strconcat(name, *unit ? ", in " : "", valid_unit, NULL);
  g_assert_true(g_str_has_prefix(help, start));
}

static void read_family(Text *text) {
  expect(text, "# HELP ");
  char *name = read_name(text, "_:");
  g_assert_true(g_hash_table_add(text->families, name));
  expect(text, " ");
  g_autofree char *help = read_escaped(text, '\n', text->is_openmetrics);
  check_help(text, help);
  expect(text, "# TYPE ");
  expect(text, name);
  expect(text, " ");
  gboolean is_counter = skip(text, "counter\n");
  g_assert_true(is_counter || skip(text, "gauge\n") || skip(text, "summary\n") ||
                skip(text, text->is_openmetrics ? "unknown\n" : "untyped\n"));
  do
    read_sample(text, name, is_counter);
  while (*text->rest && *text->rest != '#');
}

static guint read_text(VekServicePrometheusReporter *reporter, VekServicePrometheusFormat format,
                       const RawCall *only) {
  g_autofree char *contents = vek_service_prometheus_reporter_get_text(reporter, format);
  g_autoptr(GHashTable) families = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, NULL);
  g_autoptr(GHashTable) samples = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, NULL);
  Text text = {
      format == VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS, contents, families, samples, only, 0};
  g_assert_true(g_utf8_validate(contents, -1, NULL));
  while (g_str_has_prefix(text.rest, "# HELP"))
    read_family(&text);
  g_assert_cmpstr(text.rest, ==, text.is_openmetrics ? "# EOF\n" : "");
  return g_hash_table_size(samples) - text.n_own;
}

int LLVMFuzzerTestOneInput(const guint8 *data, gsize size);
int LLVMFuzzerTestOneInput(const guint8 *data, gsize size) {
  static const guint n_samples[] = {1, 1, 7, 0};
  g_autoptr(GPtrArray) calls = raw_calls_new(data, size);
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  guint most = 0;
  for (guint i = 0; i < calls->len; i++) {
    const RawCall *call = calls->pdata[i];
    most += n_samples[call->kind];
    if (call->kind == RAW_COUNT && call->unit)
      vek_service_prometheus_reporter_declare_monotonic(reporter, call->name);
  }
  raw_calls_report(calls, VEK_METRIC_REPORTER(reporter));

  const RawCall *only = calls->len == 1 ? calls->pdata[0] : NULL;
  if (only && g_str_has_prefix(only->name, "vekmetrics"))
    only = NULL; /* may become the same as one of the reporter's own */
  guint n_read = read_text(reporter, VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS, only);
  g_assert_cmpuint(read_text(reporter, VEK_SERVICE_PROMETHEUS_FORMAT_TEXT, only), ==, n_read);
  g_assert_cmpuint(n_read, >=, only ? most : 0);
  g_assert_cmpuint(n_read, <=, most);
  return 0;
}
