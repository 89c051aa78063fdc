/* Two threads that meet where a lock keeps one of them waiting, or take turns. */

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "support/replace.h"
#include "support/sessionfixture.h"
#include "support/twothreads.h"

/* In place of GLib's: where the first one stops, or the second one waits. */

gpointer g_type_class_ref(GType type) {
  if (!g_type_class_peek(type))
    note_second(); /* it is about to initialise a class */
  return NEXT(g_type_class_ref)(type);
}

void g_object_set_qdata_full(GObject *object, GQuark quark, gpointer data, GDestroyNotify destroy) {
  stop_first();
  NEXT(g_object_set_qdata_full)(object, quark, data, destroy);
}

void g_weak_ref_init(GWeakRef *weak_ref, gpointer object) {
  stop_first();
  NEXT(g_weak_ref_init)(weak_ref, object);
}

void g_ptr_array_extend(GPtrArray *array, GPtrArray *more, GCopyFunc copy, gpointer data) {
  stop_first();
  NEXT(g_ptr_array_extend)(array, more, copy, data);
}

GSList *g_slist_remove(GSList *list, gconstpointer data) {
  list = NEXT(g_slist_remove)(list, data);
  stop_first();
  return list;
}

char *g_ascii_dtostr(char *buffer, int size, double number) {
  stop_first();
  return NEXT(g_ascii_dtostr)(buffer, size, number);
}

static guint timers[2];
static int n_timers; /* atomic */

guint g_timeout_add_seconds_full(gint priority, guint interval, GSourceFunc function, gpointer data,
                                 GDestroyNotify notify) {
  stop_first();
  guint timer = NEXT(g_timeout_add_seconds_full)(priority, interval, function, data, notify);
  timers[g_atomic_int_add(&n_timers, 1) % 2] = timer;
  return timer;
}

/* Makes a session while another thread waits for the class to be initialised. */
static void session_maker_class_init(gpointer klass, gpointer data) {
  (void)klass, (void)data;
  stop_first();
  g_object_unref(vek_service_session_new(fixture.registry));
}

static void make_session_maker(gpointer data) {
  (void)data;
  const GTypeInfo info = {.class_size = sizeof(GObjectClass),
                          .class_init = session_maker_class_init,
                          .instance_size = sizeof(GObject)};
  g_object_unref(
      g_object_new(g_type_register_static(G_TYPE_OBJECT, "SessionMaker", &info, 0), NULL));
}

static void add_follower(gpointer reporter) {
  vek_service_prometheus_reporter_add_follower(reporter, fixture.reporter);
}

TEST(kinds_are_hooked_while_a_class_is_initialised) {
  if (!g_test_subprocess()) { /* in which nothing is hooked yet */
    g_test_trap_subprocess(NULL, 0, 0);
    g_test_trap_assert_passed();
    return;
  }
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  g_type_class_ref(G_TYPE_OBJECT); /* GLib's is found while there is one thread */
  run_to_meet(make_session_maker, add_follower, reporter);
}

typedef struct {
  VekMetricRegistry *registry;
  VekServiceSession *first, *second;
} Sessions;

static void start_first_session(gpointer data) {
  Sessions *sessions = data;
  sessions->first = vek_service_session_new(sessions->registry);
}

static void start_second_session(gpointer data) {
  Sessions *sessions = data;
  sessions->second =
      g_object_new(VEK_SERVICE_TYPE_SESSION, "registry", sessions->registry, "period", 10, NULL);
}

TEST(registry_has_one_session_if_its_first_two_begin_at_once) {
  Sessions sessions = {.registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL)};
  run_to_meet(start_first_session, start_second_session, &sessions);
  g_assert_true(has_registry(sessions.first));
  g_assert_false(has_registry(sessions.second));
  g_object_unref(sessions.second);
  g_object_unref(sessions.first);
  g_object_unref(sessions.registry);
}

static void remove_reporter(gpointer session) {
  g_assert_true(vek_service_session_remove_reporter(session, fixture.reporter));
}

static void add_other_reporter(gpointer session) {
  add_b(session);
}

TEST(reporter_that_is_added_while_another_is_removed_stays) {
  g_autoptr(VekServiceSession) session = session_new();
  run_to_meet(remove_reporter, add_other_reporter, session);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "b flush\n");
}

static void end_session(gpointer session) {
  g_object_run_dispose(session);
}

TEST(session_that_ends_while_a_reporter_is_added_leaves_the_registry) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  run_to_meet(add_other_reporter, end_session, session);
  g_autoptr(VekServiceSession) next = vek_service_session_new(fixture.registry);
  g_assert_true(has_registry(next));
}

static void start_next_session(gpointer data) {
  (void)data;
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  g_assert_true(has_registry(session));
}

TEST(registry_whose_session_has_ended_has_one_of_another_thread) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  run_in_turn(end_session, start_next_session, session);
}

static void run_pass(gpointer data) {
  (void)data;
  run_periodic_pass(fixture.registry);
}

TEST(session_that_begins_while_a_pass_ends_has_one_timer) {
  g_object_unref(vek_service_session_new(fixture.registry)); /* from now on, there are passes */
  n_timers = 0;
  Sessions sessions = {.registry = fixture.registry};
  run_to_meet(start_second_session, run_pass, &sessions);
  g_object_unref(sessions.second);
  g_assert_cmpint(n_timers, ==, 2);
  for (guint i = 0; i < G_N_ELEMENTS(timers); i++)
    g_assert_null(g_main_context_find_source_by_id(NULL, timers[i]));
}

static void ask_for_counter(gpointer data) {
  (void)data;
  g_autoptr(VekMetric) counter = vek_metric_registry_get_metric(fixture.registry, "counter", NULL);
  g_assert_false(vek_metric_is_active(counter));
  g_object_unref(g_object_new(VEK_TYPE_METRIC_COUNTER, "name", "counter", NULL));
  g_assert_true(vek_metric_is_active(counter));
}

TEST(metric_that_is_asked_for_while_it_is_retired_is_active_again) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  count("counter");
  run_to_meet(run_pass, ask_for_counter, NULL);
}

static void make_counter(gpointer data) {
  (void)data;
  count("counter");
}

static void start_other_session(gpointer data) {
  (void)data;
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_object_unref(vek_service_session_new(registry));
}

TEST(metric_is_made_before_another_registry_has_a_session) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  run_in_turn(make_counter, start_other_session, NULL);
}

TEST(metric_is_made_while_another_registry_goes) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  VekMetricRegistry *registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  VekServiceSession *last = vek_service_session_new(registry);
  g_object_unref(registry);
  run_to_meet(g_object_unref, make_counter, last);
}

/* What is called on a VekServicePrometheusReporter. */

static void write_text(gpointer reporter) {
  g_assert_true(vek_service_prometheus_reporter_prepare_text(
      reporter, VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS));
}

static void bring_in(VekMetricReporter *reporter, const char *unit) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, "gauge", NULL, unit, 0, 1.0);
}

static void change_unit(gpointer reporter) {
  bring_in(reporter, "bytes");
}

static void begin_pass(gpointer reporter) {
  bring_in(reporter, NULL);
}

static void flush(gpointer reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

static void remove_follower(gpointer reporter) {
  g_assert_true(vek_service_prometheus_reporter_remove_follower(reporter, fixture.reporter));
}

static void declare(gpointer reporter) {
  vek_service_prometheus_reporter_declare_monotonic(reporter, "name");
}

static void set_prefix(gpointer reporter) {
  g_object_set(reporter, "prefix", "two_", NULL);
}

static void assert_prefix(gpointer reporter) {
  g_autofree char *prefix = NULL;
  g_object_get(reporter, "prefix", &prefix, NULL);
  g_assert_cmpstr(prefix, ==, "two_");
}

TEST(unit_that_changes_while_a_text_is_written_is_in_the_next) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  bring_in(VEK_METRIC_REPORTER(reporter), "seconds");
  flush(reporter);
  run_to_meet(write_text, change_unit, reporter);
  g_autofree char *next =
      vek_service_prometheus_reporter_get_text(reporter, VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS);
  g_assert_nonnull(strstr(next, "gauge, in bytes\n"));
}

TEST(prefix_that_another_thread_has_set_is_read) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  run_in_turn(set_prefix, assert_prefix, reporter);
}

TEST(reporter_is_told_by_another_thread_between_passes) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  run_in_turn(flush, declare, reporter);
  run_in_turn(set_prefix, flush, reporter);
}

TEST(pass_has_the_followers_that_another_thread_has_left) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  run_in_turn(add_follower, begin_pass, reporter);
  assert_recorded(fixture.record, "a value gauge 1 @0\n");
  flush(reporter);
  run_in_turn(remove_follower, begin_pass, reporter);
  assert_recorded(fixture.record, "a flush\n");
}
