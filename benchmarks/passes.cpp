// Report passes over counters into each reporter. Each case belongs into a process of its own: the
// state in which another has left the heap would be measured too.

#include "fixtures.hpp"
#include "runner.hpp"
#include "straightforward.hpp"

#include <prometheus/counter.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>
#include <vekmetrics/vekmetrics.h>

#include <sstream>

namespace {

// The passes themselves; the counters are held, so that none is retired.

template <typename Settle>
void run_library(benchmark::State &state, VekMetricReporter *reporter, int n_metrics,
                 Settle settle) {
  auto *registry = registry_new();
  make_counters(registry, n_metrics, [](VekMetricCounter *) {});
  for (auto _ : state) {
    vek_metric_registry_report(registry, reporter);
    settle();
  }
  state.SetItemsProcessed(state.iterations() * n_metrics);
}

template <typename Settle>
void run_straightforward(benchmark::State &state, VekMetricReporter *reporter, int n_metrics,
                         Settle settle) {
  auto *makers = registry_new();
  straightforward::Registry registry;
  make_counters(makers, n_metrics, [&](VekMetricCounter *counter) { registry.add(counter); });
  for (auto _ : state) {
    registry.report(reporter);
    settle();
  }
  state.SetItemsProcessed(state.iterations() * n_metrics);
}

void nothing() {}

template <int n_metrics>
void null_library(benchmark::State &state) {
  run_library(state, null_reporter_new(), n_metrics, nothing);
}

void null_straightforward(benchmark::State &state) {
  run_straightforward(state, null_reporter_new(), 1000, nothing);
}

void swallow(const char *) {}

void console_library(benchmark::State &state) {
  g_set_print_handler(swallow);
  run_library(state, vek_metric_console_reporter_new(), 1000, nothing);
  g_set_print_handler(nullptr);
}

void console_straightforward(benchmark::State &state) {
  g_set_print_handler(swallow);
  run_straightforward(state, straightforward::console_reporter_new(), 1000, nothing);
  g_set_print_handler(nullptr);
}

void csv_library(benchmark::State &state) {
  NullFolder folder("log.csv");
  run_library(state, vek_metric_log_reporter_new("log", folder.path), 1000, nothing);
}

void csv_straightforward(benchmark::State &state) {
  NullFolder folder("log.csv");
  run_straightforward(state, straightforward::csv_reporter_new("log", folder.path), 1000, nothing);
}

// The write goes on in a thread of GIO; its completion is taken at the next settling.
void json_library(benchmark::State &state) {
  NullFolder folder("log.json");
  run_library(state, vek_metric_json_log_reporter_new("log", folder.path, nullptr, 0, 0), 1000,
              settle_main_context);
}

void json_straightforward(benchmark::State &state) {
  NullFolder folder("log.json");
  run_straightforward(state, straightforward::json_reporter_new("log", folder.path), 1000,
                      settle_main_context);
}

// Sends what one pass has queued, to its end: each line completes in an iteration.
void send_queue() {
  settle_main_context();
}

void carbon_library(benchmark::State &state) {
  auto *server = new Server();
  auto *reporter = vek_metric_carbon_reporter_new(nullptr, "127.0.0.1", server->port);
  // Until the connection is there.
  g_main_context_iteration(nullptr, TRUE);
  run_library(state, reporter, 1000, send_queue);
}

void carbon_straightforward(benchmark::State &state) {
  auto *server = new Server();
  run_straightforward(state, straightforward::carbon_reporter_new("127.0.0.1", server->port), 1000,
                      send_queue);
}

void text_prometheus(benchmark::State &state) {
  prometheus::Registry registry;
  for (int i = 0; i < 1000; i++) {
    g_autofree char *name = g_strdup_printf("requests%d", i);
    g_autofree char *host = g_strdup_printf("h%d", i % 10);
    prometheus::BuildCounter().Name(name).Register(registry).Add({{"host", host}}).Increment(1);
  }
  prometheus::TextSerializer serializer;
  for (auto _ : state)
    benchmark::DoNotOptimize(serializer.Serialize(registry.Collect()));
  state.SetItemsProcessed(state.iterations() * 1000);
}

}  // namespace

const std::vector<Case> cases = {
    {"pass into nothing/library", null_library<1000>},
    {"pass into nothing/straightforward", null_straightforward},
    {"pass into nothing of 100000/library", null_library<100000>},
    {"pass into nothing of 1000000/library", null_library<1000000>},
    {"pass into console/library", console_library},
    {"pass into console/straightforward", console_straightforward},
    {"pass into CSV/library", csv_library},
    {"pass into CSV/straightforward", csv_straightforward},
    {"pass into JSON/library", json_library},
    {"pass into JSON/straightforward", json_straightforward},
    {"pass into carbon/library", carbon_library},
    {"pass into carbon/straightforward", carbon_straightforward},
    {"collect and text/prometheus", text_prometheus},
};
