#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/snapshot.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_STORE (vek_metric_store_get_type())

/**
 * VekMetricStore:
 *
 * The base of all stores, which keep the samples or ranges of a metric.
 *
 * A store sets the operations that it supports. Calling an operation that its class does not set
 * ends the process. Histograms and timers call `add` and `get_snapshot`, timelines `add_range`.
 *
 * Any thread may call any operation. A store of an application must be thread-safe too.
 */
VEK_EXPORT
G_DECLARE_DERIVABLE_TYPE(VekMetricStore, vek_metric_store, VEK, METRIC_STORE, GObject)

/**
 * VekMetricStoreClass:
 * @parent_class: the parent class
 * @add: records one sample
 * @add_range: records one range
 * @get_snapshot: returns a new snapshot of the samples
 *
 * The class structure of [class@MetricStore]. No operation is set by default.
 */
struct _VekMetricStoreClass {
  GObjectClass parent_class;

  /**
   * VekMetricStoreClass::add:
   * @store: a store
   * @value: the sample
   *
   * Records one sample.
   */
  void (*add)(VekMetricStore *store, gdouble value);

  /**
   * VekMetricStoreClass::add_range:
   * @store: a store
   * @id: an integer that identifies the range
   * @start: its first bound
   * @end: its second bound
   *
   * Records one range.
   */
  void (*add_range)(VekMetricStore *store, gint id, gint64 start, gint64 end);

  /**
   * VekMetricStoreClass::get_snapshot:
   * @store: a store
   *
   * Takes a snapshot of the samples.
   *
   * Returns: (transfer full): a new snapshot, never %NULL: the reporters of the library require
   *   one
   */
  VekMetricSnapshot *(*get_snapshot)(VekMetricStore *store);
};

/**
 * vek_metric_store_add:
 * @store: a store of samples
 * @value: the sample, in the unit of the metric; not checked
 *
 * Records one sample.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_store_add(VekMetricStore *store, gdouble value);

/**
 * vek_metric_store_add_range:
 * @store: a store of ranges
 * @id: an integer that identifies the range
 * @start: its first bound
 * @end: its second bound
 *
 * Records one range. The numbers are not checked.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_store_add_range(VekMetricStore *store, gint id, gint64 start, gint64 end);

/**
 * vek_metric_store_get_snapshot:
 * @store: a store of samples
 *
 * Takes a snapshot of the samples that the store holds.
 *
 * Returns: (transfer full) (nullable): a new snapshot; %NULL after a failed check
 */
VEK_EXPORT
VekMetricSnapshot *vek_metric_store_get_snapshot(VekMetricStore *store);

G_END_DECLS
