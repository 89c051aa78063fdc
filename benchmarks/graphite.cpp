// Lines to a Graphite server on loopback: the carbon reporter and the Graphite reporter in turn,
// and what lines cost that wait. Prints a name and a figure each, for ratios.py.

#include "fixtures.hpp"

#include <vekmetrics-service/vekmetrics-service.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <malloc.h>

namespace {

constexpr int kMetrics = 10000;
constexpr int kPasses = 20;
constexpr int kWaitingPasses = 9;

gsize count_bytes() {
  gsize n_bytes = 0;
  for (int i = 0; i < kMetrics; i++) {
    g_autofree char *line = g_strdup_printf("host.h%d.Count.requests%d 0 1700000000\n", i % 10, i);
    n_bytes += std::strlen(line);
  }
  return n_bytes;
}

// One pass, until the server has read it. The flushes are for the first, which may come before the
// connection is there.
void pass(VekMetricRegistry *registry, VekMetricReporter *reporter, Server *server, gsize n_bytes) {
  gsize expected = server->n_bytes + n_bytes;
  vek_metric_registry_report(registry, reporter);
  while (server->n_bytes < expected) {
    VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
    if (!g_main_context_iteration(nullptr, FALSE))
      g_usleep(20);  // the server may need the processor
  }
}

// The time of a line by the wall clock, in ns.
void measure_passes(const char *name, VekMetricRegistry *registry, VekMetricReporter *reporter,
                    Server *server) {
  gsize n_bytes = count_bytes();
  pass(registry, reporter, server, n_bytes);
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kPasses; i++)
    pass(registry, reporter, server, n_bytes);
  std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
  std::printf("%s %.1f\n", name, time.count() / kPasses / kMetrics);
}

guint64 get_count(VekMetricReporter *reporter, const char *property) {
  GValue value = G_VALUE_INIT;
  g_value_init(&value, G_TYPE_UINT64);
  g_object_get_property(G_OBJECT(reporter), property, &value);
  return g_value_get_uint64(&value);
}

gsize measure_heap() {
  auto heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

// Lines while no connection is there: bytes of memory for a byte of text.
void measure_waiting(VekMetricRegistry *registry) {
  auto *reporter = vek_service_graphite_reporter_new(nullptr, "127.0.0.1", 1);
  vek_metric_registry_report(registry, reporter);  // what is allocated once is there
  gsize before = measure_heap();
  for (int i = 0; i < kWaitingPasses; i++)
    vek_metric_registry_report(registry, reporter);
  gsize n_bytes = measure_heap() - before;
  g_assert(get_count(reporter, "queued-lines") == (kWaitingPasses + 1) * kMetrics);
  std::printf("waiting %.3f\n", static_cast<double>(n_bytes) / kWaitingPasses / count_bytes());
}

// What the kernel takes for a server that reads nothing, in bytes.
void measure_unread(VekMetricRegistry *registry) {
  Server server(false);
  auto *reporter = vek_service_graphite_reporter_new(nullptr, "127.0.0.1", server.port);
  g_object_set(reporter, "max-lines", 100 * kMetrics, nullptr);
  for (int i = 0; i < 100; i++)
    vek_metric_registry_report(registry, reporter);
  while (get_count(reporter, "sent-lines") == 0)
    g_main_context_iteration(nullptr, TRUE);
  settle_main_context();
  std::printf("unread %" G_GUINT64_FORMAT "\n",
              get_count(reporter, "sent-lines") * count_bytes() / kMetrics);
  std::exit(0);  // the server waits for ever
}

}  // namespace

int main() {
  auto *registry = registry_new();
  g_autoptr(GPtrArray) counters = g_ptr_array_new();
  make_counters(registry, kMetrics, [&](VekMetricCounter *counter) {
    vek_metric_counter_add(counter, 0);
    g_ptr_array_add(counters, counter);
  });

  auto *server = new Server();
  measure_passes("carbon", registry,
                 vek_metric_carbon_reporter_new(nullptr, "127.0.0.1", server->port), server);
  server = new Server();
  measure_passes("graphite", registry,
                 vek_service_graphite_reporter_new(nullptr, "127.0.0.1", server->port), server);
  measure_waiting(registry);
  measure_unread(registry);
}
