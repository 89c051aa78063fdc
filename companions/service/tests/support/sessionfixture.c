#include "sessionfixture.h"

#include "support/fixture.h"

VekServiceSession *session_new(void) {
  VekServiceSession *session = vek_service_session_new(fixture.registry);
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  return session;
}

gboolean has_registry(VekServiceSession *session) {
  g_autoptr(VekMetricRegistry) registry = NULL;
  g_object_get(session, "registry", &registry, NULL);
  return registry != NULL;
}

void add_b(VekServiceSession *session) {
  vek_service_session_add_reporter(session, record_to(fixture.record, "b"));
}

void count(const char *name) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, name, NULL, NULL);
  vek_metric_counter_inc(counter);
}

void assert_refused(const char *function, const char *condition) {
  g_autofree char *message = g_strdup_printf("%s: assertion '%s' failed", function, condition);
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL, message);
}
