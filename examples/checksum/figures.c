#include "figures.h"

#include <gio/gio.h>

#define DIMENSIONS(...) ((char *[]){__VA_ARGS__, NULL})

#define STORE_SIZE (16 * 1024) /* of more samples, the newest */

void figures_init(Figures *figures, int seconds) {
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  char **by_algorithm = DIMENSIONS("algorithm", "sha256");
  gint64 window = seconds * G_USEC_PER_SEC;
  g_autoptr(VekMetricStore) sizes = vek_metric_fixed_time_store_new(window, STORE_SIZE);
  g_autoptr(VekMetricStore) times = vek_metric_fixed_time_store_new(window, STORE_SIZE);

  figures->registry = registry;
  figures->errors_by_reason = g_hash_table_new_full(g_str_hash, g_str_equal, NULL, g_object_unref);
  g_mutex_init(&figures->lock);

  figures->folders = vek_metric_registry_counter_new(registry, "folders", "Count", NULL);
  figures->skipped = vek_metric_registry_counter_new(registry, "skipped", "Count", NULL);
  figures->errors = vek_metric_registry_counter_new(registry, "errors", "Count", NULL);
  figures->file_size =
      vek_metric_registry_histogram_new(registry, "file_size", "Bytes", sizes, NULL);
  figures->open_files = vek_metric_registry_gauge_new(registry, "open_files", "Count", 0, NULL);

  figures->bytes = vek_metric_registry_counter_new(registry, "bytes", "Bytes", by_algorithm);
  figures->files_empty = vek_metric_registry_counter_new(
      registry, "files", "Count", DIMENSIONS("algorithm", "sha256", "content", "empty"));
  figures->files_with_data = vek_metric_registry_counter_new(
      registry, "files", "Count", DIMENSIONS("algorithm", "sha256", "content", "data"));
  figures->file_time =
      vek_metric_registry_timer_new(registry, "file_time", "Milliseconds", times, by_algorithm);
  figures->speed =
      vek_metric_registry_gauge_new(registry, "speed", "Bytes/Second", 0, by_algorithm);
  figures->start = g_get_monotonic_time();

  /* A gauge that was never set is not reported: there is no speed before the first file. */
  vek_metric_gauge_set_value(figures->open_files, 0.0);
}

/* A meter would be a moving average over a minute, and most runs are shorter. */
void figures_add_bytes(Figures *figures, gint64 bytes) {
  vek_metric_counter_add(figures->bytes, bytes);
  gint64 usec = MAX(g_get_monotonic_time() - figures->start, 1);
  double total = (double)vek_metric_counter_get_count(figures->bytes);
  vek_metric_gauge_set_value(figures->speed, total * G_USEC_PER_SEC / (double)usec);
}

void figures_count_error(Figures *figures, int error_number) {
  /* A short name without spaces, such as "not-found"; what the system says would be translated. */
  g_autoptr(GEnumClass) reasons = g_type_class_ref(G_TYPE_IO_ERROR_ENUM);
  int code = (int)g_io_error_from_errno(error_number);
  const char *reason = g_enum_get_value(reasons, code)->value_nick;

  /* The counters are kept: one that only the registry holds is gone after its next pass. */
  g_mutex_lock(&figures->lock);
  VekMetricCounter *counter = g_hash_table_lookup(figures->errors_by_reason, reason);
  if (!counter) {
    counter = vek_metric_registry_counter_new(figures->registry, "errors", "Count",
                                              DIMENSIONS("reason", (char *)reason));
    g_hash_table_insert(figures->errors_by_reason, (char *)reason, counter);
  }
  g_mutex_unlock(&figures->lock);
  vek_metric_counter_inc(counter);
  vek_metric_counter_inc(figures->errors);
}
