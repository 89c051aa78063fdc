#pragma once

// The figures of one metric in the last passes.

#include <glib.h>

#include <span>

namespace vekin::web {

// Passes are numbered from 1. There are figures of those from `first` up to `end`, without that;
// those of a pass are NaN if it did not report the metric.
struct Series {
  int ref_count;  // changed only atomically
  GString *key;
  char *head;       // its JSON, up to the figures
  guint n_figures;  // of each pass
  guint64 first, end;
  guint capacity;    // in passes
  gdouble *figures;  // those of a pass from pass % capacity * n_figures on
};

// A series without figures. Takes the key over.
Series *series_new(GString *key, const char *name, char **dimensions, const char *kind,
                   const char *unit, guint n_figures);
Series *series_ref(Series *series);
void series_unref(Series *series);

// Adds the figures of a pass, or replaces those of the last one. The oldest make room once there
// are those of `n_passes`.
void series_put(Series *series, guint64 pass, std::span<const gdouble> figures, guint n_passes);

// Drops what is older than the last `n_passes`.
void series_shrink(Series *series, guint n_passes);

// A figure of a pass; NaN where there is none.
gdouble series_get(const Series *series, guint64 pass, guint figure);

}  // namespace vekin::web
