#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/store.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_FIXED_SIZE_STORE (vek_metric_fixed_size_store_get_type())

/**
 * VekMetricFixedSizeStore:
 *
 * Keeps the newest samples, up to a fixed number.
 *
 * A snapshot shows all of them and removes none, so a sample stays until enough newer ones have
 * come, which may take days. For latencies, use a [class@MetricFixedTimeStore].
 *
 * Memory is allocated once, 8 bytes a sample. Ranges are not supported.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricFixedSizeStore, vek_metric_fixed_size_store, VEK,
                     METRIC_FIXED_SIZE_STORE, VekMetricStore)

/**
 * VekMetricFixedSizeStore:window-size:
 *
 * The largest number of samples that are kept.
 */

/**
 * vek_metric_fixed_size_store_new:
 * @window_size: the number of samples to keep, from 1 to 2^29 - 1, as a snapshot takes no more
 *
 * Creates a store of the newest @window_size samples. GObject rejects 0 with a warning; the store
 * then has no room, and adding a sample ends the process.
 *
 * Returns: (transfer full) (type VekMetricFixedSizeStore): a new store
 */
VEK_EXPORT
VekMetricStore *vek_metric_fixed_size_store_new(guint window_size);

G_END_DECLS
