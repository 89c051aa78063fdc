#pragma once

#include "common/internal.hpp"
#include "metric.h"

inline bool VEK_IS_METRIC(VekMetric *metric) {
  return vekin::is_a<vek_metric_get_type>(metric);
}

// What a metric was made with, and whether passes still report it.
struct VekMetricPrivate {
  char *name;
  char *unit;
  char **dimensions;
  gconstpointer ahead;  // memory besides the instance that a report reads; may be NULL
  gboolean active;  // only ever goes from TRUE to FALSE in a pass, so passes need no lock for it
};
static_assert(vekin::ZeroFillable<VekMetricPrivate>);

[[gnu::visibility("hidden")]] extern gint vek_metric_private_offset;  // from the instance, in bytes

// For what is known to be a metric: the getters without their checks.
inline VekMetricPrivate *vek_metric_get_private(VekMetric *metric) {
  return vekin::as<VekMetricPrivate>(vekin::as<char>(metric) + vek_metric_private_offset);
}

// Hands the metric's figures to the reporters (GSList of VekMetricReporter, borrowed). Without
// reporters it returns at once and the kind is not asked.
void vek_metric_report(VekMetric *metric, GSList *reporters);
