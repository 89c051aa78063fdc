/* A reporter that writes a capture for Sysprof, whose window shows it below the samples of a
 * profiler: the ranges of timelines as marks, all other figures as counters.
 *
 *   sysprof FILE.syscap */

#include <string.h>
#include <sysprof-capture.h>
#include <unistd.h>
#include <vekmetrics/vekmetrics.h>

#define SYSPROF_TYPE_REPORTER (sysprof_reporter_get_type())
G_DECLARE_FINAL_TYPE(SysprofReporter, sysprof_reporter, SYSPROF, REPORTER, GObject)

struct _SysprofReporter {
  GObject parent_instance;
  SysprofCaptureWriter *writer;
  GHashTable *counters; /* from category and name to the id of the counter */
  gint64 offset;        /* of the monotonic clock from the wall clock, in microseconds */
};

/* A counter is defined before its first value. Sysprof cuts long names. */
static unsigned find_counter(SysprofReporter *self, const char *category, const char *name,
                             const char *unit, int type, gint64 now) {
  g_autofree char *key = g_strdup_printf("%s/%s", category, name);
  gpointer found = g_hash_table_lookup(self->counters, key);
  if (found)
    return GPOINTER_TO_UINT(found);

  SysprofCaptureCounter counter = {
      .id = sysprof_capture_writer_request_counter(self->writer, 1) & 0xffffff,
      .type = type & 0xff,
  };
  g_strlcpy(counter.category, category, sizeof counter.category);
  g_strlcpy(counter.name, name, sizeof counter.name);
  g_strlcpy(counter.description, unit ? unit : "", sizeof counter.description);
  sysprof_capture_writer_define_counters(self->writer, now, -1, getpid(), &counter, 1);
  g_hash_table_insert(self->counters, g_steal_pointer(&key), GUINT_TO_POINTER(counter.id));
  return counter.id;
}

static void set_counter(VekMetricReporter *reporter, const char *name, char **dimensions,
                        const char *unit, int type, SysprofCaptureCounterValue value) {
  SysprofReporter *self = SYSPROF_REPORTER(reporter);
  g_autofree char *category = dimensions ? g_strjoinv(" ", dimensions) : g_strdup("general");
  gint64 now = SYSPROF_CAPTURE_CURRENT_TIME;
  unsigned id = find_counter(self, category, name, unit, type, now);
  sysprof_capture_writer_set_counters(self->writer, now, -1, getpid(), &id, &value, 1);
}

static void sysprof_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                           gchar **dimensions, const gchar *unit, gint64 timestamp,
                                           gint64 count) {
  (void)timestamp; /* of the last change; the value is the one of now */
  set_counter(reporter, name, dimensions, unit, SYSPROF_CAPTURE_COUNTER_INT64,
              (SysprofCaptureCounterValue){.v64 = count});
}

static void sysprof_reporter_process_value(VekMetricReporter *reporter, const gchar *name,
                                           gchar **dimensions, const gchar *unit, gint64 timestamp,
                                           gdouble value) {
  (void)timestamp;
  set_counter(reporter, name, dimensions, unit, SYSPROF_CAPTURE_COUNTER_DOUBLE,
              (SysprofCaptureCounterValue){.vdbl = value});
}

static void sysprof_reporter_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                                gchar **dimensions, const gchar *unit,
                                                VekMetricSnapshot *snapshot) {
  const struct {
    const char *name;
    double value;
  } statistics[] = {
      {"min", vek_metric_snapshot_get_min(snapshot)},
      {"p50", vek_metric_snapshot_get_quantile(snapshot, 0.5)},
      {"p90", vek_metric_snapshot_get_quantile(snapshot, 0.9)},
      {"max", vek_metric_snapshot_get_max(snapshot)},
  };
  if (vek_metric_snapshot_get_n_samples(snapshot) == 0)
    return;
  for (gsize i = 0; i < G_N_ELEMENTS(statistics); i++) {
    g_autofree char *full = g_strdup_printf("%s %s", name, statistics[i].name);
    sysprof_reporter_process_value(reporter, full, dimensions, unit, 0, statistics[i].value);
  }
}

/* Ranges are of the wall clock in microseconds, captures of the monotonic clock in nanoseconds. */
static void sysprof_reporter_process_timeline_samples(VekMetricReporter *reporter,
                                                      const gchar *name, GSList *samples) {
  SysprofReporter *self = SYSPROF_REPORTER(reporter);
  for (GSList *item = samples; item; item = item->next) {
    const VekMetricRange *range = item->data;
    g_autofree char *id = g_strdup_printf("%d", range->id);
    sysprof_capture_writer_add_mark(self->writer, (range->start + self->offset) * 1000, -1,
                                    getpid(), (guint64)(range->end - range->start) * 1000, name, id,
                                    NULL);
  }
}

static void sysprof_reporter_flush(VekMetricReporter *reporter) {
  if (!sysprof_capture_writer_flush(SYSPROF_REPORTER(reporter)->writer))
    g_warning("The capture could not be written");
}

static void sysprof_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = sysprof_reporter_process_count;
  iface->process_value = sysprof_reporter_process_value;
  iface->process_aggregated = sysprof_reporter_process_aggregated;
  iface->process_timeline_samples = sysprof_reporter_process_timeline_samples;
  iface->flush = sysprof_reporter_flush;
}

G_DEFINE_TYPE_WITH_CODE(SysprofReporter, sysprof_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              sysprof_reporter_reporter_init))

static void sysprof_reporter_finalize(GObject *object) {
  SysprofReporter *self = SYSPROF_REPORTER(object);
  sysprof_capture_writer_unref(self->writer);
  g_hash_table_unref(self->counters);
  G_OBJECT_CLASS(sysprof_reporter_parent_class)->finalize(object);
}

static void sysprof_reporter_class_init(SysprofReporterClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = sysprof_reporter_finalize;
}

static void sysprof_reporter_init(SysprofReporter *self) {
  self->offset = g_get_monotonic_time() - g_get_real_time();
  self->counters = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, NULL);
}

/* Hashes more memory each time, and reports after each. */
int main(int argc, char **argv) {
  if (argc != 2) {
    g_printerr("Usage: %s FILE.syscap\n", argv[0]);
    return 2;
  }
  g_autoptr(SysprofReporter) reporter = g_object_new(SYSPROF_TYPE_REPORTER, NULL);
  reporter->writer = sysprof_capture_writer_new(argv[1], 0);
  if (!reporter->writer) {
    g_printerr("%s: could not be created\n", argv[1]);
    return 1;
  }

  VekMetricRegistry *registry = vek_metric_registry_get_default();
  char *sha256[] = {"algorithm", "sha256", NULL};
  g_autoptr(VekMetricCounter) bytes =
      vek_metric_registry_counter_new(registry, "bytes", "Bytes", sha256);
  g_autoptr(VekMetricGauge) left = vek_metric_registry_gauge_new(registry, "left", NULL, 0, NULL);
  g_autoptr(VekMetricHistogram) sizes =
      vek_metric_registry_histogram_new(registry, "size", "Bytes", NULL, NULL);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "hashing");

  static guchar memory[3000000];
  for (int i = 1; i <= 3; i++) {
    int size = i * 1000000;
    gint64 start = g_get_real_time();
    g_free(g_compute_checksum_for_data(G_CHECKSUM_SHA256, memory, (gsize)size));
    vek_metric_timeline_add_range(timeline, i, start, g_get_real_time());
    vek_metric_counter_add(bytes, size);
    vek_metric_gauge_set_value(left, 3 - i);
    vek_metric_histogram_set(sizes, size);
    vek_metric_registry_report(registry, VEK_METRIC_REPORTER(reporter));
  }
  return 0;
}
