#include "consolereporter.h"

#include "internal.hpp"

#include <string.h>

struct _VekMetricConsoleReporter {
  GObject parent_instance;

  GHashTable *sections;  // from section key to Section
};
static_assert(vek::ZeroFillable<VekMetricConsoleReporter>);

namespace {

// The metrics of one set of dimensions.
struct Section {
  char **dimensions;  // of the metric that made the section; NULL without dimensions
  GPtrArray *lines;   // of Line, in order of arrival until they are printed
};

// One metric.
struct Line {
  char *name;
  char *text;
};

}  // namespace

static void vek_metric_console_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekMetricConsoleReporter, vek_metric_console_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_metric_console_reporter_reporter_init))

static void free_line(gpointer data) {
  auto *line = static_cast<Line *>(data);
  g_free(line->name);
  g_free(line->text);
  g_slice_free(Line, line);
}

static void free_section(gpointer data) {
  auto *section = static_cast<Section *>(data);
  g_strfreev(section->dimensions);
  g_ptr_array_unref(section->lines);
  g_slice_free(Section, section);
}

static char *get_section_key(char **dimensions) {
  return dimensions ? g_strjoinv(".", dimensions) : g_strdup("general");
}

static Section *get_section(VekMetricConsoleReporter *self, char **dimensions) {
  g_autofree char *key = get_section_key(dimensions);
  auto *section = static_cast<Section *>(g_hash_table_lookup(self->sections, key));
  if (!section) {
    section = g_slice_new(Section);
    *section = {.dimensions = g_strdupv(dimensions), .lines = g_ptr_array_new_full(0, free_line)};
    g_hash_table_insert(self->sections, g_steal_pointer(&key), section);
  }
  return section;
}

G_GNUC_PRINTF(4, 5)
static void add_line(VekMetricReporter *reporter, const char *name, char **dimensions,
                     const char *format, ...) {
  auto *section = get_section(VEK_METRIC_CONSOLE_REPORTER(reporter), dimensions);

  va_list figures;
  va_start(figures, format);
  auto *line = g_slice_new(Line);
  *line = {.name = g_strdup(name), .text = g_strdup_vprintf(format, figures)};
  va_end(figures);
  g_ptr_array_add(section->lines, line);
}

static int compare_sections(gconstpointer a, gconstpointer b) {
  auto *left = static_cast<const Section *>(a)->dimensions;
  auto *right = static_cast<const Section *>(b)->dimensions;

  guint left_length = left ? g_strv_length(left) : 0;
  guint right_length = right ? g_strv_length(right) : 0;
  if (left_length != right_length)
    return left_length < right_length ? -1 : 1;

  g_autofree char *left_key = get_section_key(left);
  g_autofree char *right_key = get_section_key(right);
  return strcmp(left_key, right_key);
}

static int compare_lines(gconstpointer a, gconstpointer b) {
  return strcmp((*static_cast<Line *const *>(a))->name, (*static_cast<Line *const *>(b))->name);
}

static void print_line(gpointer data, gpointer) {
  auto *line = static_cast<const Line *>(data);
  g_print("%s: %s\n", line->name, line->text);
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
  add_line(reporter, name, dimensions, "%lli", static_cast<long long>(count));
}

static void vek_metric_console_reporter_process_value(VekMetricReporter *reporter,
                                                      const gchar *name, gchar **dimensions,
                                                      const gchar *, gint64, gdouble value) {
  add_line(reporter, name, dimensions, "%f", value);
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
  add_line(reporter, name, dimensions,
           "avg: %f, n samples: %lu, max: %f, min: %f, p10: %f, p50: %f, p90: %f", average,
           n_samples, max, min, p10, p50, p90);
}

static void vek_metric_console_reporter_flush(VekMetricReporter *reporter) {
  auto *self = VEK_METRIC_CONSOLE_REPORTER(reporter);
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
  g_hash_table_unref(VEK_METRIC_CONSOLE_REPORTER(object)->sections);

  G_OBJECT_CLASS(vek_metric_console_reporter_parent_class)->finalize(object);
}

static void vek_metric_console_reporter_class_init(VekMetricConsoleReporterClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = vek_metric_console_reporter_finalize;
}

static void vek_metric_console_reporter_init(VekMetricConsoleReporter *self) {
  self->sections = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, free_section);
}

VekMetricReporter *vek_metric_console_reporter_new(void) {
  return VEK_METRIC_REPORTER(g_object_new(VEK_TYPE_METRIC_CONSOLE_REPORTER, nullptr));
}
