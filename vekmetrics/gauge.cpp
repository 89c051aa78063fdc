#include "gauge.h"

#include "common/internal.hpp"
#include "metric.hpp"
#include "registry.hpp"
#include "reporter.hpp"

#include <utility>

struct _VekMetricGauge {
  VekMetric parent_instance;

  GRWLock lock;  // guards the fields below, except interval
  gint64 time;   // of the last change, wall clock in µs; 0 while there was none
  gdouble value;
  gint64 interval;             // µs; below 1 for none; set at construction only
  gint64 interval_index;       // which interval since the epoch it was when last looked at
  gdouble previous_value;      // as it stood when that interval began
  gint64 last_reported_start;  // of the interval whose boundary was last reported
};
static_assert(vekin::ZeroFillable<VekMetricGauge>);

enum : guint { PROP_INTERVAL = 1, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_TYPE(VekMetricGauge, vek_metric_gauge, VEK_TYPE_METRIC)
VEK_QUICK_TYPE_TEST(METRIC_GAUGE, VekMetricGauge, vek_metric_gauge)

static bool has_interval(const VekMetricGauge *self) {
  return self->interval >= 1;
}

// Moves on to the interval of now, if it is another one: keeps the value that it begins with.
// Tells whether it did.
static bool roll(VekMetricGauge *self, gint64 now) {
  gint64 index = now / self->interval;
  if (index == self->interval_index)
    return false;
  self->previous_value = self->value;
  self->interval_index = index;
  return true;
}

// Whether the gauge changed within the interval before the one that begins at start, its very
// beginning excepted, or later. The difference cannot overflow, as a sum of time and interval
// could.
static bool changed_since_previous(const VekMetricGauge *self, gint64 start) {
  return self->time > start - self->interval;
}

// The value that the gauge shows and its time; leaves both as they are while it shows none. The
// lock is held for writing.
static bool read(VekMetricGauge *self, gdouble *value, gint64 *stamp) {
  if (self->time == 0)
    return false;

  gint64 now = g_get_real_time();
  if (!has_interval(self)) {
    *value = self->value;
    *stamp = now;
    return true;
  }

  roll(self, now);
  gint64 start = self->interval_index * self->interval;
  if (!changed_since_previous(self, start))
    return false;
  *value = self->previous_value;
  *stamp = start;
  return true;
}

// The same for a report, which reports each boundary once.
static bool take_report(VekMetricGauge *self, gdouble *value, gint64 *stamp) {
  vekin::WriterLock held(self->lock);
  if (!read(self, value, stamp))
    return false;
  return !has_interval(self) || std::exchange(self->last_reported_start, *stamp) != *stamp;
}

static void vek_metric_gauge_set_property(GObject *object, guint id, const GValue *value,
                                          GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricGauge>(object);

  switch (id) {
  case PROP_INTERVAL: self->interval = g_value_get_int64(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_gauge_get_property(GObject *object, guint id, GValue *value,
                                          GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricGauge>(object);

  switch (id) {
  case PROP_INTERVAL: g_value_set_int64(value, self->interval); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_gauge_finalize(GObject *object) {
  g_rw_lock_clear(&vekin::as<VekMetricGauge>(object)->lock);

  G_OBJECT_CLASS(vek_metric_gauge_parent_class)->finalize(object);
}

static void vek_metric_gauge_report(VekMetric *metric, GSList *reporters) {
  auto *priv = vek_metric_get_private(metric);

  gdouble value;
  gint64 stamp;
  if (!take_report(vekin::as<VekMetricGauge>(metric), &value, &stamp))
    return;
  for (auto *reporter : vekin::Each<VekMetricReporter>(reporters))
    vek_metric_reporter_process_value(reporter, priv->name, priv->dimensions, priv->unit, stamp,
                                      value);
}

static void vek_metric_gauge_class_init(VekMetricGaugeClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_gauge_set_property;
  object_class->get_property = vek_metric_gauge_get_property;
  object_class->finalize = vek_metric_gauge_finalize;
  VEK_METRIC_CLASS(klass)->report = vek_metric_gauge_report;

  properties[PROP_INTERVAL] = vekin::property<g_param_spec_int64>("interval", 0, G_MAXINT64, 0);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_gauge_init(VekMetricGauge *self) {
  vek_metric_init_lock(vekin::as<VekMetric>(self), &self->lock);
}

void vek_metric_gauge_set_value(VekMetricGauge *gauge, gdouble value) {
  vek_return_if_fail(VEK_IS_METRIC_GAUGE(gauge));

  vekin::WriterLock held(gauge->lock);
  gint64 now = g_get_real_time();
  if (has_interval(gauge))
    roll(gauge, now);
  gauge->time = now;
  gauge->value = value;
}

void vek_metric_gauge_add_value(VekMetricGauge *gauge, gdouble value) {
  vek_return_if_fail(VEK_IS_METRIC_GAUGE(gauge));

  vekin::WriterLock held(gauge->lock);
  gint64 now = g_get_real_time();
  // Only who finds the new interval here starts its sum from zero; if a report, a read or a set
  // found it first, the sum carries on.
  if (has_interval(gauge) && roll(gauge, now))
    gauge->value = 0.0;
  gauge->time = now;
  gauge->value += value;
}

gdouble vek_metric_gauge_get_value(VekMetricGauge *gauge, gint64 *time) {
  vek_return_val_if_fail(VEK_IS_METRIC_GAUGE(gauge), 0.0);

  gdouble value = 0.0;
  gint64 stamp = 0;
  {
    vekin::WriterLock held(gauge->lock);
    read(gauge, &value, &stamp);
  }
  if (time)
    *time = stamp;
  return value;
}

gint64 vek_metric_gauge_get_last_change_time(VekMetricGauge *gauge) {
  vek_return_val_if_fail(VEK_IS_METRIC_GAUGE(gauge), 0);

  vekin::ReaderLock held(gauge->lock);
  return gauge->time;
}

VekMetricGauge *vek_metric_registry_gauge_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, gint64 interval,
                                              gchar **dimensions) {
  vek_return_val_if_fail(VEK_IS_METRIC_REGISTRY(registry), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);

  return vekin::create_kind<VekMetricGauge>(registry, VEK_TYPE_METRIC_GAUGE, name, unit, dimensions,
                                            "interval", interval);
}
