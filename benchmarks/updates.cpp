// The operations of hot paths, against the GLib calls that each cannot do without ("baseline") and
// against prometheus-cpp.

#include "fixtures.hpp"
#include "runner.hpp"

#include <prometheus/family.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/summary.h>
#include <vekmetrics/vekmetrics.hpp>

#include <array>
#include <random>

namespace {

// Metrics live as long as the program: threads share them.

// Counter, gauge and meter.

VekMetricCounter *counter = vek_metric_registry_counter_new(registry_new(), "c", "Count", nullptr);
VekMetricGauge *gauge = vek_metric_registry_gauge_new(registry_new(), "g", "Count", 0, nullptr);
VekMetricMeter *meter = vek_metric_registry_meter_new(registry_new(), "m", "Count", nullptr);

void counter_add_library(benchmark::State &state) {
  for (auto _ : state)
    vek_metric_counter_add(counter, 1);
}

struct BaselineCounter {
  GRWLock lock;
  gint64 time;
  gint64 count;
} baseline_counter;

void counter_add_baseline(benchmark::State &state) {
  for (auto _ : state) {
    g_rw_lock_writer_lock(&baseline_counter.lock);
    baseline_counter.time = g_get_real_time();
    baseline_counter.count += 1;
    g_rw_lock_writer_unlock(&baseline_counter.lock);
  }
}

void gauge_set_library(benchmark::State &state) {
  for (auto _ : state)
    vek_metric_gauge_set_value(gauge, 0.5);
}

struct BaselineGauge {
  GRWLock lock;
  gint64 time;
  gdouble value;
} baseline_gauge;

void gauge_set_baseline(benchmark::State &state) {
  for (auto _ : state) {
    g_rw_lock_writer_lock(&baseline_gauge.lock);
    baseline_gauge.time = g_get_real_time();
    baseline_gauge.value = 0.5;
    g_rw_lock_writer_unlock(&baseline_gauge.lock);
  }
}

void meter_mark_library(benchmark::State &state) {
  for (auto _ : state)
    vek_metric_meter_mark(meter, 1.0);
}

void meter_rate_library(benchmark::State &state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(vek_metric_meter_get_rate(meter));
}

struct BaselineMeter {
  GRWLock lock;
  gdouble total;
  gdouble uncounted;
  gdouble rate;
  gint64 last_tick;

  void tick() {
    gint64 now = g_get_monotonic_time();
    gint64 elapsed = now - last_tick;
    if (elapsed <= G_USEC_PER_SEC)
      return;
    rate += elapsed / 6e7 * (uncounted / elapsed - rate);
    uncounted = 0.0;
    last_tick = now;
  }
} baseline_meter;

void meter_mark_baseline(benchmark::State &state) {
  for (auto _ : state) {
    g_rw_lock_writer_lock(&baseline_meter.lock);
    baseline_meter.total += 1.0;
    baseline_meter.uncounted += 1.0;
    baseline_meter.tick();
    g_rw_lock_writer_unlock(&baseline_meter.lock);
  }
}

void meter_rate_baseline(benchmark::State &state) {
  for (auto _ : state) {
    if (!g_rw_lock_writer_trylock(&baseline_meter.lock))
      continue;
    baseline_meter.tick();
    benchmark::DoNotOptimize(baseline_meter.rate * 1e6);
    g_rw_lock_writer_unlock(&baseline_meter.lock);
  }
}

// Stores, histogram and timer.

VekMetricStore *fixed_time_store = vek_metric_fixed_time_store_new(60 * G_USEC_PER_SEC, 2048);
VekMetricHistogram *histogram =
    vek_metric_registry_histogram_new(registry_new(), "h", "Count", nullptr, nullptr);
VekMetricTimer *timer =
    vek_metric_registry_timer_new(registry_new(), "t", "Milliseconds", nullptr, nullptr);

template <gsize size>
struct BaselineRing {
  GMutex lock;
  gsize n_samples;
  gsize next;
  std::array<gdouble, size> samples;
  std::array<gint64, size> timestamps;

  void add(gdouble value) {
    g_mutex_lock(&lock);
    write(value);
    g_mutex_unlock(&lock);
  }

  void add_stamped(gdouble value) {
    gint64 now = g_get_monotonic_time();
    g_mutex_lock(&lock);
    timestamps[next] = now;
    write(value);
    g_mutex_unlock(&lock);
  }

private:
  void write(gdouble value) {
    samples[next] = value;
    if (n_samples < size)
      n_samples++;
    next = next + 1 == size ? 0 : next + 1;
  }
};
BaselineRing<60> baseline_histogram;
BaselineRing<2048> baseline_fixed_time;

void fixed_time_add_library(benchmark::State &state) {
  for (auto _ : state)
    vek_metric_store_add(fixed_time_store, 0.5);
}

void fixed_time_add_baseline(benchmark::State &state) {
  for (auto _ : state)
    baseline_fixed_time.add_stamped(0.5);
}

void histogram_set_library(benchmark::State &state) {
  for (auto _ : state)
    vek_metric_histogram_set(histogram, 0.5);
}

void histogram_set_baseline(benchmark::State &state) {
  for (auto _ : state)
    baseline_histogram.add(0.5);
}

prometheus::Histogram::BucketBoundaries buckets{0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9};

void histogram_set_prometheus_histogram(benchmark::State &state) {
  prometheus::Histogram peer(buckets);
  for (auto _ : state)
    peer.Observe(0.5);
}

void histogram_set_prometheus_summary(benchmark::State &state) {
  prometheus::Summary peer({{0.5, 0.05}, {0.9, 0.01}, {0.99, 0.001}});
  for (auto _ : state)
    peer.Observe(0.5);
}

void timer_set_usec_library(benchmark::State &state) {
  gint64 usec = 0;
  for (auto _ : state)
    vek_metric_timer_set_usec(timer, ++usec);
}

void timer_set_usec_baseline(benchmark::State &state) {
  gint64 usec = 0;
  for (auto _ : state)
    baseline_histogram.add(static_cast<gdouble>(++usec) / 1000.0);
}

void timer_start_stop_library(benchmark::State &state) {
  for (auto _ : state) {
    vek_metric_timer_start(timer);
    vek_metric_timer_stop(timer);
  }
}

void timer_start_stop_baseline(benchmark::State &state) {
  for (auto _ : state) {
    gint64 start = g_get_monotonic_time();
    gint64 elapsed = g_get_monotonic_time() - start;
    baseline_histogram.add(static_cast<gdouble>(elapsed) / 1000.0);
  }
}

void tally_library(benchmark::State &state) {
  vek::Tally tally(counter);
  for (auto _ : state) {
    tally.inc();
    benchmark::ClobberMemory();
  }
}

void scope_timed_library(benchmark::State &state) {
  for (auto _ : state)
    vek::ScopedTimer scope(timer);
}

void scope_timed_c_calls(benchmark::State &state) {
  for (auto _ : state) {
    gint64 start = g_get_monotonic_time();
    vek_metric_timer_set_usec(timer, g_get_monotonic_time() - start);
  }
}

// Every kind once, by the methods of the C++ interface and by the C calls. References to metrics
// are held by both sides.

struct Kinds {
  vek::Registry registry = vek::Registry::create();
  vek::Counter counter = registry.counter("c", "Count");
  vek::Gauge gauge = registry.gauge("g", "Count");
  vek::Meter meter = registry.meter("m", "Count");
  vek::Histogram histogram = registry.histogram("h", "Count");
  vek::Timer timer = registry.timer("t", "Milliseconds");
};

void update_by_methods(benchmark::State &state) {
  Kinds kinds;
  for (auto _ : state) {
    kinds.counter.inc();
    kinds.gauge.set(0.5);
    kinds.meter.mark(1.0);
    kinds.histogram.set(0.5);
    kinds.timer.set_usec(1);
    benchmark::DoNotOptimize(kinds.counter.count());
  }
}

void update_by_c_calls(benchmark::State &state) {
  Kinds kinds;
  VekMetricCounter *counter = kinds.counter;
  VekMetricGauge *gauge = kinds.gauge;
  VekMetricMeter *meter = kinds.meter;
  VekMetricHistogram *histogram = kinds.histogram;
  VekMetricTimer *timer = kinds.timer;
  for (auto _ : state) {
    vek_metric_counter_inc(counter);
    vek_metric_gauge_set_value(gauge, 0.5);
    vek_metric_meter_mark(meter, 1.0);
    vek_metric_histogram_set(histogram, 0.5);
    vek_metric_timer_set_usec(timer, 1);
    benchmark::DoNotOptimize(vek_metric_counter_get_count(counter));
  }
}

void snapshot_by_methods(benchmark::State &state) {
  Kinds kinds;
  for (auto _ : state)
    benchmark::DoNotOptimize(kinds.timer.snapshot().quantile(0.5));
}

void snapshot_by_c_calls(benchmark::State &state) {
  Kinds kinds;
  auto *histogram = static_cast<VekMetricHistogram *>(kinds.timer);
  for (auto _ : state) {
    VekMetricSnapshot *snapshot = vek_metric_histogram_get_snapshot(histogram);
    benchmark::DoNotOptimize(vek_metric_snapshot_get_quantile(snapshot, 0.5));
    vek_metric_snapshot_unref(snapshot);
  }
}

void counter_inc_prometheus(benchmark::State &state) {
  static prometheus::Counter peer;
  for (auto _ : state)
    peer.Increment();
}

// Snapshots. The samples differ from turn to turn: sorting the same ones again trains the branch
// predictor and flatters qsort.

std::vector<std::vector<gdouble>> make_samples(gsize n_samples) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<gdouble> uniform;
  std::vector<std::vector<gdouble>> all(4096 * 60 / n_samples, std::vector<gdouble>(n_samples));
  for (auto &samples : all)
    for (auto &sample : samples)
      sample = uniform(random);
  return all;
}

template <gsize n_samples>
void snapshot_library(benchmark::State &state) {
  auto samples = make_samples(n_samples);
  gsize turn = 0;
  for (auto _ : state)
    vek_metric_snapshot_unref(
        vek_metric_snapshot_new(samples[turn++ % samples.size()].data(), n_samples));
}

int compare(const void *a, const void *b) {
  auto left = *static_cast<const gdouble *>(a);
  auto right = *static_cast<const gdouble *>(b);
  return left < right ? -1 : left > right ? 1 : 0;
}

template <gsize n_samples>
void snapshot_baseline(benchmark::State &state) {
  auto samples = make_samples(n_samples);
  gsize turn = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(g_get_real_time());
    gpointer copy = g_memdup2(samples[turn++ % samples.size()].data(), n_samples * sizeof(gdouble));
    qsort(copy, n_samples, sizeof(gdouble), compare);
    g_free(copy);
  }
}

// Looking metrics up and making them.

const char *one_pair[] = {"host", "h1", nullptr};
const char *two_pairs[] = {"host", "h1", "disk", "sda", nullptr};

char **as_strv(const char **strings) {
  return const_cast<char **>(strings);
}

template <auto *dimensions>
void look_up_library(benchmark::State &state) {
  auto *registry = registry_new();
  vek_metric_registry_counter_new(registry, "requests", "Count", as_strv(*dimensions));
  for (auto _ : state)
    g_object_unref(vek_metric_registry_get_metric(registry, "requests", as_strv(*dimensions)));
}

struct BaselineRegistry {
  GRWLock lock{};
  GHashTable *metrics = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_object_unref);

  static char *get_key(const char *name, char **dimensions) {
    g_autofree char *joined = g_strjoinv(".", dimensions);
    return g_strconcat(joined, ".", name, nullptr);
  }
};

template <auto *dimensions>
void look_up_baseline(benchmark::State &state) {
  BaselineRegistry registry;
  g_hash_table_insert(registry.metrics, BaselineRegistry::get_key("requests", as_strv(*dimensions)),
                      g_object_ref(counter));
  for (auto _ : state) {
    g_autofree char *key = BaselineRegistry::get_key("requests", as_strv(*dimensions));
    g_rw_lock_reader_lock(&registry.lock);
    auto *metric = static_cast<GObject *>(g_hash_table_lookup(registry.metrics, key));
    g_object_ref(metric);
    g_rw_lock_reader_unlock(&registry.lock);
    g_object_unref(metric);
  }
}

void look_up_prometheus(benchmark::State &state) {
  prometheus::Registry registry;
  auto &family = prometheus::BuildCounter().Name("requests").Register(registry);
  for (auto _ : state)
    benchmark::DoNotOptimize(&family.Add({{"host", "h1"}}));
}

// A metric of no more than its properties, the lock and two numbers.
struct BaselineMetric {
  GObject parent_instance;
  GRWLock lock;
  gint64 time;
  gint64 count;
  char *name;
  char *unit;
  char **dimensions;
  gboolean active;
};
struct BaselineMetricClass {
  GObjectClass parent_class;
};
G_DEFINE_TYPE(BaselineMetric, baseline_metric, G_TYPE_OBJECT)

void baseline_metric_set_property(GObject *object, guint id, const GValue *value, GParamSpec *) {
  auto *self = reinterpret_cast<BaselineMetric *>(object);
  switch (id) {
  case 1: self->name = g_value_dup_string(value); break;
  case 2: self->unit = g_value_dup_string(value); break;
  case 3: self->dimensions = static_cast<char **>(g_value_dup_boxed(value)); break;
  case 4: self->active = g_value_get_boolean(value); break;
  }
}

void baseline_metric_finalize(GObject *object) {
  auto *self = reinterpret_cast<BaselineMetric *>(object);
  g_rw_lock_clear(&self->lock);
  g_free(self->name);
  g_free(self->unit);
  g_strfreev(self->dimensions);
  G_OBJECT_CLASS(baseline_metric_parent_class)->finalize(object);
}

void baseline_metric_class_init(BaselineMetricClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = baseline_metric_set_property;
  object_class->finalize = baseline_metric_finalize;
  auto only = static_cast<GParamFlags>(G_PARAM_WRITABLE | G_PARAM_CONSTRUCT_ONLY);
  auto also = static_cast<GParamFlags>(G_PARAM_WRITABLE | G_PARAM_CONSTRUCT);
  g_object_class_install_property(object_class, 1,
                                  g_param_spec_string("name", "", "", nullptr, only));
  g_object_class_install_property(object_class, 2,
                                  g_param_spec_string("unit", "", "", nullptr, only));
  g_object_class_install_property(object_class, 3,
                                  g_param_spec_boxed("dimensions", "", "", G_TYPE_STRV, only));
  g_object_class_install_property(object_class, 4,
                                  g_param_spec_boolean("active", "", "", TRUE, also));
}

void baseline_metric_init(BaselineMetric *self) {
  g_rw_lock_init(&self->lock);
  g_rw_lock_writer_lock(&self->lock);
  self->time = g_get_real_time();
  g_rw_lock_writer_unlock(&self->lock);
}

BaselineMetric *baseline_create(BaselineRegistry &registry, const char *name, const char *unit,
                                char **dimensions) {
  auto *created = static_cast<BaselineMetric *>(g_object_new(
      baseline_metric_get_type(), "name", name, "unit", unit, "dimensions", dimensions, nullptr));
  char *key = BaselineRegistry::get_key(created->name, created->dimensions);
  g_rw_lock_writer_lock(&registry.lock);
  auto *stored = static_cast<BaselineMetric *>(g_hash_table_lookup(registry.metrics, key));
  if (!stored) {
    g_hash_table_insert(registry.metrics, key, g_object_ref(created));
    g_rw_lock_writer_unlock(&registry.lock);
    return created;
  }
  g_object_ref(stored);
  g_rw_lock_writer_unlock(&registry.lock);
  g_free(key);
  g_object_unref(created);
  return stored;
}

// A batch of new names; the registry that they went into is dropped outside the measured time.
constexpr int kBatch = 1000;

std::vector<std::string> make_names() {
  std::vector<std::string> names;
  for (int i = 0; i < kBatch; i++)
    names.push_back("requests" + std::to_string(i));
  return names;
}

void create_library(benchmark::State &state) {
  auto names = make_names();
  while (state.KeepRunningBatch(kBatch)) {
    auto *registry = registry_new();
    for (const auto &name : names)
      g_object_unref(
          vek_metric_registry_counter_new(registry, name.c_str(), "Count", as_strv(one_pair)));
    state.PauseTiming();
    g_object_unref(registry);
    state.ResumeTiming();
  }
}

void create_baseline(benchmark::State &state) {
  auto names = make_names();
  while (state.KeepRunningBatch(kBatch)) {
    BaselineRegistry registry;
    for (const auto &name : names)
      g_object_unref(baseline_create(registry, name.c_str(), "Count", as_strv(one_pair)));
    state.PauseTiming();
    g_hash_table_unref(registry.metrics);
    state.ResumeTiming();
  }
}

void get_again_library(benchmark::State &state) {
  auto *registry = registry_new();
  auto *first = vek_metric_registry_counter_new(registry, "requests", "Count", as_strv(one_pair));
  for (auto _ : state)
    g_object_unref(
        vek_metric_registry_counter_new(registry, "requests", "Count", as_strv(one_pair)));
  g_object_unref(first);
}

// Dimensions with a value that is computed at run time.

void get_again_by_methods(benchmark::State &state) {
  auto registry = vek::Registry::create();
  std::string host = "h1";
  vek::Counter first = registry.counter("requests", "Count", {{"host", host}});
  for (auto _ : state)
    registry.counter("requests", "Count", {{"host", host}});
}

void get_again_by_c_calls(benchmark::State &state) {
  auto *registry = registry_new();
  std::string host = "h1";
  auto *first = vek_metric_registry_counter_new(registry, "requests", "Count", as_strv(one_pair));
  for (auto _ : state) {
    const char *dimensions[] = {"host", host.c_str(), nullptr};
    g_object_unref(
        vek_metric_registry_counter_new(registry, "requests", "Count", as_strv(dimensions)));
  }
  g_object_unref(first);
}

void get_again_baseline(benchmark::State &state) {
  BaselineRegistry registry;
  auto *first = baseline_create(registry, "requests", "Count", as_strv(one_pair));
  for (auto _ : state)
    g_object_unref(baseline_create(registry, "requests", "Count", as_strv(one_pair)));
  g_object_unref(first);
}

}  // namespace

const std::vector<Case> cases = {
    {"counter add/library", counter_add_library},
    {"counter add/baseline", counter_add_baseline},
    {"counter add/prometheus", counter_inc_prometheus},
    {"increment by a tally/library", tally_library},
    {"increment by a tally/prometheus", counter_inc_prometheus},
    {"scoped timer/library", scope_timed_library},
    {"scoped timer/C calls", scope_timed_c_calls},
    {"update by methods/library", update_by_methods},
    {"update by methods/C calls", update_by_c_calls},
    {"snapshot by methods/library", snapshot_by_methods},
    {"snapshot by methods/C calls", snapshot_by_c_calls},
    {"metric got by methods/library", get_again_by_methods},
    {"metric got by methods/C calls", get_again_by_c_calls},
    {"counter add of two threads/library", counter_add_library, 2},
    {"counter add of two threads/baseline", counter_add_baseline, 2},
    {"gauge set/library", gauge_set_library},
    {"gauge set/baseline", gauge_set_baseline},
    {"meter mark/library", meter_mark_library},
    {"meter mark/baseline", meter_mark_baseline},
    {"meter rate/library", meter_rate_library},
    {"meter rate/baseline", meter_rate_baseline},
    {"fixed-time add/library", fixed_time_add_library},
    {"fixed-time add/baseline", fixed_time_add_baseline},
    {"histogram set/library", histogram_set_library},
    {"histogram set/baseline", histogram_set_baseline},
    {"histogram set/prometheus histogram", histogram_set_prometheus_histogram},
    {"histogram set/prometheus summary", histogram_set_prometheus_summary},
    {"timer set_usec/library", timer_set_usec_library},
    {"timer set_usec/baseline", timer_set_usec_baseline},
    {"timer start and stop/library", timer_start_stop_library},
    {"timer start and stop/baseline", timer_start_stop_baseline},
    {"snapshot of 60/library", snapshot_library<60>},
    {"snapshot of 60/baseline", snapshot_baseline<60>},
    {"snapshot of 2048/library", snapshot_library<2048>},
    {"snapshot of 2048/baseline", snapshot_baseline<2048>},
    {"look-up with one pair/library", look_up_library<&one_pair>},
    {"look-up with one pair/baseline", look_up_baseline<&one_pair>},
    {"look-up with one pair/prometheus", look_up_prometheus},
    {"look-up with two pairs/library", look_up_library<&two_pairs>},
    {"look-up with two pairs/baseline", look_up_baseline<&two_pairs>},
    {"metric created/library", create_library},
    {"metric created/baseline", create_baseline},
    {"metric got again/library", get_again_library},
    {"metric got again/baseline", get_again_baseline},
};
