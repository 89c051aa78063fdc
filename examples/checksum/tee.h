#pragma once

/* A reporter that hands all it gets on to others, so that one pass reaches them all.
 *
 * One pass for each of them would not do: a pass takes the ranges out of the timelines, a gauge
 * with an interval reports each interval once, and a metric that nobody holds is not reported
 * again. So those after the first would go without. */

#include <vekmetrics/vekmetrics.h>

#define TEE_TYPE_REPORTER (tee_reporter_get_type())
G_DECLARE_FINAL_TYPE(TeeReporter, tee_reporter, TEE, REPORTER, GObject)

/* Makes one for no reporter. */
VekMetricReporter *tee_reporter_new(void);

/* Has all handed on to the reporter, too, and takes a reference to it. */
void tee_reporter_add(TeeReporter *tee, VekMetricReporter *reporter);
