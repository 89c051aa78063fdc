#pragma once

/* How a program lets its last figures out before it ends. */

#include <vekmetrics/vekmetrics.h>

/* Runs the default main loop until the reporter has written what it was given, then lets it go.
 *
 * Takes the caller's reference, which must be the last: the registry has to be gone before. Returns
 * FALSE if the reporter was not done in time; what is still to be written is lost when the program
 * ends. */
gboolean finish_reporter(VekMetricReporter *reporter, guint milliseconds);
