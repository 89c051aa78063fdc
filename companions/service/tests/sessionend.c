/* Tests of how a session ends: finished, by a signal, or released. */

#include <vekmetrics-service/vekmetrics-service.h>

#include <signal.h>
#include <unistd.h>

#include "support/fixture.h"
#include "support/heap.h"
#include "support/periodicpass.h"
#include "support/sessionfixture.h"
#include "support/sessiontimer.h"
#include "support/slowreporter.h"

TEST(last_pass_reaches_all_and_the_session_is_over) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 10);
  count("requests");
  VekMetricReporter *reporter = fixture.reporter;
  g_assert_true(vek_service_session_finish(session, 1000));
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  g_assert_null(g_main_context_find_source_by_id(NULL, timer_id));

  /* The registry lives on, without the session. */
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "");

  vek_service_session_add_reporter(session, g_object_ref(reporter));
  assert_refused("vek_service_session_add_reporter", "!session_is_over");
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_over(session)");
  g_assert_false(vek_service_session_remove_reporter(session, reporter));
  g_assert_true(vek_service_session_finish(session, 1000));
  assert_recorded(fixture.record, "");
}

TEST(registry_can_have_another_session_after_the_first) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_finish(session, 1000);
  g_string_truncate(fixture.record, 0);
  g_object_unref(session);
  session = vek_service_session_new(fixture.registry);
  add_b(session);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "b flush\n");
}

TEST(session_that_is_over_leaves_its_successor_alone) {
  g_autoptr(VekServiceSession) first = session_new();
  g_assert_true(vek_service_session_finish(first, 0));
  g_string_truncate(fixture.record, 0);
  g_autoptr(VekServiceSession) second = session_new();
  vek_service_session_add_reporter(first, record_to(fixture.record, "b"));
  assert_refused("vek_service_session_add_reporter", "!session_is_over");
  g_assert_false(vek_service_session_remove_reporter(first, fixture.reporter));
  vek_service_session_report(second);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(session_that_is_let_go_of_ends_silently) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 10);
  VekMetricReporter *reporter = fixture.reporter;
  g_clear_object(&session);
  assert_recorded(fixture.record, "");
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  g_assert_null(g_main_context_find_source_by_id(NULL, timer_id));
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "");
}

static void finish_a_new_session(void) {
  fixture_reset();
  g_autoptr(VekServiceSession) session = session_new();
  g_assert_true(vek_service_session_finish(session, 0));
}

TEST(finished_sessions_leave_nothing_behind) {
  assert_frees_all(finish_a_new_session);
}

TEST(disposed_session_is_over) {
  VekMetricRegistry *registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  g_object_add_weak_pointer(G_OBJECT(registry), (gpointer *)&registry);
  g_object_unref(registry);
  g_assert_nonnull(registry);
  run_dispose(session);
  g_assert_null(registry);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_over(session)");
  g_assert_false(vek_service_session_finish(session, 60000));
}

static void on_let_go_of_session(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  g_object_unref(data);
}

TEST(session_that_is_let_go_of_in_a_pass_sees_its_end) {
  VekServiceSession *session = session_new();
  count("requests");
  on_recorded(fixture.reporter, on_let_go_of_session, session);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "");
}

TEST(registry_can_go_with_a_session_that_is_let_go_of_in_its_pass) {
  VekMetricRegistry *registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_object_add_weak_pointer(G_OBJECT(registry), (gpointer *)&registry);
  VekServiceSession *session = vek_service_session_new(registry);
  g_object_unref(registry);
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  on_recorded(fixture.reporter, on_let_go_of_session, session);
  run_periodic_pass(registry);
  assert_recorded(fixture.record, "a flush\n");
  while (g_main_context_iteration(NULL, FALSE))
    ;
  g_assert_null(registry);
}

static gboolean on_terminate_oneself(gpointer record) {
  g_string_append(record, "SIGTERM\n");
  kill(getpid(), SIGTERM);
  return G_SOURCE_REMOVE;
}

/* Sent before the wait begins, both signals would end the loop. */
static gboolean on_interrupt_the_wait(gpointer data) {
  SlowReporter *slow = data;
  if (slow->n_flushes == 0)
    return G_SOURCE_CONTINUE;
  kill(getpid(), SIGINT);
  return G_SOURCE_REMOVE;
}

TEST(signal_ends_the_loop_and_another_the_wait) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  g_idle_add(on_terminate_oneself, fixture.record);
  g_assert_true(vek_service_session_run(session, loop, 60000));
  assert_recorded(fixture.record, "SIGTERM\na flush\n");

  g_object_unref(session);
  session = vek_service_session_new(fixture.registry);
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  g_idle_add(on_terminate_oneself, fixture.record);
  g_timeout_add(1, on_interrupt_the_wait, slow);
  g_assert_false(vek_service_session_run(session, loop, 60000));
  g_assert_cmpuint(slow->n_flushes, ==, 1);
  assert_recorded(fixture.record, "SIGTERM\n");

  static const int signals[] = {SIGINT, SIGTERM};
  for (guint i = 0; i < G_N_ELEMENTS(signals); i++) {
    struct sigaction action;
    g_assert_cmpint(sigaction(signals[i], NULL, &action), ==, 0);
    g_assert_true(action.sa_handler == SIG_DFL);
  }
}
