#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_JSON_LOG_REPORTER (vek_metric_json_log_reporter_get_type())

/**
 * VekMetricJsonLogReporter:
 *
 * Appends each pass to a log file as one line: the time, then a compact JSON array with an object
 * for each data point. After a given number of reports the file is rotated.
 *
 * A counter, a gauge or a meter gives one data point; a histogram or a timer that holds samples
 * gives four: its statistics, then the quantiles 0.5, 0.9 and 0.99 under its name with `_p50`,
 * `_p90` and `_p99`. Unknown units are left out, and data points with more than ten
 * dimensions lose all of them. Values are limited to ±2.348543e108, statistics are not; NaN and
 * infinite statistics are written as `null`.
 *
 * Lines are written asynchronously, one write and flush at a time. Failures are logged; data that
 * is flushed while no file is open is lost.
 *
 * All calls must be made on one thread, whose thread-default main context runs the completions.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricJsonLogReporter, vek_metric_json_log_reporter, VEK,
                     METRIC_JSON_LOG_REPORTER, GObject)

/**
 * VekMetricJsonLogReporter:basename:
 *
 * The file's name without its ".json".
 */

/**
 * VekMetricJsonLogReporter:dirname:
 *
 * The file's directory.
 */

/**
 * VekMetricJsonLogReporter:instance-id:
 *
 * The value of the dimension "instance" of every data point; %NULL for none.
 */

/**
 * VekMetricJsonLogReporter:max-reports:
 *
 * The number of reports in a file before it is rotated; 0 for no limit.
 */

/**
 * VekMetricJsonLogReporter:rotate:
 *
 * The number of rotated files to keep.
 */

/**
 * vek_metric_json_log_reporter_new:
 * @basename: (nullable) (type filename): the file's name without its ".json"
 * @dirname: (nullable) (type filename): its directory, created if it is missing
 * @instance_id: (nullable): the value of a first dimension "instance" of every data point; %NULL
 *   for none
 * @max_reports: the number of reports in a file before it is rotated; 0 for no limit
 * @rotate: the number of rotated files to keep; they are numbered from 1, the newest
 *
 * Creates a JSON log reporter and opens its file. Without a name or a directory, nothing is
 * written.
 *
 * Returns: (transfer full) (type VekMetricJsonLogReporter): a new reporter
 */
VEK_EXPORT
VekMetricReporter *vek_metric_json_log_reporter_new(const gchar *basename, const gchar *dirname,
                                                    const gchar *instance_id, guint max_reports,
                                                    guint rotate);

G_END_DECLS
