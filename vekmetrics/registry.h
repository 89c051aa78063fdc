#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/metric.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_REGISTRY (vek_metric_registry_get_type())

/**
 * VekMetricRegistry:
 *
 * Owns an application's metrics and reporters, and runs the report passes.
 *
 * A metric is made once for each key, and whoever asks for the key again gets the same metric. The
 * key is the strings of the dimensions, then the name, joined by ".": `host.h1.requests`. Kind and
 * unit are not part of it.
 *
 * From the first registered reporter on, a pass runs every 60 seconds on the default main context:
 * each active metric hands its figures to each reporter, then each reporter is flushed. A metric
 * that only the registry still holds is reported one last time, marked inactive and removed. An
 * application without a main loop calls [method@MetricRegistry.report] itself.
 *
 * Any thread may call any operation, but none of those that create metrics or register reporters
 * may be called from within a pass of the same registry: a pass holds its lock.
 *
 * Most applications use the default registry; one of their own is made with `g_object_new()`.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricRegistry, vek_metric_registry, VEK, METRIC_REGISTRY, GObject)

/**
 * vek_metric_registry_get_default:
 *
 * Gets the default registry, making it if there is none.
 *
 * Must not race with itself or with [method@MetricRegistry.set_default].
 *
 * Returns: (transfer none): the default registry, which the library owns
 */
VEK_EXPORT
VekMetricRegistry *vek_metric_registry_get_default(void);

/**
 * vek_metric_registry_set_default:
 * @registry: (nullable): the new default, or %NULL for none; it is not checked to be a registry
 *
 * Replaces the default registry; the library takes a reference to the new one and drops that to
 * the old one.
 *
 * Must not race with itself or with [func@MetricRegistry.get_default].
 */
VEK_EXPORT
void vek_metric_registry_set_default(VekMetricRegistry *registry);

/**
 * vek_metric_registry_get_metric:
 * @registry: a registry
 * @name: the metric's name
 * @dimensions: (nullable) (array zero-terminated=1): alternating names and values
 *
 * Looks a metric up by its key.
 *
 * Returns: (transfer full) (nullable): the metric; %NULL if there is none, and after a failed
 *   check
 */
VEK_EXPORT
VekMetric *vek_metric_registry_get_metric(VekMetricRegistry *registry, const gchar *name,
                                          gchar **dimensions);

/**
 * vek_metric_registry_register_reporter:
 * @registry: a registry
 * @reporter: a reporter
 *
 * Adds a reporter to the periodic passes, for as long as the registry lives. The first one starts
 * them; the one registered last is called first, and one registered twice is called twice.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_registry_register_reporter(VekMetricRegistry *registry,
                                           VekMetricReporter *reporter);

/**
 * vek_metric_registry_report:
 * @registry: a registry
 * @reporter: a reporter, registered or not
 *
 * Runs one pass now, on this thread, for one reporter. It marks metrics that only the registry
 * still holds as inactive, but leaves their removal to the next periodic pass.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_registry_report(VekMetricRegistry *registry, VekMetricReporter *reporter);

G_END_DECLS
