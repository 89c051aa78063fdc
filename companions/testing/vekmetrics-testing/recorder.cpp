#include "recorder.h"

#include "callline.hpp"
#include "common/internal.hpp"
#include "recorder.hpp"

#include <string.h>

using vekin::testing::Call;
using vekin::testing::Kind;

struct _VekTestingRecorder {
  GObject parent_instance;

  gboolean times;
  GPtrArray *current;  // the calls since the last flush
  GPtrArray *last;     // those of the last pass; NULL if there was none
};
static_assert(vekin::ZeroFillable<VekTestingRecorder>);

enum : guint { PROP_TIMES = 1, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

enum : guint { RECORDED, N_SIGNALS };
static guint signals[N_SIGNALS];

static void vek_testing_recorder_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekTestingRecorder, vek_testing_recorder, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_testing_recorder_reporter_init))

static void free_call(gpointer data) {
  auto *call = vekin::as<Call>(data);
  switch (call->kind) {
  case Kind::Count:
  case Kind::Value: break;
  case Kind::Timeline: g_slist_free_full(call->ranges, g_free); break;
  case Kind::Aggregated: g_clear_pointer(&call->snapshot, vek_metric_snapshot_unref); break;
  }
  g_free(call->key);
  g_free(call->name);
  g_strfreev(call->dimensions);
  g_free(call->unit);
  g_free(call);
}

static GPtrArray *new_pass() {
  return g_ptr_array_new_with_free_func(free_call);
}

static char *get_key(const char *name, char **dimensions) {
  g_autoptr(GString) key = g_string_new(nullptr);
  if (dimensions) {
    vekin::append_joined(key, dimensions);
    g_string_append_c(key, '.');
  }
  if (name)
    g_string_append(key, name);
  return g_string_free(g_steal_pointer(&key), FALSE);
}

static Call *new_call(Kind kind, const char *name, char **dimensions, const char *unit,
                      gint64 time) {
  auto *call = g_new0(Call, 1);
  call->kind = kind;
  call->key = get_key(name, dimensions);
  call->name = g_strdup(name);
  call->dimensions = g_strdupv(dimensions);
  call->unit = g_strdup(unit);
  call->time = time;
  return call;
}

static void record(VekMetricReporter *reporter, Call *call) {
  auto *self = vekin::as<VekTestingRecorder>(reporter);
  g_ptr_array_add(self->current, call);
  g_autoptr(GString) line = g_string_new(nullptr);
  append_call(line, *call, self->times);
  g_signal_emit(self, signals[RECORDED], 0, line->str);
}

static void vek_testing_recorder_process_count(VekMetricReporter *reporter, const gchar *name,
                                               gchar **dimensions, const gchar *unit,
                                               gint64 timestamp, gint64 count) {
  auto *call = new_call(Kind::Count, name, dimensions, unit, timestamp);
  call->count = count;
  record(reporter, call);
}

static void vek_testing_recorder_process_value(VekMetricReporter *reporter, const gchar *name,
                                               gchar **dimensions, const gchar *unit,
                                               gint64 timestamp, gdouble value) {
  auto *call = new_call(Kind::Value, name, dimensions, unit, timestamp);
  call->value = value;
  record(reporter, call);
}

static gpointer copy_range(gconstpointer range, gpointer) {
  return g_memdup2(range, sizeof(VekMetricRange));
}

static void vek_testing_recorder_process_timeline_samples(VekMetricReporter *reporter,
                                                          const gchar *name, GSList *samples) {
  auto *call = new_call(Kind::Timeline, name, nullptr, nullptr, 0);
  call->ranges = g_slist_copy_deep(samples, copy_range, nullptr);
  record(reporter, call);
}

static void vek_testing_recorder_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                                    gchar **dimensions, const gchar *unit,
                                                    VekMetricSnapshot *snapshot) {
  gint64 time = snapshot ? vek_metric_snapshot_get_time(snapshot) : 0;
  auto *call = new_call(Kind::Aggregated, name, dimensions, unit, time);
  call->snapshot = snapshot ? vek_metric_snapshot_ref(snapshot) : nullptr;
  record(reporter, call);
}

static void vek_testing_recorder_flush(VekMetricReporter *reporter) {
  auto *self = vekin::as<VekTestingRecorder>(reporter);
  g_clear_pointer(&self->last, g_ptr_array_unref);
  self->last = self->current;
  self->current = new_pass();
  g_signal_emit(self, signals[RECORDED], 0, "flush");
}

static void vek_testing_recorder_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_testing_recorder_process_count;
  iface->process_value = vek_testing_recorder_process_value;
  iface->process_timeline_samples = vek_testing_recorder_process_timeline_samples;
  iface->process_aggregated = vek_testing_recorder_process_aggregated;
  iface->flush = vek_testing_recorder_flush;
}

static void vek_testing_recorder_set_property(GObject *object, guint id, const GValue *value,
                                              GParamSpec *pspec) {
  switch (id) {
  case PROP_TIMES: vekin::as<VekTestingRecorder>(object)->times = g_value_get_boolean(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_testing_recorder_get_property(GObject *object, guint id, GValue *value,
                                              GParamSpec *pspec) {
  switch (id) {
  case PROP_TIMES: g_value_set_boolean(value, vekin::as<VekTestingRecorder>(object)->times); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_testing_recorder_finalize(GObject *object) {
  auto *self = vekin::as<VekTestingRecorder>(object);
  g_ptr_array_unref(self->current);
  g_clear_pointer(&self->last, g_ptr_array_unref);

  G_OBJECT_CLASS(vek_testing_recorder_parent_class)->finalize(object);
}

static void vek_testing_recorder_class_init(VekTestingRecorderClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_testing_recorder_set_property;
  object_class->get_property = vek_testing_recorder_get_property;
  object_class->finalize = vek_testing_recorder_finalize;

  properties[PROP_TIMES] =
      g_param_spec_boolean("times", "times", "times", FALSE,
                           static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS));
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);

  signals[RECORDED] = g_signal_new("recorded", VEK_TESTING_TYPE_RECORDER, G_SIGNAL_RUN_LAST, 0,
                                   nullptr, nullptr, nullptr, G_TYPE_NONE, 1, G_TYPE_STRING);
}

static void vek_testing_recorder_init(VekTestingRecorder *self) {
  self->current = new_pass();
}

VekTestingRecorder *vek_testing_recorder_new(void) {
  return VEK_TESTING_RECORDER(g_object_new(VEK_TESTING_TYPE_RECORDER, nullptr));
}

static bool equal_dimensions(char **a, char **b) {
  return a && b ? g_strv_equal(a, b) : a == b;
}

const Call *vekin::testing::find_call(VekTestingRecorder *recorder, Kind kind, const char *name,
                                      char **dimensions) {
  // Of several the last: it is the newest.
  for (guint i = recorder->last ? recorder->last->len : 0; i-- > 0;) {
    auto *call = as<Call>(recorder->last->pdata[i]);
    if (call->kind == kind && g_strcmp0(call->name, name) == 0 &&
        equal_dimensions(call->dimensions, dimensions))
      return call;
  }
  return nullptr;
}

bool vekin::testing::had_pass(VekTestingRecorder *recorder) {
  return recorder->last != nullptr;
}

bool vekin::testing::has_name(VekTestingRecorder *recorder, const char *name) {
  for (guint i = 0; i < recorder->last->len; i++)
    if (g_strcmp0(as<Call>(recorder->last->pdata[i])->name, name) == 0)
      return true;
  return false;
}

static gint compare_keys(gconstpointer a, gconstpointer b) {
  return strcmp((*static_cast<const Call *const *>(a))->key,
                (*static_cast<const Call *const *>(b))->key);
}

char *vek_testing_recorder_get_text(VekTestingRecorder *recorder) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), nullptr);

  if (!recorder->last)
    return nullptr;
  auto *sorted = g_ptr_array_sized_new(recorder->last->len);
  g_ptr_array_extend(sorted, recorder->last, nullptr, nullptr);
  g_ptr_array_sort(sorted, compare_keys);  // stable
  auto *text = g_string_new(nullptr);
  for (guint i = 0; i < sorted->len; i++) {
    append_call(text, *vekin::as<Call>(sorted->pdata[i]), recorder->times);
    g_string_append_c(text, '\n');
  }
  g_ptr_array_unref(sorted);
  return g_string_free(text, FALSE);
}

gboolean vek_testing_recorder_get_count(VekTestingRecorder *recorder, const char *name,
                                        char **dimensions, gint64 *count) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(name != NULL, FALSE);

  auto *call = find_call(recorder, Kind::Count, name, dimensions);
  if (count)
    *count = call ? call->count : 0;
  return call != nullptr;
}

gboolean vek_testing_recorder_get_value(VekTestingRecorder *recorder, const char *name,
                                        char **dimensions, double *value) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(name != NULL, FALSE);

  auto *call = find_call(recorder, Kind::Value, name, dimensions);
  if (value)
    *value = call ? call->value : 0;
  return call != nullptr;
}

VekMetricSnapshot *vek_testing_recorder_get_snapshot(VekTestingRecorder *recorder, const char *name,
                                                     char **dimensions) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);

  auto *call = find_call(recorder, Kind::Aggregated, name, dimensions);
  return call ? call->snapshot : nullptr;
}

GSList *vek_testing_recorder_get_ranges(VekTestingRecorder *recorder, const char *name) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);

  auto *call = find_call(recorder, Kind::Timeline, name, nullptr);
  return call ? call->ranges : nullptr;
}

void vek_testing_recorder_clear(VekTestingRecorder *recorder) {
  vek_return_if_fail(VEK_TESTING_IS_RECORDER(recorder));

  g_clear_pointer(&recorder->last, g_ptr_array_unref);
}
