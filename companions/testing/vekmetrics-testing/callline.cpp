#include "callline.hpp"

#include "common/internal.hpp"
#include "common/numbers.hpp"

#include <string.h>

// Whether a string can only be read as one word of a line.
static bool is_plain(const char *string) {
  if (!*string)
    return false;
  for (const char *c = string; *c; c = g_utf8_next_char(c))
    if (strchr("\"\\{}=,()@", *c) || !g_unichar_isgraph(g_utf8_get_char(c)))
      return false;
  return true;
}

static void append_string(GString *text, const char *string) {
  if (!string) {
    g_string_append(text, "(null)");
    return;
  }
  bool is_utf8 = g_utf8_validate(string, -1, nullptr);
  if (is_utf8 && is_plain(string)) {
    g_string_append(text, string);
    return;
  }

  // Letters beyond ASCII can be read as they are, bytes that are none cannot.
  char beyond_ascii[129] = "";
  for (int i = 0; is_utf8 && i < 128; i++)
    beyond_ascii[i] = static_cast<char>(128 + i);
  g_autofree char *escaped = g_strescape(string, beyond_ascii);
  g_string_append_printf(text, "\"%s\"", escaped);
}

void vekin::testing::append_identity(GString *text, const char *name, char **dimensions) {
  append_string(text, name);
  if (!dimensions)
    return;
  g_string_append_c(text, '{');
  for (guint i = 0; dimensions[i]; i++) {
    if (i > 0)
      g_string_append_c(text, i % 2 ? '=' : ',');
    append_string(text, dimensions[i]);
  }
  g_string_append_c(text, '}');
}

void vekin::testing::append_number(GString *text, gdouble number) {
  if (number != number) {
    g_string_append(text, "nan");  // whatever its sign
    return;
  }
  // 15 digits are always right, 17 always enough.
  char buffer[G_ASCII_DTOSTR_BUF_SIZE];
  g_ascii_formatd(buffer, sizeof buffer, "%.15g", number);
  for (const char *format : {"%.16g", "%.17g"})
    if (g_ascii_strtod(buffer, nullptr) != number)
      g_ascii_formatd(buffer, sizeof buffer, format, number);
  g_string_append(text, buffer);
}

static void append_ranges(GString *text, GSList *ranges) {
  const char *before = "";
  g_string_append_c(text, '[');
  for (auto *range : vekin::Each<VekMetricRange>(ranges)) {
    g_string_append_printf(text, "%s%d:%" G_GINT64_FORMAT "..%" G_GINT64_FORMAT, before, range->id,
                           range->start, range->end);
    before = " ";
  }
  g_string_append_c(text, ']');
}

static void append_statistics(GString *text, VekMetricSnapshot *snapshot) {
  if (!snapshot) {
    g_string_append(text, "(null)");
    return;
  }
  g_string_append(text, "n=");
  g_string_append(text, vekin::Decimal(vek_metric_snapshot_get_n_samples(snapshot)).text);
  g_string_append(text, " sum=");
  vekin::testing::append_number(text, vek_metric_snapshot_get_sum(snapshot));
  g_string_append(text, " min=");
  vekin::testing::append_number(text, vek_metric_snapshot_get_min(snapshot));
  g_string_append(text, " max=");
  vekin::testing::append_number(text, vek_metric_snapshot_get_max(snapshot));
}

void vekin::testing::append_call(GString *text, const Call &call, bool with_time) {
  switch (call.kind) {
  case Kind::Count: g_string_append(text, "count "); break;
  case Kind::Value: g_string_append(text, "value "); break;
  case Kind::Timeline: g_string_append(text, "timeline "); break;
  case Kind::Aggregated: g_string_append(text, "aggregated "); break;
  }
  append_identity(text, call.name, call.dimensions);
  g_string_append_c(text, ' ');
  switch (call.kind) {
  case Kind::Count: g_string_append(text, Decimal(call.count).text); break;
  case Kind::Value: append_number(text, call.value); break;
  case Kind::Timeline: append_ranges(text, call.ranges); break;
  case Kind::Aggregated: append_statistics(text, call.snapshot); break;
  }
  if (call.unit) {
    g_string_append_c(text, ' ');
    append_string(text, call.unit);
  }
  if (with_time && call.kind != Kind::Timeline) {
    g_string_append(text, " @");
    g_string_append(text, Decimal(call.time).text);
  }
}
