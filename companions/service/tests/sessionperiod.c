/* Tests of the period of a session, and of its timer. */

#include <vekmetrics-service/vekmetrics-service.h>

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "support/sessionfixture.h"
#include "support/sessiontimer.h"

TEST(period_sets_passes_between_those_of_the_registry) {
  g_autoptr(VekServiceSession) session = session_new();
  guint period = 0;
  g_object_get(session, "period", &period, NULL);
  g_assert_cmpuint(period, ==, 60);

  set_period(session, 10);
  g_assert_cmpuint(timer_seconds, ==, 10);
  vek_testing_clock_advance(10 * G_USEC_PER_SEC);
  fire_timer();
  assert_recorded(fixture.record, "a flush\n");
  g_assert_cmpuint(timer_seconds, ==, 10);

  /* A pass of the registry starts it anew. */
  vek_testing_clock_advance(7 * G_USEC_PER_SEC);
  guint before = timer_id;
  run_periodic_pass(fixture.registry);
  g_assert_cmpuint(timer_id, !=, before);
  g_assert_cmpuint(timer_seconds, ==, 10);
  g_assert_null(g_main_context_find_source_by_id(NULL, before));
}

TEST(period_of_the_construction_begins_with_it) {
  vek_testing_clock_advance(1000 * G_USEC_PER_SEC);
  timer_id = 0;
  g_autoptr(VekServiceSession) session =
      g_object_new(VEK_SERVICE_TYPE_SESSION, "period", 10, "registry", fixture.registry, NULL);
  g_assert_cmpuint(timer_id, !=, 0);
  g_assert_cmpuint(timer_seconds, ==, 10);
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  fire_timer();
  assert_recorded(fixture.record, "a flush\n");

  /* One that has no registry has no timer. */
  timer_id = 0;
  g_autoptr(VekServiceSession) other =
      g_object_new(VEK_SERVICE_TYPE_SESSION, "period", 10, "registry", fixture.registry, NULL);
  g_assert_cmpuint(timer_id, ==, 0);
}

static void spend_a_microsecond(gboolean monotonic) {
  if (monotonic)
    vek_testing_clock_advance(1);
}

TEST(timer_is_of_the_whole_period_while_time_passes) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 1);
  vek_testing_clock_set_hook(spend_a_microsecond);
  fire_timer();
  vek_testing_clock_set_hook(NULL);
  g_assert_cmpuint(timer_seconds, ==, 1);
}

TEST(new_period_counts_from_the_last_pass) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_testing_clock_advance(5 * G_USEC_PER_SEC);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
  vek_testing_clock_advance(7 * G_USEC_PER_SEC);
  set_period(session, 10);
  g_assert_cmpuint(timer_seconds, ==, 3);
  set_period(session, 5);
  g_assert_cmpuint(timer_seconds, ==, 0);
  guint before = timer_id;
  set_period(session, 60);
  g_assert_cmpuint(timer_id, ==, 0);
  g_assert_null(g_main_context_find_source_by_id(NULL, before));
}

static VekServiceSession *ending;

static void finish_session(void) {
  vek_service_session_finish(ending, 60000);
  assert_recorded(fixture.record, "a flush\n");
}

static void let_go_of_session(void) {
  g_clear_object(&ending);
}

TEST(timer_that_fires_while_the_session_ends_does_nothing) {
  static void (*const ends[])(void) = {finish_session, let_go_of_session};
  for (guint i = 0; i < G_N_ELEMENTS(ends); i++) {
    ending = session_new();
    set_period(ending, 10);
    meanwhile = ends[i];
    fire_timer();
    meanwhile = NULL;
    assert_recorded(fixture.record, "");
    g_clear_object(&ending);
  }
}

static void on_fire_timer(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  fire_timer();
}

TEST(timer_that_fires_within_a_pass_does_nothing) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 10);
  on_recorded(fixture.reporter, on_fire_timer, session);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
}

static void on_notify(GObject *session, GParamSpec *pspec, gpointer data) {
  (void)session, (void)pspec;
  ++*(guint *)data;
}

static void set_and_get_period(guint thread, gpointer session) {
  guint period = 0;
  g_object_set(session, "period", 10 + thread, NULL);
  g_object_get(session, "period", &period, NULL);
  g_assert_cmpuint(period, >=, 10);
  g_assert_cmpuint(period, <, 12);
}

static void do_nothing(gpointer data) {
  (void)data;
}

TEST(threads_set_the_period_one_at_a_time) {
  g_autoptr(VekServiceSession) session = session_new();
  run_threads(2, set_and_get_period, do_nothing, session);
  guint period = 0;
  g_object_get(session, "period", &period, NULL);
  g_assert_cmpuint(timer_seconds, ==, period);
}

TEST(period_is_notified) {
  g_autoptr(VekServiceSession) session = session_new();
  guint n_notified = 0;
  g_signal_connect(session, "notify::period", G_CALLBACK(on_notify), &n_notified);
  g_object_set(session, "period", 30, NULL);
  g_assert_cmpuint(n_notified, ==, 1);
}

TEST(period_below_a_second_or_beyond_a_minute_is_refused) {
  g_autoptr(VekServiceSession) session = session_new();
  static const guint refused[] = {0, 61};
  for (guint i = 0; i < G_N_ELEMENTS(refused); i++) {
    guint period = 0;
    set_period(session, refused[i]);
    assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, "value * is invalid or out of range *");
    g_object_get(session, "period", &period, NULL);
    g_assert_cmpuint(period, ==, 60);
    g_assert_cmpuint(timer_id, ==, 0);
  }
}
