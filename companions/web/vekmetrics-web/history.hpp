#pragma once

// The passes that a server keeps for its page.

#include <vekmetrics/vekmetrics.h>

#include "batch.hpp"
#include "series.hpp"

G_BEGIN_DECLS

#define VEK_WEB_TYPE_HISTORY (vek_web_history_get_type())

// A reporter that keeps the figures of the last passes, and the last ranges. Passes may run on any
// thread, and any thread may call the functions.
G_DECLARE_FINAL_TYPE(VekWebHistory, vek_web_history, VEK_WEB, HISTORY, GObject)

G_END_DECLS

namespace vekin::web {

inline constexpr guint kDefaultPasses = 240;
inline constexpr guint kMaxPasses = 1440;  // a day of those that come every minute

// The names of a histogram's or a timer's figures.
inline constexpr const char *kStatistics[] = {"samples", "avg", "min", "max",
                                              "p10",     "p50", "p90", "p99"};

// What there is after a pass.
struct View {
  guint64 first, end;  // the passes, without the end
  GArray *times;       // of these: gint64, wall clock in µs
  GPtrArray *series;   // of Series
  GPtrArray *batches;  // of Batch, the oldest first
};

VekWebHistory *history_new();

// How many passes are kept; with 0, all are dropped.
void history_set_n_passes(VekWebHistory *history, guint n_passes);
guint history_get_n_passes(VekWebHistory *history);

// A random name of this history, and the number of the last pass.
const char *history_get_start(const VekWebHistory *history);
guint64 history_get_pass(VekWebHistory *history);

// Makes a source ready after each pass, from now on.
void history_set_source(VekWebHistory *history, GSource *source);

View history_get_view(VekWebHistory *history, guint64 after);
void view_clear(View &view);

// Copies a figure of each pass of a view.
void history_read(VekWebHistory *history, const View &view, const Series *series, guint figure,
                  gdouble *values);

}  // namespace vekin::web
