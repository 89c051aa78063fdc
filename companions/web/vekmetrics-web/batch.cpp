#include "batch.hpp"

#include "common/internal.hpp"

#include <algorithm>

namespace vekin::web {

static constexpr guint64 kAbout = guint64{24 * 60 * 60} * G_USEC_PER_SEC;  // a day

static bool ends_about(const VekMetricRange &range, gint64 time) {
  auto [first, last] = std::minmax(range.end, time);
  return static_cast<guint64>(last) - static_cast<guint64>(first) <= kAbout;
}

Batch *batch_new(guint64 pass, const char *name, GSList *ranges) {
  auto *batch = g_new0(Batch, 1);
  batch->ref_count = 1;
  batch->pass = pass;
  batch->name = g_strdup(name);
  batch->is_wall = true;
  batch->n_ranges = std::min(g_slist_length(ranges), kMaxRanges);
  batch->ranges = g_new(VekMetricRange, batch->n_ranges);
  gint64 now = g_get_real_time();
  for (guint i = 0; i < batch->n_ranges; i++, ranges = ranges->next) {
    batch->ranges[i] = *as<VekMetricRange>(ranges->data);
    batch->is_wall &= ends_about(batch->ranges[i], now);
  }
  return batch;
}

Batch *batch_ref(Batch *batch) {
  g_atomic_int_inc(&batch->ref_count);
  return batch;
}

void batch_unref(Batch *batch) {
  if (!g_atomic_int_dec_and_test(&batch->ref_count))
    return;
  g_free(batch->name);
  g_free(batch->ranges);
  g_free(batch);
}

}  // namespace vekin::web
