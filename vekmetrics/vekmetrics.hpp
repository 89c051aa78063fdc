#pragma once

// What C++ adds to the C interface: owners, a timer and a tally for a scope, dimensions in braces,
// and snapshots with named accessors. The C functions stay the way to do everything else, and take
// these owners as they are. Needs C++17 and nothing but this header; nothing here costs more than
// the C calls that it makes.

#include <vekmetrics/vekmetrics.h>

#include <algorithm>
#include <initializer_list>
#include <utility>
#include <vector>

namespace vek {

// How a reference to a T is taken and dropped: as that of an object, if nothing else is said.
template <typename T>
struct Counting {
  static void ref(T *object) { g_object_ref(object); }
  static void unref(T *object) { g_object_unref(object); }
};

template <>
struct Counting<VekMetricDimension> {
  static void ref(VekMetricDimension *dimension) { vek_metric_dimension_ref(dimension); }
  static void unref(VekMetricDimension *dimension) { vek_metric_dimension_unref(dimension); }
};

template <>
struct Counting<VekMetricSnapshot> {
  static void ref(VekMetricSnapshot *snapshot) { vek_metric_snapshot_ref(snapshot); }
  static void unref(VekMetricSnapshot *snapshot) { vek_metric_snapshot_unref(snapshot); }
};

template <>
struct Counting<VekMetricDatum> {
  static void ref(VekMetricDatum *datum) { vek_metric_datum_ref(datum); }
  static void unref(VekMetricDatum *datum) { vek_metric_datum_unref(datum); }
};

// Owns one reference, or nothing. Made of what a C function returns as the caller's own, it takes
// that reference over; a copy takes one more. It passes for the pointer in every C call. What a
// function only lends, such as the default registry, stays a plain pointer.
template <typename T>
class Owner {
public:
  Owner() = default;
  explicit Owner(T *owned) : pointer(owned) {}
  Owner(const Owner &other) : pointer(other.pointer) {
    if (pointer)
      Counting<T>::ref(pointer);
  }
  Owner(Owner &&other) noexcept : pointer(std::exchange(other.pointer, nullptr)) {}
  Owner &operator=(Owner other) noexcept {
    std::swap(pointer, other.pointer);
    return *this;
  }
  ~Owner() {
    if (pointer)
      Counting<T>::unref(pointer);
  }

  operator T *() const { return pointer; }

private:
  T *pointer = nullptr;
};

using Counter = Owner<VekMetricCounter>;
using Datum = Owner<VekMetricDatum>;
using Dimension = Owner<VekMetricDimension>;
using Gauge = Owner<VekMetricGauge>;
using Histogram = Owner<VekMetricHistogram>;
using Meter = Owner<VekMetricMeter>;
using Metric = Owner<VekMetric>;
using Registry = Owner<VekMetricRegistry>;
using Reporter = Owner<VekMetricReporter>;
using Store = Owner<VekMetricStore>;
using Timeline = Owner<VekMetricTimeline>;
using Timer = Owner<VekMetricTimer>;

// A snapshot with its statistics by name. Made of nothing (nullptr), its accessors log a failed
// check and give 0.
class Snapshot : public Owner<VekMetricSnapshot> {
public:
  using Owner::Owner;

  gint64 time() const { return vek_metric_snapshot_get_time(*this); }  // µs since the Unix epoch
  gsize n_samples() const { return vek_metric_snapshot_get_n_samples(*this); }
  gdouble sum() const { return vek_metric_snapshot_get_sum(*this); }
  gdouble average() const { return vek_metric_snapshot_get_average(*this); }
  gdouble min() const { return vek_metric_snapshot_get_min(*this); }
  gdouble max() const { return vek_metric_snapshot_get_max(*this); }
  gdouble quantile(gdouble q) const { return vek_metric_snapshot_get_quantile(*this, q); }
};

// The dimensions of a metric, as pairs in braces: {{"host", "h1"}, {"disk", "sda"}}. The strings
// are borrowed, so it is best written right into the call that makes the metric.
class Dimensions {
public:
  Dimensions(std::initializer_list<std::pair<const char *, const char *>> pairs) {
    strings.reserve(2 * pairs.size() + 1);
    for (const auto &[name, value] : pairs) {
      strings.push_back(name);
      strings.push_back(value);
    }
    strings.push_back(nullptr);
  }

  // For a C call, which copies the strings and changes none.
  operator gchar **() const { return const_cast<gchar **>(strings.data()); }

private:
  std::vector<const gchar *> strings;
};

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
