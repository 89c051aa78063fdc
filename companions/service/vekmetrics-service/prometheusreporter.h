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
 * Serve the text with `VekWebServer` of vekmetrics-web or any other server, or write it to a file.
 * The text in each format is written at the first request after a pass, and kept until the next
 * pass. A scrape never runs a pass, because a pass consumes what the metrics have collected, and
 * other reporters would miss it.
 *
 * Names and dimensions are changed to what the formats allow. A counter has the type `unknown`,
 * because it may go down; declare those that do not with
 * [method@PrometheusReporter.declare_monotonic]. A gauge or a meter is a `gauge`. A histogram or a
 * timer is a `summary` of its quantiles 0.5, 0.9 and 0.99, with additional gauges. Timelines are
 * ignored. Of metrics that would become the same series, the text has one, and a warning names
 * both.
 *
 * A reporter serves one registry, whose passes do not overlap. Any thread may get the text.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekServicePrometheusReporter, vek_service_prometheus_reporter, VEK_SERVICE,
                     PROMETHEUS_REPORTER, GObject)

/**
 * VekServicePrometheusReporter:keep-seconds:
 *
 * How long the text keeps a metric that passes no longer report, in seconds since the pass that
 * reported it last; 0, the default, drops it at the next pass.
 *
 * Passes do not report a retired metric, and report a gauge with an interval only when an interval
 * has ended.
 */

/**
 * VekServicePrometheusReporter:prefix:
 *
 * The prefix of every metric's name, such as `site_`; %NULL or empty for none.
 */

/**
 * vek_service_prometheus_reporter_new:
 *
 * Creates a reporter without a prefix, which drops a metric at the next pass that does not report
 * it.
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
 * Gets the text of the last pass without copying it, and without a terminating NUL. Any thread may
 * call this.
 *
 * The same `GBytes` are returned until the text changes, so a caller that keeps a reference can
 * compare pointers to detect a new text.
 *
 * Returns: (transfer full) (nullable): the text; %NULL before the first pass and after a failed
 *   check
 */
VEK_EXPORT
GBytes *vek_service_prometheus_reporter_get_bytes(VekServicePrometheusReporter *reporter,
                                                  VekServicePrometheusFormat format);

/**
 * vek_service_prometheus_reporter_prepare_text:
 * @reporter: a reporter
 * @format: the format
 *
 * Writes a part of the text of the last pass, which takes about a millisecond. Any thread may call
 * this.
 *
 * To serve a large text without delaying the main loop, call this in one iteration after the other
 * until it returns %TRUE, then get the text.
 *
 * Returns: whether there is nothing left to write, so that the text, or %NULL before the first
 *   pass, can be got at once; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_service_prometheus_reporter_prepare_text(VekServicePrometheusReporter *reporter,
                                                      VekServicePrometheusFormat format);

/**
 * vek_service_prometheus_reporter_declare_monotonic:
 * @reporter: a reporter
 * @name: the counters' name, as it was given to the registry
 *
 * Declares that the counters of a name, with any dimensions, never go down. Their type is
 * `counter`, and the names of their samples end in `_total`.
 *
 * If one goes down nevertheless, a warning is logged, once for each name. The formats have no
 * negative counters: a counter below 0 is omitted, with another warning.
 *
 * A declaration also applies to the text of an earlier pass. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_service_prometheus_reporter_declare_monotonic(VekServicePrometheusReporter *reporter,
                                                       const char *name);

/**
 * vek_service_prometheus_reporter_add_follower:
 * @reporter: a reporter
 * @follower: another reporter, which no pass reports to otherwise
 *
 * Hands each call of the report passes on to another reporter too, from the next pass on.
 *
 * The follower is called in the thread of the pass, and flushed after @reporter has taken the pass
 * over. It sees the timelines as well. [func@get_reporting_metric] tells it the metric. A reporter
 * that is added twice is called twice. Any thread may call this. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_service_prometheus_reporter_add_follower(VekServicePrometheusReporter *reporter,
                                                  VekMetricReporter *follower);

/**
 * vek_service_prometheus_reporter_remove_follower:
 * @reporter: a reporter
 * @follower: a reporter that was added
 *
 * Undoes vek_service_prometheus_reporter_add_follower(). A pass that is under way still calls the
 * follower. Any thread may call this.
 *
 * Returns: whether it was a follower; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_service_prometheus_reporter_remove_follower(VekServicePrometheusReporter *reporter,
                                                         VekMetricReporter *follower);

G_END_DECLS
