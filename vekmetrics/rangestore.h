#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/store.h>

G_BEGIN_DECLS

/**
 * VekMetricRange:
 * @id: an integer that identifies the range
 * @start: its first bound
 * @end: its second bound
 *
 * One range of a timeline: three numbers as the application gave them. The bounds have no unit, and
 * the end may lie before the start.
 *
 * Free a range with `g_free()`.
 */
typedef struct {
  gint id;
  gint64 start;
  gint64 end;
} VekMetricRange;

G_DEFINE_AUTOPTR_CLEANUP_FUNC(VekMetricRange, g_free)

#define VEK_TYPE_METRIC_RANGE_STORE (vek_metric_range_store_get_type())

/**
 * VekMetricRangeStore:
 *
 * Collects ranges until all of them are moved out. There is no limit to their number.
 *
 * Samples and snapshots are not supported.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricRangeStore, vek_metric_range_store, VEK, METRIC_RANGE_STORE,
                     VekMetricStore)

/**
 * vek_metric_range_store_new:
 *
 * Creates an empty store.
 *
 * Returns: (transfer full) (type VekMetricRangeStore): a new store
 */
VEK_EXPORT
VekMetricStore *vek_metric_range_store_new(void);

/**
 * vek_metric_range_store_move_data:
 * @store: a range store; not checked
 *
 * Moves all ranges out of the store, in constant time.
 *
 * Returns: (transfer full) (nullable) (element-type VekMetricRange): the ranges, the newest first;
 *   free them with `g_slist_free_full (list, g_free)`; %NULL if there are none
 */
VEK_EXPORT
GSList *vek_metric_range_store_move_data(VekMetricRangeStore *store);

G_END_DECLS
