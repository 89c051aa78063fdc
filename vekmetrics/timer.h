#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/histogram.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_TIMER (vek_metric_timer_get_type())

/**
 * VekMetricTimer:
 *
 * A histogram of durations, converted from microseconds to the timer's unit.
 *
 * The unit must be "Seconds", "Milliseconds" or "Microseconds". Any other unit, "ms" for example,
 * or none is logged as a warning at creation, and every sample is then infinite or not a number.
 *
 * A timer holds one start time, for one activity at a time. Activities that overlap measure their
 * own durations and pass them to [method@MetricTimer.set_usec], which any thread may call.
 *
 * The default store keeps the newest 60 durations, whenever they were recorded. For latencies, use
 * a [class@MetricFixedTimeStore].
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricTimer, vek_metric_timer, VEK, METRIC_TIMER, VekMetricHistogram)

/**
 * vek_metric_timer_start:
 * @timer: a timer
 *
 * Sets the start time to now. An earlier start is forgotten.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_timer_start(VekMetricTimer *timer);

/**
 * vek_metric_timer_stop:
 * @timer: a timer
 *
 * Adds the time since the start as one sample. The start time stays: another stop measures from it
 * again.
 *
 * Without a start this is not an error: the sample is the reading of the monotonic clock, on most
 * systems the time since the machine was started.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_timer_stop(VekMetricTimer *timer);

/**
 * vek_metric_timer_set_usec:
 * @timer: a timer
 * @usec: a duration in microseconds; a negative one is added as it is
 *
 * Adds a duration as one sample.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_timer_set_usec(VekMetricTimer *timer, gint64 usec);

/**
 * vek_metric_registry_timer_new:
 * @registry: a registry
 * @name: the timer's name
 * @unit: "Seconds", "Milliseconds" or "Microseconds"; anything else is logged as a warning
 * @store: (nullable) (transfer none): a store of samples; %NULL for the newest 60
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values; copied
 *
 * Creates a timer, or returns the metric that already has its key, with its own store and unit.
 * That metric may be inactive or of another kind: see [class@MetricRegistry].
 *
 * Returns: (transfer full) (nullable): the timer; %NULL after a failed check
 */
VEK_EXPORT
VekMetricTimer *vek_metric_registry_timer_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, VekMetricStore *store,
                                              gchar **dimensions);

G_END_DECLS
