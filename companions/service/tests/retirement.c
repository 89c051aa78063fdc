/* Tests of the metrics of a registry with a session: which are retired, and when. */

#include <vekmetrics-service/vekmetrics-service.h>

#include "support/fixture.h"
#include "support/heap.h"
#include "support/periodicpass.h"
#include "support/sessionfixture.h"

static gboolean is_registered(const char *name) {
  g_autoptr(VekMetric) metric = vek_metric_registry_get_metric(fixture.registry, name, NULL);
  return metric && vek_metric_is_active(metric);
}

TEST(passes_of_its_own_retire_no_kind) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricRegistry *registry = fixture.registry;
  char *dimensions[] = {(char *)"host", (char *)"h1", NULL};
  g_object_unref(vek_metric_registry_counter_new(registry, "counter", NULL, NULL));
  g_object_unref(
      vek_metric_registry_gauge_new(registry, "gauge that was never set", NULL, 0, NULL));
  g_object_unref(vek_metric_registry_gauge_new(registry, "gauge of intervals", NULL, 60, NULL));
  g_object_unref(vek_metric_registry_meter_new(registry, "meter", NULL, NULL));
  g_object_unref(vek_metric_registry_histogram_new(registry, "histogram", NULL, NULL, NULL));
  g_object_unref(vek_metric_registry_timer_new(registry, "timer", "Seconds", NULL, NULL));
  g_object_unref(vek_metric_registry_timeline_new(registry, "timeline"));
  g_object_unref(vek_metric_registry_counter_new(registry, "of a host", NULL, dimensions));

  static const char *const keys[] = {
      "counter",  "gauge that was never set", "gauge of intervals", "meter", "histogram", "timer",
      "timeline", "host.h1.of a host",
  };
  vek_service_session_report(session);
  for (guint i = 0; i < G_N_ELEMENTS(keys); i++)
    g_assert_true(is_registered(keys[i]));
  run_periodic_pass(registry);
  for (guint i = 0; i < G_N_ELEMENTS(keys); i++)
    g_assert_false(is_registered(keys[i]));
}

TEST(metric_made_again_after_an_own_pass_counts_on) {
  g_autoptr(VekServiceSession) session = session_new();
  count("requests");
  vek_service_session_report(session);
  count("requests");
  g_string_truncate(fixture.record, 0);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 2 @1000\na flush\n");
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
}

TEST(retired_metric_is_gone_when_the_pass_is) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricCounter *counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  g_object_add_weak_pointer(G_OBJECT(counter), (gpointer *)&counter);
  g_object_unref(counter);
  vek_service_session_report(session);
  g_assert_nonnull(counter);
  run_periodic_pass(fixture.registry);
  g_assert_null(counter);
}

static void on_count_and_let_go(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  VekMetricCounter *counter = data;
  vek_metric_counter_inc(counter);
  g_object_unref(counter);
}

TEST(what_is_counted_after_the_report_is_reported_next) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricCounter *counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  on_recorded(fixture.reporter, on_count_and_let_go, counter);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 0 @1000\na flush\n");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a flush\n");
}

/* What a constructor does first; then it waits for the end of the pass. */
static void on_ask(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  *(VekMetric **)data = g_object_new(VEK_TYPE_METRIC_COUNTER, "name", "requests", NULL);
}

TEST(metric_that_is_asked_for_in_a_pass_is_not_retired) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(VekMetric) asking = NULL;
  count("requests");
  on_recorded(fixture.reporter, on_ask, &asking);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_true(is_registered("requests"));

  g_clear_object(&asking);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_false(is_registered("requests"));
}

/* Two constructors ask for each of two metrics, and one of them is done at once. */
static void on_ask_twice(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  VekMetric **asking = data;
  for (int i = 0; i < 2; i++) {
    const char *name = i == 0 ? "requests" : "queries";
    asking[i] = g_object_new(VEK_TYPE_METRIC_COUNTER, "name", name, NULL);
    g_object_unref(g_object_new(VEK_TYPE_METRIC_COUNTER, "name", name, NULL));
  }
}

TEST(metrics_are_not_retired_while_anybody_asks_for_them) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetric *asking[2];
  count("requests");
  count("queries");
  on_recorded(fixture.reporter, on_ask_twice, asking);
  run_periodic_pass(fixture.registry);
  g_assert_true(is_registered("requests"));
  g_assert_true(is_registered("queries"));

  g_object_unref(asking[0]);
  g_object_unref(asking[1]);
  run_periodic_pass(fixture.registry);
  g_assert_false(is_registered("requests"));
  g_assert_false(is_registered("queries"));
  g_string_truncate(fixture.record, 0);
}

typedef struct {
  const char *name;
  char *dimensions[3];
  VekMetric *asking;
} Question;

static void on_ask_for_another(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  Question *question = data;
  question->asking = g_object_new(VEK_TYPE_METRIC_COUNTER, "name", question->name, "dimensions",
                                  question->dimensions, NULL);
}

TEST(metric_is_retired_though_another_is_asked_for) {
  Question questions[] = {
      {"requests", {"host", "h2", NULL}, NULL},
      {"queries", {"host", "h1", NULL}, NULL},
      {"quests", {"host", "h1re", NULL}, NULL},
  };
  for (guint i = 0; i < G_N_ELEMENTS(questions); i++) {
    fixture_reset();
    g_autoptr(VekServiceSession) session = session_new();
    char *dimensions[] = {(char *)"host", (char *)"h1", NULL};
    g_object_unref(vek_metric_registry_counter_new(fixture.registry, "requests", NULL, dimensions));
    on_recorded(fixture.reporter, on_ask_for_another, &questions[i]);
    run_periodic_pass(fixture.registry);
    assert_recorded(fixture.record, "a count requests{host=h1} 0 @1000\na flush\n");
    g_assert_null(vek_metric_registry_get_metric(fixture.registry, "requests", dimensions));
    g_object_unref(questions[i].asking);
  }
}

static void report_a_new_metric(void) {
  static guint n_metrics;
  g_autofree char *name = g_strdup_printf("metric-%u", n_metrics++);
  count(name);
  run_periodic_pass(fixture.registry);
  g_string_truncate(fixture.record, 0);
}

TEST(metrics_that_are_retired_leave_nothing_behind) {
  g_autoptr(VekServiceSession) session = session_new();
  assert_frees_all(report_a_new_metric);
}

TEST(metric_that_is_asked_for_once_it_is_retired_comes_back) {
  /* Registered first, it is flushed last. */
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) last = record_to(record, "last");
  vek_metric_registry_register_reporter(registry, last);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  g_autoptr(VekMetric) asking = NULL;
  /* A gauge that was never set: it reports nothing, and the flush is the only call. */
  g_object_unref(vek_metric_registry_gauge_new(registry, "requests", NULL, 0, NULL));

  on_recorded(last, on_ask, &asking);
  run_periodic_pass(registry);
  assert_recorded(record, "last flush\n");
  g_autoptr(VekMetric) found = vek_metric_registry_get_metric(registry, "requests", NULL);
  g_assert_nonnull(found);
  g_assert_true(vek_metric_is_active(found));
}

TEST(metric_that_the_program_retires_stays_retired) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  vek_metric_mark_inactive(VEK_METRIC(counter));
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
  count("requests");
  g_assert_false(vek_metric_is_active(VEK_METRIC(counter)));
}

TEST(metrics_are_made_while_nothing_has_a_session) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  g_clear_object(&session);
  g_clear_object(&registry);
  count("requests");
  g_assert_true(is_registered("requests"));
}

TEST(metric_that_was_disposed_is_retired) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricCounter *metric =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  g_object_run_dispose(G_OBJECT(metric));
  g_object_unref(metric);
  run_periodic_pass(fixture.registry);
  g_assert_false(is_registered("requests"));
  assert_recorded(fixture.record, "a count (null) 0 @1000\na flush\n");
}

TEST(metric_without_a_name_is_made) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(VekMetric) metric = g_object_new(VEK_TYPE_METRIC_COUNTER, NULL);
  g_assert_null(vek_metric_get_name(metric));
}
