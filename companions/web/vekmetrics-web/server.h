#pragma once

#include <libsoup/soup.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_WEB_TYPE_SERVER (vek_web_server_get_type())

/**
 * VekWebServer:
 *
 * Serves the text of a [class@VekService.PrometheusReporter] to Prometheus, at `/metrics`, and a
 * page that draws the last passes, at `/`.
 *
 * A server has no thread. It runs in the main context that is thread-default when it starts to
 * listen. Call all functions on that thread. The server stops when the object is freed.
 *
 * The header `Accept` of a request chooses between OpenMetrics and the text format, which is the
 * default. `Accept-Encoding` can choose gzip. One request is answered in each iteration of the main
 * loop. Each text is written and compressed once, and in slices, between which the main loop
 * continues. A connection ends with its answer. The `ETag` depends on the contents: a client that
 * already has the text gets the status 304 instead.
 *
 * On a loopback address, the `Host` of a request must be localhost, 127.0.0.1, [::1] or an allowed
 * name, with any port. This prevents DNS rebinding, by which a web page could read the metrics.
 *
 * The page gets the passes that [property@Server:history] keeps from `/vars.json`, and is told of
 * each further pass by `/events`. It loads nothing from elsewhere. The last 50 of its connections
 * for events are kept open.
 *
 * If a connection cannot be accepted, for example because the process has no descriptors left, the
 * server logs a warning, and tries again each second until it can.
 *
 * A server that listens itself keeps at most 100 connections. A further one closes the connection
 * that has been idle longest. A connection is closed after 120 seconds in which no request begins
 * or ends, and if a request has a body of more than 64 KiB or of unknown length. Headers are
 * limited to 100 KiB.
 *
 * libsoup 2 and libsoup 3 cannot be in one process: the second one to be loaded aborts it.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekWebServer, vek_web_server, VEK_WEB, SERVER, GObject)

/**
 * VekWebServer:history:
 *
 * How many passes are kept for the page: 240 by default, and at most 1,440. With 0 there is no
 * page.
 *
 * The server keeps the passes that its reporter gets while it exists. Each takes 8 bytes for a
 * counter, a gauge or a meter, and 64 bytes for a histogram or a timer. In addition, the newest
 * 20,000 ranges of timelines are kept, with 24 bytes each. A lower value drops the oldest passes at
 * once.
 */

/**
 * VekWebServer:reporter:
 *
 * The reporter whose text and whose passes are served. Without one, the server makes its own.
 */

/**
 * vek_web_server_new:
 * @reporter: the reporter whose text is served
 *
 * Creates a server that does not listen yet.
 *
 * Returns: (transfer full) (nullable): a new server; %NULL after a failed check
 */
VEK_EXPORT
VekWebServer *vek_web_server_new(VekServicePrometheusReporter *reporter);

/**
 * vek_web_server_listen:
 * @server: a server
 * @address: (nullable): the IPv4 or IPv6 address to listen on, as text; %NULL for 127.0.0.1
 * @port: the TCP port, up to 65,535; 0 takes a free one
 * @error: return location for an error
 *
 * Listens on a TCP port, in addition to earlier ones. An invalid @address is the error
 * %G_IO_ERROR_INVALID_ARGUMENT.
 *
 * Returns: whether it listens; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_web_server_listen(VekWebServer *server, const char *address, guint port,
                               GError **error);

/**
 * vek_web_server_listen_unix:
 * @server: a server
 * @path: (type filename): the path of the socket, up to 107 bytes
 * @error: return location for an error
 *
 * Listens on a Unix socket to which only the same user can connect, from its creation on. A stale
 * socket, on which no process listens, is replaced. The path is removed when the server is freed.
 * An empty @path and one that is too long are the error %G_IO_ERROR_INVALID_ARGUMENT.
 *
 * Returns: whether it listens; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_web_server_listen_unix(VekWebServer *server, const char *path, GError **error);

/**
 * vek_web_server_attach:
 * @server: a server
 * @soup_server: another server, made by the program
 * @path: (nullable): the path to serve; %NULL for `/metrics`
 *
 * Serves the text at a path of another server, until this object is freed, but not the page. The
 * limits on connections do not apply to that server. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_web_server_attach(VekWebServer *server, SoupServer *soup_server, const char *path);

/**
 * vek_web_server_allow_host:
 * @server: a server
 * @name: a host name, without a port
 *
 * Also accepts this host in requests on loopback addresses, for example if a proxy passes on the
 * original `Host`. Upper and lower case are equivalent. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_web_server_allow_host(VekWebServer *server, const char *name);

/**
 * vek_web_server_get_port:
 * @server: a server
 *
 * Gets the TCP port that the server listens on; if there are several, the first.
 *
 * Returns: the port; 0 if it listens on none, and after a failed check
 */
VEK_EXPORT
guint vek_web_server_get_port(VekWebServer *server);

G_END_DECLS
