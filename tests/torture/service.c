#include "faults.h"
#include "support/fixture.h"
#include "torture.h"

#include <vekmetrics-service/vekmetrics-service.h>

static void drain(VekMetricReporter *reporter) {
  while (vek_service_drain_is_busy(VEK_SERVICE_DRAIN(reporter)))
    g_main_context_iteration(NULL, TRUE);
}

static gboolean is_connected(VekMetricReporter *reporter) {
  gboolean connected;
  g_object_get(reporter, "connected", &connected, NULL);
  return connected;
}

/* Releases the reporter, and runs the main loop until it is freed. */
static void release(VekMetricReporter *reporter) {
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  while (reporter)
    g_main_context_iteration(NULL, TRUE);
}

/* The server hangs up after the second pass. */
static void send_to(Run *run, const char *host) {
  VekMetricReporter *reporter =
      vek_service_graphite_reporter_new("site", host, line_sink_get_port(run->sink));
  for (guint i = 0; i < 4; i++) {
    drain(reporter);
    report_pass(reporter);
    while (!is_connected(reporter))
      g_main_context_iteration(NULL, TRUE);
    if (i != 1)
      continue;
    line_sink_hang_up(run->sink, faults_get_n_connections());
    while (is_connected(reporter))
      g_main_context_iteration(NULL, TRUE);
  }
  release(reporter);
}

static const char outage[] = "No connection to *, lines wait for it: *|* takes lines again after *";

static void send_to_graphite(Run *run) {
  send_to(run, "127.0.0.1");
}

TEST(graphite_reporter_loses_nothing) {
  static const Effect effects[] = {
      {"socket", outage, NO_PASS, NULL},
      {"connect", outage, NO_PASS, NULL},
      {"send", outage, NO_PASS, NULL},
      {"recv", outage, NO_PASS, NULL},
      {0},
  };
  torture(&(Scenario){send_to_graphite, outage, effects});
}

/* Newer releases of GLib stop waiting for a name by the clock, which does not stand still here. */
static void send_to_graphite_by_name(Run *run) {
  g_autoptr(GResolver) resolver = g_resolver_get_default();
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(resolver), "timeout"))
    g_object_set(resolver, "timeout", 0, NULL);
  send_to(run, "graphite.example.org");
}

TEST(graphite_reporter_resolves_a_name_until_it_can) {
  static const Effect effects[] = {
      {"getaddrinfo", outage, NO_PASS, NULL}, {"socket", outage, NO_PASS, NULL},
      {"connect", outage, NO_PASS, NULL},     {"send", outage, NO_PASS, NULL},
      {"recv", outage, NO_PASS, NULL},        {0},
  };
  torture(&(Scenario){send_to_graphite_by_name, outage, effects});
}

static void report_session(Run *run) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(fixture.registry);
  VekMetricReporter *log = vek_metric_json_log_reporter_new("log", run->folder, NULL, 2, 3);
  VekMetricReporter *graphite =
      vek_service_graphite_reporter_new("site", "127.0.0.1", line_sink_get_port(run->sink));
  vek_service_session_add_reporter(session, log);
  vek_service_session_add_reporter(session, graphite);
  for (guint i = 0; i < 3; i++) {
    begin_pass(fixture.registry);
    vek_service_session_report(session);
    end_pass();
    drain(graphite);
    while (G_OBJECT(log)->ref_count > 1)
      g_main_context_iteration(NULL, TRUE);
  }
  begin_pass(fixture.registry);
  gboolean is_done = vek_service_session_finish(session, G_MAXINT);
  end_pass();
  g_string_append(run->output, is_done ? "done\n" : "not done in time\n");
}

TEST(session_finishes_all_reporters) {
  static const char log_lines[] = "*MetricName*";
  static const Effect effects[] = {
      {"socket", outage, NO_PASS, NULL},
      {"connect", outage, NO_PASS, NULL},
      {"send", outage, NO_PASS, NULL},
      {"recv", outage, NO_PASS, NULL},
      {"mkdir", "Cannot create log dir *", LATER_PASSES, log_lines},
      {"stat", "Cannot create log dir *", LATER_PASSES, log_lines},
      {"open", "Could not append to file in *", LATER_PASSES, log_lines},
      {"write", "Could not write log: *", THIS_PASS, log_lines},
      {"close", "Could not close output stream: *|g_close(fd:*) failed with EBADF*", NO_PASS, NULL},
      {"rename", NULL, UP_TO_THIS_PASS, log_lines},
      {0},
  };
  torture(&(Scenario){report_session, NULL, effects});
}
