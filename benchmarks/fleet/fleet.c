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
#include <vekmetrics/vekmetrics.h>

static VekMetricRegistry *registry;
static GPtrArray *metrics;

/* Of ten metrics, five are counters, two gauges, and one each a meter, a histogram and a timer. */
static void make_metric(int number) {
  g_autofree char *name = g_strdup_printf("requests%03d", number);
  char *dimensions[] = {"service", "frontend", NULL};
  gpointer metric;
  switch (number % 10) {
  case 0:
  case 1: metric = vek_metric_registry_gauge_new(registry, name, "Percent", 0, dimensions); break;
  case 2: metric = vek_metric_registry_meter_new(registry, name, "Count", dimensions); break;
  case 3:
    metric = vek_metric_registry_histogram_new(registry, name, "Bytes", NULL, dimensions);
    break;
  case 4:
    metric = vek_metric_registry_timer_new(registry, name, "Milliseconds", NULL, dimensions);
    break;
  default: metric = vek_metric_registry_counter_new(registry, name, "Count", dimensions); break;
  }
  g_ptr_array_add(metrics, metric);
}

static void update(gpointer metric, gpointer pass) {
  int number = GPOINTER_TO_INT(pass);
  if (VEK_IS_METRIC_COUNTER(metric))
    vek_metric_counter_add(metric, 1234 + number);
  else if (VEK_IS_METRIC_GAUGE(metric))
    vek_metric_gauge_set_value(metric, number / 7.0);
  else if (VEK_IS_METRIC_METER(metric))
    vek_metric_meter_mark(metric, 1000.0);
  else if (VEK_IS_METRIC_TIMER(metric))
    vek_metric_timer_set_usec(metric, 12345 + number);
  else
    vek_metric_histogram_set(metric, 1500.0 + number);
}

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
  registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  metrics = g_ptr_array_new_with_free_func(g_object_unref);
  for (int i = 0; i < n_metrics; i++)
    make_metric(i);
  for (int pass = 0; pass < n_passes; pass++) {
    g_ptr_array_foreach(metrics, update, GINT_TO_POINTER(pass));
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

  g_ptr_array_unref(metrics);
  g_object_unref(registry);
  return 0;
}
