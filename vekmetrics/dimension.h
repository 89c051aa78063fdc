#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_DIMENSION (vek_metric_dimension_get_type())

/**
 * VekMetricDimension:
 *
 * An immutable, reference-counted pair of a name and a value.
 *
 * Metrics keep their dimensions as one flat vector of strings. These records are for code that
 * needs each pair as an object. Threads may share a record: its count is atomic.
 */
typedef struct _VekMetricDimension VekMetricDimension;

VEK_EXPORT
GType vek_metric_dimension_get_type(void) G_GNUC_CONST;

/**
 * vek_metric_dimension_new: (constructor)
 * @name: (nullable): the dimension's name
 * @value: (nullable): the dimension's value
 *
 * Creates a record with copies of both strings; %NULL is stored as %NULL.
 *
 * Returns: (transfer full): a new record with one reference
 */
VEK_EXPORT
VekMetricDimension *vek_metric_dimension_new(const gchar *name, const gchar *value);

/**
 * vek_metric_dimension_ref:
 * @dimension: a dimension
 *
 * Takes a reference.
 *
 * Returns: (transfer full): @dimension; %NULL after a failed check
 */
VEK_EXPORT
VekMetricDimension *vek_metric_dimension_ref(VekMetricDimension *dimension);

/**
 * vek_metric_dimension_unref:
 * @dimension: (transfer full): a dimension
 *
 * Drops a reference; the last one frees the record. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_dimension_unref(VekMetricDimension *dimension);

/**
 * vek_metric_dimension_get_name:
 * @dimension: a dimension
 *
 * Gets the name.
 *
 * Returns: (transfer none) (nullable): the name, owned by the record; %NULL after a failed check
 */
VEK_EXPORT
const gchar *vek_metric_dimension_get_name(VekMetricDimension *dimension);

/**
 * vek_metric_dimension_get_value:
 * @dimension: a dimension
 *
 * Gets the value.
 *
 * Returns: (transfer none) (nullable): the value, owned by the record; %NULL after a failed check
 */
VEK_EXPORT
const gchar *vek_metric_dimension_get_value(VekMetricDimension *dimension);

G_DEFINE_AUTOPTR_CLEANUP_FUNC(VekMetricDimension, vek_metric_dimension_unref)

G_END_DECLS
