#include "metricdatum.h"

#include "common/internal.hpp"

static constexpr gdouble kMaxValue = 2.348543e108;

struct _VekMetricDatum {
  int ref_count;  // changed only atomically
  char *metric_name;
  GPtrArray *dimensions;  // of VekMetricDimension; NULL when not set
  gint64 timestamp;
  char *unit;
  gdouble value;
  gboolean value_set;
  guint64 sample_count;
  gdouble sum;
  gdouble minimum;
  gdouble maximum;
  gboolean statistic_values_set;
};

G_DEFINE_BOXED_TYPE(VekMetricDatum, vek_metric_datum, vek_metric_datum_ref, vek_metric_datum_unref)

VekMetricDatum *vek_metric_datum_new(const gchar *metric_name) {
  auto *datum = g_slice_new0(VekMetricDatum);
  datum->ref_count = 1;
  datum->metric_name = g_strdup(metric_name);
  return datum;
}

VekMetricDatum *vek_metric_datum_ref(VekMetricDatum *datum) {
  vek_return_val_if_fail(datum != NULL, nullptr);

  g_atomic_int_inc(&datum->ref_count);
  return datum;
}

void vek_metric_datum_unref(VekMetricDatum *datum) {
  vek_return_if_fail(datum != NULL);

  if (!g_atomic_int_dec_and_test(&datum->ref_count))
    return;
  g_free(datum->metric_name);
  g_clear_pointer(&datum->dimensions, g_ptr_array_unref);
  g_free(datum->unit);
  g_slice_free(VekMetricDatum, datum);
}

const gchar *vek_metric_datum_get_metric_name(VekMetricDatum *datum) {
  vek_return_val_if_fail(datum != NULL, nullptr);

  return datum->metric_name;
}

VekMetricDimension **vek_metric_datum_get_dimensions(VekMetricDatum *datum, guint *n_dimensions) {
  vek_return_val_if_fail(datum != NULL, nullptr);

  if (!datum->dimensions) {
    *n_dimensions = 0;
    return nullptr;
  }
  *n_dimensions = datum->dimensions->len;
  return reinterpret_cast<VekMetricDimension **>(datum->dimensions->pdata);
}

void vek_metric_datum_set_dimensions(VekMetricDatum *datum, VekMetricDimension **dimensions,
                                     guint n_dimensions) {
  vek_return_if_fail(datum != NULL);
  vek_return_if_fail(dimensions != NULL);
  vek_return_if_fail(n_dimensions > 0 && n_dimensions <= 10);

  // An earlier array is not released: its elements may have been borrowed.
  datum->dimensions = g_ptr_array_new_full(
      n_dimensions, vekin::release_element<VekMetricDimension, vek_metric_dimension_unref>);
  for (guint i = 0; i < n_dimensions; i++)
    g_ptr_array_add(datum->dimensions, vek_metric_dimension_ref(dimensions[i]));
}

gint64 vek_metric_datum_get_timestamp(VekMetricDatum *datum) {
  vek_return_val_if_fail(datum != NULL, 0);

  return datum->timestamp;
}

void vek_metric_datum_set_timestamp(VekMetricDatum *datum, gint64 timestamp) {
  vek_return_if_fail(datum != NULL);

  datum->timestamp = timestamp;
}

const gchar *vek_metric_datum_get_unit(VekMetricDatum *datum) {
  vek_return_val_if_fail(datum != NULL, nullptr);

  return datum->unit;
}

void vek_metric_datum_set_unit(VekMetricDatum *datum, const gchar *unit) {
  vek_return_if_fail(datum != NULL);

  datum->unit = g_strdup(unit);  // an earlier one is not released: it may have been borrowed
}

gdouble vek_metric_datum_get_value(VekMetricDatum *datum) {
  vek_return_val_if_fail(datum != NULL, 0.0);

  return datum->value;
}

void vek_metric_datum_set_value(VekMetricDatum *datum, gdouble value) {
  vek_return_if_fail(datum != NULL);

  datum->value = CLAMP(value, -kMaxValue, kMaxValue);
  datum->value_set = TRUE;
}

gboolean vek_metric_datum_get_value_set(VekMetricDatum *datum) {
  vek_return_val_if_fail(datum != NULL, FALSE);

  return datum->value_set;
}

void vek_metric_datum_get_statistic_values(VekMetricDatum *datum, guint64 *sample_count,
                                           gdouble *sum, gdouble *minimum, gdouble *maximum) {
  vek_return_if_fail(datum != NULL);

  *sample_count = datum->sample_count;
  *sum = datum->sum;
  *minimum = datum->minimum;
  *maximum = datum->maximum;
}

void vek_metric_datum_set_statistic_values(VekMetricDatum *datum, guint64 sample_count, gdouble sum,
                                           gdouble minimum, gdouble maximum) {
  vek_return_if_fail(datum != NULL);

  datum->sample_count = sample_count;
  datum->sum = sum;
  datum->minimum = minimum;
  datum->maximum = maximum;
  datum->statistic_values_set = TRUE;
}

gboolean vek_metric_datum_get_statistic_values_set(VekMetricDatum *datum) {
  vek_return_val_if_fail(datum != NULL, FALSE);

  return datum->statistic_values_set;
}
