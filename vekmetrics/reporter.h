#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/snapshot.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_REPORTER (vek_metric_reporter_get_type())

/**
 * VekMetricReporter:
 *
 * An output: what a report pass hands the metrics' figures to.
 *
 * In a pass each metric calls one of the four process operations on every reporter; when all
 * metrics have been handled, the registry calls `flush`, which is where a reporter writes what it
 * has gathered. The order of the metrics is not defined. An application writes a reporter of its
 * own by implementing this interface; only `flush` must be there.
 *
 * A pass holds the registry's reader lock: nothing called from it may create metrics in, or
 * register reporters with, the same registry. The reporters of this library take no lock, so one
 * of them must not serve two passes at the same time.
 */
VEK_EXPORT
G_DECLARE_INTERFACE(VekMetricReporter, vek_metric_reporter, VEK, METRIC_REPORTER, GObject)

/**
 * VekMetricReporterInterface:
 * @parent_interface: the parent interface
 * @process_count: takes a counter's count; may be unset
 * @process_value: takes a gauge's value or a meter's rate; may be unset
 * @process_timeline_samples: takes a timeline's ranges; may be unset
 * @process_aggregated: takes the samples of a histogram or a timer; may be unset
 * @flush: writes out what was gathered; must be set
 *
 * The operations of a reporter.
 *
 * Every pointer is borrowed for the call: a reporter copies what it keeps, or takes a reference to
 * the snapshot. Figures whose operation is unset are passed over silently.
 */
struct _VekMetricReporterInterface {
  GTypeInterface parent_interface;

  /**
   * VekMetricReporterInterface::process_count:
   * @reporter: a reporter
   * @name: the metric's name
   * @dimensions: (nullable) (array zero-terminated=1): alternating names and values
   * @unit: (nullable): the metric's unit
   * @timestamp: when the counter last changed, in wall-clock microseconds since the Unix epoch
   * @count: the running total
   *
   * Takes the count of a counter.
   */
  void (*process_count)(VekMetricReporter *reporter, const gchar *name, gchar **dimensions,
                        const gchar *unit, gint64 timestamp, gint64 count);

  /**
   * VekMetricReporterInterface::process_value:
   * @reporter: a reporter
   * @name: the metric's name
   * @dimensions: (nullable) (array zero-terminated=1): alternating names and values
   * @unit: (nullable): the metric's unit
   * @timestamp: what time the value is of, in wall-clock microseconds since the Unix epoch
   * @value: the value of a gauge, or the rate of a meter per second
   *
   * Takes the value of a gauge or the rate of a meter.
   */
  void (*process_value)(VekMetricReporter *reporter, const gchar *name, gchar **dimensions,
                        const gchar *unit, gint64 timestamp, gdouble value);

  /**
   * VekMetricReporterInterface::process_timeline_samples:
   * @reporter: a reporter
   * @name: the metric's name
   * @samples: (nullable) (element-type VekMetricRange): the ranges since the pass before, the
   *   newest first
   *
   * Takes the ranges of a timeline.
   */
  void (*process_timeline_samples)(VekMetricReporter *reporter, const gchar *name, GSList *samples);

  /**
   * VekMetricReporterInterface::process_aggregated:
   * @reporter: a reporter
   * @name: the metric's name
   * @dimensions: (nullable) (array zero-terminated=1): alternating names and values
   * @unit: (nullable): the metric's unit
   * @snapshot: the samples and their statistics
   *
   * Takes the samples of a histogram or a timer.
   */
  void (*process_aggregated)(VekMetricReporter *reporter, const gchar *name, gchar **dimensions,
                             const gchar *unit, VekMetricSnapshot *snapshot);

  /**
   * VekMetricReporterInterface::flush:
   * @reporter: a reporter
   *
   * Writes out what was gathered since the flush before.
   */
  void (*flush)(VekMetricReporter *reporter);
};

G_END_DECLS
