#include "timeline.h"

#include "common/internal.hpp"
#include "metric.hpp"
#include "registry.hpp"
#include "reporter.hpp"

struct _VekMetricTimeline {
  VekMetric parent_instance;

  VekMetricStore *store;  // a range store
};
static_assert(vekin::ZeroFillable<VekMetricTimeline>);

G_DEFINE_TYPE(VekMetricTimeline, vek_metric_timeline, VEK_TYPE_METRIC)

static void vek_metric_timeline_dispose(GObject *object) {
  g_clear_object(&vekin::as<VekMetricTimeline>(object)->store);

  G_OBJECT_CLASS(vek_metric_timeline_parent_class)->dispose(object);
}

static void vek_metric_timeline_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_timeline_parent_class)->constructed(object);

  auto *self = vekin::as<VekMetricTimeline>(object);
  if (!self->store)
    self->store = vek_metric_range_store_new();
}

static void vek_metric_timeline_report(VekMetric *metric, GSList *reporters) {
  const char *name = vek_metric_get_private(metric)->name;
  GSList *batch = vek_metric_timeline_move_data(vekin::as<VekMetricTimeline>(metric));
  for (auto *reporter : vekin::Each<VekMetricReporter>(reporters))
    vek_metric_reporter_process_timeline_samples(reporter, name, batch);
  g_slist_free_full(batch, g_free);
}

static void vek_metric_timeline_class_init(VekMetricTimelineClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->dispose = vek_metric_timeline_dispose;
  object_class->constructed = vek_metric_timeline_constructed;
  VEK_METRIC_CLASS(klass)->report = vek_metric_timeline_report;
}

static void vek_metric_timeline_init(VekMetricTimeline *) {}

void vek_metric_timeline_add_range(VekMetricTimeline *timeline, gint id, gint64 start, gint64 end) {
  vek_metric_store_add_range(timeline->store, id, start, end);
}

GSList *vek_metric_timeline_move_data(VekMetricTimeline *timeline) {
  vek_return_val_if_fail(timeline, nullptr);
  vek_return_val_if_fail(VEK_IS_METRIC_RANGE_STORE(timeline->store), nullptr);

  return vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(timeline->store));
}

VekMetricTimeline *vek_metric_registry_timeline_new(VekMetricRegistry *registry,
                                                    const gchar *name) {
  vek_return_val_if_fail(VEK_IS_METRIC_REGISTRY(registry), nullptr);

  // A missing name is not refused here: it ends in the registry's assertion.
  auto *metric = vekin::create_metric(registry, VEK_TYPE_METRIC_TIMELINE, name, nullptr);
  return vekin::warned_cast<VekMetricTimeline>(metric, VEK_TYPE_METRIC_TIMELINE);
}
