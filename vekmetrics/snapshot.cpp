#include "snapshot.h"

#include "common/internal.hpp"

#include <stdlib.h>

struct _VekMetricSnapshot {
  int ref_count;  // changed only atomically; nothing else changes after creation
  gint64 time;
  gsize n_samples;
  gdouble *samples;  // ascending; NULL without samples
};

G_DEFINE_BOXED_TYPE(VekMetricSnapshot, vek_metric_snapshot, vek_metric_snapshot_ref,
                    vek_metric_snapshot_unref)

// Not-a-number compares equal to everything: it is the caller's to keep it out.
static int compare_sample(const void *a, const void *b) {
  auto left = *static_cast<const gdouble *>(a);
  auto right = *static_cast<const gdouble *>(b);
  return left < right ? -1 : left > right ? 1 : 0;
}

// The smallest samples first, so that they are not lost against a large sum.
static gdouble add_up(const VekMetricSnapshot *self) {
  gdouble sum = 0.0;
  for (gsize i = 0; self->samples && i < self->n_samples; i++)
    sum += self->samples[i];
  return sum;
}

VekMetricSnapshot *vek_metric_snapshot_new(const gdouble *samples, gsize n_samples) {
  auto *snapshot = g_slice_new0(VekMetricSnapshot);
  snapshot->ref_count = 1;
  snapshot->time = g_get_real_time();
  snapshot->n_samples = n_samples;

  if (samples && n_samples != 0) {
    auto *copy = g_memdup2(samples, n_samples * sizeof *samples);
    snapshot->samples = static_cast<gdouble *>(copy);
    qsort(snapshot->samples, n_samples, sizeof *samples, compare_sample);
  }
  return snapshot;
}

VekMetricSnapshot *vek_metric_snapshot_ref(VekMetricSnapshot *snapshot) {
  vek_return_val_if_fail(snapshot != NULL, nullptr);

  g_atomic_int_inc(&snapshot->ref_count);
  return snapshot;
}

void vek_metric_snapshot_unref(VekMetricSnapshot *snapshot) {
  vek_return_if_fail(snapshot != NULL);

  if (!g_atomic_int_dec_and_test(&snapshot->ref_count))
    return;
  g_free(snapshot->samples);
  g_slice_free(VekMetricSnapshot, snapshot);
}

gint64 vek_metric_snapshot_get_time(VekMetricSnapshot *snapshot) {
  vek_return_val_if_fail(snapshot != NULL, 0);

  return snapshot->time;
}

gsize vek_metric_snapshot_get_n_samples(VekMetricSnapshot *snapshot) {
  vek_return_val_if_fail(snapshot != NULL, 0);

  return snapshot->n_samples;
}

gdouble vek_metric_snapshot_get_sum(VekMetricSnapshot *snapshot) {
  vek_return_val_if_fail(snapshot != NULL, 0.0);

  return add_up(snapshot);
}

gdouble vek_metric_snapshot_get_average(VekMetricSnapshot *snapshot) {
  vek_return_val_if_fail(snapshot != NULL, 0.0);

  if (!snapshot->samples)
    return 0.0;
  return add_up(snapshot) / static_cast<gdouble>(snapshot->n_samples);
}

gdouble vek_metric_snapshot_get_min(VekMetricSnapshot *snapshot) {
  vek_return_val_if_fail(snapshot != NULL, 0.0);

  return snapshot->samples ? snapshot->samples[0] : 0.0;
}

gdouble vek_metric_snapshot_get_max(VekMetricSnapshot *snapshot) {
  vek_return_val_if_fail(snapshot != NULL, 0.0);

  return snapshot->samples ? snapshot->samples[snapshot->n_samples - 1] : 0.0;
}

gdouble vek_metric_snapshot_get_quantile(VekMetricSnapshot *snapshot, gdouble q) {
  vek_return_val_if_fail(snapshot != NULL, 0.0);
  vek_return_val_if_fail(q >= 0 && q <= 1, 0.0);

  const gdouble *s = snapshot->samples;
  if (!s)
    return 0.0;

  gsize last = snapshot->n_samples - 1;
  gdouble position = static_cast<gdouble>(last) * q;
  auto index = static_cast<guint64>(position);
  if (index == 0)  // below position 1 nothing is interpolated
    return s[0];
  if (index >= last)
    return s[last];
  return s[index] + (position - static_cast<gdouble>(index)) * (s[index + 1] - s[index]);
}
