#include "histogram.h"

#include "common/internal.hpp"
#include "fixedsizestore.h"
#include "histogram.hpp"
#include "metric.hpp"
#include "registry.hpp"
#include "reporter.hpp"

static constexpr guint kDefaultWindowSize = 60;  // samples

struct VekMetricHistogramPrivate {
  VekMetricStore *store;
};
static_assert(vekin::ZeroFillable<VekMetricHistogramPrivate>);

enum : guint { PROP_STORE = 1, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_TYPE_WITH_PRIVATE(VekMetricHistogram, vek_metric_histogram, VEK_TYPE_METRIC)
VEK_QUICK_TYPE_TEST(METRIC_HISTOGRAM, VekMetricHistogram, vek_metric_histogram)

static VekMetricHistogramPrivate *get_private(VekMetricHistogram *self) {
  return static_cast<VekMetricHistogramPrivate *>(vek_metric_histogram_get_instance_private(self));
}

static void vek_metric_histogram_set_property(GObject *object, guint id, const GValue *value,
                                              GParamSpec *pspec) {
  auto *priv = get_private(vekin::as<VekMetricHistogram>(object));

  switch (id) {
  case PROP_STORE: priv->store = static_cast<VekMetricStore *>(g_value_dup_object(value)); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_histogram_get_property(GObject *object, guint id, GValue *value,
                                              GParamSpec *pspec) {
  auto *priv = get_private(vekin::as<VekMetricHistogram>(object));

  switch (id) {
  case PROP_STORE: g_value_set_object(value, priv->store); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_histogram_dispose(GObject *object) {
  g_clear_object(&get_private(vekin::as<VekMetricHistogram>(object))->store);

  G_OBJECT_CLASS(vek_metric_histogram_parent_class)->dispose(object);
}

static void vek_metric_histogram_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_histogram_parent_class)->constructed(object);

  auto *priv = get_private(vekin::as<VekMetricHistogram>(object));
  if (!priv->store)
    priv->store = vek_metric_fixed_size_store_new(kDefaultWindowSize);
}

static void vek_metric_histogram_report(VekMetric *metric, GSList *reporters) {
  auto *priv = vek_metric_get_private(metric);

  auto *snapshot = vek_metric_histogram_get_snapshot(vekin::as<VekMetricHistogram>(metric));
  for (auto *reporter : vekin::Each<VekMetricReporter>(reporters))
    vek_metric_reporter_process_aggregated(reporter, priv->name, priv->dimensions, priv->unit,
                                           snapshot);
  vek_metric_snapshot_unref(snapshot);  // checks it: a store that gave none is heard of once more
}

static void vek_metric_histogram_class_init(VekMetricHistogramClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_histogram_set_property;
  object_class->get_property = vek_metric_histogram_get_property;
  object_class->dispose = vek_metric_histogram_dispose;
  object_class->constructed = vek_metric_histogram_constructed;
  VEK_METRIC_CLASS(klass)->report = vek_metric_histogram_report;

  properties[PROP_STORE] = vekin::property<g_param_spec_object>("store", VEK_TYPE_METRIC_STORE);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_histogram_init(VekMetricHistogram *) {}

void vekin::add_sample(VekMetricHistogram *histogram, gdouble value) {
  auto *store = get_private(histogram)->store;
  if (!store) [[unlikely]]
    return vek_metric_store_add(store, value);  // once disposed: its check says so
  VEK_METRIC_STORE_GET_CLASS(store)->add(store, value);
}

void vek_metric_histogram_set(VekMetricHistogram *histogram, gdouble value) {
  vek_return_if_fail(VEK_IS_METRIC_HISTOGRAM(histogram));

  vekin::add_sample(histogram, value);
}

VekMetricSnapshot *vek_metric_histogram_get_snapshot(VekMetricHistogram *histogram) {
  vek_return_val_if_fail(VEK_IS_METRIC_HISTOGRAM(histogram), nullptr);

  return vek_metric_store_get_snapshot(get_private(histogram)->store);
}

VekMetricHistogram *vek_metric_registry_histogram_new(VekMetricRegistry *registry,
                                                      const gchar *name, const gchar *unit,
                                                      VekMetricStore *store, gchar **dimensions) {
  vek_return_val_if_fail(VEK_IS_METRIC_REGISTRY(registry), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);

  return vekin::create_kind<VekMetricHistogram>(registry, VEK_TYPE_METRIC_HISTOGRAM, name, unit,
                                                dimensions, "store", store);
}
