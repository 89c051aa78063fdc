#pragma once

// Part of <vekmetrics/vekmetrics.hpp>: stores, every kind of metric, and the registry.

#include <vekmetrics/records.hpp>

namespace vek {

// Stores.

class Store : public Owner<VekMetricStore> {
public:
  using Owner::Owner;

  void add(gdouble value) const { vek_metric_store_add(*this, value); }
  void add_range(gint id, gint64 start, gint64 end) const {
    vek_metric_store_add_range(*this, id, start, end);
  }
  Snapshot snapshot() const { return Snapshot(vek_metric_store_get_snapshot(*this)); }
};

class FixedSizeStore : public Derived<VekMetricFixedSizeStore, Store> {
public:
  using Derived::Derived;
  static FixedSizeStore create(guint window_size) {
    return adopt<FixedSizeStore>(vek_metric_fixed_size_store_new(window_size));
  }
};

class FixedTimeStore : public Derived<VekMetricFixedTimeStore, Store> {
public:
  using Derived::Derived;
  // The window is in µs, at least 1,000,000.
  static FixedTimeStore create(gint64 time_window, guint max_size) {
    return adopt<FixedTimeStore>(vek_metric_fixed_time_store_new(time_window, max_size));
  }
};

class RangeStore : public Derived<VekMetricRangeStore, Store> {
public:
  using Derived::Derived;
  static RangeStore create() { return adopt<RangeStore>(vek_metric_range_store_new()); }

  // Unchecked: there must be a store.
  Ranges move_data() const { return Ranges(vek_metric_range_store_move_data(*this)); }
};

// Metrics.

class Metric : public Owner<VekMetric> {
public:
  using Owner::Owner;

  const gchar *name() const { return vek_metric_get_name(*this); }
  const gchar *unit() const { return vek_metric_get_unit(*this); }
  gchar **dimensions() const { return vek_metric_get_dimensions(*this); }
  bool is_active() const { return vek_metric_is_active(*this); }
  void mark_inactive() const { vek_metric_mark_inactive(*this); }

  // The same metric as the kind that it is, such as as<vek::Counter>(); nothing if it is of
  // another.
  template <typename Kind>
  Kind as() const {
    VekMetric *metric = *this;
    if (!G_TYPE_CHECK_INSTANCE_TYPE(metric, Kind::type()))
      return Kind();
    return adopt<Kind>(g_object_ref(metric));
  }
};

class Counter : public Derived<VekMetricCounter, Metric> {
public:
  using Derived::Derived;
  static GType type() { return VEK_TYPE_METRIC_COUNTER; }

  void add(gint64 value) const { vek_metric_counter_add(*this, value); }
  void inc() const { vek_metric_counter_inc(*this); }
  void dec() const { vek_metric_counter_dec(*this); }
  gint64 count() const { return vek_metric_counter_get_count(*this); }
  gint64 time() const { return vek_metric_counter_get_time(*this); }  // µs since the Unix epoch
};

class Gauge : public Derived<VekMetricGauge, Metric> {
public:
  using Derived::Derived;
  static GType type() { return VEK_TYPE_METRIC_GAUGE; }

  void set(gdouble value) const { vek_metric_gauge_set_value(*this, value); }
  void add(gdouble value) const { vek_metric_gauge_add_value(*this, value); }
  gdouble value(gint64 *time = nullptr) const { return vek_metric_gauge_get_value(*this, time); }
  gint64 last_change_time() const { return vek_metric_gauge_get_last_change_time(*this); }
};

class Meter : public Derived<VekMetricMeter, Metric> {
public:
  using Derived::Derived;
  static GType type() { return VEK_TYPE_METRIC_METER; }

  void mark(gdouble value) const { vek_metric_meter_mark(*this, value); }
  gdouble rate() const { return vek_metric_meter_get_rate(*this); }  // per second
  gdouble total() const { return vek_metric_meter_get_total(*this); }
  gint64 time() const { return vek_metric_meter_get_time(*this); }  // µs since the Unix epoch
};

class Histogram : public Derived<VekMetricHistogram, Metric> {
public:
  using Derived::Derived;
  static GType type() { return VEK_TYPE_METRIC_HISTOGRAM; }

  void set(gdouble value) const { vek_metric_histogram_set(*this, value); }
  Snapshot snapshot() const { return Snapshot(vek_metric_histogram_get_snapshot(*this)); }
};

class Timer : public Derived<VekMetricTimer, Histogram> {
public:
  using Derived::Derived;
  static GType type() { return VEK_TYPE_METRIC_TIMER; }

  void start() const { vek_metric_timer_start(*this); }
  void stop() const { vek_metric_timer_stop(*this); }
  void set_usec(gint64 usec) const { vek_metric_timer_set_usec(*this, usec); }
};

class Timeline : public Derived<VekMetricTimeline, Metric> {
public:
  using Derived::Derived;
  static GType type() { return VEK_TYPE_METRIC_TIMELINE; }

  // Unchecked: there must be a timeline, and no metric of another kind that had its key.
  void add_range(gint id, gint64 start, gint64 end) const {
    vek_metric_timeline_add_range(*this, id, start, end);
  }
  Ranges move_data() const { return Ranges(vek_metric_timeline_move_data(*this)); }
};

// The registry makes metrics, and runs the report passes. Its arguments may be owners or pointers.
class Registry : public Owner<VekMetricRegistry> {
public:
  using Owner::Owner;
  static Registry create() {
    return adopt<Registry>(g_object_new(VEK_TYPE_METRIC_REGISTRY, nullptr));
  }
  // The default registry, with a reference of the owner's.
  static Registry get_default() {
    return Registry(g_object_ref(vek_metric_registry_get_default()));
  }
  void set_default() const { vek_metric_registry_set_default(*this); }

  Counter counter(const gchar *name, const gchar *unit = nullptr,
                  const Dimensions &dimensions = {}) const {
    return Counter(vek_metric_registry_counter_new(*this, name, unit, dimensions));
  }
  // The interval is in µs; 0 is none.
  Gauge gauge(const gchar *name, const gchar *unit = nullptr, gint64 interval = 0,
              const Dimensions &dimensions = {}) const {
    return Gauge(vek_metric_registry_gauge_new(*this, name, unit, interval, dimensions));
  }
  Meter meter(const gchar *name, const gchar *unit = nullptr,
              const Dimensions &dimensions = {}) const {
    return Meter(vek_metric_registry_meter_new(*this, name, unit, dimensions));
  }
  // Without a store, the metric keeps the last 60 samples.
  Histogram histogram(const gchar *name, const gchar *unit = nullptr,
                      VekMetricStore *store = nullptr, const Dimensions &dimensions = {}) const {
    return Histogram(vek_metric_registry_histogram_new(*this, name, unit, store, dimensions));
  }
  // The unit is "Seconds", "Milliseconds" or "Microseconds".
  Timer timer(const gchar *name, const gchar *unit, VekMetricStore *store = nullptr,
              const Dimensions &dimensions = {}) const {
    return Timer(vek_metric_registry_timer_new(*this, name, unit, store, dimensions));
  }
  Timeline timeline(const gchar *name) const {
    return Timeline(vek_metric_registry_timeline_new(*this, name));
  }

  // Nothing if the registry has no such metric.
  Metric get_metric(const gchar *name, const Dimensions &dimensions = {}) const {
    return Metric(vek_metric_registry_get_metric(*this, name, dimensions));
  }
  void register_reporter(VekMetricReporter *reporter) const {
    vek_metric_registry_register_reporter(*this, reporter);
  }
  void report(VekMetricReporter *reporter) const { vek_metric_registry_report(*this, reporter); }
};

}  // namespace vek
