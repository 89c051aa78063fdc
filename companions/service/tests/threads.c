/* Sessions and reporters that several threads use at once, while passes run in this one. */

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "support/replace.h"

enum { N_ROUNDS = 300 };

typedef struct {
  VekMetricRegistry *registry;
  int n_holders; /* sessions of the registry that are not over */
  int n_running; /* threads */
} Shared;

static gboolean has_registry(VekServiceSession *session) {
  g_autoptr(VekMetricRegistry) registry = NULL;
  g_object_get(session, "registry", &registry, NULL);
  return registry != NULL;
}

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

/* Two threads that meet: the first one stops in the middle of something, until the second one waits
 * for it or is done. */
typedef enum { NEITHER, FIRST, SECOND } Part;
static GPrivate part;
static int first_stands, second_waits; /* atomic */

static gboolean is_part(Part one) {
  return GPOINTER_TO_INT(g_private_get(&part)) == (int)one;
}

static void take_part(Part one) {
  g_private_set(&part, GINT_TO_POINTER(one));
}

static void stop_first(void) {
  if (!is_part(FIRST))
    return;
  g_atomic_int_set(&first_stands, TRUE);
  while (!g_atomic_int_get(&second_waits))
    g_thread_yield();
  take_part(NEITHER);
}

static void note_second(void) {
  if (is_part(SECOND))
    g_atomic_int_set(&second_waits, TRUE);
}

static void begin_second(void) {
  while (!g_atomic_int_get(&first_stands))
    g_thread_yield();
  take_part(SECOND);
}

static void end_second(void) {
  note_second();
  take_part(NEITHER);
}

static void prepare_to_meet(void) {
  g_atomic_int_set(&first_stands, FALSE);
  g_atomic_int_set(&second_waits, FALSE);
}

/* In place of GLib's. */

gpointer g_type_class_ref(GType type) {
  note_second(); /* it is about to initialise a class */
  return NEXT(g_type_class_ref)(type);
}

#undef g_mutex_lock /* what makes the thread sanitizer see it goes around this */
void g_mutex_lock(GMutex *mutex) {
  if (is_part(SECOND) && g_mutex_trylock(mutex))
    return;
  note_second();
  NEXT(g_mutex_lock)(mutex);
}

void g_object_set_qdata_full(GObject *object, GQuark quark, gpointer data, GDestroyNotify destroy) {
  stop_first();
  NEXT(g_object_set_qdata_full)(object, quark, data, destroy);
}

void g_ptr_array_extend(GPtrArray *array, GPtrArray *more, GCopyFunc copy, gpointer data) {
  stop_first();
  NEXT(g_ptr_array_extend)(array, more, copy, data);
}

static gpointer add_follower(gpointer reporter) {
  begin_second();
  vek_service_prometheus_reporter_add_follower(reporter, fixture.reporter);
  end_second();
  return NULL;
}

/* Makes a session while another thread waits for the class to be initialised. */
static void session_maker_class_init(gpointer klass, gpointer data) {
  (void)klass, (void)data;
  stop_first();
  g_object_unref(vek_service_session_new(fixture.registry));
}

TEST(kinds_are_hooked_while_a_class_is_initialised) {
  if (!g_test_subprocess()) { /* in which nothing is hooked yet */
    g_test_trap_subprocess(NULL, 0, 0);
    g_test_trap_assert_passed();
    return;
  }
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  const GTypeInfo info = {.class_size = sizeof(GObjectClass),
                          .class_init = session_maker_class_init,
                          .instance_size = sizeof(GObject)};
  GType type = g_type_register_static(G_TYPE_OBJECT, "SessionMaker", &info, 0);
  g_type_class_ref(G_TYPE_OBJECT); /* GLib's is found while there is one thread */
  prepare_to_meet();
  GThread *thread = g_thread_new("follows", add_follower, reporter);
  take_part(FIRST);
  g_object_unref(g_object_new(type, NULL));
  g_thread_join(thread);
}

static gpointer start_second_session(gpointer registry) {
  begin_second();
  gpointer session = g_object_new(VEK_SERVICE_TYPE_SESSION, "registry", registry, NULL);
  end_second();
  return session;
}

TEST(registry_has_one_session_if_its_first_two_begin_at_once) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  prepare_to_meet();
  GThread *thread = g_thread_new("starts", start_second_session, registry);
  take_part(FIRST);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  g_autoptr(VekServiceSession) second = g_thread_join(thread);
  g_assert_true(has_registry(session));
  g_assert_false(has_registry(second));
}

static gpointer add_reporter_second(gpointer session) {
  begin_second();
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  end_second();
  return NULL;
}

TEST(reporter_that_is_added_while_another_is_removed_stays) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  g_autoptr(VekMetricReporter) removed = vek_metric_log_reporter_new(NULL, NULL);
  vek_service_session_add_reporter(session, g_object_ref(removed));
  prepare_to_meet();
  GThread *thread = g_thread_new("adds", add_reporter_second, session);
  take_part(FIRST);
  g_assert_true(vek_service_session_remove_reporter(session, removed));
  g_thread_join(thread);
  g_assert_true(vek_service_session_remove_reporter(session, fixture.reporter));
}

static gpointer add_reporter_first(gpointer session) {
  take_part(FIRST);
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  return NULL;
}

TEST(session_that_ends_while_a_reporter_is_added_leaves_the_registry) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  prepare_to_meet();
  GThread *thread = g_thread_new("adds", add_reporter_first, session);
  begin_second();
  g_object_run_dispose(G_OBJECT(session));
  end_second();
  g_thread_join(thread);
  g_autoptr(VekServiceSession) next = vek_service_session_new(fixture.registry);
  g_assert_true(has_registry(next));
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
