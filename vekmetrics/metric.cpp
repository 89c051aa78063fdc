#include "metric.h"

#include "common/internal.hpp"
#include "metric.hpp"

enum : guint { PROP_NAME = 1, PROP_UNIT, PROP_DIMENSIONS, PROP_ACTIVE, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_ABSTRACT_TYPE_WITH_PRIVATE(VekMetric, vek_metric, G_TYPE_OBJECT)

gint vek_metric_private_offset;

static void vek_metric_set_property(GObject *object, guint id, const GValue *value,
                                    GParamSpec *pspec) {
  auto *priv = vek_metric_get_private(vekin::as<VekMetric>(object));

  switch (id) {
  case PROP_NAME: priv->name = g_value_dup_string(value); break;
  case PROP_UNIT: priv->unit = g_value_dup_string(value); break;
  case PROP_DIMENSIONS: priv->dimensions = static_cast<char **>(g_value_dup_boxed(value)); break;
  case PROP_ACTIVE: priv->active = g_value_get_boolean(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_get_property(GObject *object, guint id, GValue *value, GParamSpec *pspec) {
  auto *priv = vek_metric_get_private(vekin::as<VekMetric>(object));

  switch (id) {
  case PROP_NAME: g_value_set_string(value, priv->name); break;
  case PROP_UNIT: g_value_set_string(value, priv->unit); break;
  case PROP_DIMENSIONS: g_value_set_boxed(value, priv->dimensions); break;
  case PROP_ACTIVE: g_value_set_boolean(value, priv->active); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_dispose(GObject *object) {
  auto *priv = vek_metric_get_private(vekin::as<VekMetric>(object));

  // Here and not in finalize: a disposed metric has no name, unit or dimensions any more.
  g_clear_pointer(&priv->name, g_free);
  g_clear_pointer(&priv->unit, g_free);
  g_clear_pointer(&priv->dimensions, g_strfreev);

  G_OBJECT_CLASS(vek_metric_parent_class)->dispose(object);
}

static void vek_metric_class_init(VekMetricClass *klass) {
  vek_metric_private_offset = g_type_class_get_instance_private_offset(klass);

  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_set_property;
  object_class->get_property = vek_metric_get_property;
  object_class->dispose = vek_metric_dispose;

  properties[PROP_NAME] = vekin::property<g_param_spec_string>("name", nullptr);
  properties[PROP_UNIT] = vekin::property<g_param_spec_string>("unit", nullptr);
  properties[PROP_DIMENSIONS] = vekin::property<g_param_spec_boxed>("dimensions", G_TYPE_STRV);
  properties[PROP_ACTIVE] =
      vekin::property<g_param_spec_boolean, vekin::kConstruct>("active", TRUE);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_init(VekMetric *) {}

const gchar *vek_metric_get_name(VekMetric *metric) {
  vek_return_val_if_fail(VEK_IS_METRIC(metric), nullptr);

  return vek_metric_get_private(metric)->name;
}

const gchar *vek_metric_get_unit(VekMetric *metric) {
  vek_return_val_if_fail(VEK_IS_METRIC(metric), nullptr);

  return vek_metric_get_private(metric)->unit;
}

gchar **vek_metric_get_dimensions(VekMetric *metric) {
  vek_return_val_if_fail(VEK_IS_METRIC(metric), nullptr);

  return vek_metric_get_private(metric)->dimensions;
}

gboolean vek_metric_is_active(VekMetric *metric) {
  vek_return_val_if_fail(VEK_IS_METRIC(metric), FALSE);

  return vek_metric_get_private(metric)->active;
}

void vek_metric_mark_inactive(VekMetric *metric) {
  vek_return_if_fail(VEK_IS_METRIC(metric));

  vek_metric_get_private(metric)->active = FALSE;
}

void vek_metric_report(VekMetric *metric, GSList *reporters) {
  vek_return_if_fail(VEK_IS_METRIC(metric));

  if (reporters)
    VEK_METRIC_GET_CLASS(metric)->report(metric, reporters);
}
