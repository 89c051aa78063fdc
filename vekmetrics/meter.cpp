#include "meter.h"

#include "common/internal.hpp"
#include "metric.hpp"
#include "registry.hpp"
#include "reporter.hpp"

struct _VekMetricMeter {
  VekMetric parent_instance;
  gint64 time_constant;    // µs; set at construction only
  gint64 sampling_period;  // µs; set at construction only

  GRWLock lock;  // guards the fields below
  gdouble total;
  gdouble uncounted;  // marked since the last tick
  gboolean rate_initialised;
  gdouble rate;      // units per microsecond
  gint64 last_tick;  // monotonic clock in µs; 0 while the clock is not started
  gint64 time;       // of the last tick, wall clock in µs; at first, of creation
};
static_assert(vekin::ZeroFillable<VekMetricMeter>);

enum : guint { PROP_TIME_CONSTANT = 1, PROP_SAMPLING_PERIOD, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_TYPE(VekMetricMeter, vek_metric_meter, VEK_TYPE_METRIC)
VEK_QUICK_TYPE_TEST(METRIC_METER, VekMetricMeter, vek_metric_meter)

static constexpr gdouble per_second(gdouble rate) {
  return rate * G_USEC_PER_SEC;
}

// Brings the rate up to date, if more than a sampling period has passed. Under the writer lock.
static void tick_if_due(VekMetricMeter *self, gint64 now) {
  gint64 elapsed = now - self->last_tick;
  if (elapsed <= self->sampling_period)
    return;

  gdouble instant = self->uncounted / static_cast<gdouble>(elapsed);
  if (self->rate_initialised) {
    // Above 1 when more than the time constant has passed: the rate then goes beyond the instant
    // one.
    gdouble alpha = static_cast<gdouble>(elapsed) / static_cast<gdouble>(self->time_constant);
    self->rate = self->rate + alpha * (instant - self->rate);
    if (self->rate < 0.0)  // not-a-number stays
      self->rate = 0.0;
  } else {
    self->rate = instant;
    self->rate_initialised = TRUE;
  }
  self->uncounted = 0.0;
  self->last_tick = now;
  self->time = g_get_real_time();
}

static void vek_metric_meter_set_property(GObject *object, guint id, const GValue *value,
                                          GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricMeter>(object);

  switch (id) {
  case PROP_TIME_CONSTANT: self->time_constant = g_value_get_int64(value); break;
  case PROP_SAMPLING_PERIOD: self->sampling_period = g_value_get_int64(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_meter_get_property(GObject *object, guint id, GValue *value,
                                          GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricMeter>(object);

  switch (id) {
  case PROP_TIME_CONSTANT: g_value_set_int64(value, self->time_constant); break;
  case PROP_SAMPLING_PERIOD: g_value_set_int64(value, self->sampling_period); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_meter_finalize(GObject *object) {
  g_rw_lock_clear(&vekin::as<VekMetricMeter>(object)->lock);

  G_OBJECT_CLASS(vek_metric_meter_parent_class)->finalize(object);
}

static void vek_metric_meter_report(VekMetric *metric, GSList *reporters) {
  auto *self = vekin::as<VekMetricMeter>(metric);
  auto *priv = vek_metric_get_private(metric);

  // The time first: this report carries the stamp of the tick before the one that reading the rate
  // may make.
  gint64 time = vek_metric_meter_get_time(self);
  gdouble rate = vek_metric_meter_get_rate(self);
  for (auto *reporter : vekin::Each<VekMetricReporter>(reporters))
    vek_metric_reporter_process_value(reporter, priv->name, priv->dimensions, priv->unit, time,
                                      rate);
}

static void vek_metric_meter_class_init(VekMetricMeterClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_meter_set_property;
  object_class->get_property = vek_metric_meter_get_property;
  object_class->finalize = vek_metric_meter_finalize;
  VEK_METRIC_CLASS(klass)->report = vek_metric_meter_report;

  properties[PROP_TIME_CONSTANT] = vekin::property<g_param_spec_int64>(
      "time-constant", G_USEC_PER_SEC, G_MAXINT64, 60 * G_USEC_PER_SEC);
  properties[PROP_SAMPLING_PERIOD] =
      vekin::property<g_param_spec_int64>("sampling-period", 1, G_MAXINT64, G_USEC_PER_SEC);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_meter_init(VekMetricMeter *self) {
  vek_metric_init_lock(vekin::as<VekMetric>(self), &self->lock);
  vekin::WriterLock held(self->lock);
  self->time = g_get_real_time();
}

void vek_metric_meter_mark(VekMetricMeter *meter, gdouble value) {
  vek_return_if_fail(VEK_IS_METRIC_METER(meter));
  vek_return_if_fail(value >= 0);

  vekin::WriterLock held(meter->lock);
  if (meter->last_tick == 0) {
    // A rate needs a beginning: this mark is that, and is not counted.
    meter->last_tick = g_get_monotonic_time();
    meter->time = g_get_real_time();
    return;
  }
  meter->total += value;
  meter->uncounted += value;
  tick_if_due(meter, g_get_monotonic_time());
}

gdouble vek_metric_meter_get_rate(VekMetricMeter *meter) {
  vek_return_val_if_fail(VEK_IS_METRIC_METER(meter), 0.0);

  if (!g_rw_lock_writer_trylock(&meter->lock)) {
    // Somebody is at it: do not wait to update.
    vekin::ReaderLock held(meter->lock);
    return per_second(meter->rate);
  }
  tick_if_due(meter, g_get_monotonic_time());
  gdouble rate = meter->rate;
  g_rw_lock_writer_unlock(&meter->lock);
  return per_second(rate);
}

gdouble vek_metric_meter_get_total(VekMetricMeter *meter) {
  vek_return_val_if_fail(VEK_IS_METRIC_METER(meter), 0.0);

  vekin::ReaderLock held(meter->lock);
  return meter->total;
}

gint64 vek_metric_meter_get_time(VekMetricMeter *meter) {
  vek_return_val_if_fail(VEK_IS_METRIC_METER(meter), 0);

  vekin::ReaderLock held(meter->lock);
  return meter->time;
}

VekMetricMeter *vek_metric_registry_meter_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, gchar **dimensions) {
  vek_return_val_if_fail(VEK_IS_METRIC_REGISTRY(registry), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);

  return vekin::create_kind<VekMetricMeter>(registry, VEK_TYPE_METRIC_METER, name, unit,
                                            dimensions);
}
