#include "fixedsizestore.h"

#include "common/internal.hpp"

struct _VekMetricFixedSizeStore {
  VekMetricStore parent_instance;

  GMutex lock;        // guards the fields below
  gsize n_samples;    // valid samples; they begin at index 0 until the ring is full
  gsize window_size;  // capacity of the ring; set at construction only
  gdouble *samples;
  gsize next;  // where the next sample goes; once the ring is full, the oldest is there
};
static_assert(vekin::ZeroFillable<VekMetricFixedSizeStore>);

enum : guint { PROP_WINDOW_SIZE = 1, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_TYPE(VekMetricFixedSizeStore, vek_metric_fixed_size_store, VEK_TYPE_METRIC_STORE)

static void vek_metric_fixed_size_store_finalize(GObject *object) {
  auto *self = vekin::as<VekMetricFixedSizeStore>(object);
  g_mutex_clear(&self->lock);
  g_free(self->samples);

  G_OBJECT_CLASS(vek_metric_fixed_size_store_parent_class)->finalize(object);
}

static void vek_metric_fixed_size_store_set_property(GObject *object, guint id, const GValue *value,
                                                     GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricFixedSizeStore>(object);

  switch (id) {
  case PROP_WINDOW_SIZE: self->window_size = g_value_get_uint(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_fixed_size_store_get_property(GObject *object, guint id, GValue *value,
                                                     GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricFixedSizeStore>(object);

  switch (id) {
  case PROP_WINDOW_SIZE: g_value_set_uint(value, static_cast<guint>(self->window_size)); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_fixed_size_store_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_fixed_size_store_parent_class)->constructed(object);

  auto *self = vekin::as<VekMetricFixedSizeStore>(object);
  self->samples = g_new0(gdouble, self->window_size);
}

static void vek_metric_fixed_size_store_add(VekMetricStore *store, gdouble value) {
  auto *self = vekin::as<VekMetricFixedSizeStore>(store);
  vekin::MutexLock held(self->lock);
  self->samples[self->next] = value;
  self->n_samples = MIN(self->n_samples + 1, self->window_size);
  if (++self->next == self->window_size)
    self->next = 0;
}

static VekMetricSnapshot *vek_metric_fixed_size_store_get_snapshot(VekMetricStore *store) {
  auto *self = vekin::as<VekMetricFixedSizeStore>(store);
  vekin::MutexLock held(self->lock);
  return vek_metric_snapshot_new(self->samples, self->n_samples);
}

static void vek_metric_fixed_size_store_class_init(VekMetricFixedSizeStoreClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->finalize = vek_metric_fixed_size_store_finalize;
  object_class->set_property = vek_metric_fixed_size_store_set_property;
  object_class->get_property = vek_metric_fixed_size_store_get_property;
  object_class->constructed = vek_metric_fixed_size_store_constructed;

  auto *store_class = VEK_METRIC_STORE_CLASS(klass);
  store_class->add = vek_metric_fixed_size_store_add;
  store_class->get_snapshot = vek_metric_fixed_size_store_get_snapshot;

  properties[PROP_WINDOW_SIZE] =
      vekin::property<g_param_spec_uint>("window-size", 1, G_MAXUINT, 60);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_fixed_size_store_init(VekMetricFixedSizeStore *self) {
  g_mutex_init(&self->lock);
}

VekMetricStore *vek_metric_fixed_size_store_new(guint window_size) {
  return VEK_METRIC_STORE(
      g_object_new(VEK_TYPE_METRIC_FIXED_SIZE_STORE, "window-size", window_size, nullptr));
}
