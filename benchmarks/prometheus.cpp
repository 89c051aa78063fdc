// The Prometheus text of 10,000 counters and 1,000 histograms: making it, against a peer's
// serializer, and serving one that is kept.

#include "fixtures.hpp"
#include "runner.hpp"

#include <prometheus/counter.h>
#include <prometheus/registry.h>
#include <prometheus/summary.h>
#include <prometheus/text_serializer.h>
#include <vekmetrics-service/vekmetrics-service.h>
#ifdef WITH_WEB
#include <vekmetrics-web/vekmetrics-web.h>
#endif

#include <malloc.h>
#include <cstdio>
#include <thread>

namespace {

constexpr int kCounters = 10000, kHistograms = 1000, kSamples = 60;
constexpr auto kFormat = VEK_SERVICE_PROMETHEUS_FORMAT_TEXT;

double get_sample(int i) {
  return i * 1.37;
}

struct Library {
  VekMetricRegistry *registry = registry_new();
  VekServicePrometheusReporter *reporter = vek_service_prometheus_reporter_new();
  double bytes_per_metric;  // of the reporter, with a text of either format

  Library() {
    make_counters(registry, kCounters,
                  [](VekMetricCounter *counter) { vek_metric_counter_add(counter, 1234567); });
    for (int i = 0; i < kHistograms; i++) {
      g_autofree char *name = g_strdup_printf("sizes%d", i);
      auto *histogram =
          vek_metric_registry_histogram_new(registry, name, "Bytes", nullptr, nullptr);
      for (int j = 0; j < kSamples; j++)
        vek_metric_histogram_set(histogram, get_sample(j));
    }
    vek_metric_registry_report(registry, null_reporter_new());
    auto before = mallinfo2().uordblks;
    report();
    make_text(VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS);
    make_text();
    bytes_per_metric =
        static_cast<double>(mallinfo2().uordblks - before) / (kCounters + kHistograms);
  }

  void report() { vek_metric_registry_report(registry, VEK_METRIC_REPORTER(reporter)); }

  void make_text(VekServicePrometheusFormat format = kFormat) {
    g_bytes_unref(vek_service_prometheus_reporter_get_bytes(reporter, format));
  }
};

Library &get_library() {
  static auto *const library = new Library;
  return *library;
}

prometheus::Registry &get_peer() {
  static auto *const registry = [] {
    auto *made = new prometheus::Registry;
    for (int i = 0; i < kCounters; i++)
      prometheus::BuildCounter()
          .Name("requests" + std::to_string(i))
          .Register(*made)
          .Add({{"host", "h" + std::to_string(i % 10)}})
          .Increment(1234567);
    for (int i = 0; i < kHistograms; i++) {
      auto &summary =
          prometheus::BuildSummary()
              .Name("sizes" + std::to_string(i))
              .Register(*made)
              .Add({}, prometheus::Summary::Quantiles{{0.5, 0.05}, {0.9, 0.01}, {0.99, 0.001}});
      for (int j = 0; j < kSamples; j++)
        summary.Observe(get_sample(j));
    }
    return made;
  }();
  return *registry;
}

void text_library(benchmark::State &state) {
  auto &library = get_library();
  for (auto _ : state) {
    state.PauseTiming();
    library.report();
    state.ResumeTiming();
    library.make_text();
  }
  state.counters["bytes a metric"] = library.bytes_per_metric;
}

void text_prometheus(benchmark::State &state) {
  auto families = get_peer().Collect();
  prometheus::TextSerializer serializer;
  for (auto _ : state)
    benchmark::DoNotOptimize(serializer.Serialize(families));
}

void pass_and_text_library(benchmark::State &state) {
  auto &library = get_library();
  for (auto _ : state) {
    library.report();
    library.make_text();
  }
}

void pass_and_text_prometheus(benchmark::State &state) {
  auto &peer = get_peer();
  prometheus::TextSerializer serializer;
  for (auto _ : state)
    benchmark::DoNotOptimize(serializer.Serialize(peer.Collect()));
}

// A pass with one metric more than the one before, and its text.
void changed_text_library(benchmark::State &state) {
  auto &library = get_library();
  auto *reporter = VEK_METRIC_REPORTER(library.reporter);
  int number = 0;
  for (auto _ : state) {
    g_autofree char *name = g_strdup_printf("new%d", number++);
    VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, name, nullptr, nullptr, 0, 1);
    library.report();
    library.make_text();
  }
}

#ifdef WITH_WEB

// Asks again and again, each time over a new connection, on a thread of its own.
class Client {
public:
  Client(guint port, const char *headers)
      : port(port),
        request(std::string("GET /metrics HTTP/1.1\r\nHost: localhost\r\n") + headers + "\r\n"),
        thread([this] { run(); }) {}
  ~Client() {
    ended = true;
    asked = true;
    asked.notify_one();
    thread.join();
  }

  void ask() {
    answered = false;
    asked = true;
    asked.notify_one();
    while (!answered)
      g_main_context_iteration(nullptr, TRUE);
  }

private:
  GSocket *connect() {
    auto *socket = g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_STREAM,
                                G_SOCKET_PROTOCOL_DEFAULT, nullptr);
    g_autoptr(GSocketAddress) address = g_inet_socket_address_new_from_string("127.0.0.1", port);
    if (!g_socket_connect(socket, address, nullptr, nullptr))
      g_error("Cannot connect");
    return socket;
  }

  void run() {
    for (;;) {
      asked.wait(false);
      asked = false;
      if (ended)
        return;
      g_autoptr(GSocket) connection = connect();
      g_socket_send(connection, request.data(), request.size(), nullptr, nullptr);
      static char buffer[1 << 18];
      while (g_socket_receive(connection, buffer, sizeof buffer, nullptr, nullptr) > 0) {
      }
      answered = true;
      g_main_context_wakeup(nullptr);
    }
  }

  guint port;
  std::string request;
  std::atomic<bool> asked = false, answered = false, ended = false;
  std::thread thread;
};

void serve(benchmark::State &state, const char *headers) {
  auto &library = get_library();
  library.report();
  auto *server = vek_web_server_new(library.reporter);
  if (!vek_web_server_listen(server, nullptr, 0, nullptr))
    g_error("Cannot listen");
  {
    Client client(vek_web_server_get_port(server), headers);
    client.ask();
    for (auto _ : state)
      client.ask();
  }
  g_object_unref(server);
  settle_main_context();
}

void serve_plain(benchmark::State &state) {
  serve(state, "");
}

void serve_compressed(benchmark::State &state) {
  serve(state, "Accept-Encoding: gzip\r\n");
}

#endif

}  // namespace

const std::vector<Case> cases = {
    {"text of 11000/library", text_library},
    {"text of 11000/prometheus", text_prometheus},
    {"pass and text of 11000/library", pass_and_text_library},
    {"pass and text of 11000/prometheus", pass_and_text_prometheus},
    {"changed pass and text of 11000/library", changed_text_library},
#ifdef WITH_WEB
    {"kept text served/library", serve_plain},
    {"kept text served compressed/library", serve_compressed},
#endif
};
