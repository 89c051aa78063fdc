/* Tests of how VekServiceGraphiteReporter lives with servers that come and go. */

#include "support/fixture.h"
#include "support/lineserver.h"
#include "support/replace.h"

#include <string.h>

/* Lines of many counters, more than the kernel takes for a peer that reads nothing. */
enum { MANY_LINES = 1000, LONG_NAME = 10000 };

static void process_many(VekMetricReporter *reporter, int first, int n) {
  g_autofree char *padding = g_strnfill(LONG_NAME, 'x');
  for (int i = first; i < first + n; i++)
    process_count(reporter, padding, i);
}

/* Asserts that the text is whole lines of process_many(), whose numbers are from first to last. */
static void assert_many(const char *text, int first, int last) {
  g_auto(GStrv) lines = g_strsplit(text, "\n", -1);
  guint n_lines = g_strv_length(lines);
  g_assert_cmpstr(lines[n_lines - 1], ==, "");
  g_assert_cmpuint(n_lines - 1, ==, last - first + 1);
  for (guint i = 0; i < n_lines - 1; i++) {
    g_autofree char *end = g_strdup_printf("x %u 1700000000", first + i);
    g_assert_true(g_str_has_suffix(lines[i], end));
    g_assert_cmpuint(strlen(lines[i]), ==, LONG_NAME + strlen(end) - 1);
  }
}

/* In place of GLib's: which number is drawn. */
static enum { ANY, SMALLEST, LARGEST } drawn;
gint32 g_random_int_range(gint32 begin, gint32 end) {
  switch (drawn) {
  case SMALLEST: return begin;
  case LARGEST: return end - 1;
  default: return NEXT(g_random_int_range)(begin, end);
  }
}

/* In place of GIO's, which it calls. */
static GCancellable *connecting; /* of the last call; a reference */
static gboolean uses_proxy;
void g_socket_client_connect_async(GSocketClient *client, GSocketConnectable *connectable,
                                   GCancellable *cancellable, GAsyncReadyCallback callback,
                                   gpointer user_data) {
  g_set_object(&connecting, cancellable);
  uses_proxy = g_socket_client_get_enable_proxy(client);
  NEXT(g_socket_client_connect_async)(client, connectable, cancellable, callback, user_data);
}

static LineServer *refusing_server_new(void) {
  LineServer *server = line_server_new("127.0.0.1");
  line_server_stop(server);
  return server;
}

static VekMetricReporter *fail_to_connect(LineServer *server) {
  VekMetricReporter *reporter =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  run_until(get_delay() > 0);
  assert_outage(server, "*onnection refused");
  return reporter;
}

/* Connects to a server that reads nothing yet. */
static VekMetricReporter *connect_to_silent(LineServer *server) {
  VekMetricReporter *reporter =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  line_server_accept(server);
  run_until(is_connected(reporter));
  return reporter;
}

TEST(lines_before_the_connection_go_out_with_it) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter =
      vek_service_graphite_reporter_new("site", server->address, server->port);
  send_count(reporter, "a", 1);
  send_count(reporter, "b", 2);
  assert_lines(reporter, 2, 0, 0);
  meet(reporter, server);
  assert_received(server, "site.a 1 1700000000\nsite.b 2 1700000000\n");
  assert_lines(reporter, 0, 2, 0);
}

TEST(nothing_goes_out_before_a_flush) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  process_count(reporter, "a", 1);
  run_until_idle();
  assert_lines(reporter, 1, 0, 0);
  g_assert_cmpuint(server->received->len, ==, 0);
  flush(reporter);
  assert_received(server, "a 1 1700000000\n");
}

TEST(tries_come_after_one_to_sixty_seconds_shortened_by_up_to_a_quarter) {
  static const guint seconds[] = {1, 2, 4, 8, 16, 32, 60, 60, 60};
  g_autoptr(LineServer) server = refusing_server_new();
  for (drawn = SMALLEST; drawn <= LARGEST; drawn++) {
    g_autoptr(VekMetricReporter) reporter = fail_to_connect(server);
    for (guint i = 0; i < G_N_ELEMENTS(seconds); i++) {
      g_assert_cmpuint(get_delay(), ==, seconds[i] * (drawn == SMALLEST ? 750 : 1000));
      end_delay();
      run_until(get_delay() > 0);
    }
  }
  drawn = ANY;
}

TEST(each_try_is_told_at_debug_level) {
  log_capture_set_debug_domain("VEK:service");
  g_autoptr(LineServer) server = refusing_server_new();
  g_autoptr(VekMetricReporter) reporter =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  run_until(get_delay() > 0);
  g_autofree char *failed =
      g_strdup_printf("No connection to %s:%u, the next try is in %u ms: *onnection refused",
                      server->address, server->port, get_delay());
  assert_logged_like("VEK:service", G_LOG_LEVEL_DEBUG, failed);
  assert_outage(server, "*onnection refused");

  line_server_start(server);
  end_delay();
  meet(reporter, server);
  g_autofree char *connected = g_strdup_printf("Connected to %s:%u", server->address, server->port);
  assert_logged("VEK:service", G_LOG_LEVEL_DEBUG, connected);
  assert_outage_over(server, 0, 0);
  log_capture_set_debug_domain("VEK:metrics");
}

TEST(no_proxy_is_used) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  uses_proxy = TRUE;
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_assert_false(uses_proxy);
}

TEST(a_server_that_comes_late_gets_every_line) {
  vek_testing_clock_set(TIMESTAMP, 0);
  g_autoptr(LineServer) server = refusing_server_new();
  g_autoptr(VekMetricReporter) reporter = fail_to_connect(server);
  vek_testing_clock_advance(30 * G_USEC_PER_SEC);
  send_count(reporter, "a", 1);
  end_delay();
  run_until(get_delay() > 0); /* no second warning */
  send_count(reporter, "b", 2);
  g_assert_false(is_connected(reporter));

  line_server_start(server);
  end_delay();
  meet(reporter, server);
  assert_received(server, "a 1 1700000000\nb 2 1700000000\n");
  assert_outage_over(server, 30, 0);
  assert_lines(reporter, 0, 2, 0);
}

TEST(the_series_begins_again_once_a_connection_has_lasted) {
  g_autoptr(LineServer) server = refusing_server_new();
  g_autoptr(VekMetricReporter) reporter = fail_to_connect(server);
  line_server_start(server);

  /* A server that accepts and closes is not called upon every second. */
  static const guint seconds[] = {2, 4, 8};
  for (guint i = 0; i < G_N_ELEMENTS(seconds); i++) {
    end_delay();
    meet(reporter, server);
    assert_outage_over(server, 0, 0);
    line_server_close(server);
    run_until(get_delay() > 0);
    assert_outage(server, "The server closed it");
    g_assert_cmpuint(get_delay(), >=, seconds[i] * 750);
  }

  end_delay();
  meet(reporter, server);
  assert_outage_over(server, 0, 0);
  flush(reporter);
  line_server_close(server);
  run_until(get_delay() > 0);
  assert_outage(server, "The server closed it");
  g_assert_cmpuint(get_delay(), <=, 1000);
}

TEST(a_server_that_closes_is_noticed_while_nothing_is_sent) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  line_server_close(server);
  run_until(!is_connected(reporter));
  assert_outage(server, "The server closed it");
  send_count(reporter, "a", 1);
  end_delay();
  meet(reporter, server);
  assert_received(server, "a 1 1700000000\n");
  assert_outage_over(server, 0, 0);

  line_server_reset(server);
  run_until(!is_connected(reporter));
  assert_outage(server, "*reset by peer");
}

TEST(a_server_that_has_closed_is_noticed_before_lines_are_sent) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_to_silent(server);
  line_server_close(server);
  g_assert_true(is_connected(reporter)); /* the main loop has not run */
  n_writes = 0;
  send_count(reporter, "a", 1);
  g_assert_cmpuint(n_writes, ==, 0);
  assert_outage(server, "The server closed it");
  assert_lines(reporter, 1, 0, 0);

  end_delay();
  meet(reporter, server);
  assert_received(server, "a 1 1700000000\n");
  assert_outage_over(server, 0, 0);
}

TEST(what_a_server_says_is_thrown_away) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  GSocket *socket = g_socket_connection_get_socket(server->connection);
  static const int lengths[] = {5000, 1};
  for (guint i = 0; i < G_N_ELEMENTS(lengths); i++) {
    g_autofree char *answer = g_strnfill((gsize)lengths[i], 'y');
    g_assert_cmpint(g_socket_send(socket, answer, (gsize)lengths[i], NULL, NULL), ==, lengths[i]);
    run_until_idle();
  }
  send_count(reporter, "a", 1);
  assert_received(server, "a 1 1700000000\n");
  g_assert_true(is_connected(reporter));
}

TEST(a_write_that_was_not_taken_whole_is_sent_again) {
  vek_testing_clock_set(TIMESTAMP, 0);
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_to_silent(server);
  process_many(reporter, 0, MANY_LINES);
  flush(reporter);
  run_until_idle();
  g_assert_true(is_busy(reporter));

  guint queued;
  guint64 sent;
  g_object_get(reporter, "queued-lines", &queued, "sent-lines", &sent, NULL);
  g_assert_cmpuint(sent, >, 0);
  g_assert_cmpuint(queued + sent, ==, MANY_LINES);
  line_server_reset(server);
  run_until(!is_connected(reporter));
  assert_outage(server, "*");
  assert_lines(reporter, queued, sent, 0);

  end_delay();
  meet(reporter, server);
  run_until(!is_busy(reporter));
  assert_lines(reporter, 0, MANY_LINES, 0);
  g_clear_object(&reporter);
  run_until(server->ended);
  assert_outage_over(server, 0, 0);
  assert_many(server->received->str, (int)sent, MANY_LINES - 1);
}

TEST(a_write_that_would_block_is_made_again) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  next_write_error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK, "full");
  send_count(reporter, "a", 1);
  g_assert_true(is_busy(reporter));
  assert_lines(reporter, 1, 0, 0);
  assert_received(server, "a 1 1700000000\n");
  assert_lines(reporter, 0, 1, 0);
}

TEST(a_write_that_fails_costs_the_connection_and_no_line) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  next_write_error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_BROKEN_PIPE, "Broken pipe");
  send_count(reporter, "a", 1);
  g_assert_false(is_connected(reporter));
  assert_outage(server, "Broken pipe");
  assert_lines(reporter, 1, 0, 0);
  end_delay();
  meet(reporter, server);
  assert_received(server, "a 1 1700000000\n");
  assert_outage_over(server, 0, 0);
}

static void unset_quantiles(GObject *reporter) {
  g_object_set(reporter, "quantiles", NULL, NULL);
}

TEST(a_histogram_keeps_its_quantiles_while_the_connection_is_lost) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_object_set(reporter, "max-lines", 4, "quantiles", g_variant_new_parsed("[0.5, 0.9]"), NULL);
  g_signal_connect(reporter, "notify::connected", G_CALLBACK(unset_quantiles), NULL);
  next_write_error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_BROKEN_PIPE, "Broken pipe");
  vek_testing_clock_set(TIMESTAMP, 0);
  double samples[] = {1, 2, 3, 4, 5};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, 5);
  process_samples(reporter, "a", NULL, NULL, snapshot);
  assert_outage(server, "Broken pipe");
  assert_lines(reporter, 4, 0, 2);
  end_delay();
  meet(reporter, server);
  assert_received(server,
                  "a.min 1.000000 1700000000\na.max 5.000000 1700000000\n"
                  "a.p50 3.000000 1700000000\na.p90 4.600000 1700000000\n");
  assert_outage_over(server, 0, 2);
}

TEST(a_server_that_does_not_read_costs_the_oldest_lines) {
  vek_testing_clock_set(TIMESTAMP, 0);
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_to_silent(server);
  g_object_set(reporter, "max-lines", 100, NULL);

  int n_lines = 0;
  guint64 dropped = 0;
  while (dropped < 500) {
    process_many(reporter, n_lines, 50);
    flush(reporter);
    run_until_idle();
    n_lines += 50;
    guint queued;
    g_object_get(reporter, "queued-lines", &queued, "dropped-lines", &dropped, NULL);
    g_assert_cmpuint(queued, <=, 100);
  }
  g_autofree char *warning = g_strdup_printf(
      "More than 100 lines wait for %s:%u, the oldest are dropped", server->address, server->port);
  assert_logged("VEK:service", G_LOG_LEVEL_WARNING, warning);
  assert_nothing_logged();

  vek_testing_clock_advance(9 * G_USEC_PER_SEC);
  line_server_read(server);
  run_until(!is_busy(reporter));
  assert_outage_over(server, 9, (guint)dropped);
  assert_lines(reporter, 0, (guint64)n_lines - dropped, dropped);
  g_clear_object(&reporter);
  run_until(server->ended);

  /* What had begun to go out, and behind the gap the newest. */
  int n_first = n_lines - (int)dropped - 99;
  char *gap = server->received->str;
  for (int i = 0; i < n_first; i++)
    gap = strchr(gap, '\n') + 1;
  g_autofree char *newest = g_strdup(gap);
  *gap = '\0';
  assert_many(server->received->str, 0, n_first - 1);
  assert_many(newest, n_lines - 99, n_lines - 1);
}

TEST(fewer_lines_may_wait_from_now_on) {
  g_autoptr(LineServer) server = refusing_server_new();
  g_autoptr(VekMetricReporter) reporter = fail_to_connect(server);
  for (int i = 0; i < 5; i++)
    send_count(reporter, "a", i);
  g_object_set(reporter, "max-lines", 2, NULL);
  assert_lines(reporter, 2, 0, 3);
  send_count(reporter, "a", 5);
  assert_lines(reporter, 2, 0, 4);

  line_server_start(server);
  end_delay();
  meet(reporter, server);
  assert_received(server, "a 4 1700000000\na 5 1700000000\n");
  assert_outage_over(server, 0, 4);
}

TEST(each_outage_counts_the_lines_that_it_cost) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_object_set(reporter, "max-lines", 1, NULL);
  for (guint n_dropped = 2; n_dropped > 0; n_dropped--) {
    line_server_close(server);
    run_until(!is_connected(reporter));
    assert_outage(server, "The server closed it");
    for (guint i = 0; i <= n_dropped; i++)
      send_count(reporter, "a", i);
    end_delay();
    meet(reporter, server);
    assert_outage_over(server, 0, n_dropped);
  }
  assert_lines(reporter, 0, 2, 3);
}

TEST(a_pass_of_more_lines_than_may_wait_is_sent_meanwhile) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_object_set(reporter, "max-lines", 2, NULL);
  for (int i = 0; i < 5; i++)
    process_count(reporter, "a", i);
  assert_lines(reporter, 1, 4, 0);
  flush(reporter);
  assert_received(server,
                  "a 0 1700000000\na 1 1700000000\na 2 1700000000\na 3 1700000000\n"
                  "a 4 1700000000\n");
}

TEST(writes_are_joined_and_at_most_64_kib) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  n_writes = 0;
  for (int i = 0; i < 3; i++)
    process_count(reporter, "a", i);
  flush(reporter);
  assert_received(server, "a 0 1700000000\na 1 1700000000\na 2 1700000000\n");
  g_assert_cmpuint(n_writes, ==, 1);

  n_writes = 0;
  largest_write = 0;
  GString *expected = g_string_new(NULL);
  for (int i = 0; i < 10000; i++) {
    process_count(reporter, "a", i);
    g_string_append_printf(expected, "a %d 1700000000\n", i);
  }
  flush(reporter);
  assert_received(server, expected->str);
  g_assert_cmpuint(largest_write, <=, 65536);
  g_assert_cmpuint(largest_write, >, 65000);
  g_assert_cmpuint(n_writes, <, 20);

  g_autofree char *name = g_strnfill(200000, 'x');
  largest_write = 0;
  send_count(reporter, name, 1);
  g_string_printf(expected, "%s 1 1700000000\n", name);
  assert_received(server, expected->str);
  g_assert_cmpuint(largest_write, ==, 65536);
  g_string_free(expected, TRUE);
}

TEST(is_busy_while_anything_is_under_way) {
  g_autoptr(LineServer) server = refusing_server_new();
  g_autoptr(VekMetricReporter) reporter =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  g_assert_true(is_busy(reporter)); /* it connects */
  run_until(get_delay() > 0);
  assert_outage(server, "*");
  g_assert_false(is_busy(reporter)); /* it waits, with nothing to send */
  send_count(reporter, "a", 1);
  g_assert_true(is_busy(reporter)); /* now it has */
  line_server_start(server);
  end_delay();
  g_assert_true(is_busy(reporter)); /* it connects */
  meet(reporter, server);
  assert_outage_over(server, 0, 0);
  run_until(!is_busy(reporter)); /* all is sent */
  process_count(reporter, "a", 2);
  g_assert_false(is_busy(reporter)); /* that waits for a flush */
}

TEST(ipv6_servers_are_reached) {
  g_autoptr(LineServer) server = line_server_new("::1");
  if (!server) {
    g_test_skip("this machine has no IPv6");
    return;
  }
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, "site");
  send_count(reporter, "a", 1);
  assert_received(server, "site.a 1 1700000000\n");
}

static void on_notify(GObject *reporter, GParamSpec *pspec, gpointer record) {
  GValue value = G_VALUE_INIT;
  g_object_get_property(reporter, pspec->name, &value);
  g_autofree char *text = g_strdup_value_contents(&value);
  g_string_append_printf(record, "%s %s\n", pspec->name, text);
  g_value_unset(&value);
}

static void assert_notified(GString *record, const char *expected) {
  g_assert_cmpstr(record->str, ==, expected);
  g_string_truncate(record, 0);
}

TEST(properties_notify_at_flushes_and_events_not_at_lines) {
  g_autoptr(LineServer) server = refusing_server_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) reporter = fail_to_connect(server);
  g_signal_connect(reporter, "notify", G_CALLBACK(on_notify), record);
  process_count(reporter, "a", 1);
  process_count(reporter, "a", 2);
  assert_notified(record, "");
  flush(reporter);
  assert_notified(record, "queued-lines 2\n");
  g_object_set(reporter, "max-lines", 1, NULL);
  assert_notified(record, "max-lines 1\ndropped-lines 1\nqueued-lines 1\n");
  flush(reporter);
  assert_notified(record, "");

  line_server_start(server);
  end_delay();
  meet(reporter, server);
  assert_outage_over(server, 0, 1);
  assert_notified(record, "connected TRUE\nqueued-lines 0\nsent-lines 1\n");
  line_server_close(server);
  run_until(!is_connected(reporter));
  assert_outage(server, "*");
  assert_notified(record, "connected FALSE\n");
}

static void on_notify_dispose(GObject *reporter, G_GNUC_UNUSED GParamSpec *pspec,
                              G_GNUC_UNUSED gpointer data) {
  g_object_run_dispose(reporter);
}

TEST(a_handler_may_end_the_reporter) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  static const char *const signals[] = {"notify::queued-lines", "notify::connected"};
  for (guint i = 0; i < G_N_ELEMENTS(signals); i++) {
    g_autoptr(VekMetricReporter) reporter = connect_to_silent(server);
    process_count(reporter, "a", 1);
    g_signal_connect(reporter, signals[i], G_CALLBACK(on_notify_dispose), NULL);
    line_server_close(server);
    flush(reporter);
    assert_outage(server, "*");
    g_assert_false(is_connected(reporter));
    g_assert_false(is_busy(reporter));
    g_assert_cmpuint(get_delay(), ==, 0);
    send_count(reporter, "a", 2);
    run_until_idle();
    assert_lines(reporter, 1, 0, 0);
  }
}

TEST(a_reporter_without_references_sends_what_it_can) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  VekMetricReporter *reporter =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  process_many(reporter, 0, MANY_LINES);
  g_object_unref(reporter);
  line_server_accept(server);
  run_until_idle();
  g_assert_nonnull(reporter); /* it waits for the server to read */
  line_server_read(server);
  run_until(server->ended);
  g_assert_null(reporter);
  assert_many(server->received->str, 0, MANY_LINES - 1);

  line_server_stop(server);
  reporter = fail_to_connect(server);
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  send_count(reporter, "a", 1);
  g_object_unref(reporter);
  g_assert_null(reporter);
  g_assert_cmpuint(get_delay(), ==, 0);
}

static gboolean is_gone(GWeakRef *weak) {
  g_autoptr(GObject) object = g_weak_ref_get(weak);
  return !object;
}

TEST(disposed_while_it_connects_it_is_gone) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  VekMetricReporter *reporter =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  GWeakRef weak;
  g_weak_ref_init(&weak, reporter);
  g_object_run_dispose(G_OBJECT(reporter));
  g_assert_false(is_busy(reporter));
  g_assert_true(g_cancellable_is_cancelled(connecting));
  g_object_unref(reporter);
  run_until(is_gone(&weak));
  run_until_idle();
  g_assert_finalize_object(g_steal_pointer(&connecting));
  g_assert_cmpuint(get_delay(), ==, 0);
  g_weak_ref_clear(&weak);
}

TEST(disposed_while_it_sends_it_is_gone) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  VekMetricReporter *reporter = connect_to_silent(server);
  process_many(reporter, 0, MANY_LINES);
  flush(reporter);
  g_assert_true(is_busy(reporter));
  run_dispose(reporter);
  g_assert_false(is_busy(reporter));
  g_object_unref(reporter);
}

/* A resolver that knows one name, if any. */
typedef struct {
  GResolver parent_instance;
  const char *address; /* what the name resolves to; NULL if it does not */
  guint n_lookups;
} TestResolver;
typedef GResolverClass TestResolverClass;
G_DEFINE_TYPE(TestResolver, test_resolver, G_TYPE_RESOLVER)

static void look_up(GResolver *resolver, const char *host,
                    G_GNUC_UNUSED GResolverNameLookupFlags flags, GCancellable *cancellable,
                    GAsyncReadyCallback callback, gpointer user_data) {
  TestResolver *self = (TestResolver *)resolver;
  g_assert_cmpstr(host, ==, "graphite.test");
  self->n_lookups++;
  g_autoptr(GTask) task = g_task_new(resolver, cancellable, callback, user_data);
  if (self->address)
    g_task_return_pointer(task, g_list_append(NULL, g_inet_address_new_from_string(self->address)),
                          NULL);
  else
    g_task_return_new_error(task, G_RESOLVER_ERROR, G_RESOLVER_ERROR_NOT_FOUND, "No such name");
}

static void look_up_either(GResolver *resolver, const char *host, GCancellable *cancellable,
                           GAsyncReadyCallback callback, gpointer user_data) {
  look_up(resolver, host, G_RESOLVER_NAME_LOOKUP_FLAGS_DEFAULT, cancellable, callback, user_data);
}

static GList *look_up_finish(G_GNUC_UNUSED GResolver *resolver, GAsyncResult *result,
                             GError **error) {
  return g_task_propagate_pointer(G_TASK(result), error);
}

static void test_resolver_class_init(TestResolverClass *klass) {
  klass->lookup_by_name_async = look_up_either;
  klass->lookup_by_name_finish = look_up_finish;
  klass->lookup_by_name_with_flags_async = look_up;
  klass->lookup_by_name_with_flags_finish = look_up_finish;
}

static void test_resolver_init(G_GNUC_UNUSED TestResolver *self) {}

TEST(a_name_is_looked_up_for_each_connection) {
  g_autoptr(GResolver) before = g_resolver_get_default();
  g_autoptr(GResolver) resolver = g_object_new(test_resolver_get_type(), NULL);
  TestResolver *names = (TestResolver *)resolver;
  g_resolver_set_default(resolver);
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");

  g_autoptr(VekMetricReporter) reporter =
      vek_service_graphite_reporter_new(NULL, "graphite.test", server->port);
  send_count(reporter, "a", 1);
  run_until(get_delay() > 0);
  assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING,
                     "No connection to graphite.test:*, lines wait for it: *No such name");
  end_delay();
  run_until(get_delay() > 0);

  names->address = "127.0.0.1";
  names->n_lookups = 0;
  end_delay();
  meet(reporter, server);
  assert_received(server, "a 1 1700000000\n");
  assert_logged_like("VEK:service", G_LOG_LEVEL_MESSAGE, "graphite.test:* takes lines again *");
  g_assert_cmpuint(names->n_lookups, >, 0);

  names->address = NULL;
  line_server_close(server);
  run_until(!is_connected(reporter));
  assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING, "*The server closed it");
  names->n_lookups = 0;
  end_delay();
  run_until(get_delay() > 0); /* it does not remember the address */
  g_assert_cmpuint(names->n_lookups, >, 0);
  g_resolver_set_default(before);
}
