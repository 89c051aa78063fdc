#include "lineserver.h"

#include "support/logcapture.h"
#include "support/replace.h"

#include <string.h>
#include <sys/socket.h>

guint n_writes;
gsize largest_write;
GError *next_write_error;

static GSource *delayed; /* a reference */
static guint delay;

/* In place of GLib's, which it calls; GIO's own delays are shorter. */
GSource *g_timeout_source_new(guint interval) {
  GSource *source = NEXT(g_timeout_source_new)(interval);
  if (interval >= 750) {
    g_clear_pointer(&delayed, g_source_unref);
    delayed = g_source_ref(source);
    delay = interval;
    g_source_set_ready_time(source, -1);
  }
  return source;
}

/* In place of GIO's, which it calls. No write may wait for the server. */
gssize g_socket_send_with_blocking(GSocket *socket, const char *buffer, gsize size,
                                   gboolean blocking, GCancellable *cancellable, GError **error) {
  g_assert_false(blocking);
  n_writes++;
  largest_write = MAX(largest_write, size);
  if (next_write_error) {
    g_propagate_error(error, g_steal_pointer(&next_write_error));
    return -1;
  }
  return NEXT(g_socket_send_with_blocking)(socket, buffer, size, blocking, cancellable, error);
}

guint get_delay(void) {
  return delayed && !g_source_is_destroyed(delayed) ? delay : 0;
}

void end_delay(void) {
  g_assert_cmpuint(get_delay(), >, 0);
  g_source_set_ready_time(delayed, 0);
  run_until(get_delay() == 0);
}

gboolean on_guard(gpointer condition) {
  g_error("waited in vain for %s", (const char *)condition);
  return G_SOURCE_REMOVE;
}

void run_until_idle(void) {
  while (g_main_context_iteration(NULL, FALSE))
    ;
}

/* Several sockets may be bound to the port. */
static GSocket *bind_socket(const char *address, guint port) {
  g_autoptr(GSocketAddress) wanted = g_inet_socket_address_new_from_string(address, port);
  g_autoptr(GSocket) socket = g_socket_new(g_socket_address_get_family(wanted),
                                           G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_TCP, NULL);
  if (!socket || !g_socket_set_option(socket, SOL_SOCKET, SO_REUSEPORT, TRUE, NULL) ||
      !g_socket_bind(socket, wanted, TRUE, NULL))
    return NULL;
  return g_steal_pointer(&socket);
}

LineServer *line_server_new(const char *address) {
  GSocket *reservation = bind_socket(address, 0);
  if (!reservation)
    return NULL;
  g_autoptr(GSocketAddress) bound = g_socket_get_local_address(reservation, NULL);
  LineServer *server = g_new0(LineServer, 1);
  server->reservation = reservation;
  server->address = g_strdup(address);
  server->port = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound));
  server->received = g_string_new(NULL);
  line_server_start(server);
  return server;
}

void line_server_stop(LineServer *server) {
  g_socket_listener_close(server->listener);
  g_clear_object(&server->listener);
}

void line_server_start(LineServer *server) {
  g_autoptr(GSocket) socket = bind_socket(server->address, server->port);
  g_assert_nonnull(socket);
  g_assert_true(g_socket_listen(socket, NULL));
  server->listener = g_socket_listener_new();
  g_assert_true(g_socket_listener_add_socket(server->listener, socket, NULL, NULL));
}

void line_server_close(LineServer *server) {
  g_assert_true(g_socket_close(g_socket_connection_get_socket(server->connection), NULL));
  run_until(!server->reading);
  g_clear_object(&server->connection);
}

void line_server_reset(LineServer *server) {
  struct linger linger = {.l_onoff = 1, .l_linger = 0};
  GSocket *socket = g_socket_connection_get_socket(server->connection);
  g_assert_cmpint(
      setsockopt(g_socket_get_fd(socket), SOL_SOCKET, SO_LINGER, &linger, sizeof linger), ==, 0);
  line_server_close(server);
}

void line_server_free(LineServer *server) {
  if (server->listener)
    line_server_stop(server);
  if (server->connection)
    line_server_close(server);
  g_object_unref(server->reservation);
  g_string_free(server->received, TRUE);
  g_free(server->address);
  g_free(server);
}

static void on_accepted(GObject *listener, GAsyncResult *result, gpointer data) {
  LineServer *server = data;
  g_autoptr(GError) error = NULL;
  server->connection =
      g_socket_listener_accept_finish(G_SOCKET_LISTENER(listener), result, NULL, &error);
  g_assert_no_error(error);
}

void line_server_accept(LineServer *server) {
  if (server->connection)
    line_server_close(server);
  server->ended = FALSE;
  g_socket_listener_accept_async(server->listener, NULL, on_accepted, server);
  run_until(server->connection);
}

static void on_read(GObject *stream, GAsyncResult *result, gpointer data) {
  LineServer *server = data;
  server->reading = FALSE;
  g_autoptr(GError) error = NULL;
  gssize n_read = g_input_stream_read_finish(G_INPUT_STREAM(stream), result, &error);
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED))
    return; /* by line_server_close() */
  g_assert_no_error(error);
  g_string_append_len(server->received, server->buffer, n_read);
  if (n_read > 0)
    line_server_read(server);
  else
    server->ended = TRUE;
}

void line_server_read(LineServer *server) {
  server->reading = TRUE;
  g_input_stream_read_async(g_io_stream_get_input_stream(G_IO_STREAM(server->connection)),
                            server->buffer, sizeof server->buffer, G_PRIORITY_DEFAULT, NULL,
                            on_read, server);
}

void line_server_read_once(LineServer *server, gsize n_bytes) {
  g_autoptr(GError) error = NULL;
  gssize n_read =
      g_input_stream_read(g_io_stream_get_input_stream(G_IO_STREAM(server->connection)),
                          server->buffer, MIN(n_bytes, sizeof server->buffer), NULL, &error);
  g_assert_no_error(error);
  g_string_append_len(server->received, server->buffer, n_read);
}

void assert_received(LineServer *server, const char *expected) {
  run_until(server->received->len >= strlen(expected));
  g_assert_cmpstr(server->received->str, ==, expected);
  g_string_truncate(server->received, 0);
}

void process_count_of(VekMetricReporter *reporter, const char *name, char **dimensions,
                      const char *unit, gint64 count) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, name, dimensions, unit,
                                                         TIMESTAMP, count);
}

void process_count(VekMetricReporter *reporter, const char *name, gint64 count) {
  process_count_of(reporter, name, NULL, NULL, count);
}

void process_samples(VekMetricReporter *reporter, const char *name, char **dimensions,
                     const char *unit, VekMetricSnapshot *snapshot) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(reporter, name, dimensions, unit,
                                                              snapshot);
}

void flush(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

void send_count(VekMetricReporter *reporter, const char *name, gint64 count) {
  process_count(reporter, name, count);
  flush(reporter);
}

gboolean is_connected(VekMetricReporter *reporter) {
  gboolean connected;
  g_object_get(reporter, "connected", &connected, NULL);
  return connected;
}

gboolean is_busy(VekMetricReporter *reporter) {
  return vek_service_drain_is_busy(VEK_SERVICE_DRAIN(reporter));
}

void assert_lines(VekMetricReporter *reporter, guint queued, guint64 sent, guint64 dropped) {
  guint queued_now;
  guint64 sent_now, dropped_now;
  g_object_get(reporter, "queued-lines", &queued_now, "sent-lines", &sent_now, "dropped-lines",
               &dropped_now, NULL);
  g_assert_cmpuint(queued_now, ==, queued);
  g_assert_cmpuint(sent_now, ==, sent);
  g_assert_cmpuint(dropped_now, ==, dropped);
}

void meet(VekMetricReporter *reporter, LineServer *server) {
  line_server_accept(server);
  run_until(is_connected(reporter));
  line_server_read(server);
}

VekMetricReporter *connect_reporter(LineServer *server, const char *prefix) {
  VekMetricReporter *reporter =
      vek_service_graphite_reporter_new(prefix, server->address, server->port);
  meet(reporter, server);
  return reporter;
}

void assert_outage(LineServer *server, const char *reason) {
  g_autofree char *pattern = g_strdup_printf("No connection to %s:%u, lines wait for it: %s",
                                             server->address, server->port, reason);
  assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING, pattern);
}

void assert_outage_over(LineServer *server, guint seconds, guint n_dropped) {
  g_autofree char *message =
      g_strdup_printf("%s:%u takes lines again after %u s; %u lines were dropped", server->address,
                      server->port, seconds, n_dropped);
  assert_logged("VEK:service", G_LOG_LEVEL_MESSAGE, message);
}
