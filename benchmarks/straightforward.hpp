#pragma once

// Reporters and a pass written out in the plainest way, with the public interface and one GLib call
// for each thing to be done: what the library's own are measured against.

#include <vekmetrics/vekmetrics.h>

namespace straightforward {

VekMetricReporter *console_reporter_new();
VekMetricReporter *csv_reporter_new(const char *basename, const char *dirname);
VekMetricReporter *json_reporter_new(const char *basename, const char *dirname);
VekMetricReporter *carbon_reporter_new(const char *address, guint port);

// A registry that has only a table, and the pass over it.
struct Registry {
  GRWLock lock{};
  GHashTable *metrics = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_object_unref);

  void add(VekMetricCounter *counter);
  void report(VekMetricReporter *reporter);
};

}  // namespace straightforward
