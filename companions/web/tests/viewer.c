/* Tests of what a VekWebServer shows to people: the files of the page, the stream of events, and
 * how the passes are sent. */

#include <gio/gunixsocketaddress.h>
#include <glib/gstdio.h>
#include <json-glib/json-glib.h>
#include <string.h>

#include "served.h"
#include "support/folder.h"
#include "support/heap.h"
#include "support/replace.h"
#include "support/tsan-tasks.h"

#define HEADERS                                                                        \
  "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; " \
  "connect-src 'self'; img-src 'self' data:; base-uri 'none'; form-action 'none'; "    \
  "frame-ancestors 'none'|Referrer-Policy: no-referrer|X-Content-Type-Options: nosniff|"

static guint interval; /* of the last source, in seconds */

GSource *g_timeout_source_new_seconds(guint seconds) {
  interval = seconds;
  return NEXT(g_timeout_source_new_seconds)(seconds);
}

static gboolean has_page(Served *served) {
  g_autofree char *answer = request(served, "GET / HTTP/1.1|Host: localhost", NULL);
  if (g_str_has_prefix(answer, "HTTP/1.1 200 OK|"))
    return TRUE;
  g_assert_false(g_file_test("/usr/share/javascript/dygraphs", G_FILE_TEST_IS_DIR));
  g_test_skip("built without the page");
  return FALSE;
}

TEST(page_comes_with_all_that_it_refers_to) {
  g_auto(Served) served = set_up_listening(1);
  if (!has_page(&served))
    return;
  g_autoptr(GBytes) index = NULL;
  g_autofree char *answer = request(&served, "GET / HTTP/1.1|Host: localhost", &index);
  g_assert_nonnull(strstr(answer, "|Content-Type: text/html; charset=utf-8|"));
  g_autofree char *html = g_strndup(g_bytes_get_data(index, NULL), g_bytes_get_size(index));
  g_assert_true(g_str_has_prefix(html, "<!DOCTYPE html>"));

  static const char *const types[] = {".js\0text/javascript", ".css\0text/css"};
  guint n_found = 0;
  g_autoptr(GRegex) reference = g_regex_new("(?:src|href)=\"([^:\"]+)(\\.\\w+)\"", 0, 0, NULL);
  g_autoptr(GMatchInfo) match = NULL;
  for (g_regex_match(reference, html, 0, &match); g_match_info_matches(match);
       g_match_info_next(match, NULL)) {
    g_autofree char *name = g_match_info_fetch(match, 1), *suffix = g_match_info_fetch(match, 2);
    g_autofree char *lines = g_strdup_printf("GET /%s%s HTTP/1.1|Host: localhost", name, suffix);
    g_test_message("%s", lines);
    const char *type = NULL;
    for (gsize i = 0; i < G_N_ELEMENTS(types); i++)
      if (g_str_equal(types[i], suffix))
        type = types[i] + strlen(types[i]) + 1;
    g_autofree char *expected = g_strdup_printf("|Content-Type: %s; charset=utf-8|", type);
    g_autoptr(GBytes) body = NULL;
    g_autofree char *file = request(&served, lines, &body);
    g_assert_true(g_str_has_prefix(file, "HTTP/1.1 200 OK|" HEADERS "Cache-Control: no-cache|"));
    g_assert_nonnull(strstr(file, expected));
    g_assert_cmpuint(g_bytes_get_size(body), >, 100);
    g_autofree char *folder = g_strdup_printf("GET /%s%s/ HTTP/1.1|Host: localhost", name, suffix);
    assert_status(&served, folder, "HTTP/1.1 404 Not Found");
    n_found++;
  }
  g_assert_cmpuint(n_found, >, 3);
}

TEST(files_of_the_page_are_asked_for_like_the_text) {
  g_auto(Served) served = set_up_listening(1);
  if (!has_page(&served))
    return;
  g_autoptr(GBytes) plain = NULL, compressed = NULL, head = NULL;
  g_autofree char *first = request(&served, "GET / HTTP/1.1|Host: localhost", &plain);
  g_autofree char *gzip =
      request(&served, "GET / HTTP/1.1|Host: localhost|Accept-Encoding: gzip", &compressed);
  g_assert_nonnull(strstr(gzip, "|Content-Encoding: gzip"));
  g_autoptr(GBytes) decompressed = decompress(compressed);
  g_assert_true(g_bytes_equal(decompressed, plain));
  g_autofree char *same = request(&served, "HEAD / HTTP/1.1|Host: localhost", &head);
  g_assert_cmpstr(same, ==, first);
  assert_bytes(head, "");

  g_autofree char *rest = g_strdup(strstr(first, "|ETag: ") + strlen("|ETag: "));
  g_autofree char *tag = g_strndup(rest, strcspn(rest, "|"));
  g_autofree char *lines = g_strdup_printf("GET / HTTP/1.1|Host: localhost|If-None-Match: %s", tag);
  assert_status(&served, lines, "HTTP/1.1 304 Not Modified");
  assert_status(&served, "GET /index.html HTTP/1.1|Host: localhost", "HTTP/1.1 200 OK");
}

TEST(page_and_data_are_refused_like_the_text) {
  g_auto(Served) served = set_up_listening(1);
  static const char *const paths[] = {"/vars.json", "/events", "/"};
  for (gsize i = 0; i < G_N_ELEMENTS(paths); i++) {
    if (i == 2 && !has_page(&served))
      return;
    g_autofree char *post =
        g_strdup_printf("POST %s HTTP/1.1|Host: localhost|Content-Length: 0", paths[i]);
    assert_status(&served, post, "HTTP/1.1 405 Method Not Allowed");
    g_autofree char *evil = g_strdup_printf("GET %s HTTP/1.1|Host: evil.example", paths[i]);
    assert_status(&served, evil, "HTTP/1.1 403 Forbidden");
    g_autofree char *below = g_strdup_printf("GET %s/x HTTP/1.1|Host: localhost", paths[i]);
    assert_status(&served, below, "HTTP/1.1 404 Not Found");
  }
}

TEST(head_of_data_begins_no_response) {
  g_auto(Served) served = set_up_listening(1);
  static const struct {
    const char *path, *expected;
  } rows[] = {
      {"/vars.json",
       "HTTP/1.1 200 OK|" HEADERS "Cache-Control: no-store|Content-Type: application/json|"
       "Vary: Accept-Encoding|Transfer-Encoding: chunked"},
      {"/events",
       "HTTP/1.1 200 OK|" HEADERS "Cache-Control: no-store|Content-Type: text/event-stream|"
       "Transfer-Encoding: chunked"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autofree char *lines = g_strdup_printf("HEAD %s HTTP/1.1|Host: localhost", rows[i].path);
    g_autoptr(GBytes) body = NULL;
    g_autofree char *answer = request(&served, lines, &body);
    g_assert_cmpstr(answer, ==, rows[i].expected);
    assert_bytes(body, "");
  }
}

static char *join_chunks(GBytes *body) {
  GString *joined = g_string_new(NULL);
  const char *next = g_bytes_get_data(body, NULL);
  for (gssize size = -1; size != 0; next += 2) { /* a chunk ends in CR and LF */
    char *data;
    size = (gssize)g_ascii_strtoull(next, &data, 16);
    data += 2;
    g_string_append_len(joined, data, size);
    next = data + size;
  }
  return g_string_free(joined, FALSE);
}

TEST(passes_are_sent_in_slices) {
  g_auto(Served) served = set_up_listening(5000);
  static const char lines[] = "GET /vars.json HTTP/1.%d|Host: localhost%s";
  g_autofree char *http10 = g_strdup_printf(lines, 0, ""), *http11 = g_strdup_printf(lines, 1, ""),
                  *gzip = g_strdup_printf(lines, 0, "|Accept-Encoding: gzip");
  g_autoptr(GBytes) whole = NULL, chunks = NULL, compressed = NULL;
  g_autofree char *first = request(&served, http10, &whole);
  g_assert_cmpstr(first, ==,
                  "HTTP/1.0 200 OK|" HEADERS
                  "Cache-Control: no-store|"
                  "Content-Type: application/json|Vary: Accept-Encoding");
  g_autofree char *text = g_strndup(g_bytes_get_data(whole, NULL), g_bytes_get_size(whole));
  g_assert_nonnull(strstr(text, "\"gauge4999\""));
  g_assert_true(g_str_has_suffix(text, "],\"timelines\":[]}"));
  g_autoptr(JsonParser) parser = json_parser_new();
  g_assert_true(json_parser_load_from_data(parser, text, -1, NULL));

  g_autofree char *second = request(&served, http11, &chunks);
  g_assert_nonnull(strstr(second, "|Transfer-Encoding: chunked"));
  g_autofree char *joined = join_chunks(chunks);
  g_assert_cmpstr(joined, ==, text);
  g_autofree char *third = request(&served, gzip, &compressed);
  g_assert_nonnull(strstr(third, "|Content-Encoding: gzip"));
  g_autoptr(GBytes) decompressed = decompress(compressed);
  assert_bytes(decompressed, text);
}

/* Events as they come, with what is chosen at random replaced by "...". */
static void assert_received(GSocket *socket, const char *expected) {
  g_autofree char *found = receive(socket);
  g_autoptr(GRegex) random = g_regex_new("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", 0, 0, NULL);
  g_autofree char *text = g_regex_replace_literal(random, found, -1, 0, "...", 0, NULL);
  g_assert_cmpstr(text, ==, expected);
}

#define EVENT(size, pass) \
  size "\r\nid: " pass "\ndata: {\"pass\": " pass ", \"start\": \"...\"}\n\n\r\n"

TEST(each_pass_is_an_event) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSocket) first = send_to(&served, "/events");
  g_autofree char *headers = receive(first);
  g_assert_cmpstr(headers, ==, "");
  pass(&served, 1);
  assert_received(first, EVENT("4a", "2"));
  g_autoptr(GSocket) second = send_to(&served, "/events");
  assert_received(second, "");
  for (int i = 3; i < 10; i++)
    pass(&served, 1);
  assert_received(first, EVENT("4a", "9"));
  assert_received(second, EVENT("4a", "9"));
  pass(&served, 1);
  assert_received(second, EVENT("4c", "10"));
}

TEST(comments_keep_a_stream_open) {
  g_auto(Served) served = set_up_listening(1);
  g_assert_cmpuint(interval, ==, 30); /* for comments */
  g_autoptr(GSocket) stream = send_to(&served, "/events");
  g_assert_cmpuint(interval, ==, 1); /* to look at the connections */
  for (int i = 0; i < 10; i++) {
    vek_testing_clock_advance(30 * G_USEC_PER_SEC);
    run_source("vekmetrics-web comments");
    run_source("vekmetrics-web connections");
  }
  assert_received(stream,
                  "3\r\n:\n\n\r\n3\r\n:\n\n\r\n3\r\n:\n\n\r\n3\r\n:\n\n\r\n3\r\n:\n\n\r\n"
                  "3\r\n:\n\n\r\n3\r\n:\n\n\r\n3\r\n:\n\n\r\n3\r\n:\n\n\r\n3\r\n:\n\n\r\n");
  g_assert_false(has_ended(stream));
  vek_testing_clock_advance(120 * G_USEC_PER_SEC);
  run_source("vekmetrics-web connections");
  g_assert_true(has_ended(stream));
}

TEST(fifty_streams_are_kept_open) {
  g_auto(Served) served = set_up_listening(1);
  guint n_open = count_open_files();
  g_autoptr(GPtrArray) streams = g_ptr_array_new_with_free_func(g_object_unref);
  for (int i = 0; i < 60; i++)
    g_ptr_array_add(streams, send_to(&served, "/events"));
  for (guint i = 0; i < streams->len; i++)
    g_free(receive(streams->pdata[i]));
  for (guint i = 0; i < streams->len; i++)
    g_assert_cmpint(has_ended(streams->pdata[i]), ==, i < 10);
  pass(&served, 1);
  assert_received(streams->pdata[10], EVENT("4a", "2"));
  assert_received(streams->pdata[59], EVENT("4a", "2"));
  while (count_open_files() > n_open + 60 + 50 + 1) /* of clients, server and GLib's own thread */
    g_main_context_iteration(NULL, TRUE);
}

TEST(stream_ends_with_its_client) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GPtrArray) streams = g_ptr_array_new_with_free_func(g_object_unref);
  for (int i = 0; i < 50; i++)
    g_ptr_array_add(streams, send_to(&served, "/events"));
  g_ptr_array_set_size(streams, 40);
  for (int i = 0; i < 2; i++)
    run_source("vekmetrics-web comments");
  for (int i = 0; i < 10; i++)
    g_ptr_array_add(streams, send_to(&served, "/events"));
  for (guint i = 0; i < streams->len; i++) {
    g_free(receive(streams->pdata[i]));
    g_assert_false(has_ended(streams->pdata[i]));
  }
}

/* Listens on a Unix socket, because a system buffers only so much there. Returns the folder. */
static char *listen_in_folder(Served *served, GSocketAddress **address) {
  char *folder = g_dir_make_tmp(NULL, NULL);
  g_autofree char *path = g_build_filename(folder, "metrics", NULL);
  g_assert_true(vek_web_server_listen_unix(served->server, path, NULL));
  *address = g_unix_socket_address_new(path);
  return folder;
}

static void remove_folder(Served *served, const char *folder) {
  g_clear_object(&served->server); /* which removes its socket */
  served->server = vek_web_server_new(served->reporter);
  g_assert_cmpint(g_rmdir(folder), ==, 0);
}

/* What has come, and what comes as soon as that is read. */
static char *receive_all(GSocket *socket) {
  GString *text = g_string_new(NULL);
  for (gsize n_before = 1; text->len != n_before;) {
    n_before = text->len;
    g_autofree char *more = receive(socket);
    g_string_append(text, more);
  }
  return g_string_free(text, FALSE);
}

TEST(client_that_does_not_read_gets_the_last_event_only) {
  g_auto(Served) served = set_up();
  g_autoptr(GSocketAddress) address = NULL;
  g_autofree char *folder = listen_in_folder(&served, &address);
  g_autoptr(GSocket) stream = connect_to_address(address);
  send_request(stream, "/events");
  settle();
  for (int i = 0; i < 20000; i++) {
    pass(&served, 0);
    settle();
  }
  run_source("vekmetrics-web comments");
  g_autofree char *text = receive_all(stream);
  g_assert_nonnull(strstr(text, "\nid: 1\n"));
  g_assert_nonnull(strstr(text, "\nid: 20000\n"));
  g_assert_null(strstr(text, "\nid: 19999\n"));
  g_assert_null(strstr(text, "\n:\n")); /* nor a comment */
  remove_folder(&served, folder);
}

TEST(client_that_does_not_read_keeps_nobody_waiting) {
  g_auto(Served) served = set_up();
  pass(&served, 20000);
  g_autoptr(GSocketAddress) address = NULL;
  g_autofree char *folder = listen_in_folder(&served, &address);
  g_autoptr(GSocket) silent = connect_to_address(address);
  gsize used = heap_get_used();
  send_request(silent, "/vars.json");
  settle();
  g_assert_cmpuint(heap_get_used(), <, used + 1000000); /* of some two megabytes */
  g_autoptr(GByteArray) answer = ask(address, "GET /vars.json HTTP/1.0\r\nHost: localhost\r\n\r\n");
  g_assert_true(g_str_has_suffix((char *)answer->data, "\"timelines\":[]}"));

  g_autofree char *late = receive_all(silent);
  g_assert_nonnull(strstr(late, "\"gauge19999\""));
  remove_folder(&served, folder);
}

static void assert_source(const char *purpose, gboolean is_there) {
  g_autofree char *name = g_strconcat("vekmetrics-web ", purpose, NULL);
  g_assert_cmpint(find_source(name) != NULL, ==, is_there);
}

TEST(end_of_the_server_ends_what_it_sends) {
  Served served = set_up_listening(5000);
  g_autoptr(GSocket) events = send_to(&served, "/events"), passes = connect_to(&served);
  g_free(receive(events));
  send_request(passes, "/vars.json");
  char byte;
  while (g_socket_receive_with_blocking(passes, &byte, 1, FALSE, NULL, NULL) != 1)
    g_main_context_iteration(NULL, TRUE);
  static const char *const names[] = {"listener", "connections", "feeds", "comments", "pass"};
  for (gsize i = 0; i < G_N_ELEMENTS(names); i++)
    assert_source(names[i], TRUE);
  g_object_unref(served.server);
  g_assert_true(has_ended(events));
  while (g_socket_receive(passes, &byte, 1, NULL, NULL) == 1) {
  }
  pass(&served, 1);
  g_object_unref(served.reporter);
  settle();
  for (gsize i = 0; i < G_N_ELEMENTS(names); i++)
    assert_source(names[i], FALSE);
}

TEST(page_is_not_served_at_the_paths_of_other_servers) {
  Served served = set_up_listening(1);
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  vek_web_server_attach(served.server, soup_server, "/");
  static const struct {
    const char *path, *status;
  } rows[] = {
      {"/", "HTTP/1.1 200 "}, {"/vars.json", "HTTP/1.1 404 "}, {"/page.css", "HTTP/1.1 404 "}};
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autofree char *lines = g_strdup_printf(
        "GET %s HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n", rows[i].path);
    g_autoptr(GByteArray) answer = ask(address, lines);
    g_assert_true(g_str_has_prefix((char *)answer->data, rows[i].status));
    g_assert_null(strstr((char *)answer->data, "<!DOCTYPE"));
  }
  tear_down(&served);
}
