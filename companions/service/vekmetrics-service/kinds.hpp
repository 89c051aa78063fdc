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

// Puts the hooks into the class of each kind of metric, for good. May be called again, and does
// nothing then.
void hook_kinds(const KindHooks &hooks);

}  // namespace vekin
