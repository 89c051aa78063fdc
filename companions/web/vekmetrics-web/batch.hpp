#pragma once

// The ranges of a timeline that one pass has brought.

#include <vekmetrics/rangestore.h>

namespace vekin::web {

inline constexpr guint kMaxRanges = 20'000;  // that are kept, of all timelines together

struct Batch {
  int ref_count;  // changed only atomically
  guint64 pass;
  char *name;
  bool is_wall;  // the ranges end about when the pass was, so that they are of the wall clock
  guint n_ranges;
  VekMetricRange *ranges;
};

// Copies the ranges, which come newest first; of too many the newest.
Batch *batch_new(guint64 pass, const char *name, GSList *ranges);
Batch *batch_ref(Batch *batch);
void batch_unref(Batch *batch);

}  // namespace vekin::web
