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
 * Owns metrics and reporters, and runs the report passes.
 *
 * A registry has one metric for each key. The key is the dimension strings followed by the name,
 * joined by ".": `host.h1.requests`. Nothing is escaped, and kind and unit are not part of the key.
 * A constructor such as [method@MetricRegistry.counter_new] returns the metric that already has the
 * key, unchanged. That metric may be of another kind: GObject then logs a warning of an invalid
 * cast, and the operations of the requested kind fail their checks on it, except those of a
 * timeline, which do not check the kind. It may also be inactive, and no pass ever reports it
 * again. This happens when the application drops its last reference, calls
 * [method@MetricRegistry.report], and asks for the key before a periodic pass has removed the
 * metric. Keep a reference to each metric for as long as you need it.
 *
 * Once the first reporter is registered, a pass runs every 60 seconds on the default main context.
 * Each active metric passes its figures to each reporter, then each reporter is flushed. A metric
 * that only the registry still holds is reported one last time, marked inactive, and removed. An
 * application without a main loop calls [method@MetricRegistry.report] itself.
 *
 * Any thread may call any operation. A pass holds the registry's lock, so nothing called from a
 * pass may create metrics in the same registry or register reporters with it: it would deadlock.
 *
 * Most applications use the default registry. Use `g_object_new()` to make another, for example for
 * a test.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricRegistry, vek_metric_registry, VEK, METRIC_REGISTRY, GObject)

/**
 * vek_metric_registry_get_default:
 *
 * Gets the default registry. Creates it if there is none.
 *
 * Must not race with itself or with [method@MetricRegistry.set_default].
 *
 * Returns: (transfer none): the default registry, which the library owns
 */
VEK_EXPORT
VekMetricRegistry *vek_metric_registry_get_default(void);

/**
 * vek_metric_registry_set_default:
 * @registry: (nullable): the new default, or %NULL for none; its type is not checked
 *
 * Replaces the default registry. The library takes a reference to the new one and drops its
 * reference to the old one.
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
 * Looks up a metric by its key. The metric may be of any kind, and inactive.
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
 * Adds a reporter to the periodic passes for as long as the registry lives. The first reporter
 * starts the passes. The reporter registered last is called first; one registered twice is called
 * twice.
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
 * Runs one pass now, on this thread, for one reporter.
 *
 * A pass consumes what can be reported only once: the ranges of timelines, the interval boundaries
 * of gauges, and the last report of a metric that only the registry still holds. No later pass
 * reports these, so two calls for two reporters do not give both the same figures.
 *
 * Metrics that only the registry still holds are marked inactive. They stay in the registry until
 * the next periodic pass removes them, or without periodic passes until the registry is disposed.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metric_registry_report(VekMetricRegistry *registry, VekMetricReporter *reporter);

G_END_DECLS
