/* Tests of VekWebServer. Clients are threads that talk to it by sockets, while it works in the main
 * loop. */

#include <gio/gunixsocketaddress.h>
#include <glib/gstdio.h>
#include <string.h>
#include <unistd.h>
#include <vekmetrics-web/vekmetrics-web.h>

#include "served.h"
#include "support/replace.h"

static gboolean is_elsewhere; /* as if clients came from other machines */

gboolean g_inet_address_get_is_loopback(GInetAddress *address) {
  return !is_elsewhere && NEXT(g_inet_address_get_is_loopback)(address);
}

TEST(text_is_served_in_both_formats) {
  g_auto(Served) served = set_up_listening(20000); /* more than is summed at a time */
  static const struct {
    const char *accept, *type;
    VekServicePrometheusFormat format;
  } rows[] = {
      {"", "text/plain; version=0.0.4; charset=utf-8", VEK_SERVICE_PROMETHEUS_FORMAT_TEXT},
      {"|Accept: application/openmetrics-text",
       "application/openmetrics-text; version=1.0.0; charset=utf-8",
       VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autofree char *text =
        vek_service_prometheus_reporter_get_text(served.reporter, rows[i].format);
    g_autofree char *sum = g_compute_checksum_for_string(G_CHECKSUM_MD5, text, -1);
    g_autofree char *expected = g_strdup_printf(
        "HTTP/1.1 200 OK|ETag: \"%s\"|Vary: Accept, Accept-Encoding|"
        "Content-Type: %s|Content-Length: %zu",
        sum, rows[i].type, strlen(text));
    for (int head = 0; head < 2; head++) {
      g_autofree char *lines = g_strdup_printf("%s /metrics HTTP/1.1|Host: localhost:9090%s",
                                               head ? "HEAD" : "GET", rows[i].accept);
      g_autoptr(GBytes) body = NULL;
      g_autofree char *answer = request(&served, lines, &body);
      g_assert_cmpstr(answer, ==, expected);
      assert_bytes(body, head ? "" : text);
    }
  }
}

TEST(text_is_compressed_for_those_who_want_it) {
  static const int sizes[] = {1, 20000};
  for (gsize i = 0; i < G_N_ELEMENTS(sizes); i++) {
    g_auto(Served) served = set_up_listening(sizes[i]);
    g_autofree char *text = vek_service_prometheus_reporter_get_text(
        served.reporter, VEK_SERVICE_PROMETHEUS_FORMAT_TEXT);
    for (int again = 0; again < 2; again++) {
      g_autoptr(GBytes) body = NULL;
      g_autofree char *answer =
          request(&served, "GET /metrics HTTP/1.1|Host: localhost|Accept-Encoding: gzip", &body);
      g_assert_nonnull(strstr(answer, "|Content-Encoding: gzip"));
      g_assert_nonnull(strstr(answer, "-gzip\"|"));
      g_autoptr(GBytes) plain = decompress(body);
      assert_bytes(plain, text);
      if (sizes[i] > 1)
        g_assert_cmpuint(g_bytes_get_size(body) * 5, <, strlen(text));
    }
  }
}

/* Connects so many clients and sends the request of each. */
static GPtrArray *send_requests(Served *served, guint n_clients, const char *request) {
  g_autoptr(GSocketAddress) address = get_address(served);
  GPtrArray *sockets = g_ptr_array_new_with_free_func(g_object_unref);
  for (guint i = 0; i < n_clients; i++) {
    GSocket *socket =
        g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, NULL);
    g_assert_true(g_socket_connect(socket, address, NULL, NULL));
    g_socket_send(socket, request, strlen(request), NULL, NULL);
    g_ptr_array_add(sockets, socket);
  }
  return sockets;
}

static guint count_answered(GPtrArray *sockets) {
  guint n_answered = 0;
  for (guint i = 0; i < sockets->len; i++)
    n_answered += g_socket_condition_check(sockets->pdata[i], G_IO_IN) != 0;
  return n_answered;
}

TEST(one_request_is_answered_in_each_turn) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GPtrArray) sockets =
      send_requests(&served, 20, "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n");
  for (guint n_answered = 0; n_answered < sockets->len;) {
    g_main_context_iteration(NULL, TRUE);
    guint n_before = n_answered;
    n_answered = count_answered(sockets);
    g_assert_cmpuint(n_answered, <=, n_before + 1);
  }
}

static gboolean on_turn(G_GNUC_UNUSED gpointer data) {
  return G_SOURCE_CONTINUE;
}

TEST(text_is_served_while_the_program_is_busy) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSource) busy = g_idle_source_new();
  g_source_set_priority(busy, G_PRIORITY_HIGH_IDLE);
  g_source_set_callback(busy, on_turn, NULL, NULL);
  g_source_attach(busy, NULL);
  g_autoptr(GPtrArray) sockets =
      send_requests(&served, 1, "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n");
  for (int i = 0; i < 100; i++)
    g_main_context_iteration(NULL, TRUE);
  g_assert_cmpuint(count_answered(sockets), ==, 1);
  g_source_destroy(busy);
}

/* In how many turns of the main loop a request for the text is answered. */
static guint count_turns(Served *served) {
  g_autoptr(GPtrArray) sockets =
      send_requests(served, 1, "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n");
  while (!find_source("vekmetrics-web turn"))
    g_main_context_iteration(NULL, TRUE);
  guint n_turns = 0;
  for (; count_answered(sockets) == 0; n_turns++)
    g_main_context_iteration(NULL, TRUE);
  return n_turns;
}

TEST(large_text_is_written_over_several_turns) {
  g_auto(Served) unwritten = set_up_listening(10000), written = set_up_listening(10000);
  g_free(vek_service_prometheus_reporter_get_text(written.reporter,
                                                  VEK_SERVICE_PROMETHEUS_FORMAT_TEXT));
  g_assert_cmpuint(count_turns(&unwritten), >, count_turns(&written) + 5);
}

TEST(server_may_end_while_clients_wait_for_compression) {
  gboolean has_answered = FALSE;
  for (int n_turns = 0; !has_answered; n_turns++) {
    Served served = set_up_listening(5000);
    g_autoptr(GPtrArray) sockets = send_requests(
        &served, 2, "GET /metrics HTTP/1.1\r\nHost: localhost\r\nAccept-Encoding: gzip\r\n\r\n");
    while (!find_source("vekmetrics-web turn"))
      g_main_context_iteration(NULL, TRUE);
    for (int i = 0; i < n_turns; i++)
      g_main_context_iteration(NULL, FALSE);
    has_answered = count_answered(sockets) > 0;
    tear_down(&served);
    g_assert_null(find_source("vekmetrics-web turn"));
    for (guint i = 0; !has_answered && i < sockets->len; i++) {
      char buffer[4096];
      gssize n_read = g_socket_receive(sockets->pdata[i], buffer, sizeof buffer, NULL, NULL);
      g_assert_false(n_read > 0 && memcmp(buffer, "HTTP/1.1 200", MIN(n_read, 12)) == 0);
    }
  }
}

TEST(tag_spares_those_who_have_the_text) {
  g_auto(Served) served = set_up_listening(1);
  static const char *const encodings[] = {"identity", "gzip"};
  for (gsize i = 0; i < G_N_ELEMENTS(encodings); i++) {
    g_autofree char *first_lines =
        g_strdup_printf("GET /metrics HTTP/1.1|Host: localhost|Accept-Encoding: %s", encodings[i]);
    g_autofree char *first = request(&served, first_lines, NULL);
    g_auto(GStrv) headers = g_strsplit(first, "|", -1);
    g_assert_true(g_str_has_prefix(headers[1], "ETag: "));
    g_autofree char *lines =
        g_strdup_printf("%s|If-None-Match: %s", first_lines, headers[1] + strlen("ETag: "));
    assert_status(&served, lines, "HTTP/1.1 304 Not Modified");
    vek_testing_clock_advance(G_USEC_PER_SEC);
    pass(&served, 1);
    assert_status(&served, lines, "HTTP/1.1 200 OK");
  }
}

TEST(all_else_is_refused) {
  g_auto(Served) served = set_up_listening(1);
  static const struct {
    const char *lines, *status;
  } rows[] = {
      {"GET /x HTTP/1.1|Host: localhost", "HTTP/1.1 404 Not Found"},
      {"GET /metrics/ HTTP/1.1|Host: localhost", "HTTP/1.1 404 Not Found"},
      {"GET /metrics/x HTTP/1.1|Host: localhost", "HTTP/1.1 404 Not Found"},
      {"GET /metrics?name=x HTTP/1.1|Host: localhost", "HTTP/1.1 200 OK"},
      {"POST /metrics HTTP/1.1|Host: localhost|Content-Length: 0",
       "HTTP/1.1 405 Method Not Allowed"},
      {"DELETE /metrics HTTP/1.1|Host: localhost", "HTTP/1.1 405 Method Not Allowed"},
      {"BREW /metrics HTTP/1.1|Host: localhost", "HTTP/1.1 405 Method Not Allowed"},
      {"OPTIONS /metrics HTTP/1.1|Host: localhost", "HTTP/1.1 405 Method Not Allowed"},
      {"GET /metrics HTTP/1.1|Host: evil.example", "HTTP/1.1 403 Forbidden"},
      {"GET / HTTP/1.1|Host: localhost.evil.example:9090", "HTTP/1.1 403 Forbidden"},
      {"GET /metrics HTTP/1.1|Host: 127.0.0.1:1", "HTTP/1.1 200 OK"},
      {"GET /metrics HTTP/1.1|Host: [::1]", "HTTP/1.1 200 OK"},
      {"GET /metrics HTTP/1.0", "HTTP/1.0 403 Forbidden"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++)
    assert_status(&served, rows[i].lines, rows[i].status);

  g_autofree char *answer =
      request(&served, "POST /metrics HTTP/1.1|Host: localhost|Content-Length: 0", NULL);
  g_assert_true(g_str_has_suffix(answer, "|Allow: GET, HEAD"));
}

TEST(hosts_that_the_program_allows_are_answered) {
  g_auto(Served) served = set_up_listening(1);
  vek_web_server_allow_host(served.server, "Metrics.Example");
  assert_status(&served, "GET /metrics HTTP/1.1|Host: metrics.EXAMPLE:80", "HTTP/1.1 200 OK");
  assert_status(&served, "GET /metrics HTTP/1.1|Host: example", "HTTP/1.1 403 Forbidden");
}

TEST(from_other_machines_any_host_is_asked_for) {
  g_auto(Served) served = set_up_listening(1);
  is_elsewhere = TRUE;
  assert_status(&served, "GET /metrics HTTP/1.1|Host: any.example", "HTTP/1.1 200 OK");
  is_elsewhere = FALSE;
}

TEST(before_the_first_pass_there_is_nothing) {
  g_auto(Served) served = set_up();
  g_assert_true(vek_web_server_listen(served.server, NULL, 0, NULL));
  g_autoptr(GBytes) body = NULL;
  g_autofree char *answer =
      request(&served, "GET /metrics HTTP/1.1|Host: localhost|Accept-Encoding: gzip", &body);
  g_assert_true(g_str_has_prefix(answer, "HTTP/1.1 503 Service Unavailable|"));
  assert_bytes(body, "There is no text before the first report pass.\n");
}

TEST(nothing_is_said_to_pages_of_others) {
  g_auto(Served) served = set_up_listening(1);
  g_autofree char *answer =
      request(&served, "GET /metrics HTTP/1.1|Host: localhost|Origin: http://evil.example", NULL);
  g_assert_null(strstr(answer, "Access-Control"));
}

TEST(connection_ends_with_its_answer) {
  g_auto(Served) served = set_up_listening(1);
  static const char *const requests[] = {
      "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n",
      "PUT / HTTP/1.1\r\nHost: localhost\r\nExpect: 100-continue\r\n\r\n",
      "GET /\xff HTTP/1.1\r\nHost: localhost\r\n\r\n",
      "GET / HTTP/1.1\r\n\r\n",
      "GET\r\n\r\n",
  };
  g_autoptr(GSocketAddress) address = get_address(&served);
  for (gsize i = 0; i < G_N_ELEMENTS(requests); i++) {
    g_autoptr(GByteArray) answers = ask(address, requests[i]);
    g_test_message("%s", (char *)answers->data);
    const char *last = g_strrstr((char *)answers->data, "HTTP/1."); /* after "100 Continue" */
    g_assert_nonnull(last);
    g_assert_nonnull(strstr(last, "\r\nConnection: close\r\n"));
  }
}

TEST(bodies_of_requests_are_bounded) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSocketAddress) address = get_address(&served);
  static const char *const requests[] = {
      "POST /metrics HTTP/1.1\r\nHost: localhost\r\nContent-Length: 65537\r\n\r\nx",
      "POST /metrics HTTP/1.1\r\nHost: localhost\r\nContent-Length: 18446744073709551615\r\n\r\nx",
      "POST /metrics HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n",
  };
  for (gsize i = 0; i < G_N_ELEMENTS(requests); i++) {
    g_autoptr(GByteArray) answer = ask(address, requests[i]);
    g_assert_cmpstr((char *)answer->data, ==, "");
  }
  g_autofree char *body = g_strnfill(65536, 'x');
  g_autofree char *small = g_strconcat(
      "POST /metrics HTTP/1.1\r\nHost: localhost\r\n"
      "Connection: close\r\nContent-Length: 65536\r\n\r\n",
      body, NULL);
  g_autoptr(GByteArray) answer = ask(address, small);
  g_assert_true(g_str_has_prefix((char *)answer->data, "HTTP/1.1 405 "));
}

TEST(the_connection_that_is_idle_for_longest_makes_room) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GPtrArray) sockets = g_ptr_array_new_with_free_func(g_object_unref);
  for (int i = 0; i < 100; i++) {
    g_ptr_array_add(sockets, connect_to(&served));
    vek_testing_clock_advance(1000);
  }
  for (guint i = 0; i < sockets->len; i++)
    g_assert_false(has_ended(sockets->pdata[i]));
  g_ptr_array_add(sockets, connect_to(&served));
  for (guint i = 0; i < sockets->len; i++)
    g_assert_cmpint(has_ended(sockets->pdata[i]), ==, i == 0);

  g_ptr_array_remove_index(sockets, 50); /* which makes room too */
  settle();
  g_ptr_array_add(sockets, connect_to(&served));
  g_assert_false(has_ended(sockets->pdata[1]));
}

/* Runs the server's look at its connections, which comes once a second. */
static void sweep(void) {
  GSource *source = find_source("vekmetrics-web connections");
  g_assert_nonnull(source);
  g_source_set_ready_time(source, 0);
  settle();
}

TEST(connection_on_which_nothing_happens_is_ended) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSocket) idle = connect_to(&served);
  g_autoptr(GSocket) half = connect_to(&served);
  g_socket_send(half, "GET /met", 8, NULL, NULL);
  vek_testing_clock_advance(119 * G_USEC_PER_SEC);
  sweep();
  g_autoptr(GSocket) late = connect_to(&served);
  g_assert_false(has_ended(idle));
  g_assert_false(has_ended(half));
  vek_testing_clock_advance(G_USEC_PER_SEC);
  sweep();
  g_assert_true(has_ended(idle));
  g_assert_true(has_ended(half));
  g_assert_false(has_ended(late));
}

TEST(connection_that_is_ended_takes_nothing_more) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSocket) idle = connect_to(&served);
  vek_testing_clock_advance(120 * G_USEC_PER_SEC);
  sweep();
  g_assert_true(has_ended(idle));
  g_assert_cmpint(g_socket_send(idle, "G", 1, NULL, NULL), ==, 1); /* is reset */
  g_assert_cmpint(g_socket_send(idle, "E", 1, NULL, NULL), ==, -1);
}

TEST(server_without_connections_does_nothing) {
  g_auto(Served) served = set_up_listening(1);
  for (int round = 0; round < 2; round++) {
    assert_status(&served, "GET /metrics HTTP/1.1|Host: localhost", "HTTP/1.1 200 OK");
    sweep();
    g_assert_null(find_source("vekmetrics-web connections"));
  }
}

TEST(connections_of_another_server_may_stay) {
  g_auto(Served) served = set_up();
  pass(&served, 1);
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  vek_web_server_attach(served.server, soup_server, NULL);
  g_autoptr(GSocket) client = connect_to_address(address);
  send_request(client, "/metrics");
  settle();
  char answer[4096] = "";
  g_assert_cmpint(g_socket_receive(client, answer, sizeof answer - 1, NULL, NULL), >, 0);
  g_assert_true(g_str_has_prefix(answer, "HTTP/1.1 200 OK\r\n"));
  g_assert_null(strstr(answer, "\r\nConnection:"));
}

TEST(path_of_another_server_is_served_until_this_one_ends) {
  Served served = set_up();
  pass(&served, 1);
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  vek_web_server_attach(served.server, soup_server, "/figures");
  assert_answer(address, "/figures", "HTTP/1.1 200 ");
  assert_answer(address, "/figures/x", "HTTP/1.1 404 ");
  assert_answer(address, "/metrics", "HTTP/1.1 404 ");
  g_object_unref(served.server);
  assert_answer(address, "/figures", "HTTP/1.1 404 ");
  g_object_unref(served.reporter);
  settle();
}

TEST(path_of_another_server_is_that_of_the_last_one_attached) {
  Served first = set_up();
  g_auto(Served) second = set_up();
  pass(&second, 1);
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  vek_web_server_attach(first.server, soup_server, NULL);
  assert_answer(address, "/metrics", "HTTP/1.1 503 ");
  vek_web_server_attach(second.server, soup_server, NULL);
  assert_answer(address, "/metrics", "HTTP/1.1 200 ");
  tear_down(&first);
  assert_answer(address, "/metrics", "HTTP/1.1 200 ");
  run_dispose(second.server);
  assert_answer(address, "/metrics", "HTTP/1.1 404 ");
}

TEST(each_server_that_is_attached_has_its_path) {
  g_auto(Served) served = set_up();
  pass(&served, 1);
  g_autoptr(GSocketAddress) first_address = NULL, second_address = NULL;
  g_autoptr(SoupServer) first = other_server_new(&first_address);
  g_autoptr(SoupServer) second = other_server_new(&second_address);
  vek_web_server_attach(served.server, first, NULL);
  vek_web_server_attach(served.server, second, "/");
  assert_answer(first_address, "/metrics", "HTTP/1.1 200 ");
  assert_answer(second_address, "/metrics", "HTTP/1.1 404 ");
  assert_answer(second_address, "/", "HTTP/1.1 200 ");
}

/* A client of another server whose request waits to be compressed. */
static GSocket *let_wait(Served *served, SoupServer *soup_server, GSocketAddress *address) {
  pass(served, 20000);
  vek_web_server_attach(served->server, soup_server, NULL);
  GSocket *socket = connect_to_address(address);
  static const char *const request =
      "GET /metrics HTTP/1.1\r\nHost: localhost\r\nAccept-Encoding: gzip\r\n\r\n";
  g_socket_send(socket, request, strlen(request), NULL, NULL);
  while (!find_source("vekmetrics-web turn"))
    g_main_context_iteration(NULL, TRUE);
  return socket;
}

TEST(clients_of_another_server_that_wait_at_the_end_are_told) {
  Served served = set_up();
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  g_autoptr(GSocket) socket = let_wait(&served, soup_server, address);
  tear_down(&served);
  char answer[4096] = "";
  g_assert_cmpint(g_socket_receive(socket, answer, sizeof answer - 1, NULL, NULL), >, 0);
  g_assert_true(g_str_has_prefix(answer, "HTTP/1.1 503 "));
}

TEST(another_server_may_end_while_its_clients_wait) {
  g_auto(Served) served = set_up();
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  g_autoptr(GSocket) socket = let_wait(&served, soup_server, address);
  soup_server_disconnect(soup_server);
  settle();
  g_assert_null(find_source("vekmetrics-web turn"));
  g_assert_true(has_ended(socket));
}

TEST(unix_socket_is_of_this_user_alone) {
  Served served = set_up();
  pass(&served, 1);
  g_autofree char *folder = g_dir_make_tmp(NULL, NULL);
  g_autofree char *path = g_build_filename(folder, "metrics", NULL);
  g_autoptr(GError) error = NULL;
  g_assert_true(vek_web_server_listen_unix(served.server, path, &error));
  g_assert_no_error(error);
  GStatBuf status;
  g_assert_cmpint(g_stat(path, &status), ==, 0);
  g_assert_cmpuint(status.st_mode & 077, ==, 0);
  g_assert_cmpuint(vek_web_server_get_port(served.server), ==, 0);

  g_autoptr(GSocketAddress) address = g_unix_socket_address_new(path);
  g_autoptr(GByteArray) answer =
      ask(address, "GET /metrics HTTP/1.1\r\nHost: anything\r\nConnection: close\r\n\r\n");
  g_assert_true(g_str_has_prefix((char *)answer->data, "HTTP/1.1 200 "));

  g_auto(Served) second = set_up();
  g_assert_false(vek_web_server_listen_unix(second.server, path, &error));
  g_assert_error(error, G_IO_ERROR, G_IO_ERROR_ADDRESS_IN_USE);
  tear_down(&served);
  g_assert_false(g_file_test(path, G_FILE_TEST_EXISTS));

  g_autoptr(GSocket) abandoned =
      g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, NULL);
  g_assert_true(g_socket_bind(abandoned, address, FALSE, NULL));
  g_assert_true(vek_web_server_listen_unix(second.server, path, NULL));
  g_clear_object(&second.server);
  second.server = vek_web_server_new(second.reporter);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

TEST(server_that_is_disposed_serves_no_more) {
  Served served = set_up_listening(1);
  g_autofree char *folder = g_dir_make_tmp(NULL, NULL);
  g_autofree char *first = g_build_filename(folder, "first", NULL);
  g_autofree char *second = g_build_filename(folder, "second", NULL);
  g_assert_true(vek_web_server_listen_unix(served.server, first, NULL));
  g_assert_true(vek_web_server_listen_unix(served.server, second, NULL));
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  vek_web_server_attach(served.server, soup_server, NULL);
  g_autoptr(GSocket) client = connect_to(&served);
  guint port = vek_web_server_get_port(served.server);

  run_dispose(served.server);
  g_assert_true(has_ended(client));
  assert_answer(address, "/metrics", "HTTP/1.1 404 ");
  g_assert_cmpint(g_access(first, F_OK), ==, -1);
  g_assert_cmpint(g_access(second, F_OK), ==, -1);

  Served successor = set_up();
  g_assert_true(vek_web_server_listen(successor.server, NULL, port, NULL));
  g_assert_true(vek_web_server_listen_unix(successor.server, first, NULL));
  tear_down(&served);
  g_assert_cmpint(g_access(first, F_OK), ==, 0);
  tear_down(&successor);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

TEST(port_can_be_listened_on_again_at_once) {
  Served served = set_up_listening(1);
  guint port = vek_web_server_get_port(served.server);
  assert_status(&served, "GET /metrics HTTP/1.1|Host: localhost", "HTTP/1.1 200 OK");
  tear_down(&served); /* the system remembers the connection that the server has closed */
  served = set_up();
  g_autoptr(GError) error = NULL;
  g_assert_true(vek_web_server_listen(served.server, NULL, port, &error));
  g_assert_no_error(error);
  tear_down(&served);
}

TEST(file_that_is_no_socket_is_kept) {
  g_auto(Served) served = set_up();
  g_autofree char *folder = g_dir_make_tmp(NULL, NULL);
  g_autofree char *path = g_build_filename(folder, "metrics", NULL);
  g_assert_true(g_file_set_contents(path, "", 0, NULL));
  g_autoptr(GError) error = NULL;
  g_assert_false(vek_web_server_listen_unix(served.server, path, &error));
  g_assert_error(error, G_IO_ERROR, G_IO_ERROR_ADDRESS_IN_USE);
  g_assert_cmpint(g_unlink(path), ==, 0);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

TEST(port_is_the_first_of_several) {
  g_auto(Served) served = set_up_listening(1);
  guint port = vek_web_server_get_port(served.server);
  listen_locally(&served);
  g_assert_cmpuint(vek_web_server_get_port(served.server), ==, port);
}

TEST(properties_read_back) {
  g_auto(Served) served = set_up();
  g_autoptr(VekServicePrometheusReporter) reporter = NULL;
  guint history;
  g_object_set(served.server, "history", 1440, NULL);
  g_object_get(served.server, "reporter", &reporter, "history", &history, NULL);
  g_assert_true(reporter == served.reporter);
  g_assert_cmpuint(history, ==, 1440);
  GParamSpec *spec = g_object_class_find_property(G_OBJECT_GET_CLASS(served.server), "history");
  g_assert_cmpuint(G_PARAM_SPEC_UINT(spec)->maximum, ==, 1440);
}

TEST(unknown_property_warns) {
  g_auto(Served) served = set_up();
  assert_unknown_property_warns_in("VEK:web", served.server);
}

TEST(server_that_is_made_without_a_reporter_has_its_own) {
  g_autoptr(VekWebServer) server = g_object_new(VEK_WEB_TYPE_SERVER, NULL);
  g_autoptr(VekServicePrometheusReporter) reporter = NULL;
  g_object_get(server, "reporter", &reporter, NULL);
  g_assert_true(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter));
}

TEST(addresses_that_are_none_are_errors) {
  g_auto(Served) served = set_up();
  g_autoptr(GError) error = NULL;
  g_assert_false(vek_web_server_listen(served.server, "localhost", 0, &error));
  g_assert_error(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT);
  g_assert_cmpstr(error->message, ==, "localhost is no IP address");
  g_clear_error(&error);
  g_assert_false(vek_web_server_listen(served.server, "192.0.2.1", 0, &error));
  g_assert_nonnull(error);
  g_clear_error(&error);

  g_assert_true(vek_web_server_listen(served.server, NULL, 0, NULL));
  g_auto(Served) second = set_up();
  g_assert_false(
      vek_web_server_listen(second.server, NULL, vek_web_server_get_port(served.server), &error));
  g_assert_error(error, G_IO_ERROR, G_IO_ERROR_ADDRESS_IN_USE);
  g_assert_false(vek_web_server_listen_unix(second.server, "/nowhere/at/all", NULL));
}

TEST(failed_checks_name_their_own_function) {
  g_auto(Served) served = set_up();
  g_assert_null(vek_web_server_new(NULL));
  g_assert_false(vek_web_server_listen(NULL, NULL, 0, NULL));
  g_assert_false(vek_web_server_listen(served.server, NULL, 65536, NULL));
  g_assert_false(vek_web_server_listen_unix(served.server, NULL, NULL));
  g_autoptr(GError) error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_FAILED, "set");
  g_assert_false(vek_web_server_listen(served.server, NULL, 0, &error));
  g_assert_false(vek_web_server_listen_unix(NULL, "/metrics", NULL));
  g_assert_false(vek_web_server_listen_unix(served.server, "/metrics", &error));
  g_autoptr(SoupServer) soup_server = soup_server_new(NULL, NULL);
  vek_web_server_attach(NULL, soup_server, NULL);
  vek_web_server_attach(served.server, NULL, NULL);
  vek_web_server_attach(served.server, soup_server, "metrics");
  vek_web_server_allow_host(NULL, "localhost");
  vek_web_server_allow_host(served.server, NULL);
  g_assert_cmpuint(vek_web_server_get_port(NULL), ==, 0);
  static const char *const expected[] = {
      "vek_web_server_new: assertion 'VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter)' failed",
      "vek_web_server_listen: assertion 'VEK_WEB_IS_SERVER(server)' failed",
      "vek_web_server_listen: assertion 'port <= G_MAXUINT16' failed",
      "vek_web_server_listen_unix: assertion 'path != NULL' failed",
      "vek_web_server_listen: assertion 'error == NULL || *error == NULL' failed",
      "vek_web_server_listen_unix: assertion 'VEK_WEB_IS_SERVER(server)' failed",
      "vek_web_server_listen_unix: assertion 'error == NULL || *error == NULL' failed",
      "vek_web_server_attach: assertion 'VEK_WEB_IS_SERVER(server)' failed",
      "vek_web_server_attach: assertion 'SOUP_IS_SERVER(soup_server)' failed",
      "vek_web_server_attach: assertion 'path == NULL || *path == '/'' failed",
      "vek_web_server_allow_host: assertion 'VEK_WEB_IS_SERVER(server)' failed",
      "vek_web_server_allow_host: assertion 'name != NULL' failed",
      "vek_web_server_get_port: assertion 'VEK_WEB_IS_SERVER(server)' failed",
  };
  for (gsize i = 0; i < G_N_ELEMENTS(expected); i++)
    assert_logged("VEK:web", G_LOG_LEVEL_CRITICAL, expected[i]);
}
