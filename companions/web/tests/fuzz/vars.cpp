// What the page gets of names, dimensions and units of any bytes.

#include "tests/support/rawcalls.h"

#include <string.h>
#include <vekmetrics-web/extract.hpp>
#include <vekmetrics-web/history.hpp>

using namespace vekin::web;

static const RawCall *get_call(GPtrArray *calls, guint i) {
  return static_cast<const RawCall *>(calls->pdata[i]);
}

static char *get_text(GPtrArray *calls) {
  g_autoptr(VekWebHistory) history = history_new();
  history_set_n_passes(history, 1);
  raw_calls_report(calls, VEK_METRIC_REPORTER(history));
  auto *extract = extract_new(history, 0);
  auto *text = g_string_new(nullptr);
  while (!extract_append_slice(extract, text))
    continue;
  extract_free(extract);
  return g_string_free(text, FALSE);
}

static void append_json(GString *text, const char *string) {
  g_autofree char *json = string ? raw_json_string(string) : g_strdup("null");
  g_string_append(text, json);
}

static char *describe_metric(const RawCall *call) {
  static const char *const figures[] = {
      R"("<counter>")",
      R"("<values>":[42])",
      R"("<gauge>")",
      R"("<values>":[0.5])",
      R"("<histogram>")",
      (R"("<statistics>":{"<samples>":[1],"<avg>":[1.5],"<min>":[1.5],)"
       R"("<max>":[1.5],"<p10>":[1.5],"<p50>":[1.5],"<p90>":[1.5],"<p99>":[1.5]})"),
  };
  auto *text = g_string_new(R"({"<name>":)");
  append_json(text, call->name);
  g_string_append(text, R"(,"<dimensions>":[)");
  for (char **pair = call->dimensions; pair && pair[0] && pair[1]; pair += 2) {
    g_string_append(text, pair == call->dimensions ? "[" : ",[");
    append_json(text, pair[0]);
    g_string_append_c(text, ',');
    append_json(text, pair[1]);
    g_string_append_c(text, ']');
  }
  g_string_append_printf(text, R"(],"<kind>":%s,"<unit>":)", figures[2 * call->kind]);
  append_json(text, call->unit);
  g_string_append_printf(text, R"(,"<times>":0,%s})", figures[2 * call->kind + 1]);
  return g_string_free(text, FALSE);
}

static gboolean is_same_metric(const RawCall *a, const RawCall *b) {
  static const char *const none[] = {nullptr};
  return a->kind == b->kind && g_str_equal(a->name, b->name) && g_strcmp0(a->unit, b->unit) == 0 &&
         g_strv_equal(a->dimensions ? a->dimensions : none, b->dimensions ? b->dimensions : none);
}

static bool is_first(GPtrArray *calls, guint i) {
  for (guint j = 0; j < i; j++)
    if (is_same_metric(get_call(calls, j), get_call(calls, i)))
      return false;
  return true;
}

static int compare_lengths(gconstpointer a, gconstpointer b) {
  gsize left = strlen(*static_cast<const char *const *>(a));
  gsize right = strlen(*static_cast<const char *const *>(b));
  return (left < right) - (left > right);
}

// The longest first, as one may be part of another's name.
static GPtrArray *describe_metrics(GPtrArray *calls) {
  auto *metrics = g_ptr_array_new_with_free_func(g_free);
  for (guint i = 0; i < calls->len; i++)
    if (get_call(calls, i)->kind != RAW_TIMELINE && is_first(calls, i))
      g_ptr_array_add(metrics, describe_metric(get_call(calls, i)));
  g_ptr_array_sort(metrics, compare_lengths);
  return metrics;
}

static int compare_names(gconstpointer a, gconstpointer b) {
  return strcmp((*static_cast<const RawCall *const *>(a))->name,
                (*static_cast<const RawCall *const *>(b))->name);
}

// In the order of their names.
static char *describe_timelines(GPtrArray *calls) {
  g_autoptr(GPtrArray) sorted = g_ptr_array_new();
  for (guint i = 0; i < calls->len; i++)
    if (get_call(calls, i)->kind == RAW_TIMELINE)
      g_ptr_array_add(sorted, calls->pdata[i]);
  g_ptr_array_sort(sorted, compare_names);

  auto *text = g_string_new(nullptr);
  for (guint i = 0; i < sorted->len; i++) {
    const char *name = get_call(sorted, i)->name;
    bool is_new = i == 0 || !g_str_equal(name, get_call(sorted, i - 1)->name);
    if (i > 0)
      g_string_append(text, is_new ? "]}]}," : ",");
    if (is_new) {
      g_string_append(text, R"({"<name>":)");
      append_json(text, name);
      g_string_append(text, R"(,"<dimensions>":[],"<clock>":"<other>",)"
                            R"("<lanes>":[{"<id>":"<1>","<ranges>":[)");
    }
    g_string_append(text, "0.000002,0.000003");
  }
  if (sorted->len > 0)
    g_string_append(text, "]}]}");
  return g_string_free(text, FALSE);
}

extern "C" int LLVMFuzzerTestOneInput(const guint8 *data, gsize size);
extern "C" int LLVMFuzzerTestOneInput(const guint8 *data, gsize size) {
  g_autoptr(GPtrArray) calls = raw_calls_new(data, size);
  g_autofree char *text = get_text(calls);
  g_autofree char *decoded = raw_json_decode(text);
  const char *head = R"("<times>":[[1700000000]],"<passes>":0,"<restarts>":[],"<metrics>":[)";
  char *start = strstr(decoded, head);
  g_assert_nonnull(start);

  g_autoptr(GString) rest = g_string_new(start + strlen(head));
  g_autofree char *timelines = describe_timelines(calls);
  g_autofree char *tail = g_strdup_printf(R"(],"<timelines>":[%s]})", timelines);
  g_assert_true(g_str_has_suffix(rest->str, tail));
  g_string_truncate(rest, rest->len - strlen(tail));
  g_autoptr(GPtrArray) metrics = describe_metrics(calls);
  for (guint i = 0; i < metrics->len; i++) {
    auto *metric = static_cast<const char *>(metrics->pdata[i]);
    const char *found = strstr(rest->str, metric);
    g_assert_nonnull(found);
    g_string_erase(rest, found - rest->str, static_cast<gssize>(strlen(metric)));
  }
  g_autofree char *commas = g_strnfill(metrics->len - (metrics->len > 0), ',');
  g_assert_cmpstr(rest->str, ==, commas);
  return 0;
}
