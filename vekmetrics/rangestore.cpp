#include "rangestore.h"

#include "common/internal.hpp"

struct _VekMetricRangeStore {
  VekMetricStore parent_instance;

  GMutex lock;     // guards the field below
  GSList *ranges;  // of VekMetricRange, the newest first
};
static_assert(vekin::ZeroFillable<VekMetricRangeStore>);

G_DEFINE_TYPE(VekMetricRangeStore, vek_metric_range_store, VEK_TYPE_METRIC_STORE)

static void vek_metric_range_store_finalize(GObject *object) {
  auto *self = vekin::as<VekMetricRangeStore>(object);
  g_mutex_clear(&self->lock);
  g_slist_free_full(self->ranges, g_free);

  G_OBJECT_CLASS(vek_metric_range_store_parent_class)->finalize(object);
}

static void vek_metric_range_store_add_range(VekMetricStore *store, gint id, gint64 start,
                                             gint64 end) {
  auto *self = vekin::as<VekMetricRangeStore>(store);
  vekin::MutexLock held(self->lock);
  auto *range = g_new(VekMetricRange, 1);
  *range = {.id = id, .start = start, .end = end};
  self->ranges = g_slist_prepend(self->ranges, range);
}

static void vek_metric_range_store_class_init(VekMetricRangeStoreClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = vek_metric_range_store_finalize;
  VEK_METRIC_STORE_CLASS(klass)->add_range = vek_metric_range_store_add_range;
}

static void vek_metric_range_store_init(VekMetricRangeStore *self) {
  g_mutex_init(&self->lock);
}

VekMetricStore *vek_metric_range_store_new(void) {
  return VEK_METRIC_STORE(g_object_new(VEK_TYPE_METRIC_RANGE_STORE, nullptr));
}

GSList *vek_metric_range_store_move_data(VekMetricRangeStore *store) {
  vekin::MutexLock held(store->lock);
  return g_steal_pointer(&store->ranges);
}
