#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC (vek_metric_get_type())

/**
 * VekMetric:
 *
 * What every kind of metric is: a name, a unit, dimensions, and a flag that says whether its
 * registry still reports it.
 *
 * The name, the unit and the dimensions are set at construction and never change, so any thread
 * may read them without a lock. Metrics are made by a [class@MetricRegistry], one for each key,
 * and live until the application has let go of them and a periodic report pass has noticed.
 */
VEK_EXPORT
G_DECLARE_DERIVABLE_TYPE(VekMetric, vek_metric, VEK, METRIC, GObject)

/**
 * VekMetric:active:
 *
 * Whether the registry still reports the metric. Passes and [method@Metric.mark_inactive] turn it
 * off without a notification.
 */

/**
 * VekMetric:dimensions:
 *
 * Alternating names and values; %NULL for none, and once the metric is disposed.
 */

/**
 * VekMetric:name:
 *
 * The name; %NULL once the metric is disposed.
 */

/**
 * VekMetric:unit:
 *
 * The unit: free text such as "Count" or "Seconds"; %NULL for none, and once the metric is
 * disposed.
 */

/**
 * VekMetricClass:
 * @parent_class: the parent class
 * @report: hands the metric's current figures to each reporter of the list, in list order; every
 *   concrete kind must set it
 *
 * The class structure of [class@Metric].
 */
struct _VekMetricClass {
  GObjectClass parent_class;

  /**
   * VekMetricClass::report:
   * @metric: a metric
   * @reporters: (element-type VekMetricReporter): the reporters to call, borrowed for the call
   *
   * Gathers the metric's figures once and hands them to each reporter, in list order.
   */
  void (*report)(VekMetric *metric, GSList *reporters);
};

/**
 * vek_metric_get_name: (get-property name)
 * @metric: a metric
 *
 * Gets the metric's name.
 *
 * Returns: (transfer none) (nullable): the name, owned by the metric; %NULL after a failed check
 *   and once the metric is disposed
 */
VEK_EXPORT
const gchar *vek_metric_get_name(VekMetric *metric);

/**
 * vek_metric_get_unit: (get-property unit)
 * @metric: a metric
 *
 * Gets the metric's unit: free text such as "Count" or "Seconds".
 *
 * Returns: (transfer none) (nullable): the unit, owned by the metric; %NULL if it has none, after a
 *   failed check, and once the metric is disposed
 */
VEK_EXPORT
const gchar *vek_metric_get_unit(VekMetric *metric);

/**
 * vek_metric_get_dimensions: (get-property dimensions)
 * @metric: a metric
 *
 * Gets the metric's dimensions, as alternating names and values: name 1, value 1, name 2,
 * value 2, and so on. An empty vector is not the same as none.
 *
 * Returns: (transfer none) (nullable) (array zero-terminated=1): the metric's own vector, neither
 *   to be changed nor freed; %NULL if it has none, after a failed check, and once the metric is
 *   disposed
 */
VEK_EXPORT
gchar **vek_metric_get_dimensions(VekMetric *metric);

/**
 * vek_metric_is_active:
 * @metric: a metric
 *
 * Tells whether the registry still reports the metric.
 *
 * Returns: %TRUE until the metric is marked inactive; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_metric_is_active(VekMetric *metric);

/**
 * vek_metric_mark_inactive:
 * @metric: a metric
 *
 * Retires the metric: no pass reports it any more, and the next periodic pass removes it from its
 * registry, also when the application still holds it. The "active" property is not notified.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_mark_inactive(VekMetric *metric);

G_END_DECLS
