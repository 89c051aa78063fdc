#pragma once

#include <vekmetrics/vekmetrics.h>

/* The metrics of a process. Of ten, five are counters, two gauges, and one each a meter, a
 * histogram and a timer. The caller frees the array, which holds them. */
GPtrArray *metrics_new(VekMetricRegistry *registry, int n_metrics);

/* Something happens to each, which depends on the pass that follows. */
void metrics_update(GPtrArray *metrics, int pass);
