/* A custom reporter: it writes the Prometheus text format, for the textfile collector of a node
 * exporter.
 *
 * Each flush replaces the whole file, so a reader sees one complete report or the next.
 *
 * Prometheus takes a counter that falls for one that was restarted: rate() and increase() then add
 * what it fell to. Counters of this library may fall, so each is written as a gauge, for delta(),
 * unless the program names it as one that only rises.
 *
 *   textfile /var/lib/prometheus/node-exporter/example.prom
 */

#include <string.h>
#include <vekmetrics/vekmetrics.h>

#define TEXTFILE_TYPE_REPORTER (textfile_reporter_get_type())
G_DECLARE_FINAL_TYPE(TextfileReporter, textfile_reporter, TEXTFILE, REPORTER, GObject)

struct _TextfileReporter {
  GObject parent_instance;

  char *path;
  char **rising;   /* the names of the counters that never fall */
  GTree *families; /* from name to Family: sorted, the format wants a family in one piece */
};

/* All samples of one name. */
typedef struct {
  const char *type;
  char *help;
  GTree *samples; /* from labels to value, both as text */
} Family;

static void textfile_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_FINAL_TYPE_WITH_CODE(TextfileReporter, textfile_reporter, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                                    textfile_reporter_reporter_init))

static int compare_strings(gconstpointer a, gconstpointer b, gpointer data) {
  (void)data;
  return g_strcmp0(a, b);
}

static GTree *string_tree_new(GDestroyNotify free_value) {
  return g_tree_new_full(compare_strings, NULL, g_free, free_value);
}

static void family_free(gpointer data) {
  Family *family = data;
  g_free(family->help);
  g_tree_unref(family->samples);
  g_free(family);
}

/* A name as the format allows it: letters, digits and underscores, and no digit in front. */
static char *make_name(const char *name, const char *suffix) {
  g_autoptr(GString) text = g_string_new(g_ascii_isdigit(*name) ? "_" : NULL);
  for (const char *c = name; *c; c++)
    g_string_append_c(text, g_ascii_isalnum(*c) ? *c : '_');
  g_string_append(text, suffix);
  return g_string_free(g_steal_pointer(&text), FALSE);
}

static void append_escaped(GString *text, const char *string, const char *special) {
  for (const char *c = string; *c; c++) {
    if (*c == '\n')
      g_string_append(text, "\\n");
    else if (strchr(special, *c))
      g_string_append_printf(text, "\\%c", *c);
    else
      g_string_append_c(text, *c);
  }
}

/* {host="h1",disk="sda"}, or nothing. */
static char *make_labels(char **dimensions) {
  g_autoptr(GString) text = g_string_new(NULL);
  for (char **pair = dimensions; pair && pair[0] && pair[1]; pair += 2) {
    g_autofree char *label = make_name(pair[0], "");
    g_string_append_printf(text, "%s%s=\"", pair == dimensions ? "{" : ",", label);
    append_escaped(text, pair[1], "\"\\");
    g_string_append_c(text, '"');
  }
  if (text->len > 0)
    g_string_append_c(text, '}');
  return g_string_free(g_steal_pointer(&text), FALSE);
}

/* Takes the value. Two metrics whose names and labels come out the same are one sample: the later
 * one is kept, and the reader told. */
static void add_sample(VekMetricReporter *reporter, const char *type, const char *name,
                       const char *suffix, char **dimensions, const char *unit, char *value) {
  TextfileReporter *self = TEXTFILE_REPORTER(reporter);
  char *family_name = make_name(name, suffix);
  Family *family = g_tree_lookup(self->families, family_name);
  if (family) {
    g_free(family_name);
  } else {
    family = g_new(Family, 1);
    family->type = type;
    family->help = g_strdup_printf("%s, in %s", name, unit ? unit : "no unit");
    family->samples = string_tree_new(g_free);
    g_tree_insert(self->families, family_name, family);
  }

  char *labels = make_labels(dimensions);
  if (g_tree_lookup(family->samples, labels))
    g_warning("Two metrics are %s%s%s in the text format", name, suffix, labels);
  g_tree_insert(family->samples, labels, value);
}

static char *format_double(double value) {
  char text[G_ASCII_DTOSTR_BUF_SIZE];
  return g_strdup(g_ascii_dtostr(text, sizeof text, value));
}

static void textfile_reporter_process_count(VekMetricReporter *reporter, const char *name,
                                            char **dimensions, const char *unit, gint64 timestamp,
                                            gint64 count) {
  (void)timestamp; /* a node exporter takes none */
  TextfileReporter *self = TEXTFILE_REPORTER(reporter);
  gboolean rises = g_strv_contains((const char *const *)self->rising, name);
  add_sample(reporter, rises ? "counter" : "gauge", name, rises ? "_total" : "", dimensions, unit,
             g_strdup_printf("%" G_GINT64_FORMAT, count));
}

static void textfile_reporter_process_value(VekMetricReporter *reporter, const char *name,
                                            char **dimensions, const char *unit, gint64 timestamp,
                                            double value) {
  (void)timestamp;
  add_sample(reporter, "gauge", name, "", dimensions, unit, format_double(value));
}

/* Gauges, and not a summary: the samples are those that the store holds now, and a summary's sum
 * and count would have to go on growing. */
static void textfile_reporter_process_aggregated(VekMetricReporter *reporter, const char *name,
                                                 char **dimensions, const char *unit,
                                                 VekMetricSnapshot *snapshot) {
  const struct {
    const char *suffix;
    double value;
  } figures[] = {
      {"_samples", (double)vek_metric_snapshot_get_n_samples(snapshot)},
      {"_average", vek_metric_snapshot_get_average(snapshot)},
      {"_min", vek_metric_snapshot_get_min(snapshot)},
      {"_max", vek_metric_snapshot_get_max(snapshot)},
      {"_p50", vek_metric_snapshot_get_quantile(snapshot, 0.5)},
      {"_p90", vek_metric_snapshot_get_quantile(snapshot, 0.9)},
      {"_p99", vek_metric_snapshot_get_quantile(snapshot, 0.99)},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(figures); i++)
    add_sample(reporter, "gauge", name, figures[i].suffix, dimensions, unit,
               format_double(figures[i].value));
}

static void textfile_reporter_flush(VekMetricReporter *reporter) {
  TextfileReporter *self = TEXTFILE_REPORTER(reporter);
  g_autoptr(GString) text = g_string_new(NULL);
  for (GTreeNode *f = g_tree_node_first(self->families); f; f = g_tree_node_next(f)) {
    const char *name = g_tree_node_key(f);
    Family *family = g_tree_node_value(f);
    g_string_append_printf(text, "# HELP %s ", name);
    append_escaped(text, family->help, "\\");
    g_string_append_printf(text, "\n# TYPE %s %s\n", name, family->type);
    for (GTreeNode *s = g_tree_node_first(family->samples); s; s = g_tree_node_next(s))
      g_string_append_printf(text, "%s%s %s\n", name, (char *)g_tree_node_key(s),
                             (char *)g_tree_node_value(s));
  }
  g_tree_remove_all(self->families);

  g_autoptr(GError) error = NULL;
  if (!g_file_set_contents(self->path, text->str, (gssize)text->len, &error))
    g_warning("Could not write the report: %s", error->message);
}

static void textfile_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = textfile_reporter_process_count;
  iface->process_value = textfile_reporter_process_value;
  iface->process_aggregated = textfile_reporter_process_aggregated;
  iface->flush = textfile_reporter_flush;
}

static void textfile_reporter_finalize(GObject *object) {
  TextfileReporter *self = TEXTFILE_REPORTER(object);
  g_free(self->path);
  g_strfreev(self->rising);
  g_tree_unref(self->families);

  G_OBJECT_CLASS(textfile_reporter_parent_class)->finalize(object);
}

static void textfile_reporter_class_init(TextfileReporterClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = textfile_reporter_finalize;
}

static void textfile_reporter_init(TextfileReporter *self) {
  self->families = string_tree_new(family_free);
}

/* Makes a reporter that writes to a file. The vector names the counters that never fall. */
static VekMetricReporter *textfile_reporter_new(const char *path, char **rising) {
  TextfileReporter *self = g_object_new(TEXTFILE_TYPE_REPORTER, NULL);
  self->path = g_strdup(path);
  self->rising = g_strdupv(rising);
  return VEK_METRIC_REPORTER(self);
}

/* Reports metrics of every kind in each pass. A program with a main loop registers the reporter
 * instead, and has a pass every minute. */
int main(int argc, char **argv) {
  if (argc != 2 && argc != 3) {
    g_printerr("Usage: %s FILE.prom [PASSES]\n", argv[0]);
    return 2;
  }
  gint64 n_passes = argc == 3 ? g_ascii_strtoll(argv[2], NULL, 10) : 1;
  char *rising[] = {"http.requests", NULL};
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  g_autoptr(VekMetricReporter) reporter = textfile_reporter_new(argv[1], rising);

  char *h1[] = {"host", "h1", NULL}, *h2[] = {"host", "\"h2\\", NULL};
  g_autoptr(VekMetricCounter) some =
      vek_metric_registry_counter_new(registry, "http.requests", "Count", h1);
  g_autoptr(VekMetricCounter) others =
      vek_metric_registry_counter_new(registry, "http.requests", "Count", h2);
  g_autoptr(VekMetricCounter) connections =
      vek_metric_registry_counter_new(registry, "connections", "Count", NULL);
  g_autoptr(VekMetricGauge) load = vek_metric_registry_gauge_new(registry, "load", NULL, 0, NULL);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(registry, "response", "Seconds", NULL, h1);

  vek_metric_counter_add(connections, 99);
  for (gint64 pass = 0; pass < n_passes; pass++) {
    vek_metric_counter_add(some, 42);
    vek_metric_counter_add(others, 7);
    vek_metric_counter_add(connections, pass % 2 == 0 ? 1 : -1); /* one is opened or closed */
    vek_metric_gauge_set_value(load, 0.25);
    for (int i = 1; i <= 4; i++)
      vek_metric_timer_set_usec(timer, i * 250000);
    vek_metric_registry_report(registry, reporter);
  }
  return 0;
}
