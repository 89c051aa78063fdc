#include "prometheustext.hpp"

#include "common/internal.hpp"
#include "common/numbers.hpp"
#include "prometheusrules.hpp"

#include <string.h>
#include <algorithm>
#include <iterator>
#include <string_view>

namespace vekin::prometheus {

namespace {

// What the two formats say differently.
struct Dialect {
  const char *unknown;
  char *Family::*name;
  Quotes help_quotes;
  const char *end;
};

constexpr Dialect kDialects[] = {
    {"unknown", &Family::name, Quotes::escaped, "# EOF\n"},
    {"untyped", &Family::sample_name, Quotes::kept, ""},
};

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

char *make_header(const Family *family, const Dialect &dialect) {
  const char *name = family->*dialect.name;
  auto *text = g_string_new(nullptr);
  for (const char *piece : {"# HELP ", name, " "})
    g_string_append(text, piece);
  append_escaped(text, family->of->name, dialect.help_quotes);
  if (const char *unit = family->of->unit; unit && *unit) {
    g_string_append(text, ", in ");
    append_escaped(text, unit, dialect.help_quotes);
  }
  for (const char *piece :
       {describe(family->figure), "\n# TYPE ", name, " ", get_type_name(family, dialect), "\n"})
    g_string_append(text, piece);
  return g_string_free(text, FALSE);
}

// Appends without a NUL, and inline: there are a hundred thousand pieces in a large text.
void append(GString *text, std::string_view piece) {
  if (text->allocated_len - text->len < piece.size()) [[unlikely]] {
    gsize length = text->len;
    g_string_set_size(text, length + piece.size());
    text->len = length;
  }
  memcpy(text->str + text->len, piece.data(), piece.size());
  text->len += piece.size();
}

void append_line(GString *text, const Family *family, std::string_view labels,
                 std::string_view quantile, std::string_view value) {
  append(text, family->sample_name);
  if (!labels.empty() || !quantile.empty()) {
    append(text, "{");
    append(text, labels);
    if (!labels.empty() && !quantile.empty())
      append(text, ",");
    append(text, quantile);
    append(text, "}");
  }
  append(text, " ");
  append(text, value);
  append(text, "\n");
}

void append_sample(GString *text, const Family *family, const Sample &sample) {
  auto &now = sample.series->now;
  auto append_figure = [=](gdouble value, const char *quantile = "") {
    append_line(text, family, sample.series->labels, quantile, Number(value).text);
  };
  switch (sample.figure) {
  case Figure::count:
    append_line(text, family, sample.series->labels, "", Decimal(now.count).text);
    break;
  case Figure::value: append_figure(now.value); break;
  case Figure::quantiles:
    for (gsize i = 0; i < std::size(kQuantiles); i++)
      append_figure(now.aggregate.quantiles[i], kQuantileLabels[i]);
    break;
  case Figure::average: append_figure(now.aggregate.average); break;
  case Figure::min: append_figure(now.aggregate.min); break;
  case Figure::max: append_figure(now.aggregate.max); break;
  case Figure::n_samples: append_figure(static_cast<gdouble>(now.aggregate.n_samples)); break;
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

// Of a summary: all that it shows are quantiles.
bool shows_negative_quantile(const Family *family) {
  for (guint i = 0; i < family->samples->len; i++) {
    auto &quantiles = g_array_index(family->samples, Sample, i).series->now.aggregate.quantiles;
    if (std::any_of(std::begin(quantiles), std::end(quantiles), [](gdouble q) { return q < 0; }))
      return true;
  }
  return false;
}

void note_negative(Family *family, GHashTable *negative) {
  if (family->type != Type::summary || family->is_negative || !shows_negative_quantile(family))
    return;
  family->is_negative = true;
  for (auto &header : family->headers)
    g_clear_pointer(&header, g_free);
  g_hash_table_add(negative, g_strdup(family->name));
}

// Appends up to so many samples to a text that is begun. Returns whether it is whole.
bool append_samples(Text &text, guint n_samples, GPtrArray *families,
                    VekServicePrometheusFormat format, GHashTable *negative) {
  for (; text.family < families->len; text.family++) {
    auto *family = as<Family>(families->pdata[text.family]);
    if (text.sample == 0)
      note_negative(family, negative);
    for (; text.sample < family->samples->len; text.sample++) {
      if (n_samples-- == 0)
        return false;
      auto &sample = g_array_index(family->samples, Sample, text.sample);
      if (!is_shown(family, sample))
        continue;
      if (!text.has_header) {
        if (!family->headers[format])
          family->headers[format] = make_header(family, kDialects[format]);
        append(text.begun, family->headers[format]);
        text.has_header = true;
      }
      append_sample(text.begun, family, sample);
    }
    text.sample = 0;
    text.has_header = false;
  }
  append(text.begun, kDialects[format].end);
  return true;
}

}  // namespace

bool text_write(Text &text, guint n_samples, GPtrArray *families, VekServicePrometheusFormat format,
                GHashTable *negative) {
  if (!text.begun) {
    text.begun = g_string_sized_new(text.size + 1024);
    text.family = text.sample = 0;
    text.has_header = false;
  }
  if (!append_samples(text, n_samples, families, format, negative))
    return false;
  text.size = text.begun->len;
  text.bytes = g_string_free_to_bytes(g_steal_pointer(&text.begun));
  return true;
}

void text_clear(Text &text) {
  g_clear_pointer(&text.bytes, g_bytes_unref);
  if (text.begun)
    g_string_free(g_steal_pointer(&text.begun), TRUE);
}

}  // namespace vekin::prometheus
