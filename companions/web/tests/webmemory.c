/* Tests of the memory that a VekWebServer takes, and gives back. A sanitizer keeps the heap, and
 * finds nothing here. */

#include <string.h>

#include "served.h"
#include "support/heap.h"
#include "support/tsan-tasks.h"

enum { N_METRICS = 100 };

static void bring_gauges(Served *served) {
  for (int i = 0; i < N_METRICS; i++) {
    g_autofree char *name = g_strdup_printf("gauge%d", i);
    bring(served, name, NULL, NULL, i);
  }
}

/* Bytes that the gauges take with so many passes. */
static gsize measure(guint history) {
  Served served = set_up();
  g_object_set(served.server, "history", history, NULL);
  gsize before = 0;
  for (guint pass = 0; pass < 2 * history; pass++) {
    bring_gauges(&served);
    end_pass(&served);
    if (pass == 0)
      before = heap_get_used();
  }
  gsize used = heap_get_used() - before;
  tear_down(&served);
  return used;
}

TEST(figure_takes_8_bytes_a_pass) {
  if (heap_get_used() == 0) {
    g_test_skip("a sanitizer keeps the heap");
    return;
  }
  measure(240); /* what is allocated once */
  gsize used = measure(480) - measure(240);
  g_assert_cmpuint(used, >=, 240 * N_METRICS * 8);
  g_assert_cmpuint(used, <, 240 * N_METRICS * 8 + 10000);
}

TEST(metric_takes_no_room_for_passes_that_were_before_it) {
  g_auto(Served) served = set_up();
  for (int pass = 0; pass < 240; pass++)
    end_pass(&served);
  gsize used = heap_get_used();
  bring_gauges(&served);
  g_assert_cmpuint(heap_get_used(), <, used + N_METRICS * 1000);
}

TEST(shorter_history_gives_memory_back) {
  g_auto(Served) served = set_up();
  for (int pass = 0; pass < 240; pass++) {
    bring_gauges(&served);
    end_pass(&served);
  }
  gsize used = heap_get_used();
  if (used == 0) {
    g_test_skip("a sanitizer keeps the heap");
    return;
  }
  g_object_set(served.server, "history", 120, NULL);
  g_assert_cmpuint(heap_get_used() + N_METRICS * 120 * 8, <, used + 1000);
}

TEST(end_of_the_server_gives_its_passes_back) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  gsize used = 0;
  for (int round = 0; round < 2; round++) {
    Served served = {reporter, vek_web_server_new(reporter)};
    for (int pass = 0; pass < 10; pass++) {
      bring_gauges(&served);
      end_pass(&served);
    }
    g_object_unref(served.server);
    if (round == 0)
      used = heap_get_used();
  }
  g_assert_cmpuint(heap_get_used(), <, used + 1000);
}

TEST(ranges_are_bounded_and_go_with_their_pass) {
  g_auto(Served) served = set_up();
  g_object_set(served.server, "history", 2, NULL);
  GSList *ranges = NULL;
  VekMetricRange range = {1, 2, 3};
  for (int i = 0; i < 20000; i++)
    ranges = g_slist_prepend(ranges, &range);
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(served.reporter);
  gsize used = heap_get_used();
  for (int i = 0; i < 5; i++)
    VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_timeline_samples(reporter, "x", ranges);
  g_assert_cmpuint(heap_get_used(), <, used + 20000 * sizeof range + 1000);
  for (int i = 0; i < 3; i++)
    end_pass(&served);
  g_assert_cmpuint(heap_get_used(), <, used + 10000);
  g_slist_free(ranges);
}

TEST(stream_keeps_nothing_of_what_it_has_sent) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSocket) stream = send_to(&served, "/events");
  gsize used = 0;
  for (int i = 0; i < 1000; i++) {
    if (i == 100)
      used = heap_get_used();
    pass(&served, 1);
    g_free(receive(stream));
  }
  g_assert_cmpuint(heap_get_used(), <, used + 10000);
}

/* Lets the server forget connections that have ended: libsoup closes them in a thread, and the
 * server looks for closed ones each second. */
static void forget_connections(void) {
  while (find_source("vekmetrics-web connections"))
    run_source("vekmetrics-web connections");
}

/* Runs the rounds twice, because some things are allocated once. A sanitizer finds what one of them
 * leaves. */
static void assert_leaves_nothing(void (*run)(Served *served, const char *path), Served *served,
                                  const char *path) {
  int n_rounds = heap_get_used() > 0 ? 200 : 1;
  gsize used = 0;
  for (int round = 0; round < 2 * n_rounds; round++) {
    if (round == n_rounds)
      used = heap_get_used();
    run(served, path);
  }
  g_assert_cmpuint(heap_get_used(), <, used + (gsize)n_rounds * 50);
}

static void ask_for(Served *served, const char *path) {
  g_autofree char *lines = g_strdup_printf("GET %s HTTP/1.1|Host: localhost", path);
  g_free(request(served, lines, NULL));
  forget_connections();
}

TEST(answer_leaves_nothing) {
  g_auto(Served) served = set_up_listening(1);
  static const char *const paths[] = {"/metrics", "/vars.json", "/"};
  for (gsize i = 0; i < G_N_ELEMENTS(paths); i++)
    assert_leaves_nothing(ask_for, &served, paths[i]);
}

static void follow(Served *served, const char *path) {
  GSocket *stream = send_to(served, path);
  g_object_unref(stream);
  while (find_source("vekmetrics-web connections")) {
    run_source("vekmetrics-web comments"); /* which cannot be sent */
    run_source("vekmetrics-web connections");
  }
}

TEST(stream_leaves_nothing) {
  g_auto(Served) served = set_up_listening(1);
  assert_leaves_nothing(follow, &served, "/events");
}

static void serve(G_GNUC_UNUSED Served *served, const char *path) {
  g_auto(Served) another = set_up_listening(1);
  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  vek_web_server_attach(another.server, soup_server, path);
  g_autoptr(GSocket) client = connect_to(&another);
  send_request(client, path);
  while (!find_source("vekmetrics-web turn"))
    g_main_context_iteration(NULL, TRUE);
}

TEST(server_leaves_nothing) {
  assert_leaves_nothing(serve, NULL, "/metrics");
}

TEST(compressor_goes_when_its_work_is_done) {
  g_auto(Served) served = set_up_listening(1);
  gsize used = heap_get_used();
  g_free(request(&served, "GET /metrics HTTP/1.1|Host: localhost|Accept-Encoding: gzip", NULL));
  forget_connections();
  g_assert_cmpuint(heap_get_used(), <, used + 100000);
}

/* Ends a server after so many turns of its work on a text of some slices. */
static void end_within_an_answer(int n_turns) {
  g_auto(Served) served = set_up_listening(5000);
  g_autoptr(GSocket) client = connect_to(&served);
  static const char lines[] =
      "GET /metrics HTTP/1.1\r\nHost: localhost\r\nAccept-Encoding: gzip\r\n\r\n";
  g_socket_send(client, lines, strlen(lines), NULL, NULL);
  while (!find_source("vekmetrics-web turn"))
    g_main_context_iteration(NULL, TRUE);
  for (int turn = 0; turn < n_turns && find_source("vekmetrics-web turn"); turn++)
    g_main_context_iteration(NULL, TRUE);
}

TEST(end_of_the_server_gives_a_page_back) {
  end_within_an_answer(G_MAXINT); /* what is allocated once */
  gsize used = heap_get_used();
  for (int n_turns = 0; n_turns < 10; n_turns++)
    end_within_an_answer(n_turns);
  g_assert_cmpuint(heap_get_used(), <, used + 100);
}

/* Sends a body in so many parts, but for its last byte. */
static void assert_body_is_not_kept(GSocketAddress *address, guint n_parts) {
  static const char part[10000];
  g_autoptr(GSocket) client = connect_to_address(address);
  g_autofree char *head =
      g_strdup_printf("POST /metrics HTTP/1.1\r\nHost: localhost\r\nContent-Length: %zu\r\n\r\n",
                      n_parts * sizeof part + 1);
  g_socket_send(client, head, strlen(head), NULL, NULL);
  settle();
  gsize used = heap_get_used();
  for (guint i = 0; i < n_parts; i++) {
    g_assert_cmpint(g_socket_send(client, part, sizeof part, NULL, NULL), ==, sizeof part);
    settle();
  }
  g_assert_cmpuint(heap_get_used(), <, used + n_parts * sizeof part / 3);
}

TEST(body_of_a_request_is_not_kept) {
  g_auto(Served) served = set_up_listening(1);
  g_autoptr(GSocketAddress) own = get_address(&served);
  assert_body_is_not_kept(own, 6);

  g_autoptr(GSocketAddress) address = NULL;
  g_autoptr(SoupServer) soup_server = other_server_new(&address);
  vek_web_server_attach(served.server, soup_server, NULL);
  assert_body_is_not_kept(address, 300);
}
