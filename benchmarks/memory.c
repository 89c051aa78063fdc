/* Prints how many bytes a metric of a name and one pair of dimensions takes, the registry's table
 * included: one line for each kind. */

#include <malloc.h>
#include <stdio.h>
#include <vekmetrics/vekmetrics.h>

#define N_METRICS 100000

static void make_counter(VekMetricRegistry *registry, const char *name, char **dimensions) {
  vek_metric_counter_inc(vek_metric_registry_counter_new(registry, name, "Count", dimensions));
}

static void make_full_histogram(VekMetricRegistry *registry, const char *name, char **dimensions) {
  VekMetricHistogram *histogram =
      vek_metric_registry_histogram_new(registry, name, "Count", NULL, dimensions);
  for (int i = 0; i < 60; i++)
    vek_metric_histogram_set(histogram, i);
}

static void measure(const char *kind, void (*make)(VekMetricRegistry *registry, const char *name,
                                                   char **dimensions)) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  char host[] = "host", h1[] = "h1";
  char *dimensions[] = {host, h1, NULL};

  gsize before = mallinfo2().uordblks;
  for (int i = 0; i < N_METRICS; i++) {
    g_autofree char *name = g_strdup_printf("requests%06d", i);
    make(registry, name, dimensions);
  }
  gsize after = mallinfo2().uordblks;
  printf("%s %.1f\n", kind, (double)(after - before) / N_METRICS);
}

int main(void) {
  measure("counter", make_counter);
  measure("histogram", make_full_histogram);
  return 0;
}
