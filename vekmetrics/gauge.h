#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/registry.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_GAUGE (vek_metric_gauge_get_type())

/**
 * VekMetricGauge:
 *
 * One value that is set outright or added to.
 *
 * Without an interval a gauge reports its value at every pass. With one, time is divided into
 * intervals that are aligned to the Unix epoch, and each boundary is reported once, with the value
 * that stood when the interval began. Values added within an interval then give the sum of the
 * interval: the first addition that finds a new interval begun starts again from 0. If a report, a
 * read or a set has found it first, the sum carries on.
 *
 * A gauge that was never changed reports nothing. Any thread may call any operation.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricGauge, vek_metric_gauge, VEK, METRIC_GAUGE, VekMetric)

/**
 * VekMetricGauge:interval:
 *
 * The length of an interval in microseconds; 0 for none.
 */

/**
 * vek_metric_gauge_set_value:
 * @gauge: a gauge
 * @value: the new value
 *
 * Replaces the value.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_gauge_set_value(VekMetricGauge *gauge, gdouble value);

/**
 * vek_metric_gauge_add_value:
 * @gauge: a gauge
 * @value: what to add; may be negative
 *
 * Adds to the value; with an interval, to the sum of the interval.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_gauge_add_value(VekMetricGauge *gauge, gdouble value);

/**
 * vek_metric_gauge_get_value:
 * @gauge: a gauge
 * @time: (out) (optional): where to store the time of the value, in wall-clock microseconds since
 *   the Unix epoch: now, or with an interval its beginning; 0 if there is no value. Left alone
 *   after a failed check
 *
 * Gets the value that a report would carry now.
 *
 * Returns: the value; 0.0 if the gauge was never changed, or with an interval not after the
 *   beginning of the one before; 0.0 after a failed check
 */
VEK_EXPORT
gdouble vek_metric_gauge_get_value(VekMetricGauge *gauge, gint64 *time);

/**
 * vek_metric_gauge_get_last_change_time:
 * @gauge: a gauge
 *
 * Gets when the value was last set or added to.
 *
 * Returns: wall-clock microseconds since the Unix epoch; 0 if it never was, and after a failed
 *   check
 */
VEK_EXPORT
gint64 vek_metric_gauge_get_last_change_time(VekMetricGauge *gauge);

/**
 * vek_metric_registry_gauge_new:
 * @registry: a registry
 * @name: the gauge's name
 * @unit: (nullable): free text; it is not part of the key
 * @interval: the length of an interval in microseconds, or 0 for none; GObject refuses a negative
 *   one with a warning, which leaves none
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values; copied
 *
 * Makes a gauge, or gets the metric that the registry already has under the key, with its own
 * interval. One of another kind is returned as it is, after GObject's warning of an invalid cast.
 *
 * Returns: (transfer full) (nullable): the gauge; %NULL after a failed check
 */
VEK_EXPORT
VekMetricGauge *vek_metric_registry_gauge_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, gint64 interval,
                                              gchar **dimensions);

G_END_DECLS
