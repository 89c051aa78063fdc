/* Some processes of a fleet in one, for fleet.py:
 *
 *   bench-fleet PORT CONNECTIONS METRICS PASSES SECONDS
 *
 * Reports to a carbon server on loopback over as many connections, each with keys of its own. The
 * passes are stamped a minute apart, the first SECONDS after the epoch. Prints a line when all
 * lines are queued, and when all are sent, how many seconds of processor time the sending took. */

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <vekmetrics-testing/clock.h>

#include "metrics.h"

static guint n_connected;

static GLogWriterOutput on_log(GLogLevelFlags level, const GLogField *fields, gsize n_fields,
                               gpointer user_data) {
  if (level & G_LOG_LEVEL_WARNING) {
    g_log_writer_standard_streams(level, fields, n_fields, user_data);
    exit(1);
  }
  n_connected += (level & G_LOG_LEVEL_INFO) != 0;
  return G_LOG_WRITER_HANDLED;
}

static void on_gone(gpointer n_reporters, G_GNUC_UNUSED GObject *reporter) {
  --*(int *)n_reporters;
}

int main(int argc, char **argv) {
  if (argc != 6)
    return 2;
  guint port = (guint)atoi(argv[1]);
  int n_reporters = atoi(argv[2]);
  int n_metrics = atoi(argv[3]);
  int n_passes = atoi(argv[4]);
  gint64 start = atoll(argv[5]) * G_USEC_PER_SEC;
  g_log_set_writer_func(on_log, NULL, NULL);

  g_autoptr(GPtrArray) reporters = g_ptr_array_new_with_free_func(g_object_unref);
  for (int i = 0; i < n_reporters; i++) {
    g_autofree char *prefix = g_strdup_printf("site.web%04d", i);
    gpointer reporter = vek_metric_carbon_reporter_new(prefix, "127.0.0.1", port);
    g_object_weak_ref(reporter, on_gone, &n_reporters);
    g_ptr_array_add(reporters, reporter);
  }
  while (n_connected < reporters->len)
    g_main_context_iteration(NULL, TRUE);

  vek_testing_clock_set(start, G_USEC_PER_SEC);
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(GPtrArray) metrics = metrics_new(registry, n_metrics);
  for (int pass = 0; pass < n_passes; pass++) {
    metrics_update(metrics, pass);
    for (guint i = 0; i < reporters->len; i++)
      vek_metric_registry_report(registry, g_ptr_array_index(reporters, i));
    vek_testing_clock_advance(60 * G_USEC_PER_SEC);
  }

  g_print("queued\n");
  fflush(stdout);
  clock_t queued = clock();

  /* A reporter goes when its last line has been written. */
  g_ptr_array_set_size(reporters, 0);
  while (n_reporters > 0)
    g_main_context_iteration(NULL, TRUE);

  g_print("%.6f\n", (double)(clock() - queued) / CLOCKS_PER_SEC);
  return 0;
}
