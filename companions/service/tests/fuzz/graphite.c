/* What a Graphite server gets of names, dimensions and units of any bytes. */

#include "tests/support/rawcalls.h"

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>

static gboolean is_allowed(gunichar character, const char *unwanted) {
  if (character < 0x80 && character != 0 && strchr(unwanted, (int)character))
    return FALSE;
  return !g_unichar_isspace(character) && !g_unichar_iscntrl(character);
}

/* Compares character by character: one that is not allowed, or not UTF-8, has become "_". */
static void assert_cleaned(const char *text, const char *original, const char *unwanted) {
  g_autofree char *valid = g_utf8_make_valid(original, -1);
  const char *o = valid;
  for (; *text && *o; text = g_utf8_next_char(text), o = g_utf8_next_char(o)) {
    gunichar character = g_utf8_get_char(text);
    gunichar before = g_utf8_get_char(o);
    if (character == before)
      g_assert_true(is_allowed(character, unwanted));
    else
      g_assert_true(character == '_' && (before == 0xfffd || !is_allowed(before, unwanted)));
  }
  g_assert_cmpstr(text, ==, o); /* both have ended */
}

static void check_tag(char *tag, const char *name, const char *value) {
  char *equals = strchr(tag, '=');
  g_assert_nonnull(equals);
  *equals = '\0';
  assert_cleaned(tag, *name ? name : "_", ";!^=");
  g_assert_cmpint(equals[1], !=, '~');
  g_autofree char *rest = g_strconcat("_", *value ? value + 1 : "", NULL);
  assert_cleaned(equals + 1, *value && *value != '~' ? value : rest, ";");
}

static void check_key(const char *key, const RawCall *call, const char *suffix, gboolean tagged) {
  char *none[] = {NULL};
  char **dimensions = call->dimensions ? call->dimensions : none;
  g_autofree char *joined = tagged ? g_strdup("") : g_strjoinv(".", dimensions);
  g_autofree char *path =
      g_strconcat(joined, call->dimensions && !tagged ? "." : "", call->unit ? call->unit : "",
                  call->unit ? "." : "", call->name, suffix, NULL);
  if (!tagged) {
    assert_cleaned(key, path, "");
    return;
  }
  g_auto(GStrv) parts = g_strsplit(key, ";", -1);
  assert_cleaned(parts[0] ? parts[0] : "", path, ";"); /* nothing is split into nothing */
  guint n_pairs = g_strv_length(dimensions) / 2;
  g_assert_cmpuint(MAX(g_strv_length(parts), 1), ==, 1 + n_pairs);
  for (guint i = 0; i < n_pairs; i++)
    check_tag(parts[1 + i], dimensions[2 * i], dimensions[2 * i + 1]);
}

/* The suffixes of the keys, and their values. */
static const char *const figures[][5][2] = {
    {{"", "42"}},
    {{"", "0.500000"}},
    {{".average", "1.500000"}, {".n_samples", "1"}, {".min", "1.500000"}, {".max", "1.500000"}},
    {{NULL}},
};

/* Reads the lines of a call, and returns how many there are. */
static guint check_lines(char **lines, const RawCall *call, gboolean tagged) {
  guint i = 0;
  for (; figures[call->kind][i][0]; i++) {
    g_assert_nonnull(lines[i]);
    g_auto(GStrv) fields = g_strsplit(lines[i], " ", -1);
    g_assert_cmpuint(g_strv_length(fields), ==, 3);
    check_key(fields[0], call, figures[call->kind][i][0], tagged);
    g_assert_cmpstr(fields[1], ==, figures[call->kind][i][1]);
    g_assert_cmpstr(fields[2], ==, RAW_SECONDS);
  }
  return i;
}

static void check(GPtrArray *calls, gboolean tagged) {
  static RawSink *sinks[2];
  static VekMetricReporter *reporters[2];
  if (!sinks[tagged]) {
    sinks[tagged] = raw_sink_new();
    guint port = raw_sink_get_port(sinks[tagged]);
    reporters[tagged] = vek_service_graphite_reporter_new(NULL, "127.0.0.1", port);
    g_object_set(reporters[tagged], "tags", tagged, NULL);
  }
  raw_calls_report(calls, reporters[tagged]);
  g_autofree char *text = raw_sink_receive(sinks[tagged], reporters[tagged]);
  g_assert_true(g_utf8_validate(text, -1, NULL));
  g_auto(GStrv) lines = g_strsplit(text, "\n", -1);
  guint n_read = 0;
  for (guint i = 0; i < calls->len; i++)
    n_read += check_lines(lines + n_read, calls->pdata[i], tagged);
  g_assert_cmpstr(lines[n_read] ? lines[n_read] : "", ==, "");
}

int LLVMFuzzerTestOneInput(const guint8 *data, gsize size);
int LLVMFuzzerTestOneInput(const guint8 *data, gsize size) {
  g_autoptr(GPtrArray) calls = raw_calls_new(data, size);
  check(calls, FALSE);
  check(calls, TRUE);
  return 0;
}
