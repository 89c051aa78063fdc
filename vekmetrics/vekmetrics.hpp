#pragma once

// The C++ interface. Its classes own their references and have the C functions as methods; each
// also converts to the pointer that the C functions take. Requires C++17. Everything is inline, and
// a method costs what its C call costs.
//
// The methods are const, as those of a pointer are. They are documented in the C headers, under the
// name that each calls. Called on an owner of nothing, a method logs a failed check and returns 0
// or nothing.

#include <vekmetrics/kinds.hpp>
#include <vekmetrics/owner.hpp>
#include <vekmetrics/records.hpp>
#include <vekmetrics/scopes.hpp>

namespace vek {

// Reporters. What they write, and what their arguments mean, is in the C headers.

class Reporter : public Owner<VekMetricReporter> {
public:
  using Owner::Owner;
};

class ConsoleReporter : public Derived<VekMetricConsoleReporter, Reporter> {
public:
  using Derived::Derived;
  static ConsoleReporter create() {
    return adopt<ConsoleReporter>(vek_metric_console_reporter_new());
  }
};

class CarbonReporter : public Derived<VekMetricCarbonReporter, Reporter> {
public:
  using Derived::Derived;
  static CarbonReporter create(const gchar *prefix, const gchar *server_address,
                               guint server_port) {
    return adopt<CarbonReporter>(
        vek_metric_carbon_reporter_new(prefix, server_address, server_port));
  }
};

class JsonLogReporter : public Derived<VekMetricJsonLogReporter, Reporter> {
public:
  using Derived::Derived;
  static JsonLogReporter create(const gchar *basename, const gchar *dirname,
                                const gchar *instance_id, guint max_reports, guint rotate) {
    return adopt<JsonLogReporter>(
        vek_metric_json_log_reporter_new(basename, dirname, instance_id, max_reports, rotate));
  }
};

class LogReporter : public Derived<VekMetricLogReporter, Reporter> {
public:
  using Derived::Derived;
  static LogReporter create(const gchar *basename, const gchar *dirname) {
    return adopt<LogReporter>(vek_metric_log_reporter_new(basename, dirname));
  }
};

class TimelineReporter : public Derived<VekMetricTimelineReporter, Reporter> {
public:
  using Derived::Derived;
  static TimelineReporter create(const gchar *basename, const gchar *dirname) {
    return adopt<TimelineReporter>(vek_metric_timeline_reporter_new(basename, dirname));
  }
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
