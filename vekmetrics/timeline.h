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
 * Ranges as they happened: what ran, from when to when.
 *
 * Each report pass moves out all that was recorded since the pass before and hands it to the
 * reporters, so each range is reported exactly once, and to nobody if there is no reporter for it.
 * Any thread may add ranges.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricTimeline, vek_metric_timeline, VEK, METRIC_TIMELINE, VekMetric)

/**
 * vek_metric_timeline_add_range:
 * @timeline: a timeline; not checked
 * @id: an integer that identifies the range, such as the number of a worker
 * @start: its first bound, in a unit of the application's choice
 * @end: its second bound
 *
 * Records one range. The three numbers are neither compared nor changed.
 */
VEK_EXPORT
void vek_metric_timeline_add_range(VekMetricTimeline *timeline, gint id, gint64 start, gint64 end);

/**
 * vek_metric_timeline_move_data:
 * @timeline: a timeline
 *
 * Takes all the ranges out of the timeline; no pass will report them.
 *
 * Returns: (transfer full) (nullable) (element-type VekMetricRange): the ranges, the newest first,
 *   to be freed with `g_slist_free_full (list, g_free)`; %NULL if there are none, and after a
 *   failed check
 */
VEK_EXPORT
GSList *vek_metric_timeline_move_data(VekMetricTimeline *timeline);

/**
 * vek_metric_registry_timeline_new:
 * @registry: a registry
 * @name: the timeline's name; %NULL aborts the process
 *
 * Makes a timeline, or gets the metric that the registry already has under the name. One of
 * another kind is returned as it is, after GObject's warning of an invalid cast.
 *
 * Returns: (transfer full) (nullable): the timeline; %NULL after a failed check
 */
VEK_EXPORT
VekMetricTimeline *vek_metric_registry_timeline_new(VekMetricRegistry *registry, const gchar *name);

G_END_DECLS
