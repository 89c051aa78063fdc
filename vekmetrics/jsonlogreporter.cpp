#include "jsonlogreporter.h"

#include "common/internal.hpp"
#include "jsondata.hpp"
#include "jsonline.hpp"
#include "metricutils.h"

#include <gio/gio.h>
#include <string.h>

struct _VekMetricJsonLogReporter {
  GObject parent_instance;

  guint max_reports;
  guint rotate;
  char *basename;
  char *dirname;
  char *instance_id;
  guint n_reports;                    // written to the file that is open
  GOutputStream *output_stream;       // NULL while no file is open
  GPtrArray *data;                    // of VekMetricDatum since the last flush; NULL for none
  GQueue pending_buffers;             // lines that wait to be written, the oldest at the head
  gboolean io_operation_in_progress;  // from the start of a write to the end of its flush
  char *current_buffer;               // the line that is being written
  GCancellable *cancellable;
};
static_assert(vekin::ZeroFillable<VekMetricJsonLogReporter>);

enum : guint {
  PROP_DIRNAME = 1,
  PROP_BASENAME,
  PROP_INSTANCE_ID,
  PROP_MAX_REPORTS,
  PROP_ROTATE,
  N_PROPERTIES
};
static GParamSpec *properties[N_PROPERTIES];

static void vek_metric_json_log_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekMetricJsonLogReporter, vek_metric_json_log_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_metric_json_log_reporter_reporter_init))

static char *get_log_file(const char *basename, const char *dirname) {
  vek_assert(basename != NULL);

  g_autofree char *name = g_strdup_printf("%s.json", basename);
  return g_build_filename(dirname, name, nullptr);
}

static void open_log_file(VekMetricJsonLogReporter *self) {
  if (g_mkdir_with_parents(self->dirname, 0755) != 0) {
    vek_warning("Cannot create log dir \"%s\".", self->dirname);
    return;
  }
  g_autofree char *path = get_log_file(self->basename, self->dirname);
  g_autoptr(GFile) file = g_file_new_for_path(path);
  g_autoptr(GError) error = nullptr;
  auto *stream = g_file_append_to(file, G_FILE_CREATE_NONE, self->cancellable, &error);
  if (!stream)
    vek_warning("Could not append to file in %s: %s", path, error->message);
  self->output_stream = reinterpret_cast<GOutputStream *>(stream);
}

// Called when a file has been flushed, so that there is one.
static void rotate_file(VekMetricJsonLogReporter *self) {
  g_autoptr(GError) error = nullptr;
  if (!g_output_stream_close(self->output_stream, self->cancellable, &error))
    vek_warning("Could not close output stream: %s", error->message);
  g_clear_object(&self->output_stream);

  g_autofree char *name = g_strdup_printf("%s.json", self->basename);
  vek_metrics_rotate_files(name, self->dirname, self->rotate);
  open_log_file(self);
}

// One cycle of a write and a flush runs at a time; each end of it starts the next. A write and a
// flush hold a reference to the reporter each.

static void write_next_buffer(VekMetricJsonLogReporter *self);

static void on_stream_flushed(GObject *source, GAsyncResult *result, gpointer user_data) {
  vek_assert(VEK_IS_METRIC_JSON_LOG_REPORTER(user_data));
  vek_assert(G_IS_OUTPUT_STREAM(source));
  g_autoptr(VekMetricJsonLogReporter) self = vekin::as<VekMetricJsonLogReporter>(user_data);
  vek_assert(self->io_operation_in_progress);

  self->io_operation_in_progress = FALSE;
  g_autoptr(GError) error = nullptr;
  if (!g_output_stream_flush_finish(G_OUTPUT_STREAM(source), result, &error)) {
    if (error->code == G_IO_ERROR_CANCELLED) {
      vek_debug("Flush on output stream was cancelled");
      return;
    }
    vek_warning("Could not flush output stream: %s", error->message);
  }

  if (self->max_reports != 0 && self->n_reports >= self->max_reports) {
    rotate_file(self);
    self->n_reports = 0;
  }
  if (!self->io_operation_in_progress)
    write_next_buffer(self);
}

static void on_log_written(GObject *source, GAsyncResult *result, gpointer user_data) {
  vek_assert(VEK_IS_METRIC_JSON_LOG_REPORTER(user_data));
  g_autoptr(VekMetricJsonLogReporter) self = vekin::as<VekMetricJsonLogReporter>(user_data);
  g_clear_pointer(&self->current_buffer, g_free);
  vek_assert(G_IS_OUTPUT_STREAM(source));

  g_autoptr(GError) error = nullptr;
  if (!g_output_stream_write_all_finish(G_OUTPUT_STREAM(source), result, nullptr, &error)) {
    if (error->code == G_IO_ERROR_CANCELLED) {
      vek_debug("Write on output stream was cancelled");
      return;
    }
    vek_warning("Could not write log: %s", error->message);  // and it counts all the same
  }

  self->n_reports++;
  if (!self->output_stream)  // lost in a rotation, within which this write was started
    return write_next_buffer(self);
  g_output_stream_flush_async(self->output_stream, G_PRIORITY_DEFAULT, self->cancellable,
                              on_stream_flushed, g_object_ref(self));
}

static void write_next_buffer(VekMetricJsonLogReporter *self) {
  if (!self->output_stream)  // the file could not be opened again after a rotation
    g_queue_clear_full(&self->pending_buffers, g_free);
  self->current_buffer = static_cast<char *>(g_queue_pop_head(&self->pending_buffers));
  if (!self->current_buffer)
    return;

  self->io_operation_in_progress = TRUE;
  g_output_stream_write_all_async(self->output_stream, self->current_buffer,
                                  strlen(self->current_buffer), G_PRIORITY_DEFAULT,
                                  self->cancellable, on_log_written, g_object_ref(self));
}

static void vek_metric_json_log_reporter_process_count(VekMetricReporter *reporter,
                                                       const gchar *name, gchar **dimensions,
                                                       const gchar *unit, gint64 timestamp,
                                                       gint64 count) {
  auto *self = vekin::as<VekMetricJsonLogReporter>(reporter);
  vekin::add_value(&self->data, self->instance_id, name, dimensions, unit, timestamp,
                   static_cast<gdouble>(count));
}

static void vek_metric_json_log_reporter_process_value(VekMetricReporter *reporter,
                                                       const gchar *name, gchar **dimensions,
                                                       const gchar *unit, gint64 timestamp,
                                                       gdouble value) {
  auto *self = vekin::as<VekMetricJsonLogReporter>(reporter);
  vekin::add_value(&self->data, self->instance_id, name, dimensions, unit, timestamp, value);
}

static void vek_metric_json_log_reporter_process_aggregated(VekMetricReporter *reporter,
                                                            const gchar *name, gchar **dimensions,
                                                            const gchar *unit,
                                                            VekMetricSnapshot *snapshot) {
  auto *self = vekin::as<VekMetricJsonLogReporter>(reporter);
  vekin::add_snapshot(&self->data, self->instance_id, name, dimensions, unit, snapshot);
}

static void vek_metric_json_log_reporter_flush(VekMetricReporter *reporter) {
  auto *self = vekin::as<VekMetricJsonLogReporter>(reporter);
  g_autoptr(GPtrArray) data = g_steal_pointer(&self->data);
  if (!self->output_stream || !data)
    return;

  g_queue_push_tail(&self->pending_buffers, vekin::make_json_line(data));
  if (!self->io_operation_in_progress)
    write_next_buffer(self);
}

static void vek_metric_json_log_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_metric_json_log_reporter_process_count;
  iface->process_value = vek_metric_json_log_reporter_process_value;
  iface->process_aggregated = vek_metric_json_log_reporter_process_aggregated;
  iface->flush = vek_metric_json_log_reporter_flush;
}

static void vek_metric_json_log_reporter_set_property(GObject *object, guint id,
                                                      const GValue *value, GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricJsonLogReporter>(object);

  switch (id) {
  case PROP_DIRNAME: self->dirname = g_value_dup_string(value); break;
  case PROP_BASENAME: self->basename = g_value_dup_string(value); break;
  case PROP_INSTANCE_ID: self->instance_id = g_value_dup_string(value); break;
  case PROP_MAX_REPORTS: self->max_reports = g_value_get_uint(value); break;
  case PROP_ROTATE: self->rotate = g_value_get_uint(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_json_log_reporter_get_property(GObject *object, guint id, GValue *value,
                                                      GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricJsonLogReporter>(object);

  switch (id) {
  case PROP_DIRNAME: g_value_set_string(value, self->dirname); break;
  case PROP_BASENAME: g_value_set_string(value, self->basename); break;
  case PROP_INSTANCE_ID: g_value_set_string(value, self->instance_id); break;
  case PROP_MAX_REPORTS: g_value_set_uint(value, self->max_reports); break;
  case PROP_ROTATE: g_value_set_uint(value, self->rotate); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_json_log_reporter_finalize(GObject *object) {
  auto *self = vekin::as<VekMetricJsonLogReporter>(object);
  g_cancellable_cancel(self->cancellable);
  g_object_unref(self->cancellable);
  g_free(self->basename);
  g_free(self->dirname);
  g_free(self->instance_id);
  g_clear_pointer(&self->data, g_ptr_array_unref);
  g_clear_object(&self->output_stream);
  g_queue_clear_full(&self->pending_buffers, g_free);
  g_free(self->current_buffer);

  G_OBJECT_CLASS(vek_metric_json_log_reporter_parent_class)->finalize(object);
}

static void vek_metric_json_log_reporter_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_json_log_reporter_parent_class)->constructed(object);

  auto *self = vekin::as<VekMetricJsonLogReporter>(object);
  if (self->dirname && self->basename)
    open_log_file(self);
  g_queue_init(&self->pending_buffers);
}

static void vek_metric_json_log_reporter_class_init(VekMetricJsonLogReporterClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_json_log_reporter_set_property;
  object_class->get_property = vek_metric_json_log_reporter_get_property;
  object_class->finalize = vek_metric_json_log_reporter_finalize;
  object_class->constructed = vek_metric_json_log_reporter_constructed;

  properties[PROP_DIRNAME] = vekin::property<g_param_spec_string>("dirname", nullptr);
  properties[PROP_BASENAME] = vekin::property<g_param_spec_string>("basename", nullptr);
  properties[PROP_INSTANCE_ID] = g_param_spec_string("instance-id", "instance id", "instance id",
                                                     nullptr, vekin::kConstructOnly);
  properties[PROP_MAX_REPORTS] = vekin::property<g_param_spec_uint>("max-reports", 0, G_MAXUINT, 0);
  properties[PROP_ROTATE] = vekin::property<g_param_spec_uint>("rotate", 0, G_MAXUINT, 0);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_json_log_reporter_init(VekMetricJsonLogReporter *self) {
  self->cancellable = g_cancellable_new();
}

VekMetricReporter *vek_metric_json_log_reporter_new(const gchar *basename, const gchar *dirname,
                                                    const gchar *instance_id, guint max_reports,
                                                    guint rotate) {
  return VEK_METRIC_REPORTER(g_object_new(VEK_TYPE_METRIC_JSON_LOG_REPORTER, "basename", basename,
                                          "dirname", dirname, "instance-id", instance_id,
                                          "max-reports", max_reports, "rotate", rotate, nullptr));
}
