#include "recordingreporter.h"

struct _RecordingReporter {
  GObject parent_instance;

  char *label;
  GString *record; /* the test's */
  VekMetricSnapshot *snapshot;
  RecordingCallback callback;
  gpointer data;
};

static void recording_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(RecordingReporter, recording_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              recording_reporter_reporter_init))

G_GNUC_PRINTF(2, 3)
static void record_call(VekMetricReporter *reporter, const char *format, ...) {
  RecordingReporter *self = RECORDING_REPORTER(reporter);
  g_string_append_printf(self->record, "%s ", self->label);
  va_list arguments;
  va_start(arguments, format);
  g_string_append_vprintf(self->record, format, arguments);
  va_end(arguments);
  g_string_append_c(self->record, '\n');
  if (self->callback)
    self->callback(reporter, self->data);
}

static char *describe_identity(const char *name, char **dimensions, const char *unit) {
  g_autofree char *joined = dimensions ? g_strjoinv(",", dimensions) : g_strdup("-");
  return g_strdup_printf("%s %s %s", name, dimensions && !*dimensions ? "()" : joined,
                         !unit    ? "-"
                         : !*unit ? "''"
                                  : unit);
}

static void recording_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                             gchar **dimensions, const gchar *unit,
                                             gint64 timestamp, gint64 count) {
  g_autofree char *identity = describe_identity(name, dimensions, unit);
  record_call(reporter, "count %s %" G_GINT64_FORMAT " %" G_GINT64_FORMAT, identity, timestamp,
              count);
}

static void recording_reporter_process_value(VekMetricReporter *reporter, const gchar *name,
                                             gchar **dimensions, const gchar *unit,
                                             gint64 timestamp, gdouble value) {
  g_autofree char *identity = describe_identity(name, dimensions, unit);
  record_call(reporter, "value %s %" G_GINT64_FORMAT " %.17g", identity, timestamp, value);
}

static void recording_reporter_process_timeline_samples(VekMetricReporter *reporter,
                                                        const gchar *name, GSList *samples) {
  g_autoptr(GString) ranges = g_string_new(NULL);
  for (GSList *node = samples; node; node = node->next) {
    const VekMetricRange *range = node->data;
    g_string_append_printf(ranges, "%s%d:%" G_GINT64_FORMAT "-%" G_GINT64_FORMAT,
                           node == samples ? "" : " ", range->id, range->start, range->end);
  }
  record_call(reporter, "timeline %s [%s]", name, ranges->str);
}

static void recording_reporter_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                                  gchar **dimensions, const gchar *unit,
                                                  VekMetricSnapshot *snapshot) {
  RecordingReporter *self = RECORDING_REPORTER(reporter);
  g_clear_pointer(&self->snapshot, vek_metric_snapshot_unref);
  self->snapshot = vek_metric_snapshot_ref(snapshot);
  g_autofree char *identity = describe_identity(name, dimensions, unit);
  record_call(reporter,
              "aggregated %s %" G_GINT64_FORMAT " n=%" G_GSIZE_FORMAT
              " sum=%.17g min=%.17g max=%.17g",
              identity, vek_metric_snapshot_get_time(snapshot),
              vek_metric_snapshot_get_n_samples(snapshot), vek_metric_snapshot_get_sum(snapshot),
              vek_metric_snapshot_get_min(snapshot), vek_metric_snapshot_get_max(snapshot));
}

static void recording_reporter_flush(VekMetricReporter *reporter) {
  record_call(reporter, "flush");
}

static void recording_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = recording_reporter_process_count;
  iface->process_value = recording_reporter_process_value;
  iface->process_timeline_samples = recording_reporter_process_timeline_samples;
  iface->process_aggregated = recording_reporter_process_aggregated;
  iface->flush = recording_reporter_flush;
}

static void recording_reporter_finalize(GObject *object) {
  RecordingReporter *self = RECORDING_REPORTER(object);
  g_clear_pointer(&self->snapshot, vek_metric_snapshot_unref);
  g_free(self->label);

  G_OBJECT_CLASS(recording_reporter_parent_class)->finalize(object);
}

static void recording_reporter_class_init(RecordingReporterClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = recording_reporter_finalize;
}

static void recording_reporter_init(RecordingReporter *self) {
  (void)self;
}

VekMetricReporter *recording_reporter_new(const char *label, GString *record) {
  RecordingReporter *self = g_object_new(RECORDING_TYPE_REPORTER, NULL);
  self->label = g_strdup(label);
  self->record = record;
  return VEK_METRIC_REPORTER(self);
}

void recording_reporter_set_callback(RecordingReporter *reporter, RecordingCallback callback,
                                     gpointer data) {
  reporter->callback = callback;
  reporter->data = data;
}

VekMetricSnapshot *recording_reporter_get_snapshot(RecordingReporter *reporter) {
  return reporter->snapshot;
}
