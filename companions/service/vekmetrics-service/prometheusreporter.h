#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_PROMETHEUS_FORMAT (vek_service_prometheus_format_get_type())

/**
 * VekServicePrometheusFormat:
 * @VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS: OpenMetrics 1.0.0, of the content type
 *   `application/openmetrics-text; version=1.0.0; charset=utf-8`
 * @VEK_SERVICE_PROMETHEUS_FORMAT_TEXT: the Prometheus text format 0.0.4, of the content type
 *   `text/plain; version=0.0.4; charset=utf-8`
 *
 * A text format that Prometheus reads.
 */
typedef enum {
  VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS,
  VEK_SERVICE_PROMETHEUS_FORMAT_TEXT,
} VekServicePrometheusFormat;

VEK_EXPORT
GType vek_service_prometheus_format_get_type(void) G_GNUC_CONST;

#define VEK_SERVICE_TYPE_PROMETHEUS_REPORTER (vek_service_prometheus_reporter_get_type())

/**
 * VekServicePrometheusReporter:
 *
 * Keeps the last report pass as text that Prometheus reads.
 *
 * A server or a file hands the text on. It is made when it is first asked for after a pass, once in
 * each format, and kept until the next pass. A scrape never runs a pass: a pass consumes what the
 * metrics have gathered, and a second reader would go without.
 *
 * Names and dimensions are changed to what the formats allow. A counter is of the type `unknown`,
 * for it may go down; [method@PrometheusReporter.declare_monotonic] says of one that it does not. A
 * gauge or a meter is a `gauge`, a histogram or a timer a `summary` of its quantiles 0.5, 0.9 and
 * 0.99 with gauges beside it. Timelines are passed over. Metrics that the formats cannot tell apart
 * are left out but for one, and a warning names both.
 *
 * A reporter serves one registry, whose passes follow one another. Any thread may ask for the text.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekServicePrometheusReporter, vek_service_prometheus_reporter, VEK_SERVICE,
                     PROMETHEUS_REPORTER, GObject)

/**
 * VekServicePrometheusReporter:keep-seconds:
 *
 * How long the text keeps a metric that passes no longer bring, in seconds since the pass that
 * brought it last; 0, the default, drops it with the next pass.
 *
 * Passes do not bring a retired metric, and a gauge with an interval only when an interval has
 * ended.
 */

/**
 * VekServicePrometheusReporter:prefix:
 *
 * What is put in front of every metric's name, as in `site_`; %NULL or empty for none.
 */

/**
 * vek_service_prometheus_reporter_new:
 *
 * Makes a reporter without a prefix that keeps nothing longer than a pass.
 *
 * Returns: (transfer full): a new reporter
 */
VEK_EXPORT
VekServicePrometheusReporter *vek_service_prometheus_reporter_new(void);

/**
 * vek_service_prometheus_reporter_get_text:
 * @reporter: a reporter
 * @format: the format
 *
 * Copies the text of the last pass. Any thread may call this.
 *
 * Returns: (transfer full) (nullable): the text, in UTF-8; %NULL before the first pass and after a
 *   failed check
 */
VEK_EXPORT
char *vek_service_prometheus_reporter_get_text(VekServicePrometheusReporter *reporter,
                                               VekServicePrometheusFormat format);

/**
 * vek_service_prometheus_reporter_get_bytes:
 * @reporter: a reporter
 * @format: the format
 *
 * Gets the text of the last pass without a copy, and without a NUL behind it. While the text is the
 * same these are the same bytes, so whoever holds them knows a new text by the pointer. Any thread
 * may call this.
 *
 * Returns: (transfer full) (nullable): the text; %NULL before the first pass and after a failed
 *   check
 */
VEK_EXPORT
GBytes *vek_service_prometheus_reporter_get_bytes(VekServicePrometheusReporter *reporter,
                                                  VekServicePrometheusFormat format);

/**
 * vek_service_prometheus_reporter_declare_monotonic:
 * @reporter: a reporter
 * @name: the counters' name, as it was given to the registry
 *
 * Says of all counters of a name, whatever their dimensions, that they never go down. Their type is
 * `counter`, and their samples end in `_total`.
 *
 * If one goes down all the same, a warning says so, once for each name. The formats have no
 * negative counters: a counter that is below 0 is left out, with a warning of its own.
 *
 * Names that are declared after a pass count in its text too. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_service_prometheus_reporter_declare_monotonic(VekServicePrometheusReporter *reporter,
                                                       const char *name);

G_END_DECLS
