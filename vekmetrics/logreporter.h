#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_LOG_REPORTER (vek_metric_log_reporter_get_type())

/**
 * VekMetricLogReporter:
 *
 * Appends a line to a CSV file for each metric: the time in microseconds, the name, the dimensions
 * as `name=value;`, and seven columns of figures.
 *
 * A count or a value fills the first of these columns. A histogram or a timer fills all of them:
 * average, number of samples, minimum, maximum, and the quantiles 0.1, 0.5 and 0.9. There is no
 * header and no quoting, and the unit is left out. Doubles are written so that they read back
 * exactly, with a decimal point in every locale.
 *
 * The file is opened once, at construction. If that fails, a message is printed to standard error
 * and nothing is written. All calls must be made on the thread that runs the passes.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricLogReporter, vek_metric_log_reporter, VEK, METRIC_LOG_REPORTER,
                     GObject)

/**
 * VekMetricLogReporter:basename:
 *
 * The file's name without its ".csv".
 */

/**
 * VekMetricLogReporter:dirname:
 *
 * The file's directory.
 */

/**
 * vek_metric_log_reporter_new:
 * @basename: (nullable) (type filename): the file's name without its ".csv"
 * @dirname: (nullable) (type filename): its directory, created if it is missing
 *
 * Creates a CSV log reporter and opens its file. Without a name or a directory, nothing is written.
 *
 * Returns: (transfer full) (type VekMetricLogReporter): a new reporter
 */
VEK_EXPORT
VekMetricReporter *vek_metric_log_reporter_new(const gchar *basename, const gchar *dirname);

G_END_DECLS
