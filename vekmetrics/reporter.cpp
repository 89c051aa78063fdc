#include "reporter.h"

#include "common/internal.hpp"
#include "reporter.hpp"

G_DEFINE_INTERFACE(VekMetricReporter, vek_metric_reporter, G_TYPE_OBJECT)

static void vek_metric_reporter_default_init(VekMetricReporterInterface *) {}

void vek_metric_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                       gchar **dimensions, const gchar *unit, gint64 timestamp,
                                       gint64 count) {
  if (auto process_count = VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count)
    process_count(reporter, name, dimensions, unit, timestamp, count);
}

void vek_metric_reporter_process_value(VekMetricReporter *reporter, const gchar *name,
                                       gchar **dimensions, const gchar *unit, gint64 timestamp,
                                       gdouble value) {
  if (auto process_value = VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value)
    process_value(reporter, name, dimensions, unit, timestamp, value);
}

void vek_metric_reporter_process_timeline_samples(VekMetricReporter *reporter, const gchar *name,
                                                  GSList *samples) {
  if (auto process = VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_timeline_samples)
    process(reporter, name, samples);
}

void vek_metric_reporter_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                            gchar **dimensions, const gchar *unit,
                                            VekMetricSnapshot *snapshot) {
  if (auto process_aggregated = VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated)
    process_aggregated(reporter, name, dimensions, unit, snapshot);
}

void vek_metric_reporter_flush(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}
