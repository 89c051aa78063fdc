/* Writes the figures it is told as JSON: json-client FOLDER < FIGURES
 *
 * A line of FIGURES has the 16 hexadecimal digits of a double, a space, and the bytes of a name in
 * hexadecimal. The name is that of a gauge and of a histogram, and of a dimension of theirs. The
 * locale is that of the environment; its decimal point is printed. */

#include "support/tsan-tasks.h"

#include <vekmetrics/vekmetrics.h>

#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static char *decode(const char *hex) {
  GString *bytes = g_string_new(NULL);
  for (; g_ascii_isxdigit(hex[0]); hex += 2)
    g_string_append_c(bytes,
                      (char)(g_ascii_xdigit_value(hex[0]) * 16 + g_ascii_xdigit_value(hex[1])));
  return g_string_free(bytes, FALSE);
}

int main(int argc, char **argv) {
  if (argc != 2)
    return EXIT_FAILURE;

  setlocale(LC_ALL, "");
  puts(localeconv()->decimal_point);

  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("numbers", argv[1], NULL, 0, 0);
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(GPtrArray) metrics = g_ptr_array_new_with_free_func(g_object_unref);
  char line[1024];
  while (fgets(line, sizeof line, stdin)) {
    char *end = NULL;
    guint64 bits = g_ascii_strtoull(line, &end, 16);
    gdouble value = 0.0;
    memcpy(&value, &bits, sizeof value);
    g_autofree char *name = decode(end + 1);

    VekMetricGauge *gauge =
        vek_metric_registry_gauge_new(registry, name, NULL, 0, (char *[]){"gauge", name, NULL});
    vek_metric_gauge_set_value(gauge, value);
    g_ptr_array_add(metrics, gauge);
    VekMetricHistogram *histogram = vek_metric_registry_histogram_new(
        registry, name, NULL, NULL, (char *[]){"histogram", name, NULL});
    vek_metric_histogram_set(histogram, value);
    g_ptr_array_add(metrics, histogram);
  }
  vek_metric_registry_report(registry, reporter);

  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  while (reporter)
    g_main_context_iteration(NULL, TRUE);
  return EXIT_SUCCESS;
}
