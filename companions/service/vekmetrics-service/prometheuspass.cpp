#include "prometheuspass.hpp"

#include "common/internal.hpp"
#include "prometheusrules.hpp"

#include <string.h>
#include <algorithm>
#include <iterator>

namespace vekin::prometheus {

namespace {

guint hash_key(gconstpointer data) {
  auto &key = *static_cast<const Key *>(data);
  guint hash = 5381;
  for (gsize i = 0; i < key.size; i++)
    hash = hash * 33 + static_cast<guchar>(key.bytes[i]);
  return hash;
}

gboolean equal_keys(gconstpointer a, gconstpointer b) {
  return compare_keys(*static_cast<const Key *>(a), *static_cast<const Key *>(b)) == 0;
}

void free_series(gpointer data) {
  auto *series = as<Series>(data);
  g_free(series->key.bytes);
  g_free(series->labels);
  g_free(series->unit);
  g_slice_free(Series, series);
}

void append_with_nul(GString *text, const char *string) {
  g_string_append_len(text, string, static_cast<gssize>(strlen(string)) + 1);
}

// A declared counter neither goes down nor below 0.
void check_counter(const Series *series, Policy &policy) {
  auto *declaration = as<Declaration>(g_hash_table_lookup(policy.monotonic, series->name));
  if (!declaration)
    return;
  if (series->next.count < 0) {
    if (!declaration->told_negative)
      vek_warning("The counter %s is declared monotonic, but negative: it is left out",
                  series->name);
    declaration->told_negative = true;
  } else if (series->is_now && series->next.count < series->now.count) {
    if (!declaration->told_down)
      vek_warning("The counter %s is declared monotonic, but went down", series->name);
    declaration->told_down = true;
  }
}

void take_next(Series *series, Policy &policy, gint64 time) {
  if (series->kind == Kind::count)
    check_counter(series, policy);
  series->now = series->next;
  series->is_now = true;
  series->is_next = false;
  series->brought = time;
}

}  // namespace

bool has_negative_quantile(const Series *series) {
  auto &quantiles = series->now.aggregate.quantiles;
  return series->kind == Kind::aggregated &&
         std::any_of(std::begin(quantiles), std::end(quantiles), [](gdouble q) { return q < 0; });
}

int compare_keys(const Key &a, const Key &b) {
  return memcmp(a.bytes, b.bytes, std::min(a.size, b.size));
}

// The key is the first member of a series, so that both are found by the same pointer.
GHashTable *series_table_new() {
  return g_hash_table_new_full(hash_key, equal_keys, nullptr, free_series);
}

Series *series_table_get(GHashTable *table, GString *scratch, const char *name, char **dimensions,
                         Kind kind) {
  g_string_truncate(scratch, 0);
  for (char **string = dimensions; string && *string; string++) {
    g_string_append_c(scratch, '\1');
    append_with_nul(scratch, *string);
  }
  g_string_append_c(scratch, '\0');
  gsize name_offset = scratch->len;
  append_with_nul(scratch, name);
  g_string_append_c(scratch, static_cast<char>(kind));

  Key key = {scratch->str, scratch->len};
  auto *series = as<Series>(g_hash_table_lookup(table, &key));
  if (!series) {
    series = g_slice_new0(Series);
    series->key = {as<char>(g_memdup2(key.bytes, key.size)), key.size};
    series->name = series->key.bytes + name_offset;
    series->labels = make_labels(dimensions);
    series->kind = kind;
    g_hash_table_insert(table, series, series);
  }
  return series;
}

Aggregate aggregate(VekMetricSnapshot *snapshot) {
  Aggregate figures = {
      .n_samples = vek_metric_snapshot_get_n_samples(snapshot),
      .average = vek_metric_snapshot_get_average(snapshot),
      .min = vek_metric_snapshot_get_min(snapshot),
      .max = vek_metric_snapshot_get_max(snapshot),
      .quantiles = {},
  };
  std::transform(std::begin(kQuantiles), std::end(kQuantiles), figures.quantiles,
                 [=](gdouble q) { return vek_metric_snapshot_get_quantile(snapshot, q); });
  return figures;
}

Changes take_pass(GHashTable *table, Policy &policy, gint64 time) {
  Changes changes = {g_ptr_array_new(), g_ptr_array_new_with_free_func(free_series), false};
  gint64 keep = static_cast<gint64>(policy.keep_seconds) * G_USEC_PER_SEC;
  GHashTableIter iter;
  gpointer value;
  g_hash_table_iter_init(&iter, table);
  while (g_hash_table_iter_next(&iter, &value, nullptr)) {
    auto *series = as<Series>(value);
    if (series->is_next) {
      if (!series->is_now)
        g_ptr_array_add(changes.came, series);
      bool was_negative = has_negative_quantile(series);
      take_next(series, policy, time);
      if (!was_negative && has_negative_quantile(series))
        changes.turned_negative = true;
    } else if (time - series->brought >= keep) {
      g_hash_table_iter_steal(&iter);
      g_ptr_array_add(changes.gone, series);
    }
  }
  return changes;
}

}  // namespace vekin::prometheus
