#pragma once

// Part of <vekmetrics/vekmetrics.hpp>: a timer and a counter for one scope.

#include <vekmetrics/vekmetrics.h>

#include <algorithm>
#include <utility>

namespace vek {

// Records the time from here to the end of the scope. It keeps its own start: any number of them
// may share a timer, on any threads. The timer is borrowed and must outlive it.
class ScopedTimer {
public:
  explicit ScopedTimer(VekMetricTimer *timer) : timer(timer), start(g_get_monotonic_time()) {}
  ~ScopedTimer() { vek_metric_timer_set_usec(timer, g_get_monotonic_time() - start); }
  ScopedTimer(const ScopedTimer &) = delete;
  ScopedTimer &operator=(const ScopedTimer &) = delete;

private:
  VekMetricTimer *timer;
  gint64 start;
};

// Counts for a hot loop in a plain integer, and adds to its counter once for many: when the limit
// is reached, when asked, and at the end of the scope. It belongs to one thread; what it holds back
// no report shows yet. The counter is borrowed and must outlive it.
class Tally {
public:
  // The limit: what is not held back any more, in either direction; from 1 to G_MAXINT64 / 2.
  explicit Tally(VekMetricCounter *counter, gint64 limit = 1024)
      : counter(counter), limit(std::clamp<gint64>(limit, 1, G_MAXINT64 / 2)) {}
  ~Tally() { publish(); }
  Tally(const Tally &) = delete;
  Tally &operator=(const Tally &) = delete;

  void add(gint64 value) {
    if (value >= limit || value <= -limit)
      vek_metric_counter_add(counter, value);
    else
      hold(value);
  }
  void inc() { hold(1); }
  void dec() { hold(-1); }

  // Adds what is held back to the counter; nothing when that is 0.
  void publish() {
    if (count != 0)
      vek_metric_counter_add(counter, std::exchange(count, 0));
  }

private:
  // Below the limit, so that the sum cannot overflow.
  void hold(gint64 value) {
    count += value;
    if (count >= limit || count <= -limit)
      publish();
  }

  VekMetricCounter *counter;
  gint64 limit;
  gint64 count = 0;
};

}  // namespace vek
