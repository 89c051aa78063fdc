#pragma once

#include <vekmetrics/vekmetrics.h>

namespace vekin {

// A wait, on the default main context, until reporters that have been flushed have nothing under
// way any more.
struct Drainage {
  GSource source;
  GPtrArray *reporters;  // those that are not done
  guint timeout;
  bool flushing;  // a reporter is being flushed
  void (*on_end)(bool drained, gpointer data);
  gpointer data;
};

// Takes the reporters over, and lets go of each when it is done. Calls the function once, with
// whether all were done: before it returns if there is nothing to wait for, or from the main loop.
// The wait belongs to the caller, who unrefs its source.
Drainage *drainage_start(GPtrArray *reporters, guint timeout_ms,
                         void (*on_end)(bool drained, gpointer data), gpointer data);

// Ends the wait, if it has not ended.
void drainage_stop(Drainage *drainage);

}  // namespace vekin
