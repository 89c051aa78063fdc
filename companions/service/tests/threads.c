/* Sessions and reporters that several threads use at once, while passes run in this one. */

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "support/sessionfixture.h"

enum { N_ROUNDS = 300 };

typedef struct {
  VekMetricRegistry *registry;
  int n_holders; /* sessions of the registry that are not over */
  int n_running; /* threads */
} Shared;

/* Starts a session, which is over from the beginning if the registry has another one. Adds and
 * removes a reporter if it is not. */
static VekServiceSession *start_session(Shared *shared) {
  VekServiceSession *session =
      g_object_new(VEK_SERVICE_TYPE_SESSION, "registry", shared->registry, NULL);
  if (!has_registry(session))
    return session;
  g_assert_cmpint(g_atomic_int_add(&shared->n_holders, 1), ==, 0);
  g_autoptr(VekMetricReporter) reporter = vek_metric_log_reporter_new(NULL, NULL);
  vek_service_session_add_reporter(session, g_object_ref(reporter));
  g_object_set(session, "period", 30, NULL);
  g_assert_true(vek_service_session_remove_reporter(session, reporter));
  g_atomic_int_dec_and_test(&shared->n_holders);
  return session;
}

static gpointer start_sessions(gpointer data) {
  Shared *shared = data;
  for (int i = 0; i < N_ROUNDS; i++)
    g_object_unref(start_session(shared));
  g_atomic_int_dec_and_test(&shared->n_running);
  return NULL;
}

static gpointer use_other_registries(gpointer data) {
  Shared *shared = data;
  for (int i = 0; i < N_ROUNDS; i++) {
    g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
    g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
    g_object_unref(vek_metric_registry_counter_new(registry, "counter", NULL, NULL));
  }
  g_atomic_int_dec_and_test(&shared->n_running);
  return NULL;
}

TEST(registry_has_one_session_at_a_time_on_all_threads) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_object_unref(vek_service_session_new(registry)); /* from now on, the registry runs passes */
  Shared shared = {registry, 0, 2};
  GThread *threads[] = {g_thread_new("starts", start_sessions, &shared),
                        g_thread_new("uses", use_other_registries, &shared)};
  while (g_atomic_int_get(&shared.n_running) > 0) {
    g_object_unref(vek_metric_registry_counter_new(registry, "counter", NULL, NULL));
    run_periodic_pass(registry);
    g_autoptr(VekServiceSession) session = start_session(&shared);
    vek_service_session_finish(session, 1000);
  }
  for (gsize i = 0; i < G_N_ELEMENTS(threads); i++)
    g_thread_join(threads[i]);
  g_object_unref(vek_service_session_new(registry));
}

static gpointer set_period(gpointer session) {
  for (guint i = 0;; i++) {
    g_object_set(session, "period", i % 60 + 1, NULL);
    if (!has_registry(session))
      return NULL;
  }
}

TEST(period_may_be_set_while_passes_run_and_the_session_ends) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  GThread *thread = g_thread_new("sets", set_period, session);
  for (int i = 0; i < N_ROUNDS; i++)
    vek_service_session_report(session);
  g_assert_true(vek_service_session_finish(session, 1000));
  g_thread_join(thread);
}

static gpointer use_reporter(gpointer reporter) {
  for (int i = 0; i < N_ROUNDS; i++) {
    VekServicePrometheusFormat format = i % 2;
    while (!vek_service_prometheus_reporter_prepare_text(reporter, format)) {
    }
    g_bytes_unref(vek_service_prometheus_reporter_get_bytes(reporter, format));
    g_autofree char *prefix = NULL;
    g_object_get(reporter, "prefix", &prefix, NULL);
    g_assert_cmpint(strlen(prefix), ==, 4);
    g_autofree char *name = g_strdup_printf("name%d", i);
    vek_service_prometheus_reporter_declare_monotonic(reporter, name);
  }
  return NULL;
}

TEST(reporter_may_be_asked_and_told_while_passes_run) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  VekMetricReporter *taker = VEK_METRIC_REPORTER(reporter);
  VekMetricReporterInterface *operations = VEK_METRIC_REPORTER_GET_IFACE(taker);
  operations->flush(taker);
  g_object_set(reporter, "prefix", "one_", NULL);
  GThread *thread = g_thread_new("asks", use_reporter, reporter);
  for (int i = 0; i < N_ROUNDS; i++) {
    operations->process_value(taker, "gauge", NULL, i % 2 ? "bytes" : "seconds", 0, i);
    operations->process_count(taker, "name1", NULL, NULL, 0, i);
    operations->flush(taker);
    g_object_set(reporter, "prefix", i % 2 ? "two_" : "one_", NULL);
  }
  g_thread_join(thread);
  VekServicePrometheusFormat format = VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS;
  g_autofree char *text = vek_service_prometheus_reporter_get_text(reporter, format);
  g_assert_nonnull(strstr(text, "gauge, in bytes\n# TYPE two_gauge gauge\ntwo_gauge 299\n"));
  g_assert_nonnull(strstr(text, "\ntwo_name1_total 299\n"));
}
