#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/snapshot.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_REPORTER (vek_metric_reporter_get_type())

/**
 * VekMetricReporter:
 *
 * An output for the figures of a report pass.
 *
 * In a pass, each metric calls one of the four process operations on every reporter, in undefined
 * order of the metrics. Then the registry calls `flush`, where a reporter writes what it has
 * collected. Applications implement this interface for reporters of their own; only `flush` is
 * required.
 *
 * A pass holds the registry's reader lock: nothing called from a pass may create metrics in the
 * same registry or register reporters with it. The reporters of this library take no lock, so one
 * of them must not serve two passes at the same time.
 */
VEK_EXPORT
G_DECLARE_INTERFACE(VekMetricReporter, vek_metric_reporter, VEK, METRIC_REPORTER, GObject)

/**
 * VekMetricReporterInterface:
 * @parent_interface: the parent interface
 * @process_count: takes a counter's count; optional
 * @process_value: takes a gauge's value or a meter's rate; optional
 * @process_timeline_samples: takes a timeline's ranges; optional
 * @process_aggregated: takes the samples of a histogram or a timer; optional
 * @flush: writes what was collected; required
 *
 * The operations of a reporter.
 *
 * Every pointer is borrowed for the call: a reporter copies what it keeps, or takes a reference to
 * the snapshot. Figures whose operation is not set are skipped silently.
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
   * @timestamp: the time of the value, in wall-clock microseconds since the Unix epoch
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
   * @samples: (nullable) (element-type VekMetricRange): the ranges since the previous pass,
   *   the newest first
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
   * Writes what was collected since the previous flush.
   */
  void (*flush)(VekMetricReporter *reporter);
};

G_END_DECLS
