#include "served.h"

#include <string.h>

static VekMetricReporterInterface *get_operations(Served *served) {
  return VEK_METRIC_REPORTER_GET_IFACE(served->reporter);
}

void bring(Served *served, const char *name, char **dimensions, const char *unit, double value) {
  get_operations(served)->process_value(VEK_METRIC_REPORTER(served->reporter), name, dimensions,
                                        unit, 0, value);
}

void bring_range(Served *served, const char *name, int id, gint64 start, gint64 end) {
  VekMetricRange range = {id, start, end};
  GSList *list = g_slist_prepend(NULL, &range);
  get_operations(served)->process_timeline_samples(VEK_METRIC_REPORTER(served->reporter), name,
                                                   list);
  g_slist_free(list);
}

void end_pass(Served *served) {
  get_operations(served)->flush(VEK_METRIC_REPORTER(served->reporter));
}

void pass(Served *served, int n_metrics) {
  for (int i = 0; i < n_metrics; i++) {
    g_autofree char *name = g_strdup_printf("gauge%d", i);
    bring(served, name, NULL, NULL, i);
  }
  end_pass(served);
}

Served set_up(void) {
  VekServicePrometheusReporter *reporter = vek_service_prometheus_reporter_new();
  return (Served){reporter, vek_web_server_new(reporter)};
}

void listen_locally(Served *served) {
  g_autoptr(GError) error = NULL;
  g_assert_true(vek_web_server_listen(served->server, NULL, 0, &error));
  g_assert_no_error(error);
}

Served set_up_listening(int n_metrics) {
  Served served = set_up();
  listen_locally(&served);
  pass(&served, n_metrics);
  return served;
}

void settle(void) {
  while (g_main_context_iteration(NULL, FALSE)) {
  }
}

void tear_down(Served *served) {
  g_object_unref(served->server);
  g_object_unref(served->reporter);
  settle();
}

/* A client that sends a text and reads until the other side ends. */
typedef struct {
  GSocketAddress *address;
  const char *request;
  GByteArray *answer;
  gboolean has_ended;
} Client;

static gpointer talk(gpointer data) {
  Client *client = data;
  g_autoptr(GSocket) socket = g_socket_new(g_socket_address_get_family(client->address),
                                           G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, NULL);
  g_assert_true(g_socket_connect(socket, client->address, NULL, NULL));
  g_socket_send(socket, client->request, strlen(client->request), NULL, NULL);
  char buffer[4096];
  gssize n_read;
  while ((n_read = g_socket_receive(socket, buffer, sizeof buffer, NULL, NULL)) > 0)
    g_byte_array_append(client->answer, (guint8 *)buffer, (guint)n_read);
  g_atomic_int_set(&client->has_ended, TRUE);
  g_main_context_wakeup(NULL);
  return NULL;
}

GByteArray *ask(GSocketAddress *address, const char *request) {
  Client client = {address, request, g_byte_array_new(), FALSE};
  GThread *thread = g_thread_new("client", talk, &client);
  while (!g_atomic_int_get(&client.has_ended))
    g_main_context_iteration(NULL, TRUE);
  g_thread_join(thread);
  g_byte_array_append(client.answer, (const guint8 *)"", 1);
  return client.answer;
}

static gboolean on_connection(GSocketService *service, GSocketConnection *connection,
                              GObject *source_object, gpointer soup_server) {
  (void)service;
  (void)source_object;
  g_autoptr(GSocketAddress) local = g_socket_connection_get_local_address(connection, NULL);
  g_autoptr(GSocketAddress) remote = g_socket_connection_get_remote_address(connection, NULL);
  return soup_server_accept_iostream(soup_server, G_IO_STREAM(connection), local, remote, NULL);
}

/* A service that accepts holds itself. */
static void end_service(gpointer service) {
  g_socket_service_stop(service);
  g_object_unref(service);
}

/* libsoup 3.2.3 leaks sockets and addresses where it listens itself. */
SoupServer *other_server_new(GSocketAddress **address) {
  SoupServer *soup_server = soup_server_new(NULL, NULL);
  GSocketService *service = g_socket_service_new();
  g_object_set_data_full(G_OBJECT(soup_server), "service", service, end_service);
  g_signal_connect(service, "incoming", G_CALLBACK(on_connection), soup_server);
  g_autoptr(GSocketAddress) any_port = g_inet_socket_address_new_from_string("127.0.0.1", 0);
  g_assert_true(g_socket_listener_add_address(G_SOCKET_LISTENER(service), any_port,
                                              G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, NULL,
                                              address, NULL));
  return soup_server;
}

void assert_answer(GSocketAddress *address, const char *path, const char *expected) {
  g_autofree char *lines =
      g_strdup_printf("GET %s HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n", path);
  g_autoptr(GByteArray) answer = ask(address, lines);
  g_test_message("%s: %s", path, (char *)answer->data);
  g_assert_true(g_str_has_prefix((char *)answer->data, expected));
}

GSocketAddress *get_address(Served *served) {
  return g_inet_socket_address_new_from_string("127.0.0.1",
                                               vek_web_server_get_port(served->server));
}

char *request(Served *served, const char *lines, GBytes **body) {
  g_autofree char *text = g_strdup_printf("%s|Connection: close||", lines);
  g_auto(GStrv) parts = g_strsplit(text, "|", -1);
  g_autofree char *sent = g_strjoinv("\r\n", parts);
  g_autoptr(GSocketAddress) address = get_address(served);
  g_autoptr(GByteArray) answer = ask(address, sent);
  char *end = strstr((char *)answer->data, "\r\n\r\n");
  g_assert_nonnull(end);
  *end = '\0';
  const guint8 *rest = (guint8 *)end + 4;
  if (body)
    *body = g_bytes_new(rest, answer->len - 1 - (gsize)(rest - answer->data));
  g_auto(GStrv) headers = g_strsplit((char *)answer->data, "\r\n", -1);
  g_autoptr(GString) found = g_string_new(NULL);
  for (char **header = headers; *header; header++)
    if (!g_str_has_prefix(*header, "Date:") && !g_str_has_prefix(*header, "Connection:"))
      g_string_append_printf(found, "%s%s", found->len > 0 ? "|" : "", *header);
  return g_string_free(g_steal_pointer(&found), FALSE);
}

void assert_status(Served *served, const char *lines, const char *status) {
  g_test_message("%s", lines);
  g_autofree char *answer = request(served, lines, NULL);
  g_auto(GStrv) headers = g_strsplit(answer, "|", -1);
  g_assert_cmpstr(headers[0], ==, status);
}

void assert_bytes(GBytes *found, const char *expected) {
  gsize size;
  const char *data = g_bytes_get_data(found, &size);
  g_autofree char *text = g_strndup(data ? data : "", size);
  g_assert_cmpstr(text, ==, expected);
}

GBytes *decompress(GBytes *compressed) {
  g_autoptr(GInputStream) input = g_memory_input_stream_new_from_bytes(compressed);
  g_autoptr(GZlibDecompressor) converter = g_zlib_decompressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP);
  g_autoptr(GInputStream) plain = g_converter_input_stream_new(input, G_CONVERTER(converter));
  g_autoptr(GOutputStream) output = g_memory_output_stream_new_resizable();
  g_autoptr(GError) error = NULL;
  g_output_stream_splice(output, plain, G_OUTPUT_STREAM_SPLICE_CLOSE_TARGET, NULL, &error);
  g_assert_no_error(error);
  return g_memory_output_stream_steal_as_bytes(G_MEMORY_OUTPUT_STREAM(output));
}

GSource *find_source(const char *name) {
  g_autoptr(GSource) newest = g_idle_source_new();
  guint id = g_source_attach(newest, NULL);
  g_source_destroy(newest);
  for (; id > 0; id--) {
    GSource *source = g_main_context_find_source_by_id(NULL, id);
    if (source && g_strcmp0(g_source_get_name(source), name) == 0)
      return source;
  }
  return NULL;
}

GSocket *connect_to_address(GSocketAddress *address) {
  GSocket *socket = g_socket_new(g_socket_address_get_family(address), G_SOCKET_TYPE_STREAM,
                                 G_SOCKET_PROTOCOL_DEFAULT, NULL);
  g_assert_true(g_socket_connect(socket, address, NULL, NULL));
  settle();
  return socket;
}

GSocket *connect_to(Served *served) {
  g_autoptr(GSocketAddress) address = get_address(served);
  return connect_to_address(address);
}

gboolean has_ended(GSocket *socket) {
  settle();
  char byte;
  return g_socket_receive_with_blocking(socket, &byte, 1, FALSE, NULL, NULL) == 0;
}

void send_request(GSocket *socket, const char *path) {
  g_autofree char *text = g_strdup_printf("GET %s HTTP/1.1\r\nHost: localhost\r\n\r\n", path);
  g_socket_send(socket, text, strlen(text), NULL, NULL);
}

GSocket *send_to(Served *served, const char *path) {
  GSocket *socket = connect_to(served);
  send_request(socket, path);
  settle();
  return socket;
}

char *receive(GSocket *socket) {
  settle();
  char buffer[1 << 16];
  gssize n_read = g_socket_receive_with_blocking(socket, buffer, sizeof buffer, FALSE, NULL, NULL);
  g_autofree char *text = g_strndup(buffer, n_read > 0 ? (gsize)n_read : 0);
  char *body = strstr(text, "\r\n\r\n");
  return g_strdup(body && g_str_has_prefix(text, "HTTP/") ? body + 4 : text);
}

void run_source(const char *name) {
  GSource *source = find_source(name);
  g_assert_nonnull(source);
  g_source_set_ready_time(source, 0);
  settle();
}
