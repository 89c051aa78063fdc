/* Tests of VekMetricCarbonReporter, against servers of their own on loopback. */

#include "support/decimalcomma.h"
#include "support/fixture.h"
#include "support/replace.h"

#include <float.h>
#include <gio/gio.h>
#include <math.h>
#include <sys/socket.h>

#define SOURCE "../vekmetrics/carbonreporter"
#define DISABLED "Carbon reporter will be disabled"

/* 1,700,000,000 s on the wire. */
#define TIMESTAMP G_GINT64_CONSTANT(1700000000999999)

/* More than the socket buffers take from a peer that reads nothing. */
#define HUGE_NAME_LENGTH (8 << 20)

/* In place of GIO's, which it calls. */
void g_output_stream_write_all_async(GOutputStream *stream, const void *buffer, gsize count,
                                     int io_priority, GCancellable *cancellable,
                                     GAsyncReadyCallback callback, gpointer user_data) {
  g_assert_cmpint(io_priority, ==, G_PRIORITY_DEFAULT);
  NEXT(g_output_stream_write_all_async)
  (stream, buffer, count, io_priority, cancellable, callback, user_data);
}

/* The last client that was made; NULL once it has gone. */
static GSocketClient *last_client;

/* In place of GIO's. */
GSocketClient *g_socket_client_new(void) {
  if (last_client)
    g_object_remove_weak_pointer(G_OBJECT(last_client), (gpointer *)&last_client);
  last_client = g_object_new(G_TYPE_SOCKET_CLIENT, NULL);
  g_object_add_weak_pointer(G_OBJECT(last_client), (gpointer *)&last_client);
  return last_client;
}

static gboolean on_guard(gpointer condition) {
  g_error("waited in vain for %s", (const char *)condition);
  return G_SOURCE_REMOVE;
}

/* Runs the context until the condition holds; the time limit only ends a test that hangs. */
#define run_context_until(context, condition)                             \
  G_STMT_START {                                                          \
    g_autoptr(GSource) guard = g_timeout_source_new_seconds(100);         \
    g_source_set_callback(guard, on_guard, (gpointer)(#condition), NULL); \
    g_source_attach(guard, context);                                      \
    while (!(condition))                                                  \
      g_main_context_iteration(context, TRUE);                            \
    g_source_destroy(guard);                                              \
  }                                                                       \
  G_STMT_END
#define run_until(condition) run_context_until(NULL, condition)

/* Runs the default context for as long as anything is ready. */
static void run_until_idle(void) {
  while (g_main_context_iteration(NULL, FALSE))
    ;
}

/* A server for one connection. */
typedef struct {
  GSocketListener *listener;
  char *address;
  guint port;
  GSocketConnection *connection; /* NULL until it is accepted */
  char buffer[4096];
  GString *received;
  gboolean ended; /* whether the other side closed the connection */
} Server;

static void server_free(Server *server) {
  g_socket_listener_close(server->listener);
  g_object_unref(server->listener);
  g_clear_object(&server->connection);
  g_string_free(server->received, TRUE);
  g_free(server->address);
  g_free(server);
}
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Server, server_free)

/* Listens at a free port; NULL if the address is not to be had on this machine. */
static Server *server_new(const char *address) {
  g_autoptr(GSocketListener) listener = g_socket_listener_new();
  g_autoptr(GSocketAddress) wanted = g_inet_socket_address_new_from_string(address, 0);
  g_autoptr(GSocketAddress) bound = NULL;
  if (!g_socket_listener_add_address(listener, wanted, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_TCP,
                                     NULL, &bound, NULL))
    return NULL;

  Server *server = g_new0(Server, 1);
  server->listener = g_steal_pointer(&listener);
  server->address = g_strdup(address);
  server->port = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound));
  server->received = g_string_new(NULL);
  return server;
}

static void on_accepted(GObject *listener, GAsyncResult *result, gpointer data) {
  Server *server = data;
  g_autoptr(GError) error = NULL;
  server->connection =
      g_socket_listener_accept_finish(G_SOCKET_LISTENER(listener), result, NULL, &error);
  g_assert_no_error(error);
}

static void server_accept(Server *server) {
  g_socket_listener_accept_async(server->listener, NULL, on_accepted, server);
  run_until(server->connection);
}

static void server_read(Server *server);

static void on_read(GObject *stream, GAsyncResult *result, gpointer data) {
  Server *server = data;
  g_autoptr(GError) error = NULL;
  gssize n_read = g_input_stream_read_finish(G_INPUT_STREAM(stream), result, &error);
  g_assert_no_error(error);
  g_string_append_len(server->received, server->buffer, n_read);
  if (n_read > 0)
    server_read(server);
  else
    server->ended = TRUE;
}

/* Begins to read what comes. Until then the server reads nothing. */
static void server_read(Server *server) {
  g_input_stream_read_async(g_io_stream_get_input_stream(G_IO_STREAM(server->connection)),
                            server->buffer, sizeof server->buffer, G_PRIORITY_DEFAULT, NULL,
                            on_read, server);
}

/* Breaks the connection off: the other side gets a reset. */
static void server_reset(Server *server) {
  struct linger linger = {.l_onoff = 1, .l_linger = 0};
  GSocket *socket = g_socket_connection_get_socket(server->connection);
  g_assert_cmpint(
      setsockopt(g_socket_get_fd(socket), SOL_SOCKET, SO_LINGER, &linger, sizeof linger), ==, 0);
  g_assert_true(g_socket_close(socket, NULL));
}

/* Reads to the end of the connection, which is where the reporter is gone, and compares the whole
 * stream. */
static void assert_received(Server *server, const char *expected) {
  server_read(server);
  run_until(server->ended);
  g_assert_cmpstr(server->received->str, ==, expected);
}

static VekMetricReporter *begin_to_connect(Server *server, const char *prefix) {
  return vek_metric_carbon_reporter_new(prefix, server->address, server->port);
}

static void assert_established(Server *server) {
  g_autofree char *message = g_strdup_printf("Established connection with carbon server %s:%u",
                                             server->address, server->port);
  assert_logged_from(SOURCE, "on_socket_client_connect", G_LOG_LEVEL_INFO, message);
}

static VekMetricReporter *connect_reporter(Server *server, const char *prefix) {
  VekMetricReporter *reporter = begin_to_connect(server, prefix);
  server_accept(server);
  run_until(log_capture_get_n_waiting() > 0);
  assert_established(server);
  return reporter;
}

static void process_count(VekMetricReporter *reporter, const char *name, gint64 count) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, name, NULL, NULL, TIMESTAMP,
                                                         count);
}

static void process_value(VekMetricReporter *reporter, const char *name, double value) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, name, NULL, NULL, TIMESTAMP,
                                                         value);
}

static void process_samples(VekMetricReporter *reporter, const char *name, const double *samples,
                            gsize n_samples) {
  vek_testing_clock_set(TIMESTAMP, 0);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, n_samples);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(reporter, name, NULL, NULL, snapshot);
}

static void flush(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

/* Makes every call; each would log a critical if it so much as looked at its arguments. */
static void call_in_vain(VekMetricReporter *reporter) {
  VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  iface->process_count(reporter, NULL, NULL, NULL, TIMESTAMP, 1);
  iface->process_value(reporter, NULL, NULL, NULL, TIMESTAMP, 1.0);
  iface->process_aggregated(reporter, NULL, NULL, NULL, NULL);
  iface->flush(reporter);
}

static void assert_sending(const char *line) {
  g_autofree char *message = g_strconcat("Sending message to carbon server: ", line, NULL);
  assert_logged_from(SOURCE, "send_metrics", G_LOG_LEVEL_DEBUG, message);
}

static void assert_succeeded(gsize n_bytes) {
  g_autofree char *message = g_strdup_printf(
      "Carbon reporter write operation succeeded (bytes_written: %" G_GSIZE_FORMAT ")", n_bytes);
  assert_logged_from(SOURCE, "on_metric_sent_callback", G_LOG_LEVEL_DEBUG, message);
}

/* One line in one write, from its beginning to its end. */
static void assert_sent(const char *line) {
  assert_sending(line);
  assert_succeeded(strlen(line));
}

static void assert_write_failed(const char *reason) {
  g_autofree char *pattern =
      g_strconcat("Carbon reporter write operation failed with error: ", reason, NULL);
  assert_logged_from_like(SOURCE, "on_metric_sent_callback", G_LOG_LEVEL_WARNING, pattern);
  assert_logged_from(SOURCE, "on_metric_sent_callback", G_LOG_LEVEL_WARNING, DISABLED);
}

static void assert_connect_failed(const char *reason) {
  g_autofree char *pattern = g_strconcat("Could not connect to carbon server: ", reason, NULL);
  assert_logged_from_like(SOURCE, "on_socket_client_connect", G_LOG_LEVEL_WARNING, pattern);
  assert_logged_from(SOURCE, "on_socket_client_connect", G_LOG_LEVEL_WARNING, DISABLED);
}

/* Begins a write that cannot end before the server reads; returns its line. */
static char *begin_huge_write(VekMetricReporter *reporter) {
  g_autofree char *name = g_strnfill(HUGE_NAME_LENGTH, 'x');
  process_count(reporter, name, 1);
  flush(reporter);
  run_until_idle();

  char *line = g_strconcat(name, " 1 1700000000\n", NULL);
  assert_sending(line);
  assert_nothing_logged();
  return line;
}

TEST(every_operation_is_set_but_that_for_timelines) {
  g_autoptr(GTypeClass) klass = g_type_class_ref(VEK_TYPE_METRIC_CARBON_REPORTER);
  VekMetricReporterInterface *iface = g_type_interface_peek(klass, VEK_TYPE_METRIC_REPORTER);
  g_assert_nonnull(iface->process_count);
  g_assert_nonnull(iface->process_value);
  g_assert_null(iface->process_timeline_samples);
  g_assert_nonnull(iface->process_aggregated);
  g_assert_nonnull(iface->flush);
}

TEST(properties_are_construct_only) {
  GType type = VEK_TYPE_METRIC_CARBON_REPORTER;
  g_assert_true(G_IS_PARAM_SPEC_STRING(assert_construct_only_property(type, "prefix")));
  g_assert_true(G_IS_PARAM_SPEC_STRING(assert_construct_only_property(type, "server-address")));
  GParamSpecUInt *port = G_PARAM_SPEC_UINT(assert_construct_only_property(type, "server-port"));
  g_assert_cmpuint(port->minimum, ==, 0);
  g_assert_cmpuint(port->maximum, ==, 65535);
  g_assert_cmpuint(port->default_value, ==, 2003);
}

static void assert_properties(gpointer reporter, const char *prefix, const char *address,
                              guint port) {
  g_autofree char *actual_prefix = NULL;
  g_autofree char *actual_address = NULL;
  guint actual_port;
  g_object_get(reporter, "prefix", &actual_prefix, "server-address", &actual_address, "server-port",
               &actual_port, NULL);
  g_assert_cmpstr(actual_prefix, ==, prefix);
  g_assert_cmpstr(actual_address, ==, address);
  g_assert_cmpuint(actual_port, ==, port);
}

static void assert_not_parsable(const char *address_and_port) {
  g_autofree char *message = g_strdup_printf(
      "The server address %s is not parsable, carbon reporter will be disabled", address_and_port);
  assert_logged_from(SOURCE, "vek_metric_carbon_reporter_constructed", G_LOG_LEVEL_WARNING,
                     message);
}

TEST(type_is_a_plain_object_that_can_be_derived) {
  GType type = VEK_TYPE_METRIC_CARBON_REPORTER;
  g_assert_cmpstr(g_type_name(type), ==, "VekMetricCarbonReporter");
  g_assert_cmpstr(g_type_name(g_type_parent(type)), ==, "GObject");
  g_assert_false(G_TYPE_IS_ABSTRACT(type));

  GTypeQuery query;
  g_type_query(type, &query);
  GType derived = g_type_register_static_simple(type, "DerivedCarbonReporter", query.class_size,
                                                NULL, query.instance_size, NULL, 0);
  g_autoptr(GObject) reporter = g_object_new(derived, NULL);
  g_assert_true(VEK_IS_METRIC_CARBON_REPORTER(reporter));
  g_assert_true(VEK_IS_METRIC_REPORTER(reporter));
  assert_not_parsable("(null):2003");
}

TEST(properties_read_back_what_was_given) {
  g_autoptr(VekMetricReporter) given = vek_metric_carbon_reporter_new("site", "nowhere", 65535);
  assert_not_parsable("nowhere:65535");
  assert_properties(given, "site", "nowhere", 65535);

  g_autoptr(GObject) bare = g_object_new(VEK_TYPE_METRIC_CARBON_REPORTER, NULL);
  assert_not_parsable("(null):2003");
  assert_properties(bare, NULL, NULL, 2003);
}

TEST(unknown_property_ids_give_the_standard_warning) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_carbon_reporter_new(NULL, NULL, 0);
  assert_not_parsable("(null):0");
  assert_unknown_property_warns(reporter);
}

TEST(address_that_is_not_numeric_disables_the_reporter) {
  static const struct {
    const char *address;
    const char *logged;
  } rows[] = {
      {"localhost", "localhost:2003"}, {"", ":2003"},         {"127.0.0.256", "127.0.0.256:2003"},
      {"[::1]", "[::1]:2003"},         {NULL, "(null):2003"},
  };
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricReporter) reporter =
        vek_metric_carbon_reporter_new("site", rows[i].address, 2003);
    assert_not_parsable(rows[i].logged);
    call_in_vain(reporter);
    run_until_idle();
    assert_nothing_logged();
  }
}

static guint n_constructed_without_client;

static void on_reporter_constructed(GObject *object) {
  if (VEK_IS_METRIC_CARBON_REPORTER(object) && !last_client)
    n_constructed_without_client++;
}

TEST(client_goes_before_the_parents_construction) {
  g_autoptr(GTypeClass) klass = g_type_class_ref(G_TYPE_OBJECT);
  GObjectClass *parent_class = G_OBJECT_CLASS(klass);
  __typeof__(parent_class->constructed) constructed = parent_class->constructed;
  parent_class->constructed = on_reporter_constructed;
  g_autoptr(VekMetricReporter) reporter = vek_metric_carbon_reporter_new(NULL, "localhost", 2003);
  parent_class->constructed = constructed;
  assert_not_parsable("localhost:2003");
  g_assert_cmpuint(n_constructed_without_client, ==, 1);
}

TEST(refused_connection_disables_the_reporter) {
  /* A port that is bound, so that nobody else gets it, but not listened at. */
  g_autoptr(GSocket) socket =
      g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_TCP, NULL);
  g_autoptr(GSocketAddress) any = g_inet_socket_address_new_from_string("127.0.0.1", 0);
  g_assert_true(g_socket_bind(socket, any, FALSE, NULL));
  g_autoptr(GSocketAddress) bound = g_socket_get_local_address(socket, NULL);
  guint port = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(bound));

  g_autoptr(VekMetricReporter) reporter = vek_metric_carbon_reporter_new(NULL, "127.0.0.1", port);
  process_count(reporter, "early", 1);
  flush(reporter);
  run_until(log_capture_get_n_waiting() >= 2);
  assert_connect_failed("*Connection refused");

  call_in_vain(reporter);
  run_until_idle();
  assert_nothing_logged();
}

TEST(calls_before_the_connection_are_queued_and_the_first_flush_sends_them) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = begin_to_connect(server, NULL);
  process_count(reporter, "first", 1);
  flush(reporter); /* too early */
  process_value(reporter, "second", 2.0);
  assert_nothing_logged();

  server_accept(server);
  run_until(log_capture_get_n_waiting() > 0);
  assert_established(server);
  run_until_idle();
  assert_nothing_logged(); /* the connection alone sends nothing */

  process_count(reporter, "third", 3);
  flush(reporter);
  assert_sending("first 1 1700000000\n"); /* begun before the flush returned */
  g_clear_object(&reporter);
  assert_received(server,
                  "first 1 1700000000\n"
                  "second 2.000000 1700000000\n"
                  "third 3 1700000000\n");
  assert_succeeded(strlen("first 1 1700000000\n"));
  assert_sent("second 2.000000 1700000000\n");
  assert_sent("third 3 1700000000\n");
}

TEST(flush_of_an_empty_queue_does_nothing) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  flush(reporter);
  run_until_idle();
  assert_nothing_logged();

  process_count(reporter, "after", 1);
  flush(reporter);
  g_clear_object(&reporter);
  assert_received(server, "after 1 1700000000\n");
  assert_sent("after 1 1700000000\n");
}

TEST(lines_wait_for_a_flush) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  process_count(reporter, "sent", 1);
  flush(reporter);
  run_until(log_capture_get_n_waiting() >= 2);
  assert_sent("sent 1 1700000000\n");
  process_count(reporter, "unsent", 2);
  run_until_idle();
  assert_nothing_logged();

  g_clear_object(&reporter); /* with nothing in flight, what waits is lost */
  assert_received(server, "sent 1 1700000000\n");
}

TEST(flush_while_a_write_is_outstanding_starts_nothing_and_loses_nothing) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_autofree char *huge = begin_huge_write(reporter);

  process_count(reporter, "a", 1);
  flush(reporter);
  flush(reporter);
  run_until_idle();
  process_count(reporter, "b", 2);
  assert_nothing_logged();

  server_read(server);
  run_until(log_capture_get_n_waiting() >= 5);
  assert_succeeded(HUGE_NAME_LENGTH + strlen(" 1 1700000000\n"));
  assert_sent("a 1 1700000000\n");
  assert_sent("b 2 1700000000\n");

  g_clear_object(&reporter);
  run_until(server->ended);
  g_assert_cmpstr(server->received->str + strlen(huge), ==, "a 1 1700000000\nb 2 1700000000\n");
}

TEST(slow_server_makes_the_queue_grow_and_blocks_nobody) {
  enum { N_LINES = 20000 };
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_autofree char *huge = begin_huge_write(reporter);
  g_autoptr(GString) expected = g_string_new(huge);
  for (int i = 0; i < N_LINES; i++) {
    process_count(reporter, "requests", i);
    flush(reporter);
    g_string_append_printf(expected, "requests %d 1700000000\n", i);
  }
  run_until_idle();
  assert_nothing_logged();

  g_clear_object(&reporter);
  server_read(server);
  run_until(server->ended);
  g_assert_cmpmem(server->received->str, server->received->len, expected->str, expected->len);
  assert_succeeded(strlen(huge));
  for (int i = 0; i < N_LINES; i++) {
    g_autofree char *line = g_strdup_printf("requests %d 1700000000\n", i);
    assert_sent(line);
  }
}

TEST(after_a_write_error_only_the_lines_already_queued_are_tried) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_free(begin_huge_write(reporter));
  process_count(reporter, "a", 1);
  process_value(reporter, "b", 2.0);
  process_count(reporter, "c", 3);

  server_reset(server);
  run_until(log_capture_get_n_waiting() > 0);
  assert_write_failed("*Connection reset by peer");
  call_in_vain(reporter); /* while the chain runs */
  assert_sending("a 1 1700000000\n");
  assert_nothing_logged();

  run_until(log_capture_get_n_waiting() >= 8);
  assert_write_failed("*Broken pipe");
  assert_sending("b 2.000000 1700000000\n");
  assert_write_failed("*Broken pipe");
  assert_sending("c 3 1700000000\n");
  assert_write_failed("*Broken pipe");

  call_in_vain(reporter);
  run_until_idle();
  assert_nothing_logged();
}

TEST(disposal_while_connecting_cancels_through_the_failure_branch) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = begin_to_connect(server, NULL);
  process_count(reporter, "early", 1);
  run_dispose(reporter);
  run_dispose(reporter);
  call_in_vain(reporter);
  assert_nothing_logged();

  run_until(log_capture_get_n_waiting() >= 2);
  assert_connect_failed("Operation was cancelled");
  call_in_vain(reporter);
  run_until_idle();
  assert_nothing_logged();
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
}

TEST(disposal_while_writing_cancels_through_the_failure_branch) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_free(begin_huge_write(reporter));
  process_count(reporter, "dropped", 1);
  run_dispose(reporter);
  call_in_vain(reporter);
  assert_nothing_logged();

  run_until(log_capture_get_n_waiting() >= 2);
  assert_write_failed("Operation was cancelled");
  call_in_vain(reporter);
  run_until_idle();
  assert_nothing_logged();
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
}

TEST(reporter_dropped_while_connecting_goes_when_the_connection_is_there) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  VekMetricReporter *reporter = begin_to_connect(server, NULL);
  process_count(reporter, "lost", 1);
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  g_assert_nonnull(reporter);

  server_accept(server);
  assert_received(server, "");
  g_assert_null(reporter);
  assert_established(server);
}

TEST(reporter_dropped_in_the_middle_of_a_chain_sends_its_whole_queue) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  VekMetricReporter *reporter = connect_reporter(server, NULL);
  process_count(reporter, "a", 1);
  process_count(reporter, "b", 2);
  process_count(reporter, "c", 3);
  flush(reporter);
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  g_assert_nonnull(reporter);

  assert_received(server, "a 1 1700000000\nb 2 1700000000\nc 3 1700000000\n");
  g_assert_null(reporter);
  assert_sent("a 1 1700000000\n");
  assert_sent("b 2 1700000000\n");
  assert_sent("c 3 1700000000\n");
}

TEST(key_joins_prefix_dimensions_unit_and_name) {
  static const struct {
    const char *prefix;
    const char *dimensions[8];
    gboolean no_dimensions;
    const char *unit;
    const char *name;
    const char *line;
  } rows[] = {
      {"site",
       {"host", "h1", "gpu", "0"},
       FALSE,
       "Seconds",
       "frame.time",
       "site.host.h1.gpu.0.Seconds.frame.time 1 1700000000\n"},
      {NULL, {0}, TRUE, NULL, "cpu", "cpu 1 1700000000\n"},
      {"", {0}, TRUE, NULL, "cpu", "cpu 1 1700000000\n"},
      {"site", {0}, TRUE, NULL, "cpu", "site.cpu 1 1700000000\n"},
      {NULL, {0}, TRUE, "Count", "cpu", "Count.cpu 1 1700000000\n"},
      {"site", {0}, TRUE, "", "cpu", "site..cpu 1 1700000000\n"},
      {NULL, {0}, TRUE, "", "cpu", ".cpu 1 1700000000\n"},
      {"site", {0}, FALSE, NULL, "cpu", "site..cpu 1 1700000000\n"},
      {NULL, {0}, FALSE, "", "cpu", "..cpu 1 1700000000\n"},
      {NULL, {"host"}, FALSE, NULL, "cpu", "host.cpu 1 1700000000\n"},
      {NULL, {"host", "h1", "gpu"}, FALSE, "", "cpu", "host.h1.gpu..cpu 1 1700000000\n"},
      {NULL, {"host", ""}, FALSE, NULL, "cpu", "host..cpu 1 1700000000\n"},
      {"a b.",
       {"x y", "z/\303\251"},
       FALSE,
       ".%s",
       "n\tm ",
       "a b..x y.z/\303\251..%s.n\tm  1 1700000000\n"},
      {NULL, {0}, TRUE, NULL, "", " 1 1700000000\n"},
      {NULL, {0}, TRUE, NULL, "a 2 3\nb", "a 2 3\nb 1 1700000000\n"}, /* a forged line */
  };
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(Server) server = server_new("127.0.0.1");
    g_autoptr(VekMetricReporter) reporter = connect_reporter(server, rows[i].prefix);
    char **dimensions = rows[i].no_dimensions ? NULL : (char **)rows[i].dimensions;
    VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, rows[i].name, dimensions,
                                                           rows[i].unit, TIMESTAMP, 1);
    flush(reporter);
    g_clear_object(&reporter);
    assert_received(server, rows[i].line);
    assert_sent(rows[i].line);
  }
}

TEST(arguments_are_copied) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, "site");
  char name[] = "name";
  char value[] = "h1";
  char unit[] = "Count";
  char *dimensions[] = {"host", value, NULL};
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, name, dimensions, unit,
                                                         TIMESTAMP, 1);
  name[0] = value[0] = unit[0] = '#';
  flush(reporter);
  g_clear_object(&reporter);
  assert_received(server, "site.host.h1.Count.name 1 1700000000\n");
  assert_sent("site.host.h1.Count.name 1 1700000000\n");
}

/* Flushes, drops the reporter and compares the stream with lines that are sent one by one. */
static void assert_drained(Server *server, VekMetricReporter **reporter, const char *const *lines) {
  flush(*reporter);
  g_clear_object(reporter);
  g_autofree char *expected = g_strjoinv("", (char **)lines);
  assert_received(server, expected);
  for (; *lines; lines++)
    assert_sent(*lines);
}

TEST(counts_are_signed_integers_at_whole_seconds) {
  static const struct {
    gint64 timestamp;
    gint64 count;
  } rows[] = {
      {G_GINT64_CONSTANT(1700000000999999), -5},
      {0, 0},
      {999999, 1},
      {1000000, G_MAXINT64},
      {-999999, G_MININT64},
      {-1000000, -1},
      {-1999999, 2},
      {G_MAXINT64, 3},
      {G_MININT64, 4},
  };
  static const char *const lines[] = {
      "c -5 1700000000\n",
      "c 0 0\n",
      "c 1 0\n",
      "c 9223372036854775807 1\n",
      "c -9223372036854775808 0\n", /* toward zero */
      "c -1 -1\n",
      "c 2 -1\n",
      "c 3 9223372036854\n",
      "c 4 -9223372036854\n",
      NULL,
  };
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++)
    VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, "c", NULL, NULL,
                                                           rows[i].timestamp, rows[i].count);
  assert_drained(server, &reporter, lines);
}

TEST(values_have_six_digits_after_the_point) {
  static const double values[] = {0.5,  -0.25, -0.0,     0.1,      0.0000005, 5e-324,
                                  1e22, 1e308, -DBL_MAX, INFINITY, -INFINITY};
  static const char *const lines[] = {
      "v 0.500000 1700000000\n",
      "v -0.250000 1700000000\n",
      "v -0.000000 1700000000\n",
      "v 0.100000 1700000000\n",
      "v 0.000000 1700000000\n",
      "v 0.000000 1700000000\n",
      "v 10000000000000000000000.000000 1700000000\n",
      "v 100000000000000001097906362944045541740492309677311846336810682903157585404911"
      "49153716332897849468889906124966972117251561159028374314008832830700919814604603"
      "12716645029330271856974896995885590433383844661650011784268976262129451776280911"
      "95786707458122783970171784415105291802893207873272974885715430223118336.000000 1"
      "700000000\n",
      "v -17976931348623157081452742373170435679807056752584499659891747680315726078002"
      "85387605895586327668781715404589535143824642343213268894641827684675467035375169"
      "86049910576551282076245490090389328944075868508455133942304583236903222948165808"
      "559332123348274797826204144723168738177180919299881250404026184124858368.000000 "
      "1700000000\n",
      "v inf 1700000000\n",
      "v -inf 1700000000\n",
      "v nan 1700000000\n",
      "v -nan 1700000000\n",
      NULL,
  };
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  for (guint i = 0; i < G_N_ELEMENTS(values); i++)
    process_value(reporter, "v", values[i]);
  process_value(reporter, "v", copysign(NAN, 1.0));
  process_value(reporter, "v", copysign(NAN, -1.0));
  assert_drained(server, &reporter, lines);
}

TEST(value_is_stamped_with_whole_seconds) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, "v", NULL, NULL, -999999, 0.5);
  assert_drained(server, &reporter, (const char *const[]){"v 0.500000 0\n", NULL});
}

TEST(snapshot_gives_exactly_four_lines) {
  static const char *const lines[] = {
      "site.host.h1.Seconds.t.average 2.500000 1700000000\n",
      "site.host.h1.Seconds.t.n_samples 4 1700000000\n",
      "site.host.h1.Seconds.t.min -1.000000 1700000000\n",
      "site.host.h1.Seconds.t.max 6.250000 1700000000\n",
      "site.empty.average 0.000000 1700000000\n",
      "site.empty.n_samples 0 1700000000\n",
      "site.empty.min 0.000000 1700000000\n",
      "site.empty.max 0.000000 1700000000\n",
      NULL,
  };
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, "site");
  vek_testing_clock_set(TIMESTAMP, 0);
  g_autoptr(VekMetricSnapshot) snapshot =
      vek_metric_snapshot_new((const double[]){6.25, -1.0, 4.0, 0.75}, 4);
  vek_testing_clock_advance(G_USEC_PER_SEC);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(
      reporter, "t", (char *[]){"host", "h1", NULL}, "Seconds", snapshot);
  process_samples(reporter, "empty", NULL, 0);
  assert_drained(server, &reporter, lines);
}

TEST(ipv6_servers_are_reached) {
  g_autoptr(Server) server = server_new("::1");
  if (!server) {
    g_test_skip("no IPv6 on loopback");
    return;
  }
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  process_count(reporter, "six", 6);
  assert_drained(server, &reporter, (const char *const[]){"six 6 1700000000\n", NULL});
}

TEST(completions_come_to_the_context_of_construction_and_of_flush) {
  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(GMainContext) connecting = g_main_context_new();
  g_autoptr(GMainContext) writing = g_main_context_new();

  g_main_context_push_thread_default(connecting);
  g_autoptr(VekMetricReporter) reporter = begin_to_connect(server, NULL);
  run_context_until(connecting, log_capture_get_n_waiting() > 0);
  assert_established(server);
  g_main_context_pop_thread_default(connecting);

  g_main_context_push_thread_default(writing);
  process_count(reporter, "a", 1);
  process_count(reporter, "b", 2);
  flush(reporter);
  run_context_until(writing, log_capture_get_n_waiting() >= 4);
  assert_sent("a 1 1700000000\n");
  assert_sent("b 2 1700000000\n");
  g_main_context_pop_thread_default(writing);

  g_clear_object(&reporter);
  server_accept(server);
  assert_received(server, "a 1 1700000000\nb 2 1700000000\n");
}

TEST(numbers_carry_a_point_in_every_locale) {
  if (!in_decimal_comma())
    return;

  g_autoptr(Server) server = server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  process_value(reporter, "v", 1234.5);
  process_samples(reporter, "s", (const double[]){0.25, 0.75}, 2);
  assert_drained(
      server, &reporter,
      (const char *const[]){"v 1234.500000 1700000000\n", "s.average 0.500000 1700000000\n",
                            "s.n_samples 2 1700000000\n", "s.min 0.250000 1700000000\n",
                            "s.max 0.750000 1700000000\n", NULL});
}
