#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/registry.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_GAUGE (vek_metric_gauge_get_type())

/**
 * VekMetricGauge:
 *
 * A value that is set or added to.
 *
 * Without an interval, a gauge reports its value in every pass. With an interval, wall-clock time
 * is divided into intervals aligned to the Unix epoch, and each boundary is reported once, with the
 * value that the gauge had when the new interval began.
 *
 * Values that are only added then give the sum of each interval, but not reliably: the sum starts
 * again from 0 only if an addition is the first operation of the new interval. After a report, a
 * read or a set in the new interval, the old sum carries on. To know how much came in each minute,
 * use a [class@MetricCounter] and subtract.
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
 * Adds to the value. If this is the first operation of a new interval, the value starts from 0.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_gauge_add_value(VekMetricGauge *gauge, gdouble value);

/**
 * vek_metric_gauge_get_value:
 * @gauge: a gauge
 * @time: (out) (optional): where to store the time of the value, in wall-clock microseconds since
 *   the Unix epoch: now, or the beginning of the interval if there are intervals; 0 if
 *   there is no value. Unchanged after a failed check
 *
 * Gets the value that a report would pass on now. With an interval, this may begin the new
 * interval, and sums then carry on.
 *
 * Returns: the value; 0.0 if the gauge was never changed, or not since the beginning of the
 *   previous interval; 0.0 after a failed check
 */
VEK_EXPORT
gdouble vek_metric_gauge_get_value(VekMetricGauge *gauge, gint64 *time);

/**
 * vek_metric_gauge_get_last_change_time:
 * @gauge: a gauge
 *
 * Gets the time of the last change.
 *
 * Returns: wall-clock microseconds since the Unix epoch; 0 if there was none, and after a failed
 *   check
 */
VEK_EXPORT
gint64 vek_metric_gauge_get_last_change_time(VekMetricGauge *gauge);

/**
 * vek_metric_registry_gauge_new:
 * @registry: a registry
 * @name: the gauge's name
 * @unit: (nullable): free text; it is not part of the key
 * @interval: the length of an interval in microseconds, or 0 for none; GObject rejects a negative
 *   length with a warning, and the gauge has no interval
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values; copied
 *
 * Creates a gauge, or returns the metric that already has its key, with its own interval. That
 * metric may be inactive or of another kind: see [class@MetricRegistry].
 *
 * Returns: (transfer full) (nullable): the gauge; %NULL after a failed check
 */
VEK_EXPORT
VekMetricGauge *vek_metric_registry_gauge_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, gint64 interval,
                                              gchar **dimensions);

G_END_DECLS
