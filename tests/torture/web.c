#include "faults.h"
#include "support/fixture.h"
#include "torture.h"

#include <gio/gunixsocketaddress.h>
#include <glib-unix.h>
#include <string.h>
#include <vekmetrics-web/vekmetrics-web.h>

/* A client that talks by a socket in the thread of the test: its calls do not fail. */
typedef struct {
  GSocket *socket;
  GString *answer;
  gboolean has_ended;
} Client;

static gboolean on_readable(GSocket *socket, GIOCondition condition, gpointer data) {
  (void)condition;
  Client *client = data;
  char buffer[4096];
  faults_pause();
  gssize n = g_socket_receive(socket, buffer, sizeof buffer, NULL, NULL);
  faults_resume();
  if (n > 0)
    g_string_append_len(client->answer, buffer, n);
  client->has_ended = n <= 0;
  return n > 0;
}

static void connect_client(Client *client, GSocketAddress *address, const char *request) {
  faults_pause();
  client->socket = g_socket_new(g_socket_address_get_family(address), G_SOCKET_TYPE_STREAM,
                                G_SOCKET_PROTOCOL_DEFAULT, NULL);
  client->answer = g_string_new(NULL);
  g_assert_true(g_socket_connect(client->socket, address, NULL, NULL));
  g_assert_cmpint(g_socket_send(client->socket, request, strlen(request), NULL, NULL), ==,
                  strlen(request));
  faults_resume();
}

static void client_clear(Client *client) {
  faults_pause();
  g_object_unref(client->socket);
  faults_resume();
  g_string_free(client->answer, TRUE);
}
G_DEFINE_AUTO_CLEANUP_CLEAR_FUNC(Client, client_clear)

static char *find_body(const Client *client) {
  char *end = strstr(client->answer->str, "\r\n\r\n");
  return end ? end + 4 : NULL;
}

/* Whether all has come that the headers announce. */
static gboolean is_whole(const Client *client) {
  const char *body = find_body(client);
  if (!body || !g_str_has_prefix(client->answer->str, "HTTP/1.1 200 "))
    return FALSE;
  gsize size = client->answer->len - (gsize)(body - client->answer->str);
  const char *length = strstr(client->answer->str, "Content-Length: ");
  return length ? g_ascii_strtoull(strchr(length, ' '), NULL, 10) == size
                : g_str_has_suffix(body, "\r\n0\r\n\r\n");
}

static gboolean has_event(const Client *client) {
  return g_str_has_suffix(client->answer->str, "}\n\n\r\n");
}

/* The passes name the start of the program by a random number. */
static void hide_start(GString *answer) {
  char *start = strstr(answer->str, "\"start\":\"");
  if (start)
    memset(start + 9, 'x', strlen("01234567-89ab-cdef-0123-456789abcdef"));
}

/* Sends a request, and reads until the connection ends; if a reporter is given, runs a pass once
 * the answer has begun, and reads until there is an event. */
static gboolean ask(Run *run, GSocketAddress *address, const char *request,
                    VekMetricReporter *reporter) {
  g_auto(Client) client = {0};
  connect_client(&client, address, request);
  g_autoptr(GSource) source = g_socket_create_source(client.socket, G_IO_IN, NULL);
  g_source_set_callback(source, G_SOURCE_FUNC(on_readable), &client, NULL);
  g_source_attach(source, NULL);
  gboolean passed = !reporter;
  while (!client.has_ended && !(reporter && has_event(&client))) {
    g_main_context_iteration(NULL, TRUE);
    if (!passed && find_body(&client)) {
      report_pass(reporter);
      passed = TRUE;
    }
  }
  g_source_destroy(source);
  if (reporter ? !has_event(&client) : !is_whole(&client))
    return FALSE;

  hide_start(client.answer);
  const char *body = find_body(&client);
  g_autofree char *checksum =
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, (const guchar *)body,
                                  client.answer->len - (gsize)(body - client.answer->str));
  g_string_append_printf(run->output, "%.*s: %s\n", (int)strcspn(request, "\r"), request,
                         reporter ? "an event" : checksum);
  return TRUE;
}

/* A fault may cost an answer; the next one is whole. */
static void get(Run *run, GSocketAddress *address, const char *path, const char *header,
                VekMetricReporter *reporter) {
  g_autofree char *request = g_strdup_printf(
      "GET %s HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n%s\r\n", path, header);
  for (guint i = 0; !ask(run, address, request, reporter); i++)
    if (i == faults_get_n_faults()) {
      g_string_append_printf(run->output, "no answer to %s\n", path);
      return;
    }
}

static void get_all(Run *run, GSocketAddress *address, VekServicePrometheusReporter *reporter) {
  report_pass(VEK_METRIC_REPORTER(reporter));
  get(run, address, "/metrics", "", NULL);
  get(run, address, "/metrics", "Accept-Encoding: gzip\r\n", NULL);
  get(run, address, "/", "", NULL);
  get(run, address, "/vars.json", "", NULL);
  get(run, address, "/events", "", VEK_METRIC_REPORTER(reporter));
}

static void serve_port(Run *run) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  g_autoptr(VekWebServer) server = vek_web_server_new(reporter);
  g_autoptr(GError) error = NULL;
  while (!vek_web_server_listen(server, NULL, 0, &error)) {
    g_assert_nonnull(error);
    g_clear_error(&error);
  }
  g_autoptr(GSocketAddress) address =
      g_inet_socket_address_new_from_string("127.0.0.1", vek_web_server_get_port(server));
  get_all(run, address, reporter);
}

static const char no_connection[] = "Could not accept a connection: *";

/* A socket asks for its name when it is made of a descriptor. */
static const Effect effects[] = {
    {"accept", no_connection, NO_PASS, NULL},
    {"getsockname", no_connection, NO_PASS, NULL},
    {0},
};

TEST(web_server_answers_the_next_request) {
  torture(&(Scenario){serve_port, NULL, effects});
}

/* Leaves a socket on which nobody listens. */
static void abandon_socket(GSocketAddress *address) {
  faults_pause();
  g_autoptr(GSocket) socket =
      g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, NULL);
  g_assert_true(g_socket_bind(socket, address, FALSE, NULL));
  g_clear_object(&socket);
  faults_resume();
}

static void serve_path(Run *run) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  g_autoptr(VekWebServer) server = vek_web_server_new(reporter);
  g_autofree char *path = g_build_filename(run->folder, "socket", NULL);
  g_autoptr(GSocketAddress) address = g_unix_socket_address_new(path);
  abandon_socket(address);
  g_autoptr(GError) error = NULL;
  while (!vek_web_server_listen_unix(server, path, &error)) {
    g_assert_nonnull(error);
    g_clear_error(&error);
  }
  get_all(run, address, reporter);
}

TEST(web_server_answers_the_next_request_on_a_path) {
  torture(&(Scenario){serve_path, NULL, effects});
}
