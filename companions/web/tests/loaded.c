/* A program that is scraped under load: loaded METRICS.
 *
 * Prints its port. Now and then it runs a pass, and a metric comes or goes with it. When its input
 * ends, it prints how many turns its main loop took, the longest of them in µs of the thread's
 * processor time, and how many passes there were. */

#include <glib-unix.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <vekmetrics-web/vekmetrics-web.h>
#include <vekmetrics/vekmetrics.h>

#define TURNS_OF_A_PASS 50

static gint64 get_processor_time(void) {
  struct timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return time.tv_sec * (gint64)G_USEC_PER_SEC + time.tv_nsec / 1000;
}

static void pass(VekServicePrometheusReporter *reporter, int number, int n_metrics) {
  VekMetricReporterInterface *operations = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  for (int i = number % 2; i < n_metrics; i++) {
    g_autofree char *name = g_strdup_printf("requests.of.kind.%d", i);
    char *dimensions[] = {"host", "frontend", NULL};
    operations->process_value(VEK_METRIC_REPORTER(reporter), name, dimensions, "Count", 0,
                              number + i);
  }
  operations->flush(VEK_METRIC_REPORTER(reporter));
}

static gboolean on_input(G_GNUC_UNUSED int input, G_GNUC_UNUSED GIOCondition condition,
                         gpointer has_ended) {
  *(gboolean *)has_ended = TRUE;
  return G_SOURCE_REMOVE;
}

int main(int argc, char **argv) {
  if (argc != 2)
    return 2;
  int n_metrics = atoi(argv[1]);
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  pass(reporter, 0, n_metrics);
  g_autoptr(VekWebServer) server = vek_web_server_new(reporter);
  g_autoptr(GError) error = NULL;
  if (!vek_web_server_listen(server, NULL, 0, &error))
    g_error("%s", error->message);
  printf("%u\n", vek_web_server_get_port(server));
  fflush(stdout);

  gboolean has_ended = FALSE;
  g_unix_fd_add(0, G_IO_IN | G_IO_HUP, on_input, &has_ended);
  gint64 longest = 0;
  int n_turns = 0, n_passes = 1;
  while (!has_ended) {
    if (n_turns % TURNS_OF_A_PASS == TURNS_OF_A_PASS - 1)
      pass(reporter, n_passes++, n_metrics);
    gint64 start = get_processor_time();
    g_main_context_iteration(NULL, TRUE);
    longest = MAX(longest, get_processor_time() - start);
    n_turns++;
  }
  printf("%d %" G_GINT64_FORMAT " %d\n", n_turns, longest, n_passes);
  return 0;
}
