#include "dimension.h"

#include "common/internal.hpp"

struct _VekMetricDimension {
  int ref_count;  // changed only atomically
  char *name;
  char *value;
};

G_DEFINE_BOXED_TYPE(VekMetricDimension, vek_metric_dimension, vek_metric_dimension_ref,
                    vek_metric_dimension_unref)

VekMetricDimension *vek_metric_dimension_new(const gchar *name, const gchar *value) {
  auto *dimension = g_slice_new(VekMetricDimension);
  *dimension = {.ref_count = 1, .name = g_strdup(name), .value = g_strdup(value)};
  return dimension;
}

VekMetricDimension *vek_metric_dimension_ref(VekMetricDimension *dimension) {
  vek_return_val_if_fail(dimension != NULL, nullptr);

  g_atomic_int_inc(&dimension->ref_count);
  return dimension;
}

void vek_metric_dimension_unref(VekMetricDimension *dimension) {
  vek_return_if_fail(dimension != NULL);

  if (!g_atomic_int_dec_and_test(&dimension->ref_count))
    return;
  g_free(dimension->name);
  g_free(dimension->value);
  g_slice_free(VekMetricDimension, dimension);
}

const gchar *vek_metric_dimension_get_name(VekMetricDimension *dimension) {
  vek_return_val_if_fail(dimension != NULL, nullptr);

  return dimension->name;
}

const gchar *vek_metric_dimension_get_value(VekMetricDimension *dimension) {
  vek_return_val_if_fail(dimension != NULL, nullptr);

  return dimension->value;
}
