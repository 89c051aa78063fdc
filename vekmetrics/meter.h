#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/registry.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_METER (vek_metric_meter_get_type())

/**
 * VekMetricMeter:
 *
 * The rate per second at which something arrives: events, or bytes if each mark says how many.
 *
 * The rate is a moving average. A mark or a read updates it if more than the sampling period has
 * passed since the last update: `alpha` times the difference between the rate since the last update
 * and the old rate is added to the old rate, where `alpha` is the time elapsed divided by the time
 * constant. The weight is linear and not limited to 1, so the rate overshoots after a long silence;
 * it never becomes negative.
 *
 * The first mark only starts the clock and is not counted: call `mark(0)` after creation to count
 * all that follows. Any thread may call any operation.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricMeter, vek_metric_meter, VEK, METRIC_METER, VekMetric)

/**
 * VekMetricMeter:time-constant:
 *
 * The time constant of the moving average in microseconds, at least 1,000,000. The meters of a
 * registry have the default, 60,000,000.
 */

/**
 * VekMetricMeter:sampling-period:
 *
 * The shortest time between two updates of the rate in microseconds, at least 1. The meters of a
 * registry have the default, 1,000,000.
 */

/**
 * vek_metric_meter_mark:
 * @meter: a meter
 * @value: how much arrived, at least 0
 *
 * Counts what arrived. The first mark only starts the clock and is not counted.
 *
 * Does nothing after a failed check, as when @value is negative or not a number.
 */
VEK_EXPORT
void vek_metric_meter_mark(VekMetricMeter *meter, gdouble value);

/**
 * vek_metric_meter_get_rate:
 * @meter: a meter
 *
 * Gets the moving rate, updated if an update is due and no other thread is using the meter. A read
 * before the first mark starts the clock.
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
 * Gets the time of the last update of the rate, or of creation if there was none.
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
 * Creates a meter with a time constant of 60 seconds and a sampling period of 1 second, or returns
 * the metric that already has its key, which may be inactive or of another kind: see
 * [class@MetricRegistry].
 *
 * Returns: (transfer full) (nullable): the meter; %NULL after a failed check
 */
VEK_EXPORT
VekMetricMeter *vek_metric_registry_meter_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, gchar **dimensions);

G_END_DECLS
