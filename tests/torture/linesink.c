#include "linesink.h"

#include "faults.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

struct _LineSink {
  int listener;
  guint port;
  GArray *connections; /* of descriptors */
};

LineSink *line_sink_new(void) {
  LineSink *sink = g_new(LineSink, 1);
  sink->listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sink->connections = g_array_new(FALSE, FALSE, sizeof(int));
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  socklen_t size = sizeof address;
  g_assert_cmpint(bind(sink->listener, (struct sockaddr *)&address, size), ==, 0);
  g_assert_cmpint(listen(sink->listener, SOMAXCONN), ==, 0);
  g_assert_cmpint(getsockname(sink->listener, (struct sockaddr *)&address, &size), ==, 0);
  sink->port = ntohs(address.sin_port);
  return sink;
}

guint line_sink_get_port(LineSink *sink) {
  return sink->port;
}

static void accept_until(LineSink *sink, guint n_connections) {
  while (sink->connections->len < n_connections) {
    int connection = accept4(sink->listener, NULL, NULL, SOCK_CLOEXEC);
    g_assert_cmpint(connection, >=, 0);
    g_array_append_val(sink->connections, connection);
  }
}

void line_sink_hang_up(LineSink *sink, guint n_connections) {
  faults_pause();
  accept_until(sink, n_connections);
  for (guint i = 0; i < sink->connections->len; i++)
    shutdown(g_array_index(sink->connections, int, i), SHUT_WR);
  faults_resume();
}

static void append_line(GString *lines, GHashTable *known, const char *line, const char *end) {
  char *text = g_strndup(line, (gsize)(end - line));
  if (!g_hash_table_contains(known, text))
    g_string_append_printf(lines, "%s\n", text);
  g_hash_table_add(known, text);
}

char *line_sink_end(LineSink *sink, guint n_connections) {
  g_autoptr(GString) lines = g_string_new(NULL);
  g_autoptr(GHashTable) known = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, NULL);
  accept_until(sink, n_connections);
  for (guint i = 0; i < sink->connections->len; i++) {
    int connection = g_array_index(sink->connections, int, i);
    g_autoptr(GString) text = g_string_new(NULL);
    char buffer[4096];
    for (gssize n; (n = read(connection, buffer, sizeof buffer)) > 0;)
      g_string_append_len(text, buffer, n);
    close(connection);
    const char *line = text->str;
    for (const char *end; (end = strchr(line, '\n')); line = end + 1)
      append_line(lines, known, line, end);
  }
  close(sink->listener);
  g_array_unref(sink->connections);
  g_free(sink);
  return g_string_free(g_steal_pointer(&lines), FALSE);
}
