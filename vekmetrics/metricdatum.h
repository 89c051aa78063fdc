#pragma once

#include <glib-object.h>
#include <vekmetrics/dimension.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_DATUM (vek_metric_datum_get_type())

/**
 * VekMetricDatum:
 *
 * One data point: a metric's name, up to ten dimensions, a time, a unit, and a value, statistics
 * of samples, or both.
 *
 * Fill a datum right after creation, calling each setter once, and only read it from then on. The
 * reference count is atomic; nothing else is guarded.
 */
typedef struct _VekMetricDatum VekMetricDatum;

VEK_EXPORT
GType vek_metric_datum_get_type(void) G_GNUC_CONST;

/**
 * vek_metric_datum_new: (constructor)
 * @metric_name: (nullable): the metric's name; copied
 *
 * Creates a data point with a name only.
 *
 * Returns: (transfer full): a new datum with one reference
 */
VEK_EXPORT
VekMetricDatum *vek_metric_datum_new(const gchar *metric_name);

/**
 * vek_metric_datum_ref:
 * @datum: a datum
 *
 * Takes a reference.
 *
 * Returns: (transfer full): @datum; %NULL after a failed check
 */
VEK_EXPORT
VekMetricDatum *vek_metric_datum_ref(VekMetricDatum *datum);

/**
 * vek_metric_datum_unref:
 * @datum: (transfer full): a datum
 *
 * Drops a reference; the last one frees the datum. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_datum_unref(VekMetricDatum *datum);

/**
 * vek_metric_datum_get_metric_name:
 * @datum: a datum
 *
 * Gets the metric's name.
 *
 * Returns: (transfer none) (nullable): the name, owned by the datum; %NULL after a failed check
 */
VEK_EXPORT
const gchar *vek_metric_datum_get_metric_name(VekMetricDatum *datum);

/**
 * vek_metric_datum_get_dimensions:
 * @datum: a datum
 * @n_dimensions: (out): where to store their number, not %NULL; unchanged after a failed
 *   check
 *
 * Gets the dimensions.
 *
 * Returns: (transfer none) (nullable) (array length=n_dimensions): the datum's own array; %NULL if
 *   it has no dimensions, and after a failed check
 */
VEK_EXPORT
VekMetricDimension **vek_metric_datum_get_dimensions(VekMetricDatum *datum, guint *n_dimensions);

/**
 * vek_metric_datum_set_dimensions:
 * @datum: a datum
 * @dimensions: (array length=n_dimensions) (transfer none): the dimensions
 * @n_dimensions: their number, from 1 to 10
 *
 * Sets the dimensions; the datum takes a reference to each. Call it once: the dimensions of an
 * earlier call stay allocated, as callers may have borrowed them.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_datum_set_dimensions(VekMetricDatum *datum, VekMetricDimension **dimensions,
                                     guint n_dimensions);

/**
 * vek_metric_datum_get_timestamp:
 * @datum: a datum
 *
 * Gets the time.
 *
 * Returns: microseconds since the Unix epoch; 0 if it was not set, and after a failed check
 */
VEK_EXPORT
gint64 vek_metric_datum_get_timestamp(VekMetricDatum *datum);

/**
 * vek_metric_datum_set_timestamp:
 * @datum: a datum
 * @timestamp: microseconds since the Unix epoch
 *
 * Sets the time.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_datum_set_timestamp(VekMetricDatum *datum, gint64 timestamp);

/**
 * vek_metric_datum_get_unit:
 * @datum: a datum
 *
 * Gets the unit.
 *
 * Returns: (transfer none) (nullable): the unit, owned by the datum; %NULL if it was not set, and
 *   after a failed check
 */
VEK_EXPORT
const gchar *vek_metric_datum_get_unit(VekMetricDatum *datum);

/**
 * vek_metric_datum_set_unit:
 * @datum: a datum
 * @unit: (nullable): the unit; copied
 *
 * Sets the unit. Call it once: the unit of an earlier call stays allocated, as callers may have
 * borrowed it.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_datum_set_unit(VekMetricDatum *datum, const gchar *unit);

/**
 * vek_metric_datum_get_value:
 * @datum: a datum
 *
 * Gets the value.
 *
 * Returns: the value; 0.0 if it was not set, and after a failed check
 */
VEK_EXPORT
gdouble vek_metric_datum_get_value(VekMetricDatum *datum);

/**
 * vek_metric_datum_set_value:
 * @datum: a datum
 * @value: the value, limited to ±2.348543e108; not-a-number is stored as it is
 *
 * Sets the value.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_datum_set_value(VekMetricDatum *datum, gdouble value);

/**
 * vek_metric_datum_get_value_set:
 * @datum: a datum
 *
 * Checks whether the value was set.
 *
 * Returns: %TRUE once it was; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_metric_datum_get_value_set(VekMetricDatum *datum);

/**
 * vek_metric_datum_get_statistic_values:
 * @datum: a datum
 * @sample_count: (out): where to store the number of samples
 * @sum: (out): where to store their sum
 * @minimum: (out): where to store the smallest
 * @maximum: (out): where to store the largest
 *
 * Gets the statistics, which are 0 if they were not set. After a failed check nothing is stored. No
 * pointer may be %NULL.
 */
VEK_EXPORT
void vek_metric_datum_get_statistic_values(VekMetricDatum *datum, guint64 *sample_count,
                                           gdouble *sum, gdouble *minimum, gdouble *maximum);

/**
 * vek_metric_datum_set_statistic_values:
 * @datum: a datum
 * @sample_count: the number of samples
 * @sum: their sum
 * @minimum: the smallest
 * @maximum: the largest
 *
 * Sets the statistics, which are not checked.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_datum_set_statistic_values(VekMetricDatum *datum, guint64 sample_count, gdouble sum,
                                           gdouble minimum, gdouble maximum);

/**
 * vek_metric_datum_get_statistic_values_set:
 * @datum: a datum
 *
 * Checks whether the statistics were set.
 *
 * Returns: %TRUE once they were; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_metric_datum_get_statistic_values_set(VekMetricDatum *datum);

G_DEFINE_AUTOPTR_CLEANUP_FUNC(VekMetricDatum, vek_metric_datum_unref)

G_END_DECLS
