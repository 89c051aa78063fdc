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
 * A snapshot shows them all and removes none. Memory is taken once, 8 bytes a sample. Ranges are
 * not supported.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricFixedSizeStore, vek_metric_fixed_size_store, VEK,
                     METRIC_FIXED_SIZE_STORE, VekMetricStore)

/**
 * VekMetricFixedSizeStore:window-size:
 *
 * How many samples are kept at the most.
 */

/**
 * vek_metric_fixed_size_store_new:
 * @window_size: how many samples to keep, at least 1
 *
 * Makes a store of the newest @window_size samples. GObject refuses 0 with a warning; the store
 * then has room for none, and adding a sample ends the process.
 *
 * Returns: (transfer full) (type VekMetricFixedSizeStore): a new store
 */
VEK_EXPORT
VekMetricStore *vek_metric_fixed_size_store_new(guint window_size);

G_END_DECLS
