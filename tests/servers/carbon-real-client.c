/* Reports fixed figures of every metric kind to a carbon server on loopback, for carbon-real.py:
 *
 *   carbon-real-client PREFIX PORT SECONDS
 *
 * Three passes, stamped a minute apart; the first is SECONDS after the epoch. */

#include <stdlib.h>
#include <vekmetrics-testing/clock.h>
#include <vekmetrics/vekmetrics.h>

enum { N_PASSES = 3, N_HOSTS = 2 };

typedef struct {
  VekMetricCounter *requests;
  VekMetricGauge *load;
  VekMetricMeter *traffic;
  VekMetricTimer *wait;
  VekMetricHistogram *size;
} Host;

static Host host_new(VekMetricRegistry *registry, char *name) {
  char *dimensions[] = {"host", name, NULL};
  return (Host){
      .requests = vek_metric_registry_counter_new(registry, "requests", "Count", dimensions),
      .load = vek_metric_registry_gauge_new(registry, "load", NULL, 0, dimensions),
      .traffic = vek_metric_registry_meter_new(registry, "traffic", "Bytes", dimensions),
      .wait = vek_metric_registry_timer_new(registry, "wait", "Seconds", NULL, dimensions),
      .size = vek_metric_registry_histogram_new(registry, "size", NULL, NULL, dimensions),
  };
}

static void host_update(Host *host, int number, int pass) {
  vek_metric_counter_add(host->requests, number + 1);
  vek_metric_gauge_set_value(host->load, number - 0.25 * pass);
  vek_metric_meter_mark(host->traffic, 300.0 * (number + 1)); /* the first starts its clock */
  vek_metric_timer_start(host->wait);
  vek_testing_clock_advance(250000);
  vek_metric_timer_stop(host->wait);
  vek_metric_histogram_set(host->size, number);
  vek_metric_histogram_set(host->size, -pass);
}

static void host_clear(Host *host) {
  g_object_unref(host->requests);
  g_object_unref(host->load);
  g_object_unref(host->traffic);
  g_object_unref(host->wait);
  g_object_unref(host->size);
}

/* Collects the levels that were logged. */
static GLogWriterOutput on_log(GLogLevelFlags level, const GLogField *fields, gsize n_fields,
                               gpointer levels) {
  *(GLogLevelFlags *)levels |= level;
  return level < G_LOG_LEVEL_MESSAGE ? g_log_writer_standard_streams(level, fields, n_fields, NULL)
                                     : G_LOG_WRITER_HANDLED;
}

int main(int argc, char **argv) {
  if (argc != 4)
    return 2;
  GLogLevelFlags logged = 0;
  g_log_set_writer_func(on_log, &logged, NULL);

  VekMetricReporter *reporter =
      vek_metric_carbon_reporter_new(argv[1], "127.0.0.1", (guint)atoi(argv[2]));
  while (!(logged & (G_LOG_LEVEL_INFO | G_LOG_LEVEL_WARNING)))
    g_main_context_iteration(NULL, TRUE);

  gint64 start = atoll(argv[3]) * G_USEC_PER_SEC;
  vek_testing_clock_set(start, G_USEC_PER_SEC);
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  Host hosts[N_HOSTS] = {host_new(registry, "h0"), host_new(registry, "h1")};
  for (int pass = 0; pass < N_PASSES; pass++) {
    gint64 elapsed = 60 * pass * G_USEC_PER_SEC;
    vek_testing_clock_set(start + elapsed, G_USEC_PER_SEC + elapsed);
    for (int i = 0; i < N_HOSTS; i++)
      host_update(&hosts[i], i, pass);
    vek_metric_registry_report(registry, reporter);
  }

  /* The reporter goes when its last line has been written. */
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  while (reporter)
    g_main_context_iteration(NULL, TRUE);
  for (int i = 0; i < N_HOSTS; i++)
    host_clear(&hosts[i]);
  return logged & G_LOG_LEVEL_WARNING ? 1 : 0;
}
