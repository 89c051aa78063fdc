#include "jsonline.hpp"

#include "common/numbers.hpp"
#include "dimension.h"
#include "metricdatum.h"

#include <json-glib/json-glib.h>
#include <math.h>
#include <string.h>

namespace {

// The array in the making. json-glib writes each string and each double by itself: a tree, even of
// one data point at a time, would take several times as long as the text.
struct Document {
  GString *text;
  JsonGenerator *generator;
  gint64 date_second = 0;  // the date that was last written, as many data points are of one
  char *date_text = nullptr;
};

}  // namespace

// Returns where the text of the node begins.
static gsize add_node(Document &document, JsonNode *node) {
  gsize start = document.text->len;
  json_generator_set_root(document.generator, node);
  json_generator_to_gstring(document.generator, document.text);
  return start;
}

// JSON text is UTF-8; in a name that is not, what cannot be read is replaced.
static void add_string(Document &document, const char *value) {
  if (!value) {
    g_string_append(document.text, "null");
    return;
  }
  g_autofree char *valid =
      g_utf8_validate(value, -1, nullptr) ? nullptr : g_utf8_make_valid(value, -1);
  g_autoptr(JsonNode) node = json_node_init_string(json_node_alloc(), valid ? valid : value);
  gsize start = add_node(document, node);

  // json-glib 1.6 leaves U+001F as it is, which parsers refuse.
  if (strchr(value, '\x1f')) {
    g_auto(GStrv) parts = g_strsplit(document.text->str + start, "\x1f", -1);
    g_autofree char *escaped = g_strjoinv("\\u001f", parts);
    g_string_truncate(document.text, start);
    g_string_append(document.text, escaped);
  }
}

// JSON has no infinity and nothing that is not a number.
static void add_double(Document &document, gdouble value) {
  if (!isfinite(value)) {
    g_string_append(document.text, "null");
    return;
  }
  g_autoptr(JsonNode) node = json_node_init_double(json_node_alloc(), value);
  gsize start = add_node(document, node);

  // json-glib 1.6 ends every double that shows no point in ".0", after an exponent too: 1e+22.0.
  // Parsers refuse that.
  const char *number = document.text->str + start;
  if (strchr(number, 'e') && g_str_has_suffix(number, ".0"))
    g_string_truncate(document.text, document.text->len - strlen(".0"));
}

static void add_timestamp(Document &document, gint64 timestamp) {
  gint64 second = timestamp / G_USEC_PER_SEC;
  if (!document.date_text || second != document.date_second) {
    g_autoptr(GDateTime) date = g_date_time_new_from_unix_utc(second);
    g_free(document.date_text);
    document.date_text = date ? g_date_time_format_iso8601(date) : nullptr;
    document.date_second = second;
  }
  add_string(document, timestamp != 0 ? document.date_text : nullptr);
}

static void add_statistics(Document &document, VekMetricDatum *datum) {
  guint64 sample_count;
  gdouble sum, minimum, maximum;
  vek_metric_datum_get_statistic_values(datum, &sample_count, &sum, &minimum, &maximum);
  g_string_append(document.text, "{\"SampleCount\":");
  g_string_append(document.text, vekin::Decimal(static_cast<gint64>(sample_count)).text);
  g_string_append(document.text, ",\"Sum\":");
  add_double(document, sum);
  g_string_append(document.text, ",\"Minimum\":");
  add_double(document, minimum);
  g_string_append(document.text, ",\"Maximum\":");
  add_double(document, maximum);
  g_string_append_c(document.text, '}');
}

static void add_dimensions(Document &document, VekMetricDimension **dimensions,
                           guint n_dimensions) {
  for (guint i = 0; i < n_dimensions; i++) {
    g_string_append(document.text, i > 0 ? ",{\"Name\":" : "[{\"Name\":");
    add_string(document, vek_metric_dimension_get_name(dimensions[i]));
    g_string_append(document.text, ",\"Value\":");
    add_string(document, vek_metric_dimension_get_value(dimensions[i]));
    g_string_append_c(document.text, '}');
  }
  g_string_append_c(document.text, ']');
}

static void add_object(Document &document, VekMetricDatum *datum) {
  g_string_append(document.text, "{\"MetricName\":");
  add_string(document, vek_metric_datum_get_metric_name(datum));
  g_string_append(document.text, ",\"Timestamp\":");
  add_timestamp(document, vek_metric_datum_get_timestamp(datum));
  if (const char *unit = vek_metric_datum_get_unit(datum)) {
    g_string_append(document.text, ",\"Unit\":");
    add_string(document, unit);
  }
  if (vek_metric_datum_get_value_set(datum)) {
    g_string_append(document.text, ",\"Value\":");
    add_double(document, vek_metric_datum_get_value(datum));
  }
  if (vek_metric_datum_get_statistic_values_set(datum)) {
    g_string_append(document.text, ",\"StatisticValues\":");
    add_statistics(document, datum);
  }
  guint n_dimensions;
  VekMetricDimension **dimensions = vek_metric_datum_get_dimensions(datum, &n_dimensions);
  if (n_dimensions > 0) {
    g_string_append(document.text, ",\"Dimensions\":");
    add_dimensions(document, dimensions, n_dimensions);
  }
  g_string_append_c(document.text, '}');
}

static GString *serialise(GPtrArray *data) {
  g_autoptr(JsonGenerator) generator = json_generator_new();
  Document document = {.text = g_string_new("["), .generator = generator};
  for (guint i = 0; i < data->len; i++) {
    if (i > 0)
      g_string_append_c(document.text, ',');
    add_object(document, static_cast<VekMetricDatum *>(data->pdata[i]));
  }
  g_string_append(document.text, "]\n");
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
