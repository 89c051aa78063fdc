#pragma once

#include <glib.h>

namespace vekin {

// A pass over the metrics (values of the table, VekMetric) for the reporters (GSList of
// VekMetricReporter, not empty): has each active metric report, marks those inactive that only the
// table holds, and flushes the reporters. The registry's lock is held for reading.
void run_pass(GHashTable *metrics, GSList *reporters);

}  // namespace vekin
