#pragma once

#include "metric.h"

// Hands the metric's figures to the reporters (GSList of VekMetricReporter, borrowed). Without
// reporters it returns at once and the kind is not asked.
void vek_metric_report(VekMetric *metric, GSList *reporters);
