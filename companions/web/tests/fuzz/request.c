/* What a connection brings: an input is sent to a server, and the connection is ended. */

#include <string.h>
#include <vekmetrics-web/vekmetrics-web.h>

static VekWebServer *start_server(void) {
  VekServicePrometheusReporter *reporter = vek_service_prometheus_reporter_new();
  VekMetricReporterInterface *operations = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  operations->process_value(VEK_METRIC_REPORTER(reporter), "secret", NULL, NULL, 0, 42);
  operations->flush(VEK_METRIC_REPORTER(reporter));
  VekWebServer *server = vek_web_server_new(reporter);
  g_object_unref(reporter);
  g_assert_true(vek_web_server_listen(server, NULL, 0, NULL));
  return server;
}

/* The response to a request for events goes on for as long as the client stays. */
static gboolean is_endless(const GByteArray *answer) {
  static const char type[] = "\r\nContent-Type: text/event-stream\r\n";
  return memmem(answer->data, answer->len, type, strlen(type)) != NULL;
}

/* Sends everything and reads until the server ends the connection. */
static GByteArray *talk(GSocket *socket, const guint8 *data, gsize size) {
  GByteArray *answer = g_byte_array_new();
  gsize n_sent = 0;
  gboolean has_ended = FALSE;
  while (!has_ended) {
    g_autoptr(GError) error = NULL;
    if (n_sent < size) {
      gssize n = g_socket_send(socket, (const char *)data + n_sent, size - n_sent, NULL, &error);
      if (n >= 0)
        n_sent += (gsize)n;
      else if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK))
        n_sent = size; /* the server takes no more */
      g_clear_error(&error);
    } else {
      g_socket_shutdown(socket, FALSE, TRUE, NULL);
    }
    g_main_context_iteration(NULL, FALSE);
    char buffer[4096];
    gssize n_read = g_socket_receive(socket, buffer, sizeof buffer, NULL, &error);
    if (n_read > 0) {
      g_byte_array_append(answer, (guint8 *)buffer, (guint)n_read);
      has_ended = is_endless(answer);
    } else {
      has_ended = !g_error_matches(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK);
    }
  }
  return answer;
}

static gboolean names_this_machine(const guint8 *data, gsize size) {
  static const char *const names[] = {"localhost", "127.0.0.1", "[::1]"};
  g_autofree char *text = g_ascii_strdown((const char *)data, (gssize)size);
  for (gsize i = 0; i < G_N_ELEMENTS(names); i++)
    if (memmem(text, size, names[i], strlen(names[i])))
      return TRUE;
  return FALSE;
}

int LLVMFuzzerTestOneInput(const guint8 *data, gsize size);
int LLVMFuzzerTestOneInput(const guint8 *data, gsize size) {
  g_autoptr(VekWebServer) server = start_server();
  g_autoptr(GSocketAddress) address =
      g_inet_socket_address_new_from_string("127.0.0.1", vek_web_server_get_port(server));
  g_autoptr(GSocket) socket =
      g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, NULL);
  g_assert_true(g_socket_connect(socket, address, NULL, NULL));
  g_socket_set_blocking(socket, FALSE);
  g_autoptr(GByteArray) answer = talk(socket, data, size);

  if (answer->len == 0)
    return 0;
  g_assert_true(memcmp(answer->data, "HTTP/1.", MIN(answer->len, 7)) == 0);
  if (memmem(answer->data, answer->len, "\nsecret 42\n", 11))
    g_assert_true(names_this_machine(data, size));
  return 0;
}
