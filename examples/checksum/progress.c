#include "progress.h"

#include <unistd.h>

struct _Progress {
  GObject parent_instance;
  const Figures *figures;
  gboolean terminal;
  gint64 time;  /* of the last pass, in monotonic microseconds */
  gint64 bytes; /* until then */
};

static gint64 count_files(const Figures *figures) {
  return vek_metric_counter_get_count(figures->files_empty) +
         vek_metric_counter_get_count(figures->files_with_data);
}

/* Bytes in a microsecond are megabytes in a second. The next line overwrites this one. */
static void progress_flush(VekMetricReporter *reporter) {
  Progress *self = EXAMPLE_PROGRESS(reporter);
  gint64 time = g_get_monotonic_time();
  gint64 bytes = vek_metric_counter_get_count(self->figures->bytes);
  if (self->terminal)
    g_printerr("\033[K%3.0f s  %" G_GINT64_FORMAT " files  %.1f MB  %.1f MB/s\r",
               (double)(time - self->figures->start) / G_USEC_PER_SEC, count_files(self->figures),
               (double)bytes / 1e6, (double)(bytes - self->bytes) / (double)(time - self->time));
  self->time = time;
  self->bytes = bytes;
}

static void progress_reporter_init(VekMetricReporterInterface *iface) {
  iface->flush = progress_flush;
}

G_DEFINE_TYPE_WITH_CODE(Progress, progress, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER, progress_reporter_init))

static void progress_class_init(ProgressClass *klass) {
  (void)klass;
}

static void progress_init(Progress *self) {
  self->terminal = isatty(STDERR_FILENO);
}

Progress *progress_new(const Figures *figures, char **folders, int n_threads, double seconds) {
  Progress *self = g_object_new(PROGRESS_TYPE, NULL);
  self->figures = figures;
  self->time = figures->start;
  g_autofree char *names = g_strjoinv(", ", folders);
  g_autofree char *shown = g_filename_display_name(names);
  g_autofree char *limit =
      seconds > 0 ? g_strdup_printf(" for %g second%s", seconds, seconds == 1 ? "" : "s") : NULL;
  g_printerr("Hashes the files below %s on %d thread%s%s, and measures itself.\n", shown, n_threads,
             n_threads == 1 ? "" : "s", limit ? limit : "");
  return self;
}

void progress_end(Progress *progress) {
  gint64 errors = vek_metric_counter_get_count(progress->figures->errors);
  double seconds = (double)(g_get_monotonic_time() - progress->figures->start) / G_USEC_PER_SEC;
  double megabytes = (double)vek_metric_counter_get_count(progress->figures->bytes) / 1e6;
  g_printerr("%sHashed %" G_GINT64_FORMAT " files, %.1f MB, in %.1f s: %.1f MB/s, %" G_GINT64_FORMAT
             " error%s.\n",
             progress->terminal ? "\033[K" : "", count_files(progress->figures), megabytes, seconds,
             megabytes / seconds, errors, errors == 1 ? "" : "s");
}
