#include "prometheustext.hpp"

#include "common/internal.hpp"
#include "common/numbers.hpp"
#include "prometheusrules.hpp"

#include <algorithm>
#include <iterator>

namespace vek::prometheus {

namespace {

// What the two formats say differently.
struct Dialect {
  const char *unknown;
  char *Family::*name;
  Quotes help_quotes;
  const char *end;
};

constexpr Dialect kOpenMetrics = {"unknown", &Family::name, Quotes::escaped, "# EOF\n"};
constexpr Dialect kText = {"untyped", &Family::sample_name, Quotes::kept, ""};

constexpr const char *kQuantileLabels[] = {"quantile=\"0.5\"", "quantile=\"0.9\"",
                                           "quantile=\"0.99\""};
static_assert(std::size(kQuantileLabels) == std::size(kQuantiles));

// OpenMetrics refuses summaries with negative quantiles.
const char *get_type_name(const Family *family, const Dialect &dialect) {
  switch (family->type) {
  case Type::counter: return "counter";
  case Type::gauge: return "gauge";
  case Type::summary: return family->is_negative ? "gauge" : "summary";
  case Type::unknown: break;
  }
  return dialect.unknown;
}

const char *describe(Figure figure) {
  switch (figure) {
  case Figure::count:
  case Figure::value:
  case Figure::quantiles: break;
  case Figure::average: return ": average";
  case Figure::min: return ": minimum";
  case Figure::max: return ": maximum";
  case Figure::n_samples: return ": number of samples";
  }
  return "";
}

void append_header(GString *text, const Family *family, const Dialect &dialect) {
  const char *name = family->*dialect.name;
  g_string_append(text, "# HELP ");
  g_string_append(text, name);
  g_string_append_c(text, ' ');
  append_escaped(text, family->of->name, dialect.help_quotes);
  if (const char *unit = family->of->unit; unit && *unit) {
    g_string_append(text, ", in ");
    append_escaped(text, unit, dialect.help_quotes);
  }
  g_string_append(text, describe(family->figure));
  g_string_append(text, "\n# TYPE ");
  g_string_append(text, name);
  g_string_append_c(text, ' ');
  g_string_append(text, get_type_name(family, dialect));
  g_string_append_c(text, '\n');
}

// A sample's name and labels, up to its value.
void append_series(GString *text, const Family *family, const char *labels, const char *quantile) {
  g_string_append(text, family->sample_name);
  if (*labels || *quantile) {
    g_string_append_c(text, '{');
    g_string_append(text, labels);
    if (*labels && *quantile)
      g_string_append_c(text, ',');
    g_string_append(text, quantile);
    g_string_append_c(text, '}');
  }
  g_string_append_c(text, ' ');
}

void append_line(GString *text, const Family *family, const char *labels, gdouble value,
                 const char *quantile = "") {
  append_series(text, family, labels, quantile);
  append_number(text, value);
  g_string_append_c(text, '\n');
}

void append_sample(GString *text, const Family *family, const Sample &sample) {
  const char *labels = sample.series->labels;
  auto &now = sample.series->now;
  switch (sample.figure) {
  case Figure::count:
    append_series(text, family, labels, "");
    g_string_append(text, Decimal(now.count).text);
    g_string_append_c(text, '\n');
    break;
  case Figure::value: append_line(text, family, labels, now.value); break;
  case Figure::quantiles:
    for (gsize i = 0; i < std::size(kQuantiles); i++)
      append_line(text, family, labels, now.aggregate.quantiles[i], kQuantileLabels[i]);
    break;
  case Figure::average: append_line(text, family, labels, now.aggregate.average); break;
  case Figure::min: append_line(text, family, labels, now.aggregate.min); break;
  case Figure::max: append_line(text, family, labels, now.aggregate.max); break;
  case Figure::n_samples:
    append_line(text, family, labels, static_cast<gdouble>(now.aggregate.n_samples));
    break;
  }
}

// The formats have no negative counters, and a series without samples has nothing but their number.
bool is_shown(const Family *family, const Sample &sample) {
  auto &now = sample.series->now;
  switch (sample.figure) {
  case Figure::count: return family->type != Type::counter || now.count >= 0;
  case Figure::value:
  case Figure::n_samples: return true;
  case Figure::quantiles:
  case Figure::average:
  case Figure::min:
  case Figure::max: break;
  }
  return now.aggregate.n_samples > 0;
}

bool shows_negative_quantile(const Family *family) {
  for (guint i = 0; i < family->samples->len; i++) {
    auto &sample = g_array_index(family->samples, Sample, i);
    auto &quantiles = sample.series->now.aggregate.quantiles;
    if (sample.figure == Figure::quantiles &&
        std::any_of(std::begin(quantiles), std::end(quantiles), [](gdouble q) { return q < 0; }))
      return true;
  }
  return false;
}

void append_family(GString *text, Family *family, const Dialect &dialect, GHashTable *negative) {
  if (family->type == Type::summary && !family->is_negative && shows_negative_quantile(family)) {
    family->is_negative = true;
    g_hash_table_add(negative, g_strdup(family->name));
  }
  bool has_header = false;
  for (guint i = 0; i < family->samples->len; i++) {
    auto &sample = g_array_index(family->samples, Sample, i);
    if (!is_shown(family, sample))
      continue;
    if (!has_header)
      append_header(text, family, dialect);
    has_header = true;
    append_sample(text, family, sample);
  }
}

}  // namespace

void append_families(GString *text, GPtrArray *families, VekServicePrometheusFormat format,
                     GHashTable *negative) {
  auto &dialect = format == VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS ? kOpenMetrics : kText;
  for (guint i = 0; i < families->len; i++)
    append_family(text, as<Family>(families->pdata[i]), dialect, negative);
  g_string_append(text, dialect.end);
}

}  // namespace vek::prometheus
