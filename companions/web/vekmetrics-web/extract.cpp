#include "extract.hpp"

#include "common/internal.hpp"
#include "json.hpp"

#include <errno.h>
#include <string.h>
#include <unistd.h>
#include <algorithm>
#include <span>
#include <tuple>

namespace vekin::web {

static constexpr gsize kSlice = 64 * 1024;  // of text; takes a few milliseconds

namespace {

// A range and the batch of its timeline.
struct Range {
  const Batch *batch;
  const VekMetricRange *range;
};

}  // namespace

struct Extract {
  VekWebHistory *history;
  View view;
  GArray *values;  // of gdouble, one of each pass
  bool has_begun;
  guint n_series;  // that are written
  GArray *ranges;  // of Range, sorted; NULL until the series are written
  guint n_ranges;  // that are written
};

Extract *extract_new(VekWebHistory *history, guint64 after) {
  auto *self = g_new0(Extract, 1);
  self->history = VEK_WEB_HISTORY(g_object_ref(history));
  self->view = history_get_view(history, after);
  self->values = g_array_new(FALSE, FALSE, sizeof(gdouble));
  g_array_set_size(self->values, self->view.times->len);
  return self;
}

void extract_free(Extract *self) {
  g_clear_pointer(&self->ranges, g_array_unref);
  g_array_unref(self->values);
  view_clear(self->view);
  g_object_unref(self->history);
  g_free(self);
}

static void append_head(const Extract *self, GString *text) {
  const char *name = g_get_prgname();
  g_autofree char *program = g_path_get_basename(name ? name : program_invocation_short_name);
  g_string_append(text, "{\"version\":1,\"title\":");
  append_json_string(text, program);
  g_autofree char *source = g_strdup_printf("process %d on %s", getpid(), g_get_host_name());
  g_string_append(text, ",\"sources\":[");
  append_json_string(text, source);
  g_string_append_printf(text, "],\"pass\":%" G_GUINT64_FORMAT ",\"start\":\"%s\",\"times\":[[",
                         self->view.end - 1, history_get_start(self->history));
  for (guint i = 0; i < self->view.times->len; i++) {
    if (i > 0)
      g_string_append_c(text, ',');
    append_json_seconds(text, g_array_index(self->view.times, gint64, i));
  }
  g_string_append(text, "]],\"passes\":0,\"restarts\":[],\"metrics\":[");
}

static void append_values(const Extract *self, GString *text, const Series *series, guint figure) {
  auto *values = reinterpret_cast<gdouble *>(self->values->data);
  history_read(self->history, self->view, series, figure, values);
  g_string_append_c(text, '[');
  for (guint i = 0; i < self->values->len; i++) {
    if (i > 0)
      g_string_append_c(text, ',');
    append_json_number(text, values[i]);
  }
  g_string_append_c(text, ']');
}

static void append_series(const Extract *self, GString *text, const Series *series) {
  g_string_append(text, series->head);
  if (series->n_figures == 1) {
    g_string_append(text, "\"values\":");
    append_values(self, text, series, 0);
  } else {
    g_string_append(text, "\"statistics\":{");
    for (guint figure = 0; figure < series->n_figures; figure++) {
      g_string_append_printf(text, "%s\"%s\":", figure > 0 ? "," : "", kStatistics[figure]);
      append_values(self, text, series, figure);
    }
    g_string_append_c(text, '}');
  }
  g_string_append_c(text, '}');
}

// Timelines by name, their lanes by id, and the ranges of a lane by time.
static bool comes_before(const Range &a, const Range &b) {
  return std::tuple(strcmp(a.batch->name, b.batch->name), a.range->id, a.range->start) <
         std::tuple(0, b.range->id, b.range->start);
}

static GArray *sort_ranges(const View &view) {
  auto *sorted = g_array_new(FALSE, FALSE, sizeof(Range));
  for (guint i = 0; i < view.batches->len; i++) {
    auto *batch = as<Batch>(view.batches->pdata[i]);
    for (guint j = 0; batch->pass >= view.first && batch->pass < view.end && j < batch->n_ranges;
         j++) {
      Range range = {batch, batch->ranges + j};
      g_array_append_val(sorted, range);
    }
  }
  auto *ranges = reinterpret_cast<Range *>(sorted->data);
  std::sort(ranges, ranges + sorted->len, comes_before);
  return sorted;
}

static bool is_same_timeline(const Range &a, const Range &b) {
  return g_str_equal(a.batch->name, b.batch->name);
}

// Whether all ranges of the timeline that begins here are of the wall clock.
static bool is_wall(std::span<const Range> ranges) {
  for (auto &range : ranges)
    if (!is_same_timeline(range, ranges[0]))
      break;
    else if (!range.batch->is_wall)
      return false;
  return true;
}

static void append_range(GString *text, std::span<const Range> ranges, guint i) {
  auto &range = ranges[i];
  auto *before = i > 0 ? &ranges[i - 1] : nullptr;
  bool is_timeline = !before || !is_same_timeline(range, *before);
  bool is_lane = is_timeline || range.range->id != before->range->id;
  if (before)
    g_string_append(text, is_timeline ? "]}]}," : is_lane ? "]}," : ",");
  if (is_timeline) {
    g_string_append(text, "{\"name\":");
    append_json_string(text, range.batch->name);
    g_string_append_printf(text, ",\"dimensions\":[],\"clock\":\"%s\",\"lanes\":[",
                           is_wall({&range, ranges.size() - i}) ? "wall" : "other");
  }
  if (is_lane)
    g_string_append_printf(text, "{\"id\":\"%d\",\"ranges\":[", range.range->id);
  append_json_seconds(text, range.range->start);
  g_string_append_c(text, ',');
  append_json_seconds(text, range.range->end);
}

bool extract_append_slice(Extract *self, GString *text) {
  gsize end = text->len + kSlice;
  if (!self->has_begun)
    append_head(self, text);
  self->has_begun = true;
  for (; text->len < end && self->n_series < self->view.series->len; self->n_series++) {
    if (self->n_series > 0)
      g_string_append_c(text, ',');
    append_series(self, text, as<Series>(self->view.series->pdata[self->n_series]));
  }
  if (text->len >= end)
    return false;

  if (!self->ranges) {
    self->ranges = sort_ranges(self->view);
    g_string_append(text, "],\"timelines\":[");
  }
  std::span ranges(reinterpret_cast<const Range *>(self->ranges->data), self->ranges->len);
  for (; text->len < end && self->n_ranges < ranges.size(); self->n_ranges++)
    append_range(text, ranges, self->n_ranges);
  if (text->len >= end)
    return false;
  g_string_append(text, ranges.size() > 0 ? "]}]}]}" : "]}");
  return true;
}

}  // namespace vekin::web
