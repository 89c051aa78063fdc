/* Tests of sessions and their reporters while clocks jump, the wall clock in either direction. */

#include <vekmetrics-service/vekmetrics-service.h>

#include <string.h>

#include "support/fixture.h"
#include "support/lineserver.h"
#include "support/periodicpass.h"
#include "support/sessionfixture.h"
#include "support/sessiontimer.h"

#define SECONDS(n) (G_GINT64_CONSTANT(n) * G_USEC_PER_SEC)
#define BEFORE SECONDS(1700000000)
#define MONOTONIC SECONDS(5000)
#define TEN_YEARS SECONDS(315576000)

typedef struct {
  const char *name;
  gint64 now;
  const char *seconds;   /* in a line for Graphite: toward zero */
  const char *timestamp; /* of the last pass, for Prometheus */
} Jump;

static const Jump jumps[] = {
    {"an-hour-forward", SECONDS(1700003600), "1700003600", "1700003600"},
    {"an-hour-back", SECONDS(1699996400), "1699996400", "1699996400"},
    {"ten-years-forward", SECONDS(2015576000), "2015576000", "2015576000"},
    {"ten-years-back", SECONDS(1384424000), "1384424000", "1384424000"},
    {"to-the-epoch", 0, "0", "0"},
    {"before-the-epoch", -SECONDS(90) - 500000, "-90", "-90.5"},
    {"to-the-year-1", SECONDS(-62135596800), "-62135596800", "-62135596800"},
    {"to-the-end-of-9999", SECONDS(253402300799), "253402300799", "253402300799"},
    {"to-the-year-10000", SECONDS(253402300800), "253402300800", "253402300800"},
    {"to-the-last-microsecond", G_MAXINT64, "9223372036854", "9223372036854.7754"},
};

static void assert_last_pass(VekServicePrometheusReporter *reporter, const char *timestamp) {
  g_autofree char *text =
      vek_service_prometheus_reporter_get_text(reporter, VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS);
  g_autofree char *line =
      g_strdup_printf("\nvekmetrics_last_pass_timestamp_seconds %s\n", timestamp);
  g_test_message("%s", text);
  g_assert_nonnull(strstr(text, line));
}

TEST_ROWS(each_pass_is_reported_once_at_the_time_of_the_wall_clock, jumps) {
  const Jump *jump = data;
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) graphite = connect_reporter(server, NULL);
  g_autoptr(VekServicePrometheusReporter) prometheus = vek_service_prometheus_reporter_new();
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_add_reporter(session, g_object_ref(graphite));
  vek_service_session_add_reporter(session, VEK_METRIC_REPORTER(g_object_ref(prometheus)));
  VekMetricCounter *counter = vek_metric_registry_counter_new(fixture.registry, "m", NULL, NULL);

  vek_metric_counter_inc(counter);
  vek_service_session_report(session);
  assert_received(server, "m 1 1700000000\n");
  assert_last_pass(prometheus, "1700000000");

  vek_testing_clock_set(jump->now, MONOTONIC);
  vek_metric_counter_inc(counter);
  run_periodic_pass(fixture.registry);
  g_autofree char *line = g_strdup_printf("m 2 %s\n", jump->seconds);
  assert_received(server, line);
  assert_last_pass(prometheus, jump->timestamp);

  /* Back again, and with the next pass the metric goes. */
  vek_testing_clock_set(BEFORE, MONOTONIC);
  vek_metric_counter_inc(counter);
  g_object_unref(counter);
  run_periodic_pass(fixture.registry);
  assert_received(server, "m 3 1700000000\n");
  run_periodic_pass(fixture.registry);
  g_autofree char *recorded = g_strdup_printf(
      "a count m 1 @1700000000000000\na flush\n"
      "a count m 2 @%" G_GINT64_FORMAT
      "\na flush\n"
      "a count m 3 @1700000000000000\na flush\n"
      "a flush\n",
      jump->now);
  assert_recorded(fixture.record, recorded);
}

TEST(wall_clock_changes_no_period) {
  for (gsize i = 0; i < G_N_ELEMENTS(jumps); i++) {
    vek_testing_clock_set(BEFORE, MONOTONIC);
    fixture_reset();
    g_autoptr(VekServiceSession) session = session_new();
    g_object_set(session, "period", 10, NULL);
    vek_testing_clock_set(jumps[i].now, MONOTONIC + SECONDS(4));
    g_object_set(session, "period", 20, NULL);
    g_assert_cmpuint(timer_seconds, ==, 16);
  }
}

TEST(passes_that_400_days_have_missed_are_one) {
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(VekServiceSession) session = session_new();
  g_object_set(session, "period", 1, NULL);
  vek_testing_clock_advance(400 * SECONDS(86400));
  g_object_set(session, "period", 10, NULL);
  g_assert_cmpuint(timer_seconds, ==, 0);
  fire_timer();
  assert_recorded(fixture.record, "a flush\n");
  g_assert_cmpuint(timer_seconds, ==, 10);
}

TEST(period_is_the_longest_wait_when_the_monotonic_clock_is_back) {
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(VekServiceSession) session = session_new();
  vek_testing_clock_advance(-TEN_YEARS);
  g_object_set(session, "period", 10, NULL);
  g_assert_cmpuint(timer_seconds, ==, 10);
}

static void on_finished(GObject *session, GAsyncResult *result, gpointer is_drained) {
  g_autoptr(GError) error = NULL;
  *(gboolean *)is_drained =
      vek_service_session_finish_finish(VEK_SERVICE_SESSION(session), result, &error);
  g_assert_no_error(error);
}

TEST(finish_waits_whatever_the_clocks_say) {
  static const gint64 steps[] = {TEN_YEARS, -2 * TEN_YEARS};
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) graphite =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_add_reporter(session, g_object_ref(graphite));
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "m", NULL, NULL);
  gboolean is_drained = -1;
  vek_service_session_finish_async(session, 100000, NULL, on_finished, &is_drained);
  for (gsize i = 0; i < G_N_ELEMENTS(steps); i++) {
    vek_testing_clock_advance(steps[i]);
    g_assert_cmpint(is_drained, ==, -1);
  }
  meet(graphite, server);
  assert_received(server, "m 0 1700000000\n");
  run_until(is_drained != -1);
  g_assert_true(is_drained);
  assert_recorded(fixture.record, "a count m 0 @1700000000000000\na flush\n");
}

/* The wall clock jumps while a server is away, once for each row. */
TEST(next_tries_and_the_length_of_an_outage_are_not_of_the_wall_clock) {
  static const guint seconds[] = {1, 2, 4, 8, 16, 32, 60, 60, 60, 60};
  G_STATIC_ASSERT(G_N_ELEMENTS(seconds) == G_N_ELEMENTS(jumps));
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  line_server_stop(server);
  g_autoptr(VekMetricReporter) reporter =
      vek_service_graphite_reporter_new(NULL, server->address, server->port);
  for (gsize i = 0; i < G_N_ELEMENTS(jumps); i++) {
    run_until(get_delay() > 0);
    if (i == 0)
      assert_outage(server, "*onnection refused");
    vek_testing_clock_set(jumps[i].now, MONOTONIC + SECONDS(30));
    send_count(reporter, jumps[i].name, 1);
    run_until_idle();
    g_assert_cmpuint(get_delay(), >=, seconds[i] * 750);
    g_assert_cmpuint(get_delay(), <=, seconds[i] * 1000);
    if (i == G_N_ELEMENTS(jumps) - 1)
      line_server_start(server);
    end_delay();
  }
  meet(reporter, server);
  run_until(!is_busy(reporter));
  assert_lines(reporter, 0, G_N_ELEMENTS(jumps), 0);
  assert_outage_over(server, 30, 0);
}

TEST(metric_is_kept_for_as_long_as_the_monotonic_clock_says) {
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(VekServicePrometheusReporter) reporter =
      g_object_new(VEK_SERVICE_TYPE_PROMETHEUS_REPORTER, "keep-seconds", 60, NULL);
  process_count(VEK_METRIC_REPORTER(reporter), "m", 1);
  flush(VEK_METRIC_REPORTER(reporter));
  gint64 monotonic = MONOTONIC;
  for (gsize i = 0; i <= G_N_ELEMENTS(jumps); i++) {
    gboolean is_last = i == G_N_ELEMENTS(jumps);
    monotonic = MONOTONIC + (is_last ? 400 * SECONDS(86400) : SECONDS(60) - 1);
    vek_testing_clock_set(is_last ? BEFORE : jumps[i].now, monotonic);
    flush(VEK_METRIC_REPORTER(reporter));
    g_autofree char *text = vek_service_prometheus_reporter_get_text(
        reporter, VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS);
    g_assert_cmpint(strstr(text, "\nm 1\n") != NULL, ==, !is_last);
  }
}
