#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_SNAPSHOT (vek_metric_snapshot_get_type())

/**
 * VekMetricSnapshot:
 *
 * The samples of a store at one moment, in ascending order, with their statistics.
 *
 * A snapshot is reference-counted and immutable, so any number of threads may read it. All figures
 * are in the unit of the samples. A sample that is not a number compares equal to every other, so
 * the order of samples is undefined if there is one.
 */
typedef struct _VekMetricSnapshot VekMetricSnapshot;

VEK_EXPORT
GType vek_metric_snapshot_get_type(void) G_GNUC_CONST;

/**
 * vek_metric_snapshot_new: (constructor)
 * @samples: (nullable) (array length=n_samples): the samples, in any order; copied
 * @n_samples: the number of samples, below 2^29: their size in bytes must fit into 32 bits
 *
 * Copies and sorts the samples, and records the current wall-clock time. If @samples is %NULL and
 * @n_samples is not 0, the snapshot has that number of samples and statistics of 0.
 *
 * Returns: (transfer full): a new snapshot with one reference
 */
VEK_EXPORT
VekMetricSnapshot *vek_metric_snapshot_new(const gdouble *samples, gsize n_samples);

/**
 * vek_metric_snapshot_ref:
 * @snapshot: a snapshot
 *
 * Takes a reference.
 *
 * Returns: (transfer full): @snapshot; %NULL after a failed check
 */
VEK_EXPORT
VekMetricSnapshot *vek_metric_snapshot_ref(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_unref:
 * @snapshot: (transfer full): a snapshot
 *
 * Drops a reference; the last one frees the snapshot. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_snapshot_unref(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_get_time:
 * @snapshot: a snapshot
 *
 * Gets the time when the snapshot was taken. The samples may be older.
 *
 * Returns: wall-clock microseconds since the Unix epoch; 0 after a failed check
 */
VEK_EXPORT
gint64 vek_metric_snapshot_get_time(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_get_n_samples:
 * @snapshot: a snapshot
 *
 * Gets the number of samples, which the store limits: it is not a number of events.
 *
 * Returns: the number given at creation; 0 after a failed check
 */
VEK_EXPORT
gsize vek_metric_snapshot_get_n_samples(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_get_sum:
 * @snapshot: a snapshot
 *
 * Gets the sum of the samples, added from the smallest to the largest.
 *
 * Returns: the sum; 0.0 without samples and after a failed check
 */
VEK_EXPORT
gdouble vek_metric_snapshot_get_sum(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_get_average:
 * @snapshot: a snapshot
 *
 * Gets the arithmetic mean: the sum divided by the number of samples.
 *
 * Returns: the average; 0.0 without samples and after a failed check
 */
VEK_EXPORT
gdouble vek_metric_snapshot_get_average(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_get_min:
 * @snapshot: a snapshot
 *
 * Gets the smallest sample.
 *
 * Returns: the minimum; 0.0 without samples and after a failed check
 */
VEK_EXPORT
gdouble vek_metric_snapshot_get_min(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_get_max:
 * @snapshot: a snapshot
 *
 * Gets the largest sample.
 *
 * Returns: the maximum; 0.0 without samples and after a failed check
 */
VEK_EXPORT
gdouble vek_metric_snapshot_get_max(VekMetricSnapshot *snapshot);

/**
 * vek_metric_snapshot_get_quantile:
 * @snapshot: a snapshot
 * @q: the fraction of the samples that are smaller, from 0 to 1
 *
 * Gets a quantile by linear interpolation. The samples are numbered from 0 in ascending order, the
 * position is @q times the last number, and the value between two samples is interpolated.
 *
 * Below position 1, the value is the smallest sample and not interpolated: of two samples, every @q
 * below 1 gives the smaller.
 *
 * Returns: the quantile; 0.0 without samples, and after a failed check, as when @q is out of range
 *   or not a number
 */
VEK_EXPORT
gdouble vek_metric_snapshot_get_quantile(VekMetricSnapshot *snapshot, gdouble q);

G_DEFINE_AUTOPTR_CLEANUP_FUNC(VekMetricSnapshot, vek_metric_snapshot_unref)

G_END_DECLS
