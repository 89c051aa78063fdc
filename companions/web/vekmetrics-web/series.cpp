#include "series.hpp"

#include "common/internal.hpp"
#include "json.hpp"

#include <algorithm>
#include <limits>

namespace vekin::web {

static constexpr guint kMinCapacity = 4;
static constexpr gdouble kNone = std::numeric_limits<gdouble>::quiet_NaN();

static gdouble *find_row(const Series *series, guint64 pass) {
  return series->figures + pass % series->capacity * series->n_figures;
}

static void set_capacity(Series *series, guint capacity) {
  auto n_figures = series->n_figures;
  auto *figures = g_new(gdouble, gsize{capacity} * n_figures);
  series->first = series->end - std::min<guint64>(series->end - series->first, capacity);
  for (guint64 pass = series->first; pass < series->end; pass++)
    std::copy_n(find_row(series, pass), n_figures, figures + pass % capacity * n_figures);
  g_free(series->figures);
  series->figures = figures;
  series->capacity = capacity;
}

static char *make_head(const char *name, char **dimensions, const char *kind, const char *unit) {
  auto *head = g_string_new("{\"name\":");
  append_json_string(head, name);
  g_string_append(head, ",\"dimensions\":[");
  for (char **pair = dimensions; pair && pair[0] && pair[1]; pair += 2) {
    g_string_append(head, pair == dimensions ? "[" : ",[");
    append_json_string(head, pair[0]);
    g_string_append_c(head, ',');
    append_json_string(head, pair[1]);
    g_string_append_c(head, ']');
  }
  g_string_append_printf(head, "],\"kind\":\"%s\",\"unit\":", kind);
  if (unit)
    append_json_string(head, unit);
  else
    g_string_append(head, "null");
  g_string_append(head, ",\"times\":0,");
  return g_string_free(head, FALSE);
}

Series *series_new(GString *key, const char *name, char **dimensions, const char *kind,
                   const char *unit, guint n_figures) {
  auto *series = g_new0(Series, 1);
  series->ref_count = 1;
  series->key = key;
  series->head = make_head(name, dimensions, kind, unit);
  series->n_figures = n_figures;
  return series;
}

Series *series_ref(Series *series) {
  g_atomic_int_inc(&series->ref_count);
  return series;
}

void series_unref(Series *series) {
  if (!g_atomic_int_dec_and_test(&series->ref_count))
    return;
  g_string_free(series->key, TRUE);
  g_free(series->head);
  g_free(series->figures);
  g_free(series);
}

// The room doubles up to the limit, so that a metric that does not live long takes little.
void series_put(Series *series, guint64 pass, std::span<const gdouble> figures, guint n_passes) {
  if (series->end == 0)
    series->first = series->end = pass;
  auto n_needed = static_cast<guint>(std::min<guint64>(pass + 1 - series->first, n_passes));
  if (n_needed > series->capacity)
    set_capacity(series,
                 std::min(n_passes, std::max({kMinCapacity, 2 * series->capacity, n_needed})));

  guint64 oldest = pass + 1 - std::min<guint64>(pass + 1 - series->first, series->capacity);
  for (guint64 missing = std::max(series->end, oldest); missing < pass; missing++)
    std::fill_n(find_row(series, missing), series->n_figures, kNone);
  std::copy(figures.begin(), figures.end(), find_row(series, pass));
  series->first = oldest;
  series->end = pass + 1;
}

void series_shrink(Series *series, guint n_passes) {
  if (series->capacity > n_passes)
    set_capacity(series, n_passes);
}

gdouble series_get(const Series *series, guint64 pass, guint figure) {
  return pass >= series->first && pass < series->end ? find_row(series, pass)[figure] : kNone;
}

}  // namespace vekin::web
