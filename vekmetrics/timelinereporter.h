#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_TIMELINE_REPORTER (vek_metric_timeline_reporter_get_type())

/**
 * VekMetricTimelineReporter:
 *
 * Appends the ranges of timelines to a CSV file, a line each: the letter F, the timeline's name,
 * the range's id, start and end. Of each pass the newest range comes first.
 *
 * Takes nothing but timelines. The file is opened once, at construction. If that fails, a message
 * goes to standard error and nothing is ever written. All its calls belong to the thread that runs
 * the passes.
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
 * @dirname: (nullable) (type filename): its directory, made if it is missing
 *
 * Makes a timeline reporter and opens its file. Without a name or a directory, nothing is written.
 *
 * Returns: (transfer full) (type VekMetricTimelineReporter): a new reporter
 */
VEK_EXPORT
VekMetricReporter *vek_metric_timeline_reporter_new(const gchar *basename, const gchar *dirname);

G_END_DECLS
