#include "carbonreporter.h"

#include "common/internal.hpp"
#include "common/numbers.hpp"

#include <gio/gio.h>
#include <string.h>

struct _VekMetricCarbonReporter {
  GObject parent_instance;

  char *prefix;
  char *server_address;
  guint16 server_port;
  GQueue *pending_lines;  // the oldest at the head
  GCancellable *cancellable;
  gboolean write_in_progress;
  gboolean disabled;
  GSocketConnection *connection;  // NULL until it is there
};
static_assert(vekin::ZeroFillable<VekMetricCarbonReporter>);

namespace {

// What a write in flight holds.
struct Write {
  VekMetricCarbonReporter *reporter;  // a reference
  char *line;
};

}  // namespace

enum : guint { PROP_PREFIX = 1, PROP_SERVER_ADDRESS, PROP_SERVER_PORT, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

static void vek_metric_carbon_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekMetricCarbonReporter, vek_metric_carbon_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_metric_carbon_reporter_reporter_init))

static void send_metrics(VekMetricCarbonReporter *self);

static void on_metric_sent_callback(GObject *source, GAsyncResult *result, gpointer user_data) {
  auto *write = static_cast<Write *>(user_data);
  auto *self = write->reporter;

  g_autoptr(GError) error = nullptr;
  gsize bytes_written = 0;
  if (g_output_stream_write_all_finish(G_OUTPUT_STREAM(source), result, &bytes_written, &error)) {
    vek_debug("Carbon reporter write operation succeeded (bytes_written: %" G_GSIZE_FORMAT ")",
              bytes_written);
  } else {
    vek_warning("Carbon reporter write operation failed with error: %s", error->message);
    vek_warning("Carbon reporter will be disabled");
    self->disabled = TRUE;
  }

  // The chain goes on after a failure too: every line that was queued is tried. Its next write
  // holds a reference of its own before this one goes, so that the queue of a reporter that
  // nobody else holds is sent to its end.
  self->write_in_progress = FALSE;
  send_metrics(self);
  g_object_unref(self);
  g_free(write->line);
  g_free(write);
}

static void send_metrics(VekMetricCarbonReporter *self) {
  if (!self->connection || self->write_in_progress)
    return;
  auto *line = static_cast<char *>(g_queue_pop_head(self->pending_lines));
  if (!line)
    return;

  self->write_in_progress = TRUE;
  vek_debug("Sending message to carbon server: %s", line);
  auto *write = g_new(Write, 1);
  *write = {.reporter = vekin::as<VekMetricCarbonReporter>(g_object_ref(self)), .line = line};
  g_output_stream_write_all_async(g_io_stream_get_output_stream(G_IO_STREAM(self->connection)),
                                  line, strlen(line), G_PRIORITY_DEFAULT, self->cancellable,
                                  on_metric_sent_callback, write);
}

static void on_socket_client_connect(GObject *source, GAsyncResult *result, gpointer user_data) {
  auto *self = vekin::as<VekMetricCarbonReporter>(user_data);

  g_autoptr(GError) error = nullptr;
  self->connection = g_socket_client_connect_finish(G_SOCKET_CLIENT(source), result, &error);
  if (self->connection) {
    // Nothing is sent yet: the next flush does that.
    vek_info("Established connection with carbon server %s:%d", self->server_address,
             self->server_port);
    self->disabled = FALSE;
  } else {
    vek_warning("Could not connect to carbon server: %s", error->message);
    vek_warning("Carbon reporter will be disabled");
    self->disabled = TRUE;
  }
  g_object_unref(self);
}

static char *process_keyname(VekMetricCarbonReporter *self, const char *name, char **dimensions,
                             const char *unit) {
  g_autoptr(GString) key = g_string_sized_new(128);
  if (self->prefix && *self->prefix) {
    g_string_append(key, self->prefix);
    g_string_append_c(key, '.');
  }
  if (dimensions) {  // an empty vector adds its "." all the same
    vekin::append_joined(key, dimensions);
    g_string_append_c(key, '.');
  }
  if (unit) {  // and so does an empty unit
    g_string_append(key, unit);
    g_string_append_c(key, '.');
  }
  g_string_append(key, name);
  return g_string_free(g_steal_pointer(&key), FALSE);
}

static gint64 to_seconds(gint64 microseconds) {
  return microseconds / G_USEC_PER_SEC;  // toward zero
}

// "key value seconds", with a suffix to the key.
static void queue_line(VekMetricCarbonReporter *self, const char *key, const char *suffix,
                       const char *value, gint64 seconds) {
  g_queue_push_tail(self->pending_lines, g_strconcat(key, suffix, " ", value, " ",
                                                     vekin::Decimal(seconds).text, "\n", nullptr));
}

static void vek_metric_carbon_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                                     gchar **dimensions, const gchar *unit,
                                                     gint64 timestamp, gint64 count) {
  auto *self = vekin::as<VekMetricCarbonReporter>(reporter);
  if (self->disabled)
    return;

  g_autofree char *key = process_keyname(self, name, dimensions, unit);
  queue_line(self, key, "", vekin::Decimal(count).text, to_seconds(timestamp));
}

static void vek_metric_carbon_reporter_process_value(VekMetricReporter *reporter, const gchar *name,
                                                     gchar **dimensions, const gchar *unit,
                                                     gint64 timestamp, gdouble value) {
  auto *self = vekin::as<VekMetricCarbonReporter>(reporter);
  if (self->disabled)
    return;

  g_autofree char *key = process_keyname(self, name, dimensions, unit);
  queue_line(self, key, "", vekin::FixedPoint(value).text, to_seconds(timestamp));
}

static void vek_metric_carbon_reporter_process_aggregated(VekMetricReporter *reporter,
                                                          const gchar *name, gchar **dimensions,
                                                          const gchar *unit,
                                                          VekMetricSnapshot *snapshot) {
  auto *self = vekin::as<VekMetricCarbonReporter>(reporter);
  if (self->disabled)
    return;

  g_autofree char *key = process_keyname(self, name, dimensions, unit);
  gint64 seconds = to_seconds(vek_metric_snapshot_get_time(snapshot));
  gdouble average = vek_metric_snapshot_get_average(snapshot);
  gsize n_samples = vek_metric_snapshot_get_n_samples(snapshot);
  gdouble min = vek_metric_snapshot_get_min(snapshot);
  gdouble max = vek_metric_snapshot_get_max(snapshot);
  queue_line(self, key, ".average", vekin::FixedPoint(average).text, seconds);
  queue_line(self, key, ".n_samples", vekin::Decimal(n_samples).text, seconds);
  queue_line(self, key, ".min", vekin::FixedPoint(min).text, seconds);
  queue_line(self, key, ".max", vekin::FixedPoint(max).text, seconds);
}

static void vek_metric_carbon_reporter_flush(VekMetricReporter *reporter) {
  auto *self = vekin::as<VekMetricCarbonReporter>(reporter);
  if (!self->disabled)
    send_metrics(self);
}

static void vek_metric_carbon_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_metric_carbon_reporter_process_count;
  iface->process_value = vek_metric_carbon_reporter_process_value;
  iface->process_aggregated = vek_metric_carbon_reporter_process_aggregated;
  iface->flush = vek_metric_carbon_reporter_flush;
}

static void vek_metric_carbon_reporter_set_property(GObject *object, guint id, const GValue *value,
                                                    GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricCarbonReporter>(object);

  switch (id) {
  case PROP_PREFIX: self->prefix = g_value_dup_string(value); break;
  case PROP_SERVER_ADDRESS: self->server_address = g_value_dup_string(value); break;
  case PROP_SERVER_PORT: self->server_port = static_cast<guint16>(g_value_get_uint(value)); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_carbon_reporter_get_property(GObject *object, guint id, GValue *value,
                                                    GParamSpec *pspec) {
  auto *self = vekin::as<VekMetricCarbonReporter>(object);

  switch (id) {
  case PROP_PREFIX: g_value_set_string(value, self->prefix); break;
  case PROP_SERVER_ADDRESS: g_value_set_string(value, self->server_address); break;
  case PROP_SERVER_PORT: g_value_set_uint(value, self->server_port); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_metric_carbon_reporter_dispose(GObject *object) {
  auto *self = vekin::as<VekMetricCarbonReporter>(object);
  self->disabled = TRUE;  // whoever still holds the object finds no queue in it
  if (self->cancellable)
    g_cancellable_cancel(self->cancellable);
  g_clear_object(&self->cancellable);
  g_clear_pointer(&self->server_address, g_free);
  g_clear_pointer(&self->prefix, g_free);
  g_clear_object(&self->connection);
  if (self->pending_lines)
    g_queue_free_full(g_steal_pointer(&self->pending_lines), g_free);

  G_OBJECT_CLASS(vek_metric_carbon_reporter_parent_class)->dispose(object);
}

static void vek_metric_carbon_reporter_constructed(GObject *object) {
  auto *self = vekin::as<VekMetricCarbonReporter>(object);
  g_autoptr(GSocketClient) client = g_socket_client_new();
  g_autoptr(GSocketAddress) address =
      self->server_address
          ? g_inet_socket_address_new_from_string(self->server_address, self->server_port)
          : nullptr;
  if (address) {
    g_socket_client_connect_async(client, G_SOCKET_CONNECTABLE(address), self->cancellable,
                                  on_socket_client_connect, g_object_ref(self));
  } else {
    vek_warning("The server address %s:%d is not parsable, carbon reporter will be disabled",
                self->server_address, self->server_port);
    self->disabled = TRUE;
  }
  // A connection under way holds what it needs of them.
  g_clear_object(&address);
  g_clear_object(&client);

  G_OBJECT_CLASS(vek_metric_carbon_reporter_parent_class)->constructed(object);
}

static void vek_metric_carbon_reporter_class_init(VekMetricCarbonReporterClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_carbon_reporter_set_property;
  object_class->get_property = vek_metric_carbon_reporter_get_property;
  object_class->dispose = vek_metric_carbon_reporter_dispose;
  object_class->constructed = vek_metric_carbon_reporter_constructed;

  properties[PROP_PREFIX] = vekin::property<g_param_spec_string>("prefix", nullptr);
  properties[PROP_SERVER_ADDRESS] = vekin::property<g_param_spec_string>("server-address", nullptr);
  properties[PROP_SERVER_PORT] = vekin::property<g_param_spec_uint>("server-port", 0, 65535, 2003);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_metric_carbon_reporter_init(VekMetricCarbonReporter *self) {
  self->pending_lines = g_queue_new();
  self->cancellable = g_cancellable_new();
}

VekMetricReporter *vek_metric_carbon_reporter_new(const gchar *prefix, const gchar *server_address,
                                                  guint server_port) {
  return VEK_METRIC_REPORTER(g_object_new(VEK_TYPE_METRIC_CARBON_REPORTER, "prefix", prefix,
                                          "server-address", server_address, "server-port",
                                          server_port, nullptr));
}
