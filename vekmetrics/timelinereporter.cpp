#include "timelinereporter.h"

#include "common/internal.hpp"
#include "csvfile.hpp"
#include "rangestore.h"

struct _VekMetricTimelineReporter {
  GObject parent_instance;

  vekin::CsvFile log;
};
static_assert(vekin::ZeroFillable<VekMetricTimelineReporter>);

static void vek_metric_timeline_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekMetricTimelineReporter, vek_metric_timeline_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_metric_timeline_reporter_reporter_init))

static void vek_metric_timeline_reporter_process_timeline_samples(VekMetricReporter *reporter,
                                                                  const gchar *name,
                                                                  GSList *samples) {
  FILE *file = vekin::as<VekMetricTimelineReporter>(reporter)->log.file;
  if (!file)
    return;
  for (auto *range : vekin::Each<VekMetricRange>(samples))
    fprintf(file, "F,%s,%d,%lli,%lli\n", name, range->id, static_cast<long long>(range->start),
            static_cast<long long>(range->end));
}

static void vek_metric_timeline_reporter_flush(VekMetricReporter *reporter) {
  vekin::as<VekMetricTimelineReporter>(reporter)->log.flush();
}

static void vek_metric_timeline_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_timeline_samples = vek_metric_timeline_reporter_process_timeline_samples;
  iface->flush = vek_metric_timeline_reporter_flush;
}

static void vek_metric_timeline_reporter_set_property(GObject *object, guint id,
                                                      const GValue *value, GParamSpec *pspec) {
  vekin::as<VekMetricTimelineReporter>(object)->log.set_property(object, id, value, pspec);
}

static void vek_metric_timeline_reporter_get_property(GObject *object, guint id, GValue *value,
                                                      GParamSpec *pspec) {
  vekin::as<VekMetricTimelineReporter>(object)->log.get_property(object, id, value, pspec);
}

static void vek_metric_timeline_reporter_finalize(GObject *object) {
  vekin::as<VekMetricTimelineReporter>(object)->log.close();

  G_OBJECT_CLASS(vek_metric_timeline_reporter_parent_class)->finalize(object);
}

static void vek_metric_timeline_reporter_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_metric_timeline_reporter_parent_class)->constructed(object);

  auto &log = vekin::as<VekMetricTimelineReporter>(object)->log;
  if (!log.open())
    fprintf(stderr, "Cannot create log dir \"%s\".\n", log.dirname);
}

static void vek_metric_timeline_reporter_class_init(VekMetricTimelineReporterClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_metric_timeline_reporter_set_property;
  object_class->get_property = vek_metric_timeline_reporter_get_property;
  object_class->finalize = vek_metric_timeline_reporter_finalize;
  object_class->constructed = vek_metric_timeline_reporter_constructed;
  vekin::CsvFile::install_properties(object_class);
}

static void vek_metric_timeline_reporter_init(VekMetricTimelineReporter *) {}

VekMetricReporter *vek_metric_timeline_reporter_new(const gchar *basename, const gchar *dirname) {
  return VEK_METRIC_REPORTER(g_object_new(VEK_TYPE_METRIC_TIMELINE_REPORTER, "basename", basename,
                                          "dirname", dirname, nullptr));
}
