#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_TIMELINE_REPORTER (vek_metric_timeline_reporter_get_type())

/**
 * VekMetricTimelineReporter:
 *
 * Appends a line to a CSV file for each range of a timeline: the letter F, the timeline's name, and
 * the range's id, start and end. In each pass, the newest range of a timeline comes first.
 *
 * No other kind of metric is written. The file is opened once, at construction. If that fails, a
 * message is printed to standard error and nothing is written. All calls must be made on the thread
 * that runs the passes.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricTimelineReporter, vek_metric_timeline_reporter, VEK,
                     METRIC_TIMELINE_REPORTER, GObject)

/**
 * VekMetricTimelineReporter:basename:
 *
 * The file's name without its ".csv".
 */

/**
 * VekMetricTimelineReporter:dirname:
 *
 * The file's directory.
 */

/**
 * vek_metric_timeline_reporter_new:
 * @basename: (nullable) (type filename): the file's name without its ".csv"
 * @dirname: (nullable) (type filename): its directory, created if it is missing
 *
 * Creates a timeline reporter and opens its file. Without a name or a directory, nothing is
 * written.
 *
 * Returns: (transfer full) (type VekMetricTimelineReporter): a new reporter
 */
VEK_EXPORT
VekMetricReporter *vek_metric_timeline_reporter_new(const gchar *basename, const gchar *dirname);

G_END_DECLS
