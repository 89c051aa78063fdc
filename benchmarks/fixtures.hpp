#pragma once

// What more than one benchmark program needs around the library.

#include <vekmetrics/vekmetrics.h>

#include <atomic>
#include <string>

VekMetricRegistry *registry_new();

// A reporter that does nothing.
VekMetricReporter *null_reporter_new();

// The counters of a pass: ten hosts, and the names spread over them. Each is handed on as a
// reference; while it is held, no pass retires the counter.
template <typename Take>
void make_counters(VekMetricRegistry *registry, int n_metrics, Take take) {
  for (int i = 0; i < n_metrics; i++) {
    g_autofree char *name = g_strdup_printf("requests%d", i);
    g_autofree char *host = g_strdup_printf("h%d", i % 10);
    const char *dimensions[] = {"host", host, nullptr};
    take(vek_metric_registry_counter_new(registry, name, "Count", const_cast<char **>(dimensions)));
  }
}

// Runs what is ready, to its end.
void settle_main_context();

// A folder with a file that is a link to /dev/null: what a disk does is not measured.
struct NullFolder {
  char *path;
  std::string file;

  explicit NullFolder(const char *name);
  ~NullFolder();
};

// A carbon server that swallows what it is sent over one connection, on a thread of its own: from
// the beginning, or not before it is told to.
class Server {
public:
  explicit Server(bool reads = true);

  guint port;
  std::atomic<bool> reads;
  std::atomic<gsize> n_bytes = 0;
  std::atomic<bool> ended = false;  // the other side has closed, and all is read

  void start_reading();

private:
  struct _GSocketListener *listener;

  static gpointer serve(gpointer self);
};
