#include "logreporter.h"

#include "common/internal.hpp"
#include "common/numbers.hpp"
#include "csvfile.hpp"

#include <errno.h>

struct _VekMetricLogReporter {
  GObject parent_instance;

  vekin::CsvFile log;
};
static_assert(vekin::ZeroFillable<VekMetricLogReporter>);

static void vek_metric_log_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekMetricLogReporter, vek_metric_log_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_metric_log_reporter_reporter_init))

// "host=a;zone=b;": every string is followed by its separator, the last one too.
static char *join_dimensions(char **dimensions) {
  g_autoptr(GString) text = g_string_new(nullptr);
  char separator = '=';
  for (char **string = dimensions; string && *string; string++) {
    g_string_append(text, *string);
    g_string_append_c(text, separator);
    separator = separator == '=' ? ';' : '=';
  }
  return g_string_free(g_steal_pointer(&text), FALSE);
}

static void log_entry(VekMetricReporter *reporter, gint64 timestamp, const char *name,
                      char **dimensions, const char *c1, const char *c2 = "", const char *c3 = "",
                      const char *c4 = "", const char *c5 = "", const char *c6 = "",
                      const char *c7 = "") {
  FILE *file = vekin::as<VekMetricLogReporter>(reporter)->log.file;
  if (!file)
    return;

  g_autofree char *joined = join_dimensions(dimensions);
  fprintf(file, "%lli,%s,%s,%s,%s,%s,%s,%s,%s,%s\n", static_cast<long long>(timestamp), name,
          joined, c1, c2, c3, c4, c5, c6, c7);
}

static void vek_metric_log_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                                  gchar **dimensions, const gchar *,
                                                  gint64 timestamp, gint64 count) {
  log_entry(reporter, timestamp, name, dimensions, vekin::Decimal(count).text);
}

static void vek_metric_log_reporter_process_value(VekMetricReporter *reporter, const gchar *name,
                                                  gchar **dimensions, const gchar *,
                                                  gint64 timestamp, gdouble value) {
  log_entry(reporter, timestamp, name, dimensions, vekin::RoundTrip(value).text);
}

static void vek_metric_log_reporter_process_aggregated(VekMetricReporter *reporter,
                                                       const gchar *name, gchar **dimensions,
                                                       const gchar *, VekMetricSnapshot *snapshot) {
  log_entry(reporter, vek_metric_snapshot_get_time(snapshot), name, dimensions,
            vekin::RoundTrip(vek_metric_snapshot_get_average(snapshot)).text,
            vekin::Decimal(vek_metric_snapshot_get_n_samples(snapshot)).text,
            vekin::RoundTrip(vek_metric_snapshot_get_min(snapshot)).text,
            vekin::RoundTrip(vek_metric_snapshot_get_max(snapshot)).text,
            vekin::RoundTrip(vek_metric_snapshot_get_quantile(snapshot, 0.1)).text,
            vekin::RoundTrip(vek_metric_snapshot_get_quantile(snapshot, 0.5)).text,
            vekin::RoundTrip(vek_metric_snapshot_get_quantile(snapshot, 0.9)).text);
}

static void vek_metric_log_reporter_flush(VekMetricReporter *reporter) {
  vekin::as<VekMetricLogReporter>(reporter)->log.flush();
}

static void vek_metric_log_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_metric_log_reporter_process_count;
  iface->process_value = vek_metric_log_reporter_process_value;
  iface->process_aggregated = vek_metric_log_reporter_process_aggregated;
  iface->flush = vek_metric_log_reporter_flush;
}

static void vek_metric_log_reporter_set_property(GObject *object, guint id, const GValue *value,
                                                 GParamSpec *pspec) {
  vekin::as<VekMetricLogReporter>(object)->log.set_property(object, id, value, pspec);
}

static void vek_metric_log_reporter_get_property(GObject *object, guint id, GValue *value,
                                                 GParamSpec *pspec) {
  vekin::as<VekMetricLogReporter>(object)->log.get_property(object, id, value, pspec);
}

static void vek_metric_log_reporter_finalize(GObject *object) {
  vekin::as<VekMetricLogReporter>(object)->log.close();

  G_OBJECT_CLASS(vek_metric_log_reporter_parent_class)->finalize(object);
}

static void vek_metric_log_reporter_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_log_reporter_parent_class)->constructed(object);

  auto &log = vekin::as<VekMetricLogReporter>(object)->log;
  if (!log.open())
    fprintf(stderr, "Cannot create metric dir \"%s\": %d.\n", log.dirname, errno);
}

static void vek_metric_log_reporter_class_init(VekMetricLogReporterClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_log_reporter_set_property;
  object_class->get_property = vek_metric_log_reporter_get_property;
  object_class->finalize = vek_metric_log_reporter_finalize;
  object_class->constructed = vek_metric_log_reporter_constructed;
  vekin::CsvFile::install_properties(object_class);
}

static void vek_metric_log_reporter_init(VekMetricLogReporter *) {}

VekMetricReporter *vek_metric_log_reporter_new(const gchar *basename, const gchar *dirname) {
  return VEK_METRIC_REPORTER(g_object_new(VEK_TYPE_METRIC_LOG_REPORTER, "basename", basename,
                                          "dirname", dirname, nullptr));
}
