#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_CARBON_REPORTER (vek_metric_carbon_reporter_get_type())

/**
 * VekMetricCarbonReporter:
 *
 * Sends a report pass to a carbon server: lines of the plaintext protocol over one TCP connection.
 *
 * The connection is begun at construction. Lines wait in a queue without bound until a flush finds
 * the connection there; then they go out one write at a time, in order, and nothing here ever
 * blocks. Whatever fails (the address, the connection, a write) is logged and disables the
 * reporter for good; lines that are already in the queue when a write fails are still tried.
 *
 * A line is a key, a value and whole seconds. The key is the prefix, the strings of the
 * dimensions, the unit and the name, joined by ".", with nothing escaped. A histogram or a timer
 * gives four lines: `.average`, `.n_samples`, `.min` and `.max`.
 *
 * All calls and the completions belong on one thread: that of the main context that is
 * thread-default when the reporter is made and flushed.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekMetricCarbonReporter, vek_metric_carbon_reporter, VEK,
                     METRIC_CARBON_REPORTER, GObject)

/**
 * VekMetricCarbonReporter:prefix:
 *
 * The first component of every key; %NULL or empty for none.
 */

/**
 * VekMetricCarbonReporter:server-address:
 *
 * The server's IPv4 or IPv6 address as text.
 */

/**
 * VekMetricCarbonReporter:server-port:
 *
 * The server's TCP port.
 */

/**
 * vek_metric_carbon_reporter_new:
 * @prefix: (nullable): the first component of every key; %NULL or empty for none
 * @server_address: (nullable): the server's IPv4 or IPv6 address as text; host names are not
 *   looked up, and what is not an address is logged and leaves the reporter disabled
 * @server_port: the server's TCP port, up to 65,535; carbon's own is 2003. GObject refuses a
 *   larger one with a warning, and the port is then 0, where no server is
 *
 * Makes a carbon reporter and begins to connect it.
 *
 * Returns: (transfer full) (type VekMetricCarbonReporter): a new reporter
 */
VEK_EXPORT
VekMetricReporter *vek_metric_carbon_reporter_new(const gchar *prefix, const gchar *server_address,
                                                  guint server_port);

G_END_DECLS
