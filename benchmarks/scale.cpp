// The library with a million of everything: bench-scale CASE.
//
// Prints a line for each figure: what it is, the figure, its unit. Each case belongs into a process
// of its own, for the peak of the memory is the process's.

#include "fixtures.hpp"

#include <malloc.h>
#include <string.h>
#include <time.h>
#include <algorithm>
#include <latch>
#include <thread>
#include <vector>

namespace {

constexpr int kMillion = 1000000;

void print(const char *what, double figure, const char *unit) {
  printf("%s\t%.6g\t%s\n", what, figure, unit);
}

// Seconds. What waits for nobody is measured by its own time, for other programs take some of the
// machine's.
double read_clock(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec + now.tv_nsec / 1e9;
}

template <typename Work>
double measure(clockid_t clock, Work work) {
  double start = read_clock(clock);
  work();
  return read_clock(clock) - start;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double maximum(const std::vector<double> &values) {
  return *std::max_element(values.begin(), values.end());
}

// A field of the kernel's account of this process, in MiB.
double read_memory(const char *field) {
  g_autofree char *status = nullptr;
  g_file_get_contents("/proc/self/status", &status, nullptr, nullptr);
  const char *line = strstr(status, field);
  return g_ascii_strtoull(line + strlen(field) + 1, nullptr, 10) / 1024.0;
}

double read_heap() {
  return static_cast<double>(mallinfo2().uordblks);
}

VekMetricRegistry *make_registry(int n_counters = kMillion) {
  auto *registry = registry_new();
  make_counters(registry, n_counters, [](VekMetricCounter *) {});
  return registry;
}

// Until nothing has happened for a while: writes go on in threads, and wait for a server.
void settle_long() {
  for (int idle = 0; idle < 10; idle++) {
    if (g_main_context_iteration(nullptr, FALSE))
      idle = 0;
    settle_main_context();
    g_usleep(20000);
  }
}

// Runs the periodic pass now, and after that not again by itself, however long this program runs.
void run_pass(VekMetricRegistry *registry) {
  auto *timer = g_main_context_find_source_by_user_data(nullptr, registry);
  g_source_set_ready_time(timer, 0);
  g_main_context_iteration(nullptr, FALSE);
  g_source_set_ready_time(timer, -1);
}

// Periodic passes, the first of which makes the heap of its process grow and is not counted. Of few
// counters they are so short that the median of some is taken.

void pass(const std::vector<VekMetricReporter *> &reporters, int n_counters = kMillion) {
  auto *registry = make_registry(n_counters);
  for (auto *reporter : reporters)
    vek_metric_registry_register_reporter(registry, reporter);
  settle_long();
  print("resident before", read_memory("VmRSS:"), "MiB");

  std::vector<double> times(n_counters < kMillion ? 16 : 2);
  for (double &time : times) {
    time = measure(CLOCK_THREAD_CPUTIME_ID, [&] { run_pass(registry); });
    settle_long();
  }
  double time = median({times.begin() + 1, times.end()});
  print("pass", time * 1e3, "ms");
  print("a counter in a pass", time / n_counters * 1e6, "µs");
  print("resident at most", read_memory("VmHWM:"), "MiB");
}

void pass_nothing() {
  std::vector<VekMetricReporter *> reporters(10);
  std::generate(reporters.begin(), reporters.end(), null_reporter_new);
  pass(reporters);
}

void swallow(const char *) {}

void pass_console() {
  g_set_print_handler(swallow);
  pass({vek_metric_console_reporter_new()});
}

void pass_csv() {
  NullFolder folder("log.csv");
  pass({vek_metric_log_reporter_new("log", folder.path)});
}

template <int n_counters>
void pass_json() {
  NullFolder folder("log.json");
  pass({vek_metric_json_log_reporter_new("log", folder.path, nullptr, 0, 0)}, n_counters);
}

void pass_carbon() {
  auto *server = new Server();
  pass({vek_metric_carbon_reporter_new("site", "127.0.0.1", server->port)});
}

void pass_all() {
  g_set_print_handler(swallow);
  NullFolder csv("log.csv"), json("log.json");
  std::vector<VekMetricReporter *> reporters;
  for (int i = 0; i < 2; i++) {
    auto *server = new Server();
    reporters.insert(reporters.end(),
                     {vek_metric_console_reporter_new(),
                      vek_metric_carbon_reporter_new("site", "127.0.0.1", server->port),
                      vek_metric_json_log_reporter_new("log", json.path, nullptr, 0, 0),
                      vek_metric_log_reporter_new("log", csv.path),
                      vek_metric_timeline_reporter_new("log", csv.path)});
  }
  pass(reporters);
}

// How long others wait for the registry while a pass runs. Creators come one after the other, each
// a tenth of the pass later; look-ups come all the time.

constexpr int kCreators = 10;

void create(VekMetricRegistry *registry, int number) {
  g_autofree char *name = g_strdup_printf("new%d", number);
  vek_metric_registry_counter_new(registry, name, "Count", nullptr);
}

void look_up(VekMetricRegistry *registry) {
  static const char *dimensions[] = {"host", "h7", nullptr};
  g_object_unref(
      vek_metric_registry_get_metric(registry, "requests7", const_cast<char **>(dimensions)));
}

void print_waits(const char *median_of, const char *longest_of, const std::vector<double> &waits) {
  print(median_of, median(waits) * 1e6, "µs");
  print(longest_of, maximum(waits) * 1e6, "µs");
}

void waits() {
  NullFolder folder("log.csv");
  auto *registry = make_registry();
  vek_metric_registry_register_reporter(registry, vek_metric_log_reporter_new("log", folder.path));
  int created = 0;

  std::vector<double> passes, creations, look_ups, idle_creations, idle_look_ups;
  for (int i = 0; i < 1000; i++) {
    idle_creations.push_back(measure(CLOCK_MONOTONIC, [&] { create(registry, created++); }));
    idle_look_ups.push_back(measure(CLOCK_MONOTONIC, [&] { look_up(registry); }));
  }

  double length = measure(CLOCK_MONOTONIC, [&] { run_pass(registry); });
  for (int round = 0; round < 20; round++) {
    std::latch start(kCreators + 2);
    std::atomic<bool> ended = false;
    std::vector<double> waited(kCreators);
    std::vector<std::thread> threads;
    for (int i = 0; i < kCreators; i++)
      threads.emplace_back([&, i, number = created++] {
        start.arrive_and_wait();
        g_usleep(static_cast<gulong>(length * 1e6 * i / kCreators));
        waited[i] = measure(CLOCK_MONOTONIC, [&] { create(registry, number); });
      });
    threads.emplace_back([&] {
      start.arrive_and_wait();
      while (!ended) {
        look_ups.push_back(measure(CLOCK_MONOTONIC, [&] { look_up(registry); }));
        g_usleep(100);
      }
    });
    start.arrive_and_wait();
    passes.push_back(measure(CLOCK_MONOTONIC, [&] { run_pass(registry); }));
    ended = true;
    for (auto &thread : threads)
      thread.join();
    creations.insert(creations.end(), waited.begin(), waited.end());
  }
  print("pass into CSV", median(passes) * 1e3, "ms");
  print_waits("creation during a pass, median", "creation during a pass, longest", creations);
  print("creation without a pass, median", median(idle_creations) * 1e6, "µs");
  print_waits("look-up during a pass, median", "look-up during a pass, longest", look_ups);
  print("look-up without a pass, median", median(idle_look_ups) * 1e6, "µs");
}

// A million ranges in one timeline.

void timeline() {
  auto *store = vek_metric_range_store_new();
  double heap = read_heap();
  double added = measure(CLOCK_THREAD_CPUTIME_ID, [&] {
    for (int i = 0; i < kMillion; i++)
      vek_metric_store_add_range(store, i, i, i + 1);
  });
  print("memory of a range", (read_heap() - heap) / kMillion, "bytes");
  print("a range added to a store", added / kMillion * 1e9, "ns");
  GSList *moved;
  double moving = measure(CLOCK_THREAD_CPUTIME_ID, [&] {
    moved = vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(store));
  });
  print("a million moved out of a store", moving * 1e6, "µs");
  g_slist_free_full(moved, g_free);

  NullFolder folder("log.csv");
  auto *registry = registry_new();
  auto *timeline = vek_metric_registry_timeline_new(registry, "work");
  auto *reporter = vek_metric_timeline_reporter_new("log", folder.path);
  gint64 start = g_get_monotonic_time();
  added = measure(CLOCK_THREAD_CPUTIME_ID, [&] {
    for (int i = 0; i < kMillion; i++)
      vek_metric_timeline_add_range(timeline, i, start + i, start + i + 1);
  });
  print("a range added to a timeline", added / kMillion * 1e9, "ns");
  double passed =
      measure(CLOCK_THREAD_CPUTIME_ID, [&] { vek_metric_registry_report(registry, reporter); });
  print("a range in a pass", passed / kMillion * 1e9, "ns");
  print("resident at most", read_memory("VmHWM:"), "MiB");
}

// A carbon queue of a million lines, while the server does not read, and when it does.

void queue() {
  auto *registry = make_registry();
  Server server(false);
  auto *reporter = vek_metric_carbon_reporter_new("site", "127.0.0.1", server.port);
  settle_long();

  double heap = read_heap();
  double queued =
      measure(CLOCK_THREAD_CPUTIME_ID, [&] { vek_metric_registry_report(registry, reporter); });
  double size = read_heap() - heap;
  print("a line queued", queued / kMillion * 1e9, "ns");
  print("memory of a waiting line", size / kMillion, "bytes");

  settle_long();
  print("lines that the kernel takes unread", (1 - (read_heap() - heap) / size) * kMillion, "");

  double busy;
  g_object_unref(reporter);  // goes with its last line
  double drained = measure(CLOCK_MONOTONIC, [&] {
    busy = measure(CLOCK_THREAD_CPUTIME_ID, [&] {
      server.start_reading();
      while (!server.ended)
        g_main_context_iteration(nullptr, FALSE);
    });
  });
  print("draining", drained, "s");
  print("a line sent", busy / kMillion * 1e6, "µs");
  print("a line on the wire", static_cast<double>(server.n_bytes) / kMillion, "bytes");
}

struct Case {
  const char *name;
  void (*run)();
};

constexpr Case cases[] = {
    {"pass-nothing", pass_nothing},
    {"pass-console", pass_console},
    {"pass-csv", pass_csv},
    {"pass-json-1000", pass_json<1000>},
    {"pass-json-100000", pass_json<100000>},
    {"pass-json", pass_json<kMillion>},
    {"pass-carbon", pass_carbon},
    {"pass-all", pass_all},
    {"waits", waits},
    {"timeline", timeline},
    {"queue", queue},
};

}  // namespace

int main(int argc, char **argv) {
  for (const Case &one : cases)
    if (argc == 2 && strcmp(argv[1], one.name) == 0) {
      one.run();
      return 0;
    }
  fprintf(stderr, "usage: %s CASE\n", argv[0]);
  return 2;
}
