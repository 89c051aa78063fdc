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

// A line of the text.
struct Line {
  const Series *series;
  guint header_size;  // of the lines before a family's samples, which the first of them has
  guint size;         // of what comes before the number
  Figure figure;
  guint8 quantile;   // its index if the figure is quantiles
  bool is_counters;  // of a counter, which is not shown if it is negative
};

constexpr const char *kQuantileLabels[] = {"quantile=\"0.5\"", "quantile=\"0.9\"",
                                           "quantile=\"0.99\""};
static_assert(std::size(kQuantileLabels) == std::size(kQuantiles));
constexpr const char *kNoQuantile[] = {""};

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

void append_header(GString *text, const Family *family, const Dialect &dialect) {
  const char *name = family->*dialect.name;
  for (const char *piece : {"# HELP ", name, " "})
    append(text, piece);
  append_escaped(text, family->of->name, dialect.help_quotes);
  if (const char *unit = family->of->unit; unit && *unit) {
    append(text, ", in ");
    append_escaped(text, unit, dialect.help_quotes);
  }
  for (const char *piece :
       {describe(family->figure), "\n# TYPE ", name, " ", get_type_name(family, dialect), "\n"})
    append(text, piece);
}

void append_piece(GString *text, const Family *family, std::string_view labels,
                  std::string_view quantile) {
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
}

// Of a summary: all that it shows are quantiles.
bool shows_negative_quantile(const Family *family) {
  for (guint i = 0; i < family->samples->len; i++)
    if (has_negative_quantile(g_array_index(family->samples, Sample, i).series))
      return true;
  return false;
}

void note_negative(Family *family, GHashTable *negative) {
  if (family->type != Type::summary || family->is_negative || !shows_negative_quantile(family))
    return;
  family->is_negative = true;
  g_hash_table_add(negative, g_strdup(family->name));
}

void lay_out_sample(Layout &layout, const Family *family, const Dialect &dialect) {
  auto &sample = g_array_index(family->samples, Sample, layout.sample);
  auto *pieces = layout.pieces;
  gsize start = pieces->len;
  if (layout.sample == 0)
    append_header(pieces, family, dialect);
  Line line = {
      .series = sample.series,
      .header_size = static_cast<guint>(pieces->len - start),
      .size = 0,
      .figure = sample.figure,
      .quantile = 0,
      .is_counters = family->type == Type::counter,
  };
  std::span<const char *const> quantiles = kNoQuantile;
  if (sample.figure == Figure::quantiles)
    quantiles = kQuantileLabels;
  for (; line.quantile < quantiles.size(); line.quantile++) {
    start = pieces->len;
    append_piece(pieces, family, sample.series->labels, quantiles[line.quantile]);
    line.size = static_cast<guint>(pieces->len - start);
    g_array_append_val(layout.lines, line);
    line.header_size = 0;
  }
}

// Lays out one more sample. Returns false if all are.
bool lay_out(Layout &layout, GPtrArray *families, const Dialect &dialect, GHashTable *negative) {
  if (layout.family == families->len)
    return false;
  auto *family = as<Family>(families->pdata[layout.family]);
  if (layout.sample == 0)
    note_negative(family, negative);
  lay_out_sample(layout, family, dialect);
  if (++layout.sample == family->samples->len) {
    layout.sample = 0;
    layout.family++;
  }
  return true;
}

void append_number(GString *text, const Line &line) {
  auto &now = line.series->now;
  auto append_figure = [=](gdouble value) { append(text, Number(value).text); };
  switch (line.figure) {
  case Figure::count: append(text, Decimal(now.count).text); break;
  case Figure::value: append_figure(now.value); break;
  case Figure::quantiles: append_figure(now.aggregate.quantiles[line.quantile]); break;
  case Figure::average: append_figure(now.aggregate.average); break;
  case Figure::min: append_figure(now.aggregate.min); break;
  case Figure::max: append_figure(now.aggregate.max); break;
  case Figure::n_samples: append_figure(static_cast<gdouble>(now.aggregate.n_samples)); break;
  }
}

// The formats have no negative counters, and a series without samples has nothing but their number.
bool is_shown(const Line &line) {
  auto &now = line.series->now;
  switch (line.figure) {
  case Figure::count: return !line.is_counters || now.count >= 0;
  case Figure::value:
  case Figure::n_samples: return true;
  case Figure::quantiles:
  case Figure::average:
  case Figure::min:
  case Figure::max: break;
  }
  return now.aggregate.n_samples > 0;
}

void write_line(Text &text, const Line &line) {
  const char *pieces = text.layout.pieces->str;
  if (line.header_size != 0) {
    text.header = text.piece;
    text.header_size = line.header_size;
    text.piece += line.header_size;
  }
  if (is_shown(line)) {
    append(text.begun, {pieces + text.header, text.header_size});
    append(text.begun, {pieces + text.piece, line.size});
    append_number(text.begun, line);
    append(text.begun, "\n");
    text.header_size = 0;
  }
  text.piece += line.size;
}

}  // namespace

bool text_write(Text &text, guint n_lines, GPtrArray *families, VekServicePrometheusFormat format,
                GHashTable *negative) {
  auto &layout = text.layout;
  auto &dialect = kDialects[format];
  if (!layout.pieces)
    layout = {g_string_new(nullptr), g_array_new(FALSE, FALSE, sizeof(Line)), 0, 0};
  if (!text.begun) {
    text.begun = g_string_sized_new(text.size + 1024);
    text.line = 0;
    text.piece = text.header = text.header_size = 0;
  }
  while (text.line < layout.lines->len || lay_out(layout, families, dialect, negative)) {
    if (n_lines-- == 0)
      return false;
    write_line(text, g_array_index(layout.lines, Line, text.line++));
  }
  append(text.begun, dialect.end);
  text.size = text.begun->len;
  text.bytes = g_string_free_to_bytes(g_steal_pointer(&text.begun));
  return true;
}

void text_clear(Text &text) {
  g_clear_pointer(&text.bytes, g_bytes_unref);
  if (text.begun)
    g_string_free(g_steal_pointer(&text.begun), TRUE);
}

void text_clear_layout(Text &text) {
  text_clear(text);
  if (text.layout.pieces) {
    g_string_free(text.layout.pieces, TRUE);
    g_array_unref(text.layout.lines);
    text.layout = {};
  }
}

}  // namespace vekin::prometheus
