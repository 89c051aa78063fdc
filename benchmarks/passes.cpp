// Report passes over counters into each reporter. Each case belongs into a process of its own: the
// state in which another has left the heap would be measured too.

#include "fixtures.hpp"
#include "runner.hpp"

#include <prometheus/counter.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>
#include <vekmetrics/vekmetrics.h>

#include <sstream>

namespace {

// The passes themselves. The counters are held, so that none is retired, and made once, for Google
// Benchmark calls each case several times.

template <int n_metrics = 1000, typename Settle>
void run_library(benchmark::State &state, VekMetricReporter *reporter, Settle settle) {
  static auto *const registry = [] {
    auto *made = registry_new();
    make_counters(made, n_metrics, [](VekMetricCounter *) {});
    return made;
  }();
  for (auto _ : state) {
    vek_metric_registry_report(registry, reporter);
    settle();
  }
  state.SetItemsProcessed(state.iterations() * n_metrics);
}

void nothing() {}

template <int n_metrics>
void null_library(benchmark::State &state) {
  run_library<n_metrics>(state, null_reporter_new(), nothing);
}

void swallow(const char *) {}

void console_library(benchmark::State &state) {
  g_set_print_handler(swallow);
  run_library(state, vek_metric_console_reporter_new(), nothing);
  g_set_print_handler(nullptr);
}

void csv_library(benchmark::State &state) {
  NullFolder folder("log.csv");
  run_library(state, vek_metric_log_reporter_new("log", folder.path), nothing);
}

// The write goes on in a thread of GIO; its completion is taken at the next settling.
void json_library(benchmark::State &state) {
  NullFolder folder("log.json");
  run_library(state, vek_metric_json_log_reporter_new("log", folder.path, nullptr, 0, 0),
              settle_main_context);
}

// What a pass has queued is sent to its end: each line completes in an iteration.
void carbon_library(benchmark::State &state) {
  auto *server = new Server();
  auto *reporter = vek_metric_carbon_reporter_new(nullptr, "127.0.0.1", server->port);
  // Until the connection is there.
  g_main_context_iteration(nullptr, TRUE);
  run_library(state, reporter, settle_main_context);
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
    {"pass into nothing of 100000/library", null_library<100000>},
    {"pass into nothing of 1000000/library", null_library<1000000>},
    {"pass into console/library", console_library},
    {"pass into CSV/library", csv_library},
    {"pass into JSON/library", json_library},
    {"pass into carbon/library", carbon_library},
    {"collect and text/prometheus", text_prometheus},
};
