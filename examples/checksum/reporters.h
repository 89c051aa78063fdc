#pragma once

/* Where the figures go: the reporters that the command line asks for. */

#include <vekmetrics/vekmetrics.h>

#include "options.h"

typedef struct _Reporters Reporters;

/* Makes the reporters and registers them; the options must live as long. */
Reporters *reporters_new(const Options *options, VekMetricRegistry *registry);

/* Reports to all of them now, in one pass. */
void reporters_report(Reporters *reporters, VekMetricRegistry *registry);

/* Waits until all that was reported is written, and frees everything. A reporter that is late is
 * named. To be called when the registry is gone. */
void reporters_finish(Reporters *reporters);
