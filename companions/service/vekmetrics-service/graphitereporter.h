#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_GRAPHITE_REPORTER (vek_service_graphite_reporter_get_type())

/**
 * VekServiceGraphiteReporter:
 *
 * Sends report passes to a Graphite server that comes and goes: lines of the plaintext protocol
 * over TCP.
 *
 * The reporter connects at construction. When that fails or the connection breaks, it tries again
 * after 1, 2, 4, 8, 16, 32, and from then on 60 seconds, each shortened by up to a quarter at
 * random. It looks the host up anew each time, and uses no proxy. A connection that lasts until a
 * flush starts the series again. Lines wait meanwhile, up to
 * [property@VekService.GraphiteReporter:max-lines]. An outage is a time without a connection, or
 * one in which lines are dropped because the server reads too slowly. Each gives one warning when
 * it begins, and one message when all that waited has been sent.
 *
 * The lines are those of [class@Vek.MetricCarbonReporter], and more if
 * [property@VekService.GraphiteReporter:quantiles] or
 * [property@VekService.GraphiteReporter:tags] is set. What would break a line becomes "_": each
 * space and control character of Unicode, and each byte that is not UTF-8. Nothing else is
 * escaped.
 *
 * Lines go out at a flush, and from then on whenever the server has room, in joined writes of at
 * most 64 KiB. Nothing here blocks. What the kernel had taken when a connection breaks may be
 * lost; a write that was not taken whole is repeated on the next connection.
 *
 * A reporter without references goes on until its connection has been made and has taken all lines;
 * but not during an outage, when the lines that wait go with it.
 *
 * All calls and the main loop belong on one thread: that of the main context that is
 * thread-default when the reporter is made and flushed. Properties notify from within a pass too,
 * where nothing may make metrics.
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
 * The server: a name, or an IPv4 or IPv6 address as text. Without one, the reporter logs a failed
 * check at construction and does nothing.
 */

/**
 * VekServiceGraphiteReporter:port:
 *
 * The server's TCP port.
 */

/**
 * VekServiceGraphiteReporter:max-lines:
 *
 * How many lines may wait. Beyond that the oldest go; only a line of which the server has a part
 * stays.
 */

/**
 * VekServiceGraphiteReporter:quantiles:
 *
 * The quantiles of histograms and timers to send, each from 0 to 1: an array of doubles, or %NULL
 * for none.
 *
 * The key of each ends in its decimals, at least two: 0.5 gives `.p50`, 0.99 `.p99`, 0.999 `.p999`
 * and 1 `.p100`. If any is outside, this is a failed check and changes nothing.
 */

/**
 * VekServiceGraphiteReporter:tags:
 *
 * Whether dimensions are written as tags, `;name=value` behind the name and its suffix, rather than
 * into the key.
 *
 * What a tag cannot hold becomes "_" too: ";" everywhere, "!", "^" and "=" in a dimension's name,
 * "~" at the start of its value. An empty name or value becomes "_". A server takes the tag `name`
 * for its own: avoid a dimension of that name.
 */

/**
 * VekServiceGraphiteReporter:connected:
 *
 * Whether there is a connection.
 */

/**
 * VekServiceGraphiteReporter:queued-lines:
 *
 * How many lines wait to be sent. Notifies at a flush and when lines went, not at each line.
 */

/**
 * VekServiceGraphiteReporter:sent-lines:
 *
 * How many lines the kernel has taken so far; one that is repeated counts once.
 */

/**
 * VekServiceGraphiteReporter:dropped-lines:
 *
 * How many lines have been dropped so far because too many waited.
 */

/**
 * vek_service_graphite_reporter_new:
 * @prefix: (nullable): the first component of every key; %NULL or empty for none
 * @host: the server, a name or an address; not empty
 * @port: the server's TCP port, from 1 to 65,535; Graphite's own is 2003
 *
 * Makes a Graphite reporter and begins to connect it.
 *
 * Returns: (transfer full) (type VekServiceGraphiteReporter): a new reporter; %NULL after a failed
 *   check
 */
VEK_EXPORT
VekMetricReporter *vek_service_graphite_reporter_new(const gchar *prefix, const gchar *host,
                                                     guint port);

G_END_DECLS
