#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_CONSOLE_REPORTER (vek_metric_console_reporter_get_type())

/**
 * VekMetricConsoleReporter:
 *
 * Prints each pass as text: a section for each set of dimensions, a line for each metric.
 *
 * Sections are sorted by the number of their dimensions, then by their key; lines are sorted by
 * name. The flush prints all of it with `g_print()`. Timelines, units and times are not printed.
 *
 * A console reporter takes no lock and must not serve two passes at the same time.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricConsoleReporter, vek_metric_console_reporter, VEK,
                     METRIC_CONSOLE_REPORTER, GObject)

/**
 * vek_metric_console_reporter_new:
 *
 * Creates a console reporter.
 *
 * Returns: (transfer full) (type VekMetricConsoleReporter): a new reporter
 */
VEK_EXPORT
VekMetricReporter *vek_metric_console_reporter_new(void);

G_END_DECLS
