#include "serve.h"

#include <stdio.h>

VekWebServer *serve(VekServiceSession *session, guint port, GError **error) {
  static const char *const counters[] = {"bytes", "errors", "files", "folders", "skipped"};
  VekServicePrometheusReporter *reporter = vek_service_prometheus_reporter_new();
  for (gsize i = 0; i < G_N_ELEMENTS(counters); i++)
    vek_service_prometheus_reporter_declare_monotonic(reporter, counters[i]);

  g_autoptr(VekWebServer) server = vek_web_server_new(reporter);
  vek_service_session_add_reporter(session, VEK_METRIC_REPORTER(reporter));
  if (!vek_web_server_listen(server, NULL, port, error))
    return NULL;
  printf("http://127.0.0.1:%u/\n", vek_web_server_get_port(server));
  fflush(stdout);
  return g_steal_pointer(&server);
}
