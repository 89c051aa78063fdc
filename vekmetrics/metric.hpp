#pragma once

#include "common/internal.hpp"
#include "metric.h"

VEK_QUICK_TYPE_TEST(METRIC, VekMetric, vek_metric)

// What a metric was made with, and whether passes still report it.
struct VekMetricPrivate {
  char *name;
  char *unit;
  char **dimensions;
  gboolean active;  // only ever goes from TRUE to FALSE in a pass, so passes need no lock for it
  GRWLock *lock;    // of the kind, in its instance; NULL for a kind without
};
static_assert(vekin::ZeroFillable<VekMetricPrivate>);

[[gnu::visibility("hidden")]] extern gint vek_metric_private_offset;  // from the instance, in bytes

// For what is known to be a metric: the getters without their checks.
inline VekMetricPrivate *vek_metric_get_private(VekMetric *metric) {
  return vekin::as<VekMetricPrivate>(vekin::as<char>(metric) + vek_metric_private_offset);
}

// Initialises the lock of a kind, which its reports take, and records it for passes to prefetch.
inline void vek_metric_init_lock(VekMetric *metric, GRWLock *lock) {
  g_rw_lock_init(lock);
  vek_metric_get_private(metric)->lock = lock;
}

// Hands the metric's figures to the reporters (GSList of VekMetricReporter, borrowed). Without
// reporters it returns at once and the kind is not asked.
void vek_metric_report(VekMetric *metric, GSList *reporters);
