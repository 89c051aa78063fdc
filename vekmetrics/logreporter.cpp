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

namespace {

// The columns behind the dimensions. A lone figure leaves the others empty.
struct Figures {
  const char *figure;
  const char *n_samples = "", *min = "", *max = "", *p10 = "", *p50 = "", *p90 = "";
};

}  // namespace

static void log_entry(VekMetricReporter *reporter, gint64 timestamp, const char *name,
                      char **dimensions, const Figures &figures) {
  FILE *file = vekin::as<VekMetricLogReporter>(reporter)->log.file;
  if (!file)
    return;

  g_autofree char *joined = join_dimensions(dimensions);
  fprintf(file, "%lli,%s,%s,%s,%s,%s,%s,%s,%s,%s\n", static_cast<long long>(timestamp), name,
          joined, figures.figure, figures.n_samples, figures.min, figures.max, figures.p10,
          figures.p50, figures.p90);
}

static void vek_metric_log_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                                  gchar **dimensions, const gchar *,
                                                  gint64 timestamp, gint64 count) {
  log_entry(reporter, timestamp, name, dimensions, {vekin::Decimal(count).text});
}

static void vek_metric_log_reporter_process_value(VekMetricReporter *reporter, const gchar *name,
                                                  gchar **dimensions, const gchar *,
                                                  gint64 timestamp, gdouble value) {
  log_entry(reporter, timestamp, name, dimensions, {vekin::RoundTrip(value).text});
}

static void vek_metric_log_reporter_process_aggregated(VekMetricReporter *reporter,
                                                       const gchar *name, gchar **dimensions,
                                                       const gchar *, VekMetricSnapshot *snapshot) {
  // The order of a call's arguments is the compiler's; that of braces is the written one.
  gint64 timestamp = vek_metric_snapshot_get_time(snapshot);
  log_entry(reporter, timestamp, name, dimensions,
            {.figure = vekin::RoundTrip(vek_metric_snapshot_get_average(snapshot)).text,
             .n_samples = vekin::Decimal(vek_metric_snapshot_get_n_samples(snapshot)).text,
             .min = vekin::RoundTrip(vek_metric_snapshot_get_min(snapshot)).text,
             .max = vekin::RoundTrip(vek_metric_snapshot_get_max(snapshot)).text,
             .p10 = vekin::RoundTrip(vek_metric_snapshot_get_quantile(snapshot, 0.1)).text,
             .p50 = vekin::RoundTrip(vek_metric_snapshot_get_quantile(snapshot, 0.5)).text,
             .p90 = vekin::RoundTrip(vek_metric_snapshot_get_quantile(snapshot, 0.9)).text});
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
