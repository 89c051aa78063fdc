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

}  // namespace vek
