#include "store.h"

#include "common/internal.hpp"

G_DEFINE_TYPE(VekMetricStore, vek_metric_store, G_TYPE_OBJECT)
VEK_QUICK_TYPE_TEST(METRIC_STORE, VekMetricStore, vek_metric_store)

static void vek_metric_store_class_init(VekMetricStoreClass *) {}

static void vek_metric_store_init(VekMetricStore *) {}

void vek_metric_store_add(VekMetricStore *store, gdouble value) {
  vek_return_if_fail(VEK_IS_METRIC_STORE(store));

  VEK_METRIC_STORE_GET_CLASS(store)->add(store, value);
}

void vek_metric_store_add_range(VekMetricStore *store, gint id, gint64 start, gint64 end) {
  vek_return_if_fail(VEK_IS_METRIC_STORE(store));

  VEK_METRIC_STORE_GET_CLASS(store)->add_range(store, id, start, end);
}

VekMetricSnapshot *vek_metric_store_get_snapshot(VekMetricStore *store) {
  vek_return_val_if_fail(VEK_IS_METRIC_STORE(store), nullptr);

  return VEK_METRIC_STORE_GET_CLASS(store)->get_snapshot(store);
}
