#include "jsonline.hpp"

#include "dimension.h"
#include "metricdatum.h"

#include <json-glib/json-glib.h>
#include <math.h>
#include <string.h>

namespace {

// The array in the making. Builder and generator serve one data point at a time: a tree of all
// would take many times the memory of their text.
struct Document {
  GString *text;
  JsonBuilder *builder;
  JsonGenerator *generator;
  bool has_exponents = false;  // of some double of the data point
  GRegex *ending = nullptr;    // of a double, to be repaired; NULL until needed
  gint64 date_second = 0;  // the date that was last written as text, as many data points are of one
  char *date_text = nullptr;
};

}  // namespace

// JSON text is UTF-8; in a name that is not, what cannot be read is replaced.
static void add_string(JsonBuilder *builder, const char *member, const char *value) {
  json_builder_set_member_name(builder, member);
  if (!value || g_utf8_validate(value, -1, nullptr)) {
    json_builder_add_string_value(builder, value);
  } else {
    g_autofree char *valid = g_utf8_make_valid(value, -1);
    json_builder_add_string_value(builder, valid);
  }
}

// JSON has no infinity and nothing that is not a number.
static void add_double(Document &document, const char *member, gdouble value) {
  json_builder_set_member_name(document.builder, member);
  if (!isfinite(value)) {
    json_builder_add_null_value(document.builder);
    return;
  }
  json_builder_add_double_value(document.builder, value);
  gdouble magnitude = fabs(value);  // 17 digits show an exponent from 1e17 on and below 1e-4
  document.has_exponents |= magnitude >= 1e17 || (magnitude < 1e-4 && magnitude > 0.0);
}

// The date of a second, or NULL if it cannot be formed.
static const char *format_second(Document &document, gint64 second) {
  if (!document.date_text || second != document.date_second) {
    g_autoptr(GDateTime) date = g_date_time_new_from_unix_utc(second);
    g_free(document.date_text);
    document.date_text = date ? g_date_time_format_iso8601(date) : nullptr;
    document.date_second = second;
  }
  return document.date_text;
}

static void add_timestamp(Document &document, gint64 timestamp) {
  const char *text = timestamp != 0 ? format_second(document, timestamp / G_USEC_PER_SEC) : nullptr;
  json_builder_set_member_name(document.builder, "Timestamp");
  if (text)
    json_builder_add_string_value(document.builder, text);
  else
    json_builder_add_null_value(document.builder);
}

static void add_object(Document &document, VekMetricDatum *datum) {
  auto *builder = document.builder;
  json_builder_begin_object(builder);
  add_string(builder, "MetricName", vek_metric_datum_get_metric_name(datum));
  add_timestamp(document, vek_metric_datum_get_timestamp(datum));
  if (const char *unit = vek_metric_datum_get_unit(datum))
    add_string(builder, "Unit", unit);
  if (vek_metric_datum_get_value_set(datum))
    add_double(document, "Value", vek_metric_datum_get_value(datum));

  if (vek_metric_datum_get_statistic_values_set(datum)) {
    guint64 sample_count;
    gdouble sum, minimum, maximum;
    vek_metric_datum_get_statistic_values(datum, &sample_count, &sum, &minimum, &maximum);
    json_builder_set_member_name(builder, "StatisticValues");
    json_builder_begin_object(builder);
    json_builder_set_member_name(builder, "SampleCount");
    json_builder_add_int_value(builder, static_cast<gint64>(sample_count));
    add_double(document, "Sum", sum);
    add_double(document, "Minimum", minimum);
    add_double(document, "Maximum", maximum);
    json_builder_end_object(builder);
  }

  guint n_dimensions;
  VekMetricDimension **dimensions = vek_metric_datum_get_dimensions(datum, &n_dimensions);
  if (n_dimensions > 0) {
    json_builder_set_member_name(builder, "Dimensions");
    json_builder_begin_array(builder);
    for (guint i = 0; i < n_dimensions; i++) {
      json_builder_begin_object(builder);
      add_string(builder, "Name", vek_metric_dimension_get_name(dimensions[i]));
      add_string(builder, "Value", vek_metric_dimension_get_value(dimensions[i]));
      json_builder_end_object(builder);
    }
    json_builder_end_array(builder);
  }
  json_builder_end_object(builder);
}

// The generator of json-glib 1.6 writes two things that parsers refuse. It ends every double that
// shows no point in ".0", after an exponent too: 1e+22.0. And it leaves U+001F as it is. Inside of
// a string a backslash comes before each quote; so where a quote comes after a letter and before a
// colon, the name of a member ends and its value follows.
static char *repair(Document &document, const char *json) {
  if (!document.ending)
    document.ending = g_regex_new(R"re((?<=[a-z])":-?\de[-+]\d+\K\.0)re", G_REGEX_RAW,
                                  G_REGEX_MATCH_DEFAULT, nullptr);
  g_autofree char *text =
      g_regex_replace_literal(document.ending, json, -1, 0, "", G_REGEX_MATCH_DEFAULT, nullptr);
  g_auto(GStrv) parts = g_strsplit(text, "\x1f", -1);
  return g_strjoinv("\\u001f", parts);
}

static void append_object(Document &document, VekMetricDatum *datum) {
  json_builder_reset(document.builder);
  document.has_exponents = false;
  add_object(document, datum);
  g_autoptr(JsonNode) root = json_builder_get_root(document.builder);
  json_generator_set_root(document.generator, root);

  gsize start = document.text->len;
  json_generator_to_gstring(document.generator, document.text);
  const char *json = document.text->str + start;
  if (document.has_exponents || strchr(json, '\x1f')) {
    g_autofree char *repaired = repair(document, json);
    g_string_truncate(document.text, start);
    g_string_append(document.text, repaired);
  }
}

static GString *serialise(GPtrArray *data) {
  g_autoptr(JsonBuilder) builder = json_builder_new();
  g_autoptr(JsonGenerator) generator = json_generator_new();
  Document document = {.text = g_string_new("["), .builder = builder, .generator = generator};
  for (guint i = 0; i < data->len; i++) {
    if (i > 0)
      g_string_append_c(document.text, ',');
    append_object(document, static_cast<VekMetricDatum *>(data->pdata[i]));
  }
  g_string_append(document.text, "]\n");
  g_clear_pointer(&document.ending, g_regex_unref);
  g_free(document.date_text);
  return document.text;
}

// The years 1 to 9999, which are those of GLib's dates, in µs since the epoch.
static constexpr gint64 kFirstTime = -62135596800 * G_USEC_PER_SEC;
static constexpr gint64 kLastTime = 253402300800 * G_USEC_PER_SEC - 1;

char *vekin::make_json_line(GPtrArray *data) {
  GString *line = serialise(data);
  g_autoptr(GDateTime) epoch = g_date_time_new_from_unix_utc(0);
  g_autoptr(GDateTime) now =
      g_date_time_add(epoch, CLAMP(g_get_real_time(), kFirstTime, kLastTime));
  g_autofree char *date = g_date_time_format(now, "%F %T");
  g_autofree char *time = g_strdup_printf("%s,%06d ", date, g_date_time_get_microsecond(now));
  g_string_prepend(line, time);
  return g_string_free(line, FALSE);
}
