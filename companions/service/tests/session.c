/* Tests of the reporters and passes of a session, and of what it refuses. */

#include <vekmetrics-service/vekmetrics-service.h>

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "support/sessionfixture.h"
#include "support/slowreporter.h"

TEST(every_reporter_sees_the_same_pass) {
  g_autoptr(VekServiceSession) session = session_new();
  add_b(session);
  g_autoptr(VekMetricTimeline) timeline =
      vek_metric_registry_timeline_new(fixture.registry, "render");
  vek_metric_timeline_add_range(timeline, 1, 2, 3);

  vek_service_session_report(session);
  assert_recorded(fixture.record,
                  "a timeline render [1:2..3]\nb timeline render [1:2..3]\na flush\nb flush\n");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a timeline render []\nb timeline render []\na flush\nb flush\n");
}

TEST(every_operation_is_handed_on) {
  g_autoptr(VekServiceSession) session = session_new();
  char *dimensions[] = {(char *)"host", (char *)"h1", NULL};
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "c", "Count", dimensions);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count c{host=h1} 0 Count @1000\na flush\n");
  vek_metric_mark_inactive(VEK_METRIC(counter));

  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "g", NULL, 0, NULL);
  vek_metric_gauge_set_value(gauge, 0.25);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a value g 0.25 @1000\na flush\n");
  vek_metric_mark_inactive(VEK_METRIC(gauge));

  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(fixture.registry, "h", NULL, NULL, NULL);
  vek_metric_histogram_set(histogram, 4.0);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a aggregated h n=1 sum=4 min=4 max=4 @1000\na flush\n");
}

TEST(reporter_without_operations_is_passed_over) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(0);
  add_slow(session, slow);
  count("requests");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_cmpuint(slow->n_flushes, ==, 1);
}

TEST(adding_a_reporter_twice_changes_nothing) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  g_assert_cmpuint(G_OBJECT(fixture.reporter)->ref_count, ==, 2);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(removing_tells_whether_it_was_there) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricReporter *reporter = fixture.reporter;
  g_assert_true(vek_service_session_remove_reporter(session, reporter));
  g_assert_false(vek_service_session_remove_reporter(session, reporter));
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "");
}

static void on_add_b(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  add_b(data);
}

TEST(reporter_added_in_a_pass_sees_the_next) {
  g_autoptr(VekServiceSession) session = session_new();
  on_recorded(fixture.reporter, on_add_b, session);
  count("requests");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  vek_service_session_report(session);
  assert_recorded(fixture.record,
                  "a count requests 1 @1000\nb count requests 1 @1000\na flush\nb flush\n");
}

static void on_remove(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  VekServiceSession *session = data;
  g_assert_true(vek_service_session_remove_reporter(session, VEK_METRIC_REPORTER(reporter)));
}

TEST(reporter_removed_in_a_pass_sees_its_end) {
  g_autoptr(VekServiceSession) session = session_new();
  on_recorded(fixture.reporter, on_remove, session);
  count("requests");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "");
}

static void call_back(gpointer data) {
  VekServiceSession *session = data;
  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_in_pass(session)");
  g_assert_false(vek_service_session_finish(session, 0));
  assert_refused("vek_service_session_finish", "!session_is_in_pass(session)");
  vek_service_session_finish_async(session, 0, NULL, NULL, NULL);
  assert_refused("vek_service_session_finish_async", "!session_is_in_pass(session)");
  g_assert_false(vek_service_session_run(session, loop, 0));
  assert_refused("vek_service_session_run", "!session_is_in_pass(session)");
}

static void on_call_back(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  call_back(data);
}

TEST(nothing_is_reported_or_finished_within_a_pass) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricReporter *reporter = fixture.reporter;
  on_recorded(reporter, on_call_back, session);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");

  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  on_recorded(reporter, on_call_back, session);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 0 @1000\na flush\n");
}

TEST(nothing_is_reported_or_finished_within_a_flush_at_the_end) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  slow->on_last_flush = call_back;
  slow->data = session;
  add_slow(session, slow);
  g_assert_true(vek_service_session_finish(session, 60000));
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  assert_recorded(fixture.record, "a flush\n");
}

static gpointer report_elsewhere(gpointer session) {
  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "main_context.is_owned");
  g_assert_false(vek_service_session_finish(session, 0));
  assert_refused("vek_service_session_finish", "main_context.is_owned");
  vek_service_session_finish_async(session, 0, NULL, NULL, NULL);
  assert_refused("vek_service_session_finish_async", "main_context.is_owned");
  g_assert_false(vek_service_session_run(session, loop, 0));
  assert_refused("vek_service_session_run", "main_context.is_owned");
  return NULL;
}

TEST(main_context_is_free_after_each_call) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_report(session);
  g_assert_false(g_main_context_is_owner(NULL));
  g_assert_true(vek_service_session_finish(session, 0));
  g_assert_false(g_main_context_is_owner(NULL));
}

TEST(nothing_is_reported_or_finished_on_another_thread) {
  g_autoptr(VekServiceSession) session = session_new();
  g_assert_true(g_main_context_acquire(NULL));
  g_thread_join(g_thread_new("elsewhere", report_elsewhere, session));
  g_main_context_release(NULL);
  assert_recorded(fixture.record, "");
}

TEST(registry_has_one_session) {
  g_autoptr(VekServiceSession) session = session_new();
  g_assert_null(vek_service_session_new(fixture.registry));
  assert_refused("vek_service_session_new", "!registry_has_session");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(second_session_of_a_registry_is_over) {
  g_autoptr(VekServiceSession) first = session_new();
  g_autoptr(VekServiceSession) session =
      g_object_new(VEK_SERVICE_TYPE_SESSION, "registry", fixture.registry, NULL);
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  assert_refused("vek_service_session_add_reporter", "!session_is_over");
  g_assert_false(vek_service_session_remove_reporter(session, fixture.reporter));
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_over(session)");
  g_assert_false(vek_service_session_finish(session, 60000));
  assert_recorded(fixture.record, "");
}

TEST(unknown_property_warns) {
  g_autoptr(VekServiceSession) session = session_new();
  assert_unknown_property_warns_in("VEK:service", session);
}

TEST(failed_checks_name_their_own_function) {
  g_autoptr(VekServiceSession) session = session_new();
  gpointer wrong = fixture.registry;
  g_assert_null(vek_service_session_new((VekMetricRegistry *)session));
  assert_refused("vek_service_session_new", "registry == NULL || VEK_IS_METRIC_REGISTRY(registry)");

  vek_service_session_add_reporter(session, NULL);
  assert_refused("vek_service_session_add_reporter", "VEK_IS_METRIC_REPORTER(reporter)");
  vek_service_session_add_reporter(session, wrong);
  assert_refused("vek_service_session_add_reporter", "VEK_IS_METRIC_REPORTER(reporter)");
  vek_service_session_add_reporter(wrong, g_object_ref(fixture.reporter));
  assert_refused("vek_service_session_add_reporter", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_cmpuint(G_OBJECT(fixture.reporter)->ref_count, ==, 2);

  g_assert_false(vek_service_session_remove_reporter(wrong, fixture.reporter));
  assert_refused("vek_service_session_remove_reporter", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_false(vek_service_session_remove_reporter(session, wrong));
  assert_refused("vek_service_session_remove_reporter", "VEK_IS_METRIC_REPORTER(reporter)");

  vek_service_session_report(NULL);
  assert_refused("vek_service_session_report", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_false(vek_service_session_finish(wrong, 0));
  assert_refused("vek_service_session_finish", "VEK_SERVICE_IS_SESSION(session)");
  vek_service_session_finish_async(wrong, 0, NULL, NULL, NULL);
  assert_refused("vek_service_session_finish_async", "VEK_SERVICE_IS_SESSION(session)");
  vek_service_session_finish_async(session, 0, wrong, NULL, NULL);
  assert_refused("vek_service_session_finish_async",
                 "cancellable == NULL || G_IS_CANCELLABLE(cancellable)");
  g_assert_false(vek_service_session_finish_finish(session, NULL, NULL));
  assert_refused("vek_service_session_finish_finish", "g_task_is_valid(result, session)");
  g_assert_false(vek_service_session_run(wrong, NULL, 0));
  assert_refused("vek_service_session_run", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_false(vek_service_session_run(session, NULL, 0));
  assert_refused("vek_service_session_run", "loop != NULL");
  g_autoptr(GMainContext) context = g_main_context_new();
  g_autoptr(GMainLoop) loop = g_main_loop_new(context, FALSE);
  g_assert_false(vek_service_session_run(session, loop, 0));
  assert_refused("vek_service_session_run",
                 "g_main_loop_get_context(loop) == g_main_context_default()");
  g_assert_false(vek_service_drain_is_busy(wrong));
  assert_refused("vek_service_drain_is_busy", "VEK_SERVICE_IS_DRAIN(drain)");
}

TEST(default_registry_is_meant_by_null) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(NULL);
  g_autoptr(VekMetricRegistry) registry = NULL;
  g_object_get(session, "registry", &registry, NULL);
  g_assert_true(registry == vek_metric_registry_get_default());
  vek_metric_registry_set_default(NULL);
}
