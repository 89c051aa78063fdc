#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/histogram.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_TIMER (vek_metric_timer_get_type())

/**
 * VekMetricTimer:
 *
 * A histogram of durations, converted from microseconds to the timer's unit: "Seconds",
 * "Milliseconds" or "Microseconds". With any other unit, durations are divided by zero.
 *
 * A timer holds one start time, for one activity at a time. Activities that overlap measure their
 * own durations and hand them to [method@MetricTimer.set_usec], which any thread may call.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricTimer, vek_metric_timer, VEK, METRIC_TIMER, VekMetricHistogram)

/**
 * vek_metric_timer_start:
 * @timer: a timer
 *
 * Makes now the start, in place of any earlier one.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_timer_start(VekMetricTimer *timer);

/**
 * vek_metric_timer_stop:
 * @timer: a timer
 *
 * Adds the time since the start as one sample. The start stays: another stop measures from it
 * again. Without any start, the time is that of the monotonic clock itself.
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
 * @unit: "Seconds", "Milliseconds" or "Microseconds"; anything else draws a warning
 * @store: (nullable) (transfer none): a store of samples; %NULL for one of the last 60
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values; copied
 *
 * Makes a timer, or gets the metric that the registry already has under the key, which then does
 * not use @store. One of another kind is returned as it is, after GObject's warning of an invalid
 * cast.
 *
 * Returns: (transfer full) (nullable): the timer; %NULL after a failed check
 */
VEK_EXPORT
VekMetricTimer *vek_metric_registry_timer_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, VekMetricStore *store,
                                              gchar **dimensions);

G_END_DECLS
