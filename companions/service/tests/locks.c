/* Two threads that meet where a lock keeps one of them waiting. */

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/replace.h"
#include "support/sessionfixture.h"

/* The first one stops in the middle of something, until the second one waits for it or is done. */
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

char *g_ascii_dtostr(char *buffer, int size, double number) {
  stop_first();
  return NEXT(g_ascii_dtostr)(buffer, size, number);
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

static gpointer change_unit_second(gpointer reporter) {
  begin_second();
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, "gauge", NULL, "bytes", 0, 1.0);
  end_second();
  return NULL;
}

TEST(unit_that_changes_while_a_text_is_written_is_in_the_next) {
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  VekMetricReporter *taker = VEK_METRIC_REPORTER(reporter);
  VekMetricReporterInterface *operations = VEK_METRIC_REPORTER_GET_IFACE(taker);
  operations->process_value(taker, "gauge", NULL, "seconds", 0, 1.0);
  operations->flush(taker);
  prepare_to_meet();
  GThread *thread = g_thread_new("changes", change_unit_second, taker);
  take_part(FIRST);
  VekServicePrometheusFormat format = VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS;
  g_assert_true(vek_service_prometheus_reporter_prepare_text(reporter, format));
  g_thread_join(thread);
  g_autofree char *next = vek_service_prometheus_reporter_get_text(reporter, format);
  g_assert_nonnull(strstr(next, "gauge, in bytes\n"));
}
