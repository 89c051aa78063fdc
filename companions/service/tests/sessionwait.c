/* Tests of what a session waits for at its end, and of what ends the wait. */

#include <vekmetrics-service/vekmetrics-service.h>

#include <string.h>

#include "support/fixture.h"
#include "support/folder.h"
#include "support/sessionfixture.h"
#include "support/sessiontimer.h"
#include "support/slowreporter.h"
#include "support/tsan-tasks.h"

/* Programs are compiled with it. */
TEST(drain_is_laid_out_as_promised) {
  g_assert_cmpuint(G_STRUCT_OFFSET(VekServiceDrainInterface, is_busy), ==, sizeof(GTypeInterface));
  g_assert_cmpuint(sizeof(VekServiceDrainInterface), ==, sizeof(GTypeInterface) + sizeof(gpointer));
}

TEST(finish_waits_for_what_is_under_way) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(3);
  add_slow(session, slow);
  g_assert_true(vek_service_session_finish(session, 60000));
  g_assert_false(slow->busy);
  g_assert_null(g_main_context_find_source_by_id(NULL, wait_timer_id));
  /* In the last pass, and whenever it had become idle. */
  g_assert_cmpuint(slow->n_flushes, ==, 4);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(finish_waits_for_each_reporter) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) first = slow_reporter_new(1);
  g_autoptr(SlowReporter) second = slow_reporter_new(2);
  second->priority = G_PRIORITY_LOW;
  add_slow(session, first);
  add_slow(session, second);
  g_assert_true(vek_service_session_finish(session, 60000));
  g_assert_false(first->busy || second->busy);
  g_assert_cmpuint(first->n_flushes, ==, 2);
  g_assert_cmpuint(second->n_flushes, ==, 3);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(finish_names_who_is_late) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  g_autoptr(SlowReporter) other = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  add_slow(session, other);
  g_assert_false(vek_service_session_finish(session, 1));
  for (int i = 0; i < 2; i++)
    assert_logged("VEK:service", G_LOG_LEVEL_WARNING, "SlowReporter was not done in time");
  g_assert_cmpuint(slow->n_flushes, ==, 1);
  g_assert_cmpuint(G_OBJECT(slow)->ref_count, ==, 1);
  g_assert_false(vek_service_session_finish(session, 60000));
}

/* In place of the main loop's poll: nothing comes while it waits but the end of this operation. */
static SlowReporter *polled;
static guint n_polls;

static gint poll_for_slow(GPollFD *fds, guint n_fds, gint timeout) {
  g_assert_cmpuint(++n_polls, <, 10);
  if (timeout != 0)
    polled->busy = FALSE;
  return g_poll(fds, n_fds, 0);
}

TEST(finish_sleeps_while_it_waits) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  vek_service_session_finish_async(session, 60000, NULL, NULL, NULL);
  slow->n_operations = 0;
  polled = slow;
  n_polls = 0;
  g_main_context_set_poll_func(NULL, poll_for_slow);
  g_assert_true(vek_service_session_finish(session, 0));
  g_main_context_set_poll_func(NULL, NULL);
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  assert_recorded(fixture.record, "a flush\n");
}

/* In place of the main loop's poll: the operation ends on a thread that does not wake it. */
static gint poll_until_late(GPollFD *fds, guint n_fds, gint timeout) {
  polled->busy = FALSE;
  return g_poll(fds, n_fds, timeout);
}

TEST(drain_that_becomes_idle_without_waking_the_loop_is_not_late) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  vek_service_session_finish_async(session, 1, NULL, NULL, NULL);
  slow->n_operations = 0;
  polled = slow;
  g_main_context_set_poll_func(NULL, poll_until_late);
  g_assert_true(vek_service_session_finish(session, 0));
  g_main_context_set_poll_func(NULL, NULL);
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  assert_recorded(fixture.record, "a flush\n");
}

static void on_finished(GObject *session, GAsyncResult *result, gpointer data) {
  g_autoptr(GError) error = NULL;
  gboolean drained =
      vek_service_session_finish_finish(VEK_SERVICE_SESSION(session), result, &error);
  g_string_append_printf(data, "%s %s\n", drained ? "drained" : "not drained",
                         error ? error->message : "-");
}

/* Runs the main loop until something is recorded, which must be these lines. */
static void await_recorded(const char *lines) {
  while (fixture.record->len == 0)
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, lines);
}

TEST(finish_async_leaves_the_loop_to_the_program) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(2);
  add_slow(session, slow);
  vek_service_session_finish_async(session, 60000, NULL, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  /* Who comes second waits, too. */
  vek_service_session_finish_async(session, 0, NULL, on_finished, fixture.record);
  g_assert_true(slow->busy);
  while (fixture.record->len < strlen("drained -\ndrained -\n"))
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, "drained -\ndrained -\n");

  vek_service_session_finish_async(session, 0, NULL, on_finished, fixture.record);
  await_recorded("drained -\n");
}

TEST(cancelling_ends_the_wait) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  g_cancellable_cancel(cancellable);
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  await_recorded("not drained Operation was cancelled\n");
  g_assert_false(vek_service_session_finish(session, 60000));
}

TEST(cancelling_ends_all_waits) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  for (int i = 0; i < 2; i++)
    vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  g_cancellable_cancel(cancellable);
  static const char *const ended =
      "not drained Operation was cancelled\nnot drained Operation was cancelled\n";
  while (fixture.record->len < strlen(ended))
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, ended);
}

TEST(each_reporter_is_released_when_it_is_done) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) busy = slow_reporter_new(G_MAXUINT);
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  add_slow(session, busy);
  add_slow(session, slow);
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  while (g_main_context_iteration(NULL, FALSE))
    ;
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  g_assert_cmpuint(G_OBJECT(slow)->ref_count, ==, 1);
  g_assert_cmpuint(G_OBJECT(busy)->ref_count, ==, 2);

  g_cancellable_cancel(cancellable);
  await_recorded("not drained Operation was cancelled\n");
}

static void cancel_and_let_the_loop_run(gpointer cancellable) {
  g_cancellable_cancel(cancellable);
  while (g_main_context_iteration(NULL, FALSE))
    ;
}

TEST(wait_may_end_within_a_flush) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  slow->on_last_flush = cancel_and_let_the_loop_run;
  slow->data = cancellable;
  add_slow(session, slow);
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  await_recorded("not drained Operation was cancelled\n");
  g_assert_false(vek_service_session_finish(session, 60000));
}

static void let_the_loop_run_until_late(gpointer slow) {
  while (G_OBJECT(slow)->ref_count > 2) /* of the test, of the flush, and of the wait */
    g_main_context_iteration(NULL, TRUE);
}

TEST(wait_may_be_too_long_within_a_flush) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  slow->priority = G_PRIORITY_HIGH;
  slow->on_last_flush = let_the_loop_run_until_late;
  slow->data = slow;
  add_slow(session, slow);
  g_assert_false(vek_service_session_finish(session, 1));
  assert_logged("VEK:service", G_LOG_LEVEL_WARNING, "SlowReporter was not done in time");
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  assert_recorded(fixture.record, "a flush\n");
}

static SlowReporter *flushed; /* weak */

static void cancel_and_stay(gpointer cancellable) {
  cancel_and_let_the_loop_run(cancellable);
  g_assert_nonnull(flushed);
}

TEST(reporter_stays_until_its_flush_returns_although_the_wait_is_over) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  flushed = slow_reporter_new(1);
  g_object_add_weak_pointer(G_OBJECT(flushed), (gpointer *)&flushed);
  flushed->on_last_flush = cancel_and_stay;
  flushed->data = cancellable;
  vek_service_session_add_reporter(session, VEK_METRIC_REPORTER(flushed));
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  await_recorded("not drained Operation was cancelled\n");
  g_assert_null(flushed);
}

TEST(cancelling_after_the_wait_does_nothing) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  add_slow(session, slow);
  GCancellable *cancellable = g_cancellable_new();
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  await_recorded("drained -\n");
  g_cancellable_cancel(cancellable);
  g_assert_false(g_main_context_iteration(NULL, FALSE));
  g_assert_finalize_object(cancellable);
}

TEST(json_log_is_complete) {
  g_autoptr(VekServiceSession) session = session_new();
  char *folder = folder_new();
  vek_service_session_add_reporter(session,
                                   vek_metric_json_log_reporter_new("log", folder, NULL, 10, 1));
  count("requests");
  g_assert_true(vek_service_session_finish(session, 60000));
  assert_folder(folder,
                "log.json: 1970-01-01 00:00:00,001000 [{\"MetricName\":\"requests\",\"Timestamp\":"
                "\"1970-01-01T00:00:00Z\",\"Value\":1.0}]\n");
  folder_remove(folder);
  g_string_truncate(fixture.record, 0);
}

TEST(held_json_log_is_waited_for_and_named) {
  g_autoptr(VekServiceSession) session = session_new();
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) held = vek_metric_json_log_reporter_new("log", folder, NULL, 10, 1);
  vek_service_session_add_reporter(session, g_object_ref(held));
  g_assert_false(vek_service_session_finish(session, 1));
  assert_logged("VEK:service", G_LOG_LEVEL_WARNING,
                "VekMetricJsonLogReporter was not done in time, or somebody else holds a reference "
                "to it");
  while (G_OBJECT(held)->ref_count > 1)
    g_main_context_iteration(NULL, TRUE);
  g_clear_object(&held);
  folder_remove(folder);
}

static gboolean on_incoming(GSocketService *service, GSocketConnection *connection, GObject *source,
                            gpointer data) {
  (void)service, (void)source;
  *(GSocketConnection **)data = g_object_ref(connection);
  return TRUE;
}

TEST(carbon_gets_what_waited_for_its_connection) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(GSocketConnection) connection = NULL;
  g_autoptr(GSocketService) service = g_socket_service_new();
  guint16 port = g_socket_listener_add_any_inet_port(G_SOCKET_LISTENER(service), NULL, NULL);
  g_assert_cmpuint(port, !=, 0);
  g_signal_connect(service, "incoming", G_CALLBACK(on_incoming), &connection);
  vek_service_session_add_reporter(session,
                                   vek_metric_carbon_reporter_new(NULL, "127.0.0.1", port));
  count("requests");
  g_assert_true(vek_service_session_finish(session, 60000));
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_INFO, "Established connection *");
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_DEBUG, "Sending message *");
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_DEBUG, "*succeeded (bytes_written: 13)");
  while (!connection)
    g_main_context_iteration(NULL, TRUE);

  char line[64] = "";
  GInputStream *input = g_io_stream_get_input_stream(G_IO_STREAM(connection));
  gsize n_read = 0;
  g_assert_true(g_input_stream_read_all(input, line, sizeof line - 1, &n_read, NULL, NULL));
  g_assert_cmpstr(line, ==, "requests 1 0\n");
}
