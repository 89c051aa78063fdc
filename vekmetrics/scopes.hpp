#pragma once

// Part of <vekmetrics/vekmetrics.hpp>: a timer and a counter for one scope.

#include <vekmetrics/vekmetrics.h>

#include <algorithm>
#include <utility>

namespace vek {

// Records the time from its construction to the end of the scope. Each has its own start time, so
// any number of them may share a timer, on any threads. The timer is borrowed and must outlive it.
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

// Counts for a hot loop in a plain integer, and adds the sum to its counter when the limit is
// reached, on publish(), and at the end of the scope. Reports do not show what was not added yet.
// A tally belongs to one thread. The counter is borrowed and must outlive it.
class Tally {
public:
  // The limit applies to sums in either direction; from 1 to G_MAXINT64 / 2.
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

  // Adds the sum to the counter, unless it is 0.
  void publish() {
    if (count != 0)
      vek_metric_counter_add(counter, std::exchange(count, 0));
  }

private:
  // The value is below the limit, so the sum cannot overflow.
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
