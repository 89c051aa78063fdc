#include "history.hpp"

#include "common/internal.hpp"

#include <vekmetrics-service/vekmetrics-service.h>

#include <math.h>
#include <algorithm>
#include <iterator>

using namespace vekin::web;

struct _VekWebHistory {
  GObject parent_instance;

  char *start;  // never changes

  GMutex lock;  // guards the fields below, and the figures of each Series
  guint n_passes;
  guint64 pass;        // the last one that has ended
  gint64 monotonic;    // when it ended
  GArray *times;       // of the passes that are kept: gint64
  GHashTable *table;   // of Series, by key
  GString *scratch;    // a key
  GPtrArray *batches;  // of Batch, the oldest first
  GSource *source;
};
static_assert(vekin::ZeroFillable<VekWebHistory>);

static void vek_web_history_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_FINAL_TYPE_WITH_CODE(VekWebHistory, vek_web_history, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                                    vek_web_history_reporter_init))

// Strings of a key, so that none can be taken for another: nothing is in the place of NULL.
static void append_to_key(GString *key, const char *string) {
  if (string)
    g_string_append_printf(key, "\1%s", string);
  g_string_append_c(key, '\0');
}

// What tells metrics apart; a metric that is made anew with another unit is another one.
static Series *find_series(VekWebHistory *self, const char *name, char **dimensions,
                           const char *kind, const char *unit, guint n_figures) {
  auto *key = self->scratch;
  g_string_truncate(key, 0);
  append_to_key(key, kind);
  append_to_key(key, unit);
  append_to_key(key, name);
  for (char **string = dimensions; string && *string; string++)
    append_to_key(key, *string);

  auto *series = vekin::as<Series>(g_hash_table_lookup(self->table, key));
  if (!series) {
    series = series_new(g_string_new_len(key->str, static_cast<gssize>(key->len)), name, dimensions,
                        kind, unit, n_figures);
    g_hash_table_insert(self->table, series->key, series);
  }
  return series;
}

static void bring(VekMetricReporter *reporter, const char *name, char **dimensions,
                  const char *kind, const char *unit, std::span<const gdouble> figures) {
  auto *self = vekin::as<VekWebHistory>(reporter);
  vekin::MutexLock held(self->lock);
  if (self->n_passes == 0)
    return;
  auto *series = find_series(self, name ? name : "", dimensions, kind, unit,
                             static_cast<guint>(figures.size()));
  series_put(series, self->pass + 1, figures, self->n_passes + 1);
}

// Drops the ranges of passes that are not kept, and the oldest of too many.
static void drop_ranges(VekWebHistory *self) {
  guint64 first = self->pass + 1 - self->times->len;
  guint n_ranges = 0, n_kept = 0;
  while (n_kept < self->batches->len) {
    auto *batch = vekin::as<Batch>(self->batches->pdata[self->batches->len - 1 - n_kept]);
    n_ranges += batch->n_ranges;
    if (batch->pass < first || n_ranges > kMaxRanges)
      break;
    n_kept++;
  }
  g_ptr_array_remove_range(self->batches, 0, self->batches->len - n_kept);
}

static gboolean is_old(gpointer, gpointer series, gpointer first) {
  return vekin::as<Series>(series)->end <= *static_cast<guint64 *>(first);
}

// Drops what is not of the last passes.
static void drop_passes(VekWebHistory *self) {
  g_array_remove_range(self->times, 0,
                       self->times->len - std::min(self->times->len, self->n_passes));
  guint64 first = self->pass + 1 - self->times->len;
  g_hash_table_foreach_remove(self->table, is_old, &first);
  drop_ranges(self);
}

static void vek_web_history_process_count(VekMetricReporter *reporter, const gchar *name,
                                          gchar **dimensions, const gchar *unit, gint64,
                                          gint64 count) {
  gdouble figure = static_cast<gdouble>(count);
  bring(reporter, name, dimensions, "counter", unit, {&figure, 1});
}

static void vek_web_history_process_value(VekMetricReporter *reporter, const gchar *name,
                                          gchar **dimensions, const gchar *unit, gint64,
                                          gdouble value) {
  bool is_meter = VEK_IS_METRIC_METER(vek_service_get_reporting_metric());
  bring(reporter, name, dimensions, is_meter ? "meter" : "gauge", unit, {&value, 1});
}

static void vek_web_history_process_timeline_samples(VekMetricReporter *reporter, const gchar *name,
                                                     GSList *samples) {
  auto *self = vekin::as<VekWebHistory>(reporter);
  vekin::MutexLock held(self->lock);
  if (self->n_passes == 0 || !samples)
    return;
  g_ptr_array_add(self->batches, batch_new(self->pass + 1, name ? name : "", samples));
  drop_ranges(self);
}

static void vek_web_history_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                               gchar **dimensions, const gchar *unit,
                                               VekMetricSnapshot *snapshot) {
  gdouble figures[] = {
      static_cast<gdouble>(vek_metric_snapshot_get_n_samples(snapshot)),
      vek_metric_snapshot_get_average(snapshot),
      vek_metric_snapshot_get_min(snapshot),
      vek_metric_snapshot_get_max(snapshot),
      vek_metric_snapshot_get_quantile(snapshot, 0.1),
      vek_metric_snapshot_get_quantile(snapshot, 0.5),
      vek_metric_snapshot_get_quantile(snapshot, 0.9),
      vek_metric_snapshot_get_quantile(snapshot, 0.99),
  };
  static_assert(std::size(figures) == std::size(kStatistics));
  if (figures[0] == 0)
    std::fill(std::begin(figures) + 1, std::end(figures), NAN);
  bool is_timer = VEK_IS_METRIC_TIMER(vek_service_get_reporting_metric());
  bring(reporter, name, dimensions, is_timer ? "timer" : "histogram", unit, figures);
}

// Passes follow each other by the monotonic clock at least: the wall clock may be set back.
static gint64 get_next_time(const VekWebHistory *self, gint64 monotonic) {
  gint64 now = g_get_real_time();
  if (self->times->len == 0)
    return now;
  gint64 last = g_array_index(self->times, gint64, self->times->len - 1);
  gint64 next;
  if (__builtin_add_overflow(last, std::max<gint64>(monotonic - self->monotonic, 1), &next))
    return last;
  return std::max(now, next);
}

static void vek_web_history_flush(VekMetricReporter *reporter) {
  auto *self = vekin::as<VekWebHistory>(reporter);
  vekin::MutexLock held(self->lock);
  if (self->n_passes == 0)
    return;
  gint64 monotonic = g_get_monotonic_time();
  gint64 time = get_next_time(self, monotonic);
  g_array_append_val(self->times, time);
  self->monotonic = monotonic;
  self->pass++;
  drop_passes(self);
  if (self->source)
    g_source_set_ready_time(self->source, 0);
}

static void vek_web_history_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_web_history_process_count;
  iface->process_value = vek_web_history_process_value;
  iface->process_timeline_samples = vek_web_history_process_timeline_samples;
  iface->process_aggregated = vek_web_history_process_aggregated;
  iface->flush = vek_web_history_flush;
}

static void vek_web_history_finalize(GObject *object) {
  auto *self = VEK_WEB_HISTORY(object);
  g_clear_pointer(&self->source, g_source_unref);
  g_ptr_array_unref(self->batches);
  g_string_free(self->scratch, TRUE);
  g_hash_table_unref(self->table);
  g_array_unref(self->times);
  g_mutex_clear(&self->lock);
  g_free(self->start);

  G_OBJECT_CLASS(vek_web_history_parent_class)->finalize(object);
}

static void vek_web_history_class_init(VekWebHistoryClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = vek_web_history_finalize;
}

static void vek_web_history_init(VekWebHistory *self) {
  self->start = g_uuid_string_random();
  g_mutex_init(&self->lock);
  self->times = g_array_new(FALSE, FALSE, sizeof(gint64));
  self->table = g_hash_table_new_full(reinterpret_cast<GHashFunc>(g_string_hash),
                                      reinterpret_cast<GEqualFunc>(g_string_equal), nullptr,
                                      vekin::release_element<Series, series_unref>);
  self->scratch = g_string_new(nullptr);
  self->batches = g_ptr_array_new_with_free_func(vekin::release_element<Batch, batch_unref>);
}

namespace vekin::web {

VekWebHistory *history_new() {
  return VEK_WEB_HISTORY(g_object_new(VEK_WEB_TYPE_HISTORY, nullptr));
}

static void shrink_series(gpointer, gpointer series, gpointer n_passes) {
  series_shrink(as<Series>(series), *static_cast<guint *>(n_passes));
}

void history_set_n_passes(VekWebHistory *history, guint n_passes) {
  MutexLock held(history->lock);
  history->n_passes = n_passes;
  drop_passes(history);
  guint n_rows = n_passes + 1;  // one for the pass under way
  if (n_passes == 0) {
    g_hash_table_remove_all(history->table);
    g_ptr_array_set_size(history->batches, 0);
  } else {
    g_hash_table_foreach(history->table, shrink_series, &n_rows);
  }
}

guint history_get_n_passes(VekWebHistory *history) {
  MutexLock held(history->lock);
  return history->n_passes;
}

const char *history_get_start(const VekWebHistory *history) {
  return history->start;
}

guint64 history_get_pass(VekWebHistory *history) {
  MutexLock held(history->lock);
  return history->pass;
}

void history_set_source(VekWebHistory *history, GSource *source) {
  MutexLock held(history->lock);
  history->source = g_source_ref(source);
}

static gpointer ref_batch(gconstpointer batch, gpointer) {
  return batch_ref(static_cast<Batch *>(const_cast<gpointer>(batch)));
}

View history_get_view(VekWebHistory *history, guint64 after) {
  View view;
  MutexLock held(history->lock);
  view.end = history->pass + 1;
  guint n_passes = static_cast<guint>(
      std::min<guint64>(history->times->len, history->pass - std::min(after, history->pass)));
  view.first = view.end - n_passes;
  view.times = g_array_sized_new(FALSE, FALSE, sizeof(gint64), n_passes);
  g_array_append_vals(
      view.times, &g_array_index(history->times, gint64, history->times->len - n_passes), n_passes);

  view.series = g_ptr_array_new_full(g_hash_table_size(history->table),
                                     release_element<Series, series_unref>);
  GHashTableIter iter;
  gpointer series;
  g_hash_table_iter_init(&iter, history->table);
  while (g_hash_table_iter_next(&iter, nullptr, &series))
    g_ptr_array_add(view.series, series_ref(as<Series>(series)));

  view.batches = g_ptr_array_copy(history->batches, ref_batch, nullptr);
  return view;
}

void view_clear(View &view) {
  g_array_unref(view.times);
  g_ptr_array_unref(view.series);
  g_ptr_array_unref(view.batches);
}

void history_read(VekWebHistory *history, const View &view, const Series *series, guint figure,
                  gdouble *values) {
  MutexLock held(history->lock);
  for (guint64 pass = view.first; pass < view.end; pass++)
    *values++ = series_get(series, pass, figure);
}

}  // namespace vekin::web
