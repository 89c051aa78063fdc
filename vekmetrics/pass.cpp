#include "pass.hpp"

#include "common/internal.hpp"
#include "metric.hpp"
#include "reporter.hpp"

#include <pthread.h>
#include <span>
#include <utility>

static void report_metric(VekMetric *metric, GSList *reporters) {
  vek_return_if_fail(VEK_IS_METRIC(metric));

  gboolean &active = vek_metric_get_private(metric)->active;
  if (!active)
    return;
  vek_metric_report(metric, reporters);

  // Only the table holds it: this was its last report.
  if (vekin::as<GObject>(metric)->ref_count == 1)
    active = FALSE;
}

// Metrics lie scattered over the heap, and a pass over many would wait for memory at each. So they
// wait in batches, and what the reports of a batch will read is fetched for all of it first: the
// waits pass together.

namespace {

// As much of a metric as most reports read. GObject puts private data before the instance.
struct Head {
  alignas(2 * sizeof(gsize)) VekMetricPrivate priv;
  VekMetric instance;
  GRWLock lock;
  gint64 figures[2];
};

template <typename T>
void fetch_ahead(gconstpointer memory) {
  static constexpr gsize kCacheLine = 64;
  auto *start = static_cast<const char *>(memory);
  for (gsize at = 0; at < sizeof(T); at += kCacheLine)
    __builtin_prefetch(start + at);
  __builtin_prefetch(start + sizeof(T) - 1);
}

// What GLib locks lies apart from the GRWLock.
void fetch_lock_ahead(const GRWLock *lock) {
  fetch_ahead<pthread_rwlock_t>(lock->p);
}

class Batch {
public:
  explicit Batch(GSList *reporters) : reporters(reporters) {}

  void add(VekMetric *metric) {
    fetch_ahead<Head>(vek_metric_get_private(metric));
    metrics[n_metrics++] = metric;
    if (n_metrics == std::size(metrics))
      report();
  }

  // Not inline: add() then has no registers to save.
  [[gnu::noinline]] void report() {
    std::span waiting(metrics, std::exchange(n_metrics, 0));
    for (auto *metric : waiting)
      if (auto *lock = VEK_IS_METRIC(metric) ? vek_metric_get_private(metric)->lock : nullptr)
        fetch_lock_ahead(lock);
    for (auto *metric : waiting)
      report_metric(metric, reporters);
  }

private:
  GSList *reporters;
  VekMetric *metrics[128];
  gsize n_metrics = 0;
};

}  // namespace

static void add_to_batch(gpointer, gpointer metric, gpointer batch) {
  vekin::as<Batch>(batch)->add(vekin::as<VekMetric>(metric));
}

void vekin::run_pass(GHashTable *metrics, GSList *reporters) {
  Batch batch(reporters);
  g_hash_table_foreach(metrics, add_to_batch, &batch);
  batch.report();

  for (auto *reporter : Each<VekMetricReporter>(reporters))
    vek_metric_reporter_flush(reporter);
}
