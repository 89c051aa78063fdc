#include "figures.h"

#include <gio/gio.h>

#define DIMENSIONS(...) ((char *[]){__VA_ARGS__, NULL})

/* The samples of the last minute, which is the time between two passes; of more, the newest. */
#define STORE_WINDOW (60 * G_USEC_PER_SEC)
#define STORE_SIZE (16 * 1024)

static gpointer keep(Figures *figures, gpointer metric) {
  g_ptr_array_add(figures->metrics, metric);
  return metric;
}

static VekMetricCounter *make_counter(Figures *figures, const char *name, const char *unit,
                                      char **dimensions) {
  return keep(figures, vek_metric_registry_counter_new(figures->registry, name, unit, dimensions));
}

static void make_workers(Figures *figures, int workers) {
  figures->idle_workers = g_async_queue_new();
  for (int i = 1; i <= workers; i++) {
    g_autofree char *name = g_strdup_printf("worker_%d", i);
    gpointer timeline = vek_metric_registry_timeline_new(figures->registry, name);
    g_async_queue_push(figures->idle_workers, keep(figures, timeline));
  }
}

Figures *figures_new(const char *algorithm, int workers) {
  Figures *figures = g_new0(Figures, 1);
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  char *name = (char *)algorithm;
  char **by_algorithm = DIMENSIONS("algorithm", name);
  g_autoptr(VekMetricStore) sizes = vek_metric_fixed_time_store_new(STORE_WINDOW, STORE_SIZE);
  g_autoptr(VekMetricStore) times = vek_metric_fixed_time_store_new(STORE_WINDOW, STORE_SIZE);

  figures->registry = registry;
  figures->metrics = g_ptr_array_new_with_free_func(g_object_unref);
  figures->errors_by_reason = g_hash_table_new_full(g_str_hash, g_str_equal, NULL, g_object_unref);

  figures->folders = make_counter(figures, "folders", "Count", NULL);
  figures->skipped = make_counter(figures, "skipped", "Count", NULL);
  figures->errors = make_counter(figures, "errors", "Count", NULL);
  figures->file_size =
      keep(figures, vek_metric_registry_histogram_new(registry, "file_size", "Bytes", sizes, NULL));
  figures->waiting =
      keep(figures, vek_metric_registry_gauge_new(registry, "waiting", "Count", 0, NULL));

  figures->bytes = make_counter(figures, "bytes", "Bytes", by_algorithm);
  figures->files_empty =
      make_counter(figures, "files", "Count", DIMENSIONS("algorithm", name, "content", "empty"));
  figures->files_with_data =
      make_counter(figures, "files", "Count", DIMENSIONS("algorithm", name, "content", "data"));
  figures->file_time = keep(
      figures,
      vek_metric_registry_timer_new(registry, "file_time", "Milliseconds", times, by_algorithm));
  figures->speed =
      keep(figures, vek_metric_registry_meter_new(registry, "speed", "Bytes/Second", by_algorithm));
  figures->throughput =
      keep(figures, vek_metric_registry_gauge_new(registry, "throughput", "Bytes/Second",
                                                  G_USEC_PER_SEC, by_algorithm));
  make_workers(figures, workers);

  /* The first mark starts the clock and is not counted; a gauge never set is not reported. */
  vek_metric_meter_mark(figures->speed, 0.0);
  vek_metric_gauge_set_value(figures->waiting, 0.0);
  return figures;
}

void figures_free(Figures *figures) {
  g_async_queue_unref(figures->idle_workers);
  g_hash_table_unref(figures->errors_by_reason);
  g_ptr_array_unref(figures->metrics);
  g_free(figures);
  vek_metric_registry_set_default(NULL);
}

/* A short name without spaces, such as "not-found"; what the system says would be translated. */
static const char *get_reason(int error_number) {
  g_autoptr(GEnumClass) reasons = g_type_class_ref(G_TYPE_IO_ERROR_ENUM);
  return g_enum_get_value(reasons, (int)g_io_error_from_errno(error_number))->value_nick;
}

void figures_count_error(Figures *figures, int error_number) {
  const char *reason = get_reason(error_number);

  /* The counters are kept: one that only the registry holds is gone after its next pass. */
  VekMetricCounter *counter = g_hash_table_lookup(figures->errors_by_reason, reason);
  if (!counter) {
    counter = vek_metric_registry_counter_new(figures->registry, "errors", "Count",
                                              DIMENSIONS("reason", (char *)reason));
    g_hash_table_insert(figures->errors_by_reason, (char *)reason, counter);
  }
  vek_metric_counter_inc(counter);
  vek_metric_counter_inc(figures->errors);
}

gint64 figures_get_files(Figures *figures) {
  return vek_metric_counter_get_count(figures->files_empty) +
         vek_metric_counter_get_count(figures->files_with_data);
}
