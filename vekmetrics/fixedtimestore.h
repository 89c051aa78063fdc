#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/store.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_FIXED_TIME_STORE (vek_metric_fixed_time_store_get_type())

/**
 * VekMetricFixedTimeStore:
 *
 * Keeps the samples of a recent span of time, up to a fixed number. This is the store for
 * latencies: a report shows how things were lately, whether much happened or little.
 *
 * Ages are measured on the monotonic clock. A snapshot discards the samples that are too old; a
 * sample whose age is exactly the window stays only if it is the newest. The first sample after
 * such a snapshot is stored one slot further: the slot before it counts an old sample again, and
 * the newest sample shows only once another is added.
 *
 * Memory is allocated once, 16 bytes a sample. Ranges are not supported.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricFixedTimeStore, vek_metric_fixed_time_store, VEK,
                     METRIC_FIXED_TIME_STORE, VekMetricStore)

/**
 * VekMetricFixedTimeStore:time-window:
 *
 * The greatest age of a sample in microseconds.
 */

/**
 * VekMetricFixedTimeStore:max-size:
 *
 * The largest number of samples that are kept.
 */

/**
 * vek_metric_fixed_time_store_new:
 * @time_window: the greatest age of a sample in microseconds, at least 1,000,000
 * @max_size: the largest number of samples to keep, from 1 to 2^29 - 1: their size in bytes must
 *   fit into 32 bits
 *
 * Creates a store of the samples of the last @time_window. GObject rejects numbers below the limits
 * with a warning. If @time_window was rejected, a snapshot shows only samples of that moment. If
 * @max_size was rejected, the store has no room, and adding a sample ends the process.
 *
 * Returns: (transfer full) (type VekMetricFixedTimeStore): a new store
 */
VEK_EXPORT
VekMetricStore *vek_metric_fixed_time_store_new(gint64 time_window, guint max_size);

G_END_DECLS
