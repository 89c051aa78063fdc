#pragma once

#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/rangestore.h>
#include <vekmetrics/registry.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_TIMELINE (vek_metric_timeline_get_type())

/**
 * VekMetricTimeline:
 *
 * Ranges of time or of anything else: what ran, from when to when.
 *
 * Each pass moves out the ranges that were added since the previous pass and hands them to its
 * reporters. A range is thus reported once, and lost if none of them is a
 * [class@MetricTimelineReporter] or another reporter of ranges. Ranges use memory until a pass
 * moves them out. Any thread may add ranges.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricTimeline, vek_metric_timeline, VEK, METRIC_TIMELINE, VekMetric)

/**
 * vek_metric_timeline_add_range:
 * @timeline: a timeline; not checked, and a metric of another kind may end the process
 * @id: an integer that identifies the range, such as the number of a worker
 * @start: its first bound, in any unit
 * @end: its second bound
 *
 * Adds one range. The numbers are not checked.
 */
VEK_EXPORT
void vek_metric_timeline_add_range(VekMetricTimeline *timeline, gint id, gint64 start, gint64 end);

/**
 * vek_metric_timeline_move_data:
 * @timeline: a timeline; only checked not to be %NULL, and a metric of another kind may end the
 *   process
 *
 * Moves all ranges out of the timeline. No pass reports them.
 *
 * Returns: (transfer full) (nullable) (element-type VekMetricRange): the ranges, the newest first;
 *   free them with `g_slist_free_full (list, g_free)`; %NULL if there are none, and after a failed
 *   check
 */
VEK_EXPORT
GSList *vek_metric_timeline_move_data(VekMetricTimeline *timeline);

/**
 * vek_metric_registry_timeline_new:
 * @registry: a registry
 * @name: the timeline's name; %NULL aborts the process
 *
 * Creates a timeline without dimensions, or returns the metric that already has its key, which may
 * be inactive or of another kind: see [class@MetricRegistry]. The operations of a timeline do not
 * check the kind: where the name may be taken, test the result with `VEK_IS_METRIC_TIMELINE()`.
 *
 * Returns: (transfer full) (nullable): the timeline; %NULL after a failed check
 */
VEK_EXPORT
VekMetricTimeline *vek_metric_registry_timeline_new(VekMetricRegistry *registry, const gchar *name);

G_END_DECLS
