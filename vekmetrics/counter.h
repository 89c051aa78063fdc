#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/registry.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_COUNTER (vek_metric_counter_get_type())

/**
 * VekMetricCounter:
 *
 * A running total that goes up and down, with the time of its last change.
 *
 * A report passes on the total and never resets it, so a reader that misses a report loses nothing:
 * what came in a minute is the difference of two totals. A figure that is read rather than counted
 * belongs in a [class@MetricGauge]. Any thread may call any operation.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricCounter, vek_metric_counter, VEK, METRIC_COUNTER, VekMetric)

/**
 * vek_metric_counter_add:
 * @counter: a counter
 * @value: the number to add; may be negative, and 0 changes only the time
 *
 * Adds to the count, which wraps at 64 bits, and sets the counter's time to now.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_counter_add(VekMetricCounter *counter, gint64 value);

/**
 * vek_metric_counter_inc:
 * @counter: a counter
 *
 * Adds 1 to the count, as [method@MetricCounter.add] does.
 */
VEK_EXPORT
void vek_metric_counter_inc(VekMetricCounter *counter);

/**
 * vek_metric_counter_dec:
 * @counter: a counter
 *
 * Subtracts 1 from the count, as [method@MetricCounter.add] does.
 */
VEK_EXPORT
void vek_metric_counter_dec(VekMetricCounter *counter);

/**
 * vek_metric_counter_get_count:
 * @counter: a counter
 *
 * Gets the count.
 *
 * Returns: the running total; 0 after a failed check
 */
VEK_EXPORT
gint64 vek_metric_counter_get_count(VekMetricCounter *counter);

/**
 * vek_metric_counter_get_time:
 * @counter: a counter
 *
 * Gets the time of the last change, or of creation if there was none.
 *
 * Returns: wall-clock microseconds since the Unix epoch; 0 after a failed check
 */
VEK_EXPORT
gint64 vek_metric_counter_get_time(VekMetricCounter *counter);

/**
 * vek_metric_registry_counter_new:
 * @registry: a registry
 * @name: the counter's name
 * @unit: (nullable): free text; it is not part of the key
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values; copied
 *
 * Creates a counter, or returns the metric that already has its key, which may be inactive or of
 * another kind: see [class@MetricRegistry].
 *
 * Returns: (transfer full) (nullable): the counter; %NULL after a failed check
 */
VEK_EXPORT
VekMetricCounter *vek_metric_registry_counter_new(VekMetricRegistry *registry, const gchar *name,
                                                  const gchar *unit, gchar **dimensions);

G_END_DECLS
