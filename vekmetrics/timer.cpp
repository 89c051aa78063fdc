#include "timer.h"

#include "common/internal.hpp"
#include "histogram.hpp"
#include "registry.hpp"

#include <string_view>

struct _VekMetricTimer {
  VekMetricHistogram parent_instance;

  gint64 divisor;  // microseconds to the unit; 0 for a unit that is missing or not known
  gint64 start;    // monotonic clock in µs; of the last start
};
static_assert(vekin::ZeroFillable<VekMetricTimer>);

G_DEFINE_TYPE(VekMetricTimer, vek_metric_timer, VEK_TYPE_METRIC_HISTOGRAM)
VEK_QUICK_TYPE_TEST(METRIC_TIMER, VekMetricTimer, vek_metric_timer)

static constexpr struct {
  std::string_view unit;
  gint64 divisor;
} known_divisors[] = {
    {"Seconds", 1000000},
    {"Milliseconds", 1000},
    {"Microseconds", 1},
};

static gint64 find_divisor(std::string_view unit) {
  for (const auto &known : known_divisors)
    if (known.unit == unit)
      return known.divisor;
  return 0;
}

// With a divisor of 0 this records infinity or not-a-number: the warning at construction said so.
static void record(VekMetricTimer *self, gint64 usec) {
  vekin::add_sample(vekin::as<VekMetricHistogram>(self),
                    static_cast<gdouble>(usec) / static_cast<gdouble>(self->divisor));
}

static void vek_metric_timer_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_timer_parent_class)->constructed(object);

  auto *self = vekin::as<VekMetricTimer>(object);
  const char *name = vek_metric_get_name(vekin::as<VekMetric>(self));
  const char *unit = vek_metric_get_unit(vekin::as<VekMetric>(self));
  if (!unit) {
    vek_warning("Unspecified unit for timer metric %s", name);
    return;
  }
  self->divisor = find_divisor(unit);
  if (self->divisor == 0)
    vek_warning("Invalid unit %s for timer metric %s", unit, name);
}

static void vek_metric_timer_class_init(VekMetricTimerClass *klass) {
  G_OBJECT_CLASS(klass)->constructed = vek_metric_timer_constructed;
}

static void vek_metric_timer_init(VekMetricTimer *) {}

void vek_metric_timer_start(VekMetricTimer *timer) {
  vek_return_if_fail(VEK_IS_METRIC_TIMER(timer));

  timer->start = g_get_monotonic_time();
}

void vek_metric_timer_stop(VekMetricTimer *timer) {
  vek_return_if_fail(VEK_IS_METRIC_TIMER(timer));

  record(timer, g_get_monotonic_time() - timer->start);
}

void vek_metric_timer_set_usec(VekMetricTimer *timer, gint64 usec) {
  vek_return_if_fail(VEK_IS_METRIC_TIMER(timer));

  record(timer, usec);
}

VekMetricTimer *vek_metric_registry_timer_new(VekMetricRegistry *registry, const gchar *name,
                                              const gchar *unit, VekMetricStore *store,
                                              gchar **dimensions) {
  vek_return_val_if_fail(VEK_IS_METRIC_REGISTRY(registry), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);
  vek_return_val_if_fail(unit != NULL, nullptr);

  return vekin::create_kind<VekMetricTimer>(registry, VEK_TYPE_METRIC_TIMER, name, unit, dimensions,
                                            "store", store);
}
