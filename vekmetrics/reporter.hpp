#pragma once

#include "reporter.h"

// The dispatchers, one for each operation of the interface. An unset process operation is passed
// over silently; `flush` is called unchecked, for it must be set. The reporter is not checked
// either: the registry does that before it lets one in.

void vek_metric_reporter_process_count(VekMetricReporter *reporter, const gchar *name,
                                       gchar **dimensions, const gchar *unit, gint64 timestamp,
                                       gint64 count);

void vek_metric_reporter_process_value(VekMetricReporter *reporter, const gchar *name,
                                       gchar **dimensions, const gchar *unit, gint64 timestamp,
                                       gdouble value);

void vek_metric_reporter_process_timeline_samples(VekMetricReporter *reporter, const gchar *name,
                                                  GSList *samples);

void vek_metric_reporter_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                            gchar **dimensions, const gchar *unit,
                                            VekMetricSnapshot *snapshot);

void vek_metric_reporter_flush(VekMetricReporter *reporter);
