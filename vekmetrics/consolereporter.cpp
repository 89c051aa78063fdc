#include "consolereporter.h"

#include "common/internal.hpp"
#include "common/numbers.hpp"

#include <string.h>

struct _VekMetricConsoleReporter {
  GObject parent_instance;

  GHashTable *sections;  // from section key to Section
  GString *key;          // where the key of a line's section is put together
};
static_assert(vekin::ZeroFillable<VekMetricConsoleReporter>);

namespace {

// The metrics of one set of dimensions.
struct Section {
  const char *key;     // the table's
  char **dimensions;   // of the metric that made the section; NULL without dimensions
  guint n_dimensions;  // strings
  GPtrArray *lines;    // in order of arrival until they are printed
};

// A line is one block: the metric's name, and behind its NUL the text.
const char *get_text(const char *line) {
  return line + strlen(line) + 1;
}

}  // namespace

static void vek_metric_console_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekMetricConsoleReporter, vek_metric_console_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_metric_console_reporter_reporter_init))

static void free_section(gpointer data) {
  auto *section = vekin::as<Section>(data);
  g_strfreev(section->dimensions);
  g_ptr_array_unref(section->lines);
  g_slice_free(Section, section);
}

static void put_section_key(GString *key, char **dimensions) {
  g_string_truncate(key, 0);
  if (dimensions)
    vekin::append_joined(key, dimensions);
  else
    g_string_append(key, "general");
}

static Section *get_section(VekMetricConsoleReporter *self, char **dimensions) {
  put_section_key(self->key, dimensions);
  auto *section = vekin::as<Section>(g_hash_table_lookup(self->sections, self->key->str));
  if (!section) {
    char *key = g_strdup(self->key->str);
    section = g_slice_new(Section);
    *section = {.key = key,
                .dimensions = g_strdupv(dimensions),
                .n_dimensions = dimensions ? g_strv_length(dimensions) : 0,
                .lines = g_ptr_array_new_with_free_func(g_free)};
    g_hash_table_insert(self->sections, key, section);
  }
  return section;
}

static void add_line(VekMetricReporter *reporter, const char *name, char **dimensions,
                     const char *text) {
  if (!name)
    name = "(null)";  // of a disposed metric, as printf() shows it
  gsize name_size = strlen(name) + 1;
  gsize text_size = strlen(text) + 1;
  auto *line = g_new(char, name_size + text_size);
  memcpy(line, name, name_size);
  memcpy(line + name_size, text, text_size);

  auto *section = get_section(vekin::as<VekMetricConsoleReporter>(reporter), dimensions);
  g_ptr_array_add(section->lines, line);
}

static int compare_sections(gconstpointer a, gconstpointer b) {
  auto *left = static_cast<const Section *>(a);
  auto *right = static_cast<const Section *>(b);
  if (left->n_dimensions != right->n_dimensions)
    return left->n_dimensions < right->n_dimensions ? -1 : 1;
  return strcmp(left->key, right->key);
}

// By name: the rest of the line lies behind its NUL.
static int compare_lines(gconstpointer a, gconstpointer b) {
  return strcmp(*static_cast<const char *const *>(a), *static_cast<const char *const *>(b));
}

static void print_line(gpointer data, gpointer) {
  auto *line = static_cast<const char *>(data);
  g_print("%s: %s\n", line, get_text(line));
}

static void print_header(char **dimensions) {
  if (!dimensions) {
    g_print("general:\n");
    return;
  }
  const char *prefix = "";
  for (char **pair = dimensions; pair[0] && pair[1]; pair += 2) {
    g_print("%s%s=%s", prefix, pair[0], pair[1]);
    prefix = ", ";
  }
  g_print(":\n");
}

static void print_section(gpointer data, gpointer) {
  auto *section = static_cast<const Section *>(data);
  print_header(section->dimensions);
  g_ptr_array_sort(section->lines, compare_lines);  // stable: equal names stay as they came
  g_ptr_array_foreach(section->lines, print_line, nullptr);
  g_print("\n");
}

static void vek_metric_console_reporter_process_count(VekMetricReporter *reporter,
                                                      const gchar *name, gchar **dimensions,
                                                      const gchar *, gint64, gint64 count) {
  add_line(reporter, name, dimensions, vekin::Decimal(count).text);
}

static void vek_metric_console_reporter_process_value(VekMetricReporter *reporter,
                                                      const gchar *name, gchar **dimensions,
                                                      const gchar *, gint64, gdouble value) {
  g_autofree char *text = g_strdup_printf("%f", value);
  add_line(reporter, name, dimensions, text);
}

static void vek_metric_console_reporter_process_aggregated(VekMetricReporter *reporter,
                                                           const gchar *name, gchar **dimensions,
                                                           const gchar *,
                                                           VekMetricSnapshot *snapshot) {
  gdouble average = vek_metric_snapshot_get_average(snapshot);
  gsize n_samples = vek_metric_snapshot_get_n_samples(snapshot);
  gdouble max = vek_metric_snapshot_get_max(snapshot);
  gdouble min = vek_metric_snapshot_get_min(snapshot);
  gdouble p10 = vek_metric_snapshot_get_quantile(snapshot, 0.1);
  gdouble p50 = vek_metric_snapshot_get_quantile(snapshot, 0.5);
  gdouble p90 = vek_metric_snapshot_get_quantile(snapshot, 0.9);
  g_autofree char *text = g_strdup_printf("avg: %f, n samples: %" G_GSIZE_FORMAT
                                          ", max: %f, min: %f, p10: %f, p50: %f, p90: %f",
                                          average, n_samples, max, min, p10, p50, p90);
  add_line(reporter, name, dimensions, text);
}

static void vek_metric_console_reporter_flush(VekMetricReporter *reporter) {
  auto *self = vekin::as<VekMetricConsoleReporter>(reporter);
  g_autoptr(GList) sections = g_hash_table_get_values(self->sections);
  sections = g_list_sort(sections, compare_sections);
  g_list_foreach(sections, print_section, nullptr);
  g_hash_table_remove_all(self->sections);
}

static void vek_metric_console_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_metric_console_reporter_process_count;
  iface->process_value = vek_metric_console_reporter_process_value;
  iface->process_aggregated = vek_metric_console_reporter_process_aggregated;
  iface->flush = vek_metric_console_reporter_flush;
}

static void vek_metric_console_reporter_finalize(GObject *object) {
  auto *self = vekin::as<VekMetricConsoleReporter>(object);
  g_hash_table_unref(self->sections);
  g_string_free(self->key, TRUE);

  G_OBJECT_CLASS(vek_metric_console_reporter_parent_class)->finalize(object);
}

static void vek_metric_console_reporter_class_init(VekMetricConsoleReporterClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = vek_metric_console_reporter_finalize;
}

static void vek_metric_console_reporter_init(VekMetricConsoleReporter *self) {
  self->sections = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, free_section);
  self->key = g_string_new(nullptr);
}

VekMetricReporter *vek_metric_console_reporter_new(void) {
  return VEK_METRIC_REPORTER(g_object_new(VEK_TYPE_METRIC_CONSOLE_REPORTER, nullptr));
}
