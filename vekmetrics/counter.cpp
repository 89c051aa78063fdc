#include "counter.h"

#include "common/internal.hpp"
#include "metric.hpp"
#include "registry.hpp"
#include "reporter.hpp"

struct _VekMetricCounter {
  VekMetric parent_instance;

  GRWLock lock;  // guards the fields below
  gint64 time;   // of the last change, wall clock in µs
  gint64 count;
};
static_assert(vekin::ZeroFillable<VekMetricCounter>);

G_DEFINE_TYPE(VekMetricCounter, vek_metric_counter, VEK_TYPE_METRIC)
VEK_QUICK_TYPE_TEST(METRIC_COUNTER, VekMetricCounter, vek_metric_counter)

static void add_value(VekMetricCounter *self, gint64 value) {
  vekin::WriterLock held(self->lock);
  self->time = g_get_real_time();
  self->count = vekin::wrapping_add(self->count, value);
}

static gint64 read_count(VekMetricCounter *self) {
  vekin::ReaderLock held(self->lock);
  return self->count;
}

static gint64 read_time(VekMetricCounter *self) {
  vekin::ReaderLock held(self->lock);
  return self->time;
}

static void vek_metric_counter_finalize(GObject *object) {
  g_rw_lock_clear(&vekin::as<VekMetricCounter>(object)->lock);

  G_OBJECT_CLASS(vek_metric_counter_parent_class)->finalize(object);
}

static void vek_metric_counter_report(VekMetric *metric, GSList *reporters) {
  auto *self = vekin::as<VekMetricCounter>(metric);
  auto *priv = vek_metric_get_private(metric);

  // The time first, and the lock released between: an add that comes between shows a newer count
  // with an older time, and never a change with a time after it.
  gint64 time = read_time(self);
  gint64 count = read_count(self);
  for (auto *reporter : vekin::Each<VekMetricReporter>(reporters))
    vek_metric_reporter_process_count(reporter, priv->name, priv->dimensions, priv->unit, time,
                                      count);
}

static void vek_metric_counter_class_init(VekMetricCounterClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = vek_metric_counter_finalize;
  VEK_METRIC_CLASS(klass)->report = vek_metric_counter_report;
}

static void vek_metric_counter_init(VekMetricCounter *self) {
  vek_metric_init_lock(vekin::as<VekMetric>(self), &self->lock);
  vekin::WriterLock held(self->lock);
  self->time = g_get_real_time();
}

void vek_metric_counter_add(VekMetricCounter *counter, gint64 value) {
  vek_return_if_fail(VEK_IS_METRIC_COUNTER(counter));

  add_value(counter, value);
}

void vek_metric_counter_inc(VekMetricCounter *counter) {
  vek_return_if_fail(VEK_IS_METRIC_COUNTER(counter));

  add_value(counter, 1);
}

void vek_metric_counter_dec(VekMetricCounter *counter) {
  vek_return_if_fail(VEK_IS_METRIC_COUNTER(counter));

  add_value(counter, -1);
}

gint64 vek_metric_counter_get_count(VekMetricCounter *counter) {
  vek_return_val_if_fail(VEK_IS_METRIC_COUNTER(counter), 0);

  return read_count(counter);
}

gint64 vek_metric_counter_get_time(VekMetricCounter *counter) {
  vek_return_val_if_fail(VEK_IS_METRIC_COUNTER(counter), 0);

  return read_time(counter);
}

VekMetricCounter *vek_metric_registry_counter_new(VekMetricRegistry *registry, const gchar *name,
                                                  const gchar *unit, gchar **dimensions) {
  vek_return_val_if_fail(VEK_IS_METRIC_REGISTRY(registry), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);

  return vekin::create_kind<VekMetricCounter>(registry, VEK_TYPE_METRIC_COUNTER, name, unit,
                                              dimensions);
}
