#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC (vek_metric_get_type())

/**
 * VekMetric:
 *
 * The base of all kinds of metric: a name, a unit, dimensions, and a flag that says whether the
 * registry still reports the metric.
 *
 * The name, the unit and the dimensions are set at construction and never change, so any thread
 * may read them without a lock. A [class@MetricRegistry] makes metrics and holds a reference to
 * each. It retires a metric once the application has dropped its own references.
 */
VEK_EXPORT
G_DECLARE_DERIVABLE_TYPE(VekMetric, vek_metric, VEK, METRIC, GObject)

/**
 * VekMetric:active:
 *
 * Whether the registry still reports the metric. Passes and [method@Metric.mark_inactive] clear it
 * without a notification.
 */

/**
 * VekMetric:dimensions:
 *
 * Alternating names and values; %NULL for none, and once the metric is disposed.
 *
 * The vector should have an even number of strings, which is not checked. Of an odd vector, the
 * last string is part of the registry's key, and the outputs differ: carbon keys include it, CSV
 * files show it with nothing behind its "=", and the console and the JSON log leave it out.
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
 * @report: passes the current figures to each reporter of the list, in list order; every concrete
 *   kind must set it
 *
 * The class structure of [class@Metric].
 */
struct _VekMetricClass {
  GObjectClass parent_class;

  /**
   * VekMetricClass::report:
   * @metric: a metric
   * @reporters: (element-type VekMetricReporter): the reporters, borrowed for the call
   *
   * Gathers the figures once and passes them to each reporter, in list order.
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
 * Gets the metric's dimensions as alternating names and values: name 1, value 1, name 2, value 2,
 * and so on. An empty vector differs from %NULL: it puts a "." in front of the name in the key.
 *
 * Returns: (transfer none) (nullable) (array zero-terminated=1): the metric's own vector, which
 *   must not be changed or freed; %NULL if it has none, after a failed check, and once the metric
 *   is disposed
 */
VEK_EXPORT
gchar **vek_metric_get_dimensions(VekMetric *metric);

/**
 * vek_metric_is_active:
 * @metric: a metric
 *
 * Checks whether the registry still reports the metric.
 *
 * Returns: %TRUE until the metric is marked inactive; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_metric_is_active(VekMetric *metric);

/**
 * vek_metric_mark_inactive:
 * @metric: a metric
 *
 * Retires the metric: no later pass reports it, and the next periodic pass removes it from its
 * registry even if the application still holds it. The "active" property is not notified.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_mark_inactive(VekMetric *metric);

G_END_DECLS
