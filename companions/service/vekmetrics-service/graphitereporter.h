#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_GRAPHITE_REPORTER (vek_service_graphite_reporter_get_type())

/**
 * VekServiceGraphiteReporter:
 *
 * Sends report passes over TCP, as lines of the plaintext protocol, to a Graphite server that may
 * come and go.
 *
 * The reporter connects at construction. If that fails or the connection breaks, it tries again
 * after 1, 2, 4, 8, 16, 32, and from then on 60 seconds, each reduced by up to a quarter at random.
 * It resolves the host again each time, and uses no proxy. A connection that lasts until a flush
 * resets the delay. Meanwhile lines wait, up to
 * [property@VekService.GraphiteReporter:max-lines]. An outage is a period without a connection, or
 * one in which lines are dropped because the server reads too slowly. The reporter logs one warning
 * when an outage begins, and one message when all waiting lines have been sent.
 *
 * The lines are those of [class@Vek.MetricCarbonReporter].
 * [property@VekService.GraphiteReporter:quantiles] adds lines, and
 * [property@VekService.GraphiteReporter:tags] changes their keys. Each Unicode space and control
 * character, and each byte that is not UTF-8, becomes "_". Nothing else is escaped.
 *
 * Lines are sent at a flush, and from then on whenever the server can take more, in joined writes
 * of at most 64 KiB. No call blocks. When a connection breaks, what the kernel had taken may be
 * lost. A write that the kernel took only in part is repeated on the next connection.
 *
 * After its last reference is dropped, the reporter lives on until it has connected and sent all
 * lines. During an outage it is freed at once, with the waiting lines.
 *
 * Call everything on one thread: that of the main context that is thread-default when the reporter
 * is created and flushed. Properties also notify within a pass, where handlers must not create
 * metrics.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekServiceGraphiteReporter, vek_service_graphite_reporter, VEK_SERVICE,
                     GRAPHITE_REPORTER, GObject)

/**
 * VekServiceGraphiteReporter:prefix:
 *
 * The first component of every key; %NULL or empty for none.
 */

/**
 * VekServiceGraphiteReporter:host:
 *
 * The server: a host name, or an IPv4 or IPv6 address as text. Without it, construction logs a
 * failed check, and the reporter does nothing.
 */

/**
 * VekServiceGraphiteReporter:port:
 *
 * The server's TCP port.
 */

/**
 * VekServiceGraphiteReporter:max-lines:
 *
 * The maximum number of waiting lines. Beyond it the oldest are dropped, except for a line that
 * has been sent in part.
 */

/**
 * VekServiceGraphiteReporter:quantiles:
 *
 * The quantiles of histograms and timers to send, each from 0 to 1: an array of doubles, or %NULL
 * for none.
 *
 * The key of each ends in its decimals, at least two: `.p50` for 0.5, `.p99` for 0.99, `.p999` for
 * 0.999 and `.p100` for 1. A quantile out of range is a failed check, and changes nothing.
 */

/**
 * VekServiceGraphiteReporter:tags:
 *
 * Whether dimensions are written as tags, `;name=value` after the name and its suffix, instead of
 * as part of the key.
 *
 * Characters that tags do not allow also become "_": ";" everywhere, "!", "^" and "=" in a
 * dimension's name, "~" at the start of its value. An empty name or value becomes "_". Avoid a
 * dimension called `name`: servers reserve that tag.
 */

/**
 * VekServiceGraphiteReporter:connected:
 *
 * Whether the reporter is connected.
 */

/**
 * VekServiceGraphiteReporter:queued-lines:
 *
 * How many lines wait to be sent. Notifies at a flush and after lines were sent, not for each line.
 */

/**
 * VekServiceGraphiteReporter:sent-lines:
 *
 * How many lines the kernel has taken so far. A line that is sent again counts once.
 */

/**
 * VekServiceGraphiteReporter:dropped-lines:
 *
 * How many lines have been dropped so far because too many waited.
 */

/**
 * vek_service_graphite_reporter_new:
 * @prefix: (nullable): the first component of every key; %NULL or empty for none
 * @host: the server, a host name or an address; not empty
 * @port: the server's TCP port, from 1 to 65,535; Graphite's default is 2003
 *
 * Creates a Graphite reporter and starts to connect.
 *
 * Returns: (transfer full) (nullable) (type VekServiceGraphiteReporter): a new reporter; %NULL
 *   after a failed check
 */
VEK_EXPORT
VekMetricReporter *vek_service_graphite_reporter_new(const gchar *prefix, const gchar *host,
                                                     guint port);

G_END_DECLS
