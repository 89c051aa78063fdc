#pragma once

#include <vekmetrics/metric.h>

namespace vekin {

// What is called for every metric of every registry.
struct KindHooks {
  // It has been constructed; its registry has yet to look for one with the same key. Called more
  // than once where the class of a kind chains up to that of another.
  void (*made)(VekMetric *metric);
  // It is about to report to the reporters.
  void (*reports)(VekMetric *metric, GSList *reporters);
};

// Hooks the class of each kind of metric, for good, so that it is known which metric reports. Hooks
// that are not NULL are called from then on; they must stay. May be called again.
void hook_kinds(const KindHooks *hooks);

// The metric that reports on this thread, or NULL; unknown to reports that began before the kinds
// were hooked.
VekMetric *get_reporting_metric();

}  // namespace vekin
