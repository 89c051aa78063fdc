#include "figures.h"

#include <gio/gio.h>

#define DIMENSIONS(...) ((char *[]){__VA_ARGS__, NULL})

Figures *figures_new(const char *algorithm) {
  Figures *figures = g_new0(Figures, 1);
  char *name = (char *)algorithm;

  figures->registry = vek_metric_registry_get_default();
  figures->console = vek_metric_console_reporter_new();
  vek_metric_registry_register_reporter(figures->registry, figures->console);

  figures->folders = vek_metric_registry_counter_new(figures->registry, "folders", "Count", NULL);
  figures->skipped = vek_metric_registry_counter_new(figures->registry, "skipped", "Count", NULL);
  figures->errors = vek_metric_registry_counter_new(figures->registry, "errors", "Count", NULL);
  figures->errors_by_reason = g_hash_table_new_full(g_str_hash, g_str_equal, NULL, g_object_unref);

  figures->bytes = vek_metric_registry_counter_new(figures->registry, "bytes", "Bytes",
                                                   DIMENSIONS("algorithm", name));
  figures->files_empty = vek_metric_registry_counter_new(
      figures->registry, "files", "Count", DIMENSIONS("algorithm", name, "content", "empty"));
  figures->files_with_data = vek_metric_registry_counter_new(
      figures->registry, "files", "Count", DIMENSIONS("algorithm", name, "content", "data"));
  return figures;
}

void figures_free(Figures *figures) {
  g_object_unref(figures->console);
  g_object_unref(figures->folders);
  g_object_unref(figures->skipped);
  g_object_unref(figures->errors);
  g_hash_table_unref(figures->errors_by_reason);
  g_object_unref(figures->bytes);
  g_object_unref(figures->files_empty);
  g_object_unref(figures->files_with_data);
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

void figures_report(Figures *figures) {
  vek_metric_registry_report(figures->registry, figures->console);
}
