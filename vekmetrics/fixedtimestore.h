#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/store.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_FIXED_TIME_STORE (vek_metric_fixed_time_store_get_type())

/**
 * VekMetricFixedTimeStore:
 *
 * Keeps the samples of a recent span of time, up to a fixed number.
 *
 * Ages are measured on the monotonic clock, and samples that have become too old are discarded
 * only when a snapshot is taken. One whose age is exactly the window stays only if it is the
 * newest. After a snapshot that discarded some, the next sample goes one slot past those that were
 * kept. The slot between still holds an old sample, and that counts again: the newest sample shows
 * only once another is added.
 *
 * Memory is taken once, 16 bytes a sample. Ranges are not supported.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricFixedTimeStore, vek_metric_fixed_time_store, VEK,
                     METRIC_FIXED_TIME_STORE, VekMetricStore)

/**
 * VekMetricFixedTimeStore:time-window:
 *
 * How old a sample may become, in microseconds.
 */

/**
 * VekMetricFixedTimeStore:max-size:
 *
 * How many samples are kept at the most.
 */

/**
 * vek_metric_fixed_time_store_new:
 * @time_window: how old a sample may become, in microseconds, at least 1,000,000
 * @max_size: how many samples to keep at the most, from 1 to 2^29 - 1
 *
 * Makes a store of the samples of the last @time_window. GObject refuses numbers below the limits
 * with a warning. A store whose @time_window was refused shows only samples of the moment in which
 * the snapshot is taken. One whose @max_size was refused has room for none, and adding a sample
 * ends the process.
 *
 * Returns: (transfer full) (type VekMetricFixedTimeStore): a new store
 */
VEK_EXPORT
VekMetricStore *vek_metric_fixed_time_store_new(gint64 time_window, guint max_size);

G_END_DECLS
