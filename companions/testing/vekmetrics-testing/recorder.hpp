#pragma once

#include "recorder.h"

namespace vekin::testing {

enum class Kind { Count, Value, Timeline, Aggregated };

// One call of a reporter's operation, with copies of what it brought.
struct Call {
  Kind kind;
  char *key;          // the dimensions and the name, joined by "."
  char *name;         // NULL for that of a disposed metric
  char **dimensions;  // NULL for none
  char *unit;         // NULL for none
  gint64 time;        // microseconds; of a timeline 0
  union {
    gint64 count;
    gdouble value;
    GSList *ranges;               // of VekMetricRange
    VekMetricSnapshot *snapshot;  // NULL if the metric's store made none
  };
};

// The figures of the last pass; NULL if it did not bring them, or there was no pass.
const Call *find_call(VekTestingRecorder *recorder, Kind kind, const char *name, char **dimensions);

// Whether there was a pass.
bool had_pass(VekTestingRecorder *recorder);

// Whether the last pass, which there was, brought anything of that name.
bool has_name(VekTestingRecorder *recorder, const char *name);

}  // namespace vekin::testing
