#include "kinds.hpp"

#include "common/internal.hpp"

#include <vekmetrics/vekmetrics.h>

static const vekin::KindHooks *kind_hooks;  // atomic; NULL if there are none
static GPrivate reporting_metric;           // of VekMetric

namespace {

const vekin::KindHooks *get_hooks() {
  return g_atomic_pointer_get(&kind_hooks);
}

// One kind, and the functions of its class that the hooks stand before.
template <GType (*get_type)()>
struct Kind {
  static VekMetricClass *klass;
  static void (*report)(VekMetric *metric, GSList *reporters);
  static void (*constructed)(GObject *object);

  static void on_report(VekMetric *metric, GSList *reporters) {
    auto *outer = vekin::get_reporting_metric();  // whose reporter runs a pass of its own
    g_private_set(&reporting_metric, metric);
    if (auto *hooks = get_hooks())
      hooks->reports(metric, reporters);
    report(metric, reporters);
    g_private_set(&reporting_metric, outer);
  }

  static void on_constructed(GObject *object) {
    constructed(object);
    if (auto *hooks = get_hooks())
      hooks->made(vekin::as<VekMetric>(object));
  }

  static void read() {
    klass = static_cast<VekMetricClass *>(g_type_class_peek(get_type()));
    report = klass->report;
    constructed = klass->parent_class.constructed;
  }

  static void hook() {
    g_atomic_pointer_set(&klass->report, on_report);
    g_atomic_pointer_set(&klass->parent_class.constructed, on_constructed);
  }
};

template <GType (*get_type)()>
VekMetricClass *Kind<get_type>::klass;
template <GType (*get_type)()>
void (*Kind<get_type>::report)(VekMetric *metric, GSList *reporters);
template <GType (*get_type)()>
void (*Kind<get_type>::constructed)(GObject *object);

// All are read before the first is hooked: a timer would otherwise inherit a histogram's hooks.
template <GType (*...get_types)()>
void hook_all() {
  static gsize hooked;
  // While GObject initialises a class, other threads cannot initialise theirs, and a class that is
  // being initialised may wait below. So all of them are initialised before.
  if (!g_atomic_pointer_get(&hooked))
    (g_type_class_ref(get_types()), ...);
  if (!g_once_init_enter(&hooked))
    return;
  (Kind<get_types>::read(), ...);
  (Kind<get_types>::hook(), ...);
  g_once_init_leave(&hooked, 1);
}

}  // namespace

void vekin::hook_kinds(const KindHooks *hooks) {
  if (hooks)
    g_atomic_pointer_set(&kind_hooks, hooks);
  hook_all<vek_metric_counter_get_type, vek_metric_gauge_get_type, vek_metric_histogram_get_type,
           vek_metric_meter_get_type, vek_metric_timeline_get_type, vek_metric_timer_get_type>();
}

VekMetric *vekin::get_reporting_metric() {
  return static_cast<VekMetric *>(g_private_get(&reporting_metric));
}
