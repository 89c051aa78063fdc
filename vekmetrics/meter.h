#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/registry.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_METER (vek_metric_meter_get_type())

/**
 * VekMetricMeter:
 *
 * The rate at which something arrives, per second: events, or bytes when each mark says how many.
 *
 * The rate is a moving average. It is brought up to date by marks and reads themselves, once more
 * than a sampling period has passed: the new rate is the old one plus `alpha` times the difference
 * between the rate since the last time and the old one, where `alpha` is the time elapsed divided
 * by the time constant. This weight is linear and not limited to 1, so after a long silence the
 * rate overshoots; it never becomes negative.
 *
 * The first mark only starts the clock and is not counted. Any thread may call any operation.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricMeter, vek_metric_meter, VEK, METRIC_METER, VekMetric)

/**
 * VekMetricMeter:time-constant:
 *
 * Over how many microseconds the moving average forgets; at least 1,000,000. A registry's meters
 * have 60,000,000, which is the default.
 */

/**
 * VekMetricMeter:sampling-period:
 *
 * How many microseconds pass at least between two updates of the rate; at least 1. A registry's
 * meters have 1,000,000, which is the default.
 */

/**
 * vek_metric_meter_mark:
 * @meter: a meter
 * @value: how much arrived, at least 0
 *
 * Counts what arrived, except for the first mark, which only starts the clock.
 *
 * Does nothing after a failed check, as when @value is negative or not a number.
 */
VEK_EXPORT
void vek_metric_meter_mark(VekMetricMeter *meter, gdouble value);

/**
 * vek_metric_meter_get_rate:
 * @meter: a meter
 *
 * Gets the moving rate, brought up to date if that is due. While another thread holds the meter,
 * the rate is returned as it stands. A read before any mark starts the clock.
 *
 * Returns: the rate per second; 0.0 after a failed check
 */
VEK_EXPORT
gdouble vek_metric_meter_get_rate(VekMetricMeter *meter);

/**
 * vek_metric_meter_get_total:
 * @meter: a meter
 *
 * Gets the sum of all counted marks.
 *
 * Returns: the total; 0.0 after a failed check
 */
VEK_EXPORT
gdouble vek_metric_meter_get_total(VekMetricMeter *meter);

/**
 * vek_metric_meter_get_time:
 * @meter: a meter
 *
 * Gets when the rate was last brought up to date; at first, when the meter was made.
 *
 * Returns: wall-clock microseconds since the Unix epoch; 0 after a failed check
 */
VEK_EXPORT
gint64 vek_metric_meter_get_time(VekMetricMeter *meter);

/**
 * vek_metric_registry_meter_new:
 * @registry: a registry
 * @name: the meter's name
 * @unit: (nullable): free text; it is not part of the key
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values; copied
 *
 * Makes a meter with a time constant of 60 seconds and a sampling period of 1 second, or gets the
 * metric that the registry already has under the key. One of another kind is returned as it is,
 * after GObject's warning of an invalid cast.
 *
 * Returns: (transfer full) (nullable): the meter; %NULL after a failed check
 */
VEK_EXPORT
VekMetricMeter *vek_metric_registry_meter_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, gchar **dimensions);

G_END_DECLS
