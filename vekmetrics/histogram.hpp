#pragma once

#include "histogram.h"

namespace vekin {

// vek_metric_histogram_set() of what is known to be a histogram.
void add_sample(VekMetricHistogram *histogram, gdouble value);

}  // namespace vekin
