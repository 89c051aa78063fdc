#include "fixedtimestore.h"

#include "common/internal.hpp"

#include <algorithm>

struct _VekMetricFixedTimeStore {
  VekMetricStore parent_instance;
  gint64 time_window;  // µs; set at construction only

  GMutex lock;  // guards the fields below
  gsize n_samples;
  gsize max_size;      // capacity of the ring; set at construction only
  gdouble *samples;    // parallel to timestamps: what moves one moves the other
  gint64 *timestamps;  // when the sample was added, monotonic clock in µs
  gsize next;
};
static_assert(vekin::ZeroFillable<VekMetricFixedTimeStore>);

enum : guint { PROP_TIME_WINDOW = 1, PROP_MAX_SIZE, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_TYPE(VekMetricFixedTimeStore, vek_metric_fixed_time_store, VEK_TYPE_METRIC_STORE)

template <typename T>
static void rotate_left(T *ring, gsize size, gsize by) {
  g_autofree T *head = static_cast<T *>(g_memdup2(ring, by * sizeof(T)));
  std::copy(ring + by, ring + size, ring);
  std::copy_n(head, by, ring + size - by);
}

// Puts the oldest sample at index 0. A ring that is not full is taken to be in order already.
static void put_in_age_order(VekMetricFixedTimeStore *self) {
  if (self->n_samples != self->max_size || self->next == 0)
    return;

  rotate_left(self->samples, self->max_size, self->next);
  rotate_left(self->timestamps, self->max_size, self->next);
  self->next = 0;
}

// The first index whose timestamp is greater than the cutoff, or the last index. Written out
// because a skipped slot may have brought an older stamp back among younger ones, and what is cut
// then is what exactly these steps find.
static gsize find_cut(const VekMetricFixedTimeStore *self, gint64 cutoff) {
  gsize low = 0;
  gsize high = self->n_samples - 1;
  while (high > low) {
    gsize middle = low + (high - low) / 2;
    if (self->timestamps[middle] > cutoff)
      high = middle;
    else
      low = middle + 1;
  }
  return high;
}

static void drop_first(VekMetricFixedTimeStore *self, gsize k) {
  std::copy(self->samples + k, self->samples + self->n_samples, self->samples);
  std::copy(self->timestamps + k, self->timestamps + self->n_samples, self->timestamps);
  self->n_samples -= k;
  // One slot past the kept run: the slot that is skipped keeps what it holds.
  self->next = (self->n_samples + 1) % self->max_size;
}

static void drop_expired(VekMetricFixedTimeStore *self, gint64 cutoff) {
  if (self->n_samples == 0)
    return;

  put_in_age_order(self);
  if (self->timestamps[0] > cutoff)
    return;
  if (self->timestamps[self->n_samples - 1] < cutoff) {
    self->n_samples = 0;
    self->next = 0;
  } else if (self->n_samples > 1) {
    drop_first(self, find_cut(self, cutoff));
  }
}

static void vek_metric_fixed_time_store_finalize(GObject *object) {
  auto *self = vekin::as<VekMetricFixedTimeStore>(object);
  g_mutex_clear(&self->lock);
  g_free(self->samples);
  g_free(self->timestamps);

  G_OBJECT_CLASS(vek_metric_fixed_time_store_parent_class)->finalize(object);
}

static void vek_metric_fixed_time_store_set_property(GObject *object, guint id, const GValue *value,
                                                     GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricFixedTimeStore>(object);

  switch (id) {
  case PROP_TIME_WINDOW: self->time_window = g_value_get_int64(value); break;
  case PROP_MAX_SIZE: self->max_size = g_value_get_uint(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_fixed_time_store_get_property(GObject *object, guint id, GValue *value,
                                                     GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricFixedTimeStore>(object);

  switch (id) {
  case PROP_TIME_WINDOW: g_value_set_int64(value, self->time_window); break;
  case PROP_MAX_SIZE: g_value_set_uint(value, static_cast<guint>(self->max_size)); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_fixed_time_store_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_fixed_time_store_parent_class)->constructed(object);

  auto *self = vekin::as<VekMetricFixedTimeStore>(object);
  self->samples = g_new0(gdouble, self->max_size);
  self->timestamps = g_new0(gint64, self->max_size);
}

static void vek_metric_fixed_time_store_add(VekMetricStore *store, gdouble value) {
  auto *self = vekin::as<VekMetricFixedTimeStore>(store);
  gint64 now = g_get_monotonic_time();  // before the lock: waiting for it is no part of the age
  vekin::MutexLock held(self->lock);
  self->samples[self->next] = value;
  self->timestamps[self->next] = now;
  self->n_samples = MIN(self->n_samples + 1, self->max_size);
  if (++self->next == self->max_size)
    self->next = 0;
}

static VekMetricSnapshot *vek_metric_fixed_time_store_get_snapshot(VekMetricStore *store) {
  auto *self = vekin::as<VekMetricFixedTimeStore>(store);
  gint64 now = g_get_monotonic_time();
  vekin::MutexLock held(self->lock);
  drop_expired(self, now - self->time_window);
  return vek_metric_snapshot_new(self->samples, self->n_samples);
}

static void vek_metric_fixed_time_store_class_init(VekMetricFixedTimeStoreClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->finalize = vek_metric_fixed_time_store_finalize;
  object_class->set_property = vek_metric_fixed_time_store_set_property;
  object_class->get_property = vek_metric_fixed_time_store_get_property;
  object_class->constructed = vek_metric_fixed_time_store_constructed;

  auto *store_class = VEK_METRIC_STORE_CLASS(klass);
  store_class->add = vek_metric_fixed_time_store_add;
  store_class->get_snapshot = vek_metric_fixed_time_store_get_snapshot;

  properties[PROP_TIME_WINDOW] = vekin::property<g_param_spec_int64>(
      "time-window", G_USEC_PER_SEC, G_MAXINT64, 60 * G_USEC_PER_SEC);
  properties[PROP_MAX_SIZE] = vekin::property<g_param_spec_uint>("max-size", 1, G_MAXUINT, 2048);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_fixed_time_store_init(VekMetricFixedTimeStore *self) {
  g_mutex_init(&self->lock);
}

VekMetricStore *vek_metric_fixed_time_store_new(gint64 time_window, guint max_size) {
  return VEK_METRIC_STORE(g_object_new(VEK_TYPE_METRIC_FIXED_TIME_STORE, "time-window", time_window,
                                       "max-size", max_size, nullptr));
}
