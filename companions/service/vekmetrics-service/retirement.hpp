#pragma once

#include <vekmetrics/metric.h>

namespace vekin {

// Sees to it that a pass retires no metric that somebody still counts on.
//
// A registry retires a metric when it holds the only reference after the report. Two things can go
// wrong with that, and what is counted then is lost:
//
//  - Somebody counts after the report and lets go before the registry looks. So whoever holds a
//    metric when its report begins is joined by the pass, which lets go at its end. A metric that
//    nobody holds is retired by a periodic pass and by no other: a pass of the session's own would
//    leave it in its registry's table, where who makes it again finds it inactive.
//
//  - Somebody makes the metric again during a periodic pass: this waits for the pass, and comes
//    before the registry takes the metric out of its table, so it gets the inactive metric. But
//    before it waits it constructs a metric, which is dropped when the one in the table is found.
//    So metrics that have been constructed and not yet met in a table show which keys are being
//    asked for. A metric with such a key is made active again: at the end of the pass, if it was
//    asked for before, and otherwise when it is asked for.
//
// Of metrics that nobody holds, only what is counted through vek_metric_registry_get_metric() can
// still be lost: a look-up constructs nothing. And a metric is retired late while another registry,
// which has run no pass yet, has one with the same key: that could be asking for it.
struct Retirement {
  GPtrArray *joined;    // VekMetric, owned
  GPtrArray *leaving;   // VekMetric, borrowed: their registry keeps them until the pass ends
  GHashTable *retired;  // from key to a GWeakRef of what the last periodic pass retired
};

// To be called once, before any thread notes a metric.
void retirement_prepare();

// From here on, until it is cleared, metrics are watched.
void retirement_init(Retirement &retirement);
void retirement_clear(Retirement &retirement);

// To be called when a metric is constructed, and when it is met in a table.
void retirement_note_made(VekMetric *metric);
void retirement_note_met(VekMetric *metric);

// A pass: each metric before its report, then the end. A metric may be retired by it, or not.
void retirement_join(Retirement &retirement, VekMetric *metric, bool may_retire);
void retirement_end_pass(Retirement &retirement);

}  // namespace vekin
