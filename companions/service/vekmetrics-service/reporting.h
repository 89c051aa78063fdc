#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>

G_BEGIN_DECLS

/**
 * vek_service_get_reporting_metric:
 *
 * Gets the metric whose figures the calling thread is passing to reporters.
 *
 * A reporter learns from it what its operations are not told, such as the kind of the metric. The
 * metric is known to the reporters of a session and to those that follow a
 * [class@PrometheusReporter], in all operations but `flush`.
 *
 * Returns: (transfer none) (nullable): the metric; %NULL if no metric is reporting
 */
VEK_EXPORT
VekMetric *vek_service_get_reporting_metric(void);

G_END_DECLS
