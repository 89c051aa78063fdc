#pragma once

#include <libsoup/soup.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_WEB_TYPE_SERVER (vek_web_server_get_type())

/**
 * VekWebServer:
 *
 * Serves the text of a [class@VekService.PrometheusReporter] to Prometheus, at `/metrics`.
 *
 * A server has no thread. It works in the main context that is thread-default when it begins to
 * listen, and all calls belong on that thread. It ends with the object.
 *
 * `Accept` decides between OpenMetrics and the text format, which is also for those who say
 * nothing; `Accept-Encoding` decides over gzip. Each text is compressed once, a large one in slices
 * between which the main loop goes on. An `ETag` of its contents spares those who have it.
 *
 * On a loopback address, a request must name as its `Host` localhost, 127.0.0.1, [::1] or a name
 * that was allowed, with any port: else a web page could have its own name resolved to this machine
 * and read along.
 *
 * A server that listens itself keeps at most 100 connections: for one more it ends the one that has
 * been idle for longest. It ends those on which no request has begun or ended for 120 seconds, and
 * those of requests with bodies of more than 64 KiB or of unknown length. Headers end at 100 KiB.
 *
 * libsoup 2 and libsoup 3 cannot be in one process: the second to be loaded aborts it.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekWebServer, vek_web_server, VEK_WEB, SERVER, GObject)

/**
 * vek_web_server_new:
 * @reporter: the reporter whose text is served
 *
 * Makes a server that does not listen yet.
 *
 * Returns: (transfer full): a new server; %NULL after a failed check
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
 * Listens on a TCP port, beside what it listens on already. What is not an address is
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
 * @path: (type filename): the path of the socket
 * @error: return location for an error
 *
 * Listens on a Unix socket that only this user may connect to, from the moment it is there. A
 * socket that nobody listens on any more is replaced. The path is removed with the server.
 *
 * Returns: whether it listens; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_web_server_listen_unix(VekWebServer *server, const char *path, GError **error);

/**
 * vek_web_server_attach:
 * @server: a server
 * @soup_server: a server of the program's own
 * @path: (nullable): the path to serve; %NULL for `/metrics`
 *
 * Serves the text at a path of another server, until this one ends. How many connections that has,
 * and for how long, is its own business. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_web_server_attach(VekWebServer *server, SoupServer *soup_server, const char *path);

/**
 * vek_web_server_allow_host:
 * @server: a server
 * @name: a host name, without a port
 *
 * Answers requests on loopback addresses that name this host too, as when a proxy hands on the name
 * that it was asked by. Case makes no difference. Does nothing after a failed check.
 */
VEK_EXPORT
void vek_web_server_allow_host(VekWebServer *server, const char *name);

/**
 * vek_web_server_get_port:
 * @server: a server
 *
 * Gets the TCP port that the server listens on; of several, that of the first.
 *
 * Returns: the port; 0 if it listens on none, and after a failed check
 */
VEK_EXPORT
guint vek_web_server_get_port(VekWebServer *server);

G_END_DECLS
