#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/registry.h>
#include <vekmetrics/snapshot.h>
#include <vekmetrics/store.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_HISTOGRAM (vek_metric_histogram_get_type())

/**
 * VekMetricHistogram:
 *
 * A distribution of samples, kept in a store. The store decides which samples are reported: the
 * newest, up to a fixed number, or those of a recent span of time.
 *
 * A report passes on a snapshot of the samples that the store holds. Its number of samples is not a
 * number of events: with the default store it stops at 60, however many there were, and the next
 * report may show the same samples again. Use a [class@MetricCounter] to count events.
 *
 * For latencies and other figures whose rate varies, use a [class@MetricFixedTimeStore]: the last
 * 60 samples may span a millisecond or a day. Any thread may call any operation.
 */
VEK_EXPORT
G_DECLARE_DERIVABLE_TYPE(VekMetricHistogram, vek_metric_histogram, VEK, METRIC_HISTOGRAM, VekMetric)

/**
 * VekMetricHistogram:store:
 *
 * Where the samples are kept; %NULL at construction makes a store of the newest 60.
 */

/**
 * VekMetricHistogramClass:
 * @parent_class: the parent class
 *
 * The class structure of [class@MetricHistogram].
 */
struct _VekMetricHistogramClass {
  VekMetricClass parent_class;
};

/**
 * vek_metric_histogram_set:
 * @histogram: a histogram
 * @value: the sample, in the histogram's unit
 *
 * Adds one sample to the store.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_histogram_set(VekMetricHistogram *histogram, gdouble value);

/**
 * vek_metric_histogram_get_snapshot:
 * @histogram: a histogram
 *
 * Takes a snapshot of the samples in the store.
 *
 * Returns: (transfer full) (nullable): a new snapshot; %NULL after a failed check
 */
VEK_EXPORT
VekMetricSnapshot *vek_metric_histogram_get_snapshot(VekMetricHistogram *histogram);

/**
 * vek_metric_registry_histogram_new:
 * @registry: a registry
 * @name: the histogram's name
 * @unit: (nullable): free text; it is not part of the key
 * @store: (nullable) (transfer none): a store of samples; %NULL for the newest 60
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values; copied
 *
 * Creates a histogram, or returns the metric that already has its key, with its own store. That
 * metric may be inactive or of another kind: see [class@MetricRegistry].
 *
 * Returns: (transfer full) (nullable): the histogram; %NULL after a failed check
 */
VEK_EXPORT
VekMetricHistogram *vek_metric_registry_histogram_new(VekMetricRegistry *registry,
                                                      const gchar *name, const gchar *unit,
                                                      VekMetricStore *store, gchar **dimensions);

G_END_DECLS
