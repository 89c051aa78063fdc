#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>
#include <vekmetrics/reporter.h>

G_BEGIN_DECLS

#define VEK_TYPE_METRIC_CARBON_REPORTER (vek_metric_carbon_reporter_get_type())

/**
 * VekMetricCarbonReporter:
 *
 * Sends each pass to a carbon server, as lines of the plaintext protocol over one TCP connection.
 *
 * Construction starts to connect. Lines wait in an unlimited queue until a flush finds the
 * connection established. They are then sent in order, one asynchronous write at a time. A failure
 * of the address, the connection or a write is logged and disables the reporter permanently; lines
 * that are in the queue when a write fails are still tried.
 *
 * A line is a key, a value and a time in whole seconds. The key is the prefix, the dimension
 * strings, the unit and the name, joined by ".". Nothing is escaped. A histogram or a timer gives
 * four lines: `.average`, `.n_samples`, `.min` and `.max`. `.n_samples` is what the store held, not
 * a number of events.
 *
 * A counter is sent with the time of its last change, so the series of a counter at rest has gaps.
 *
 * All calls must be made on one thread, whose thread-default main context runs the completions.
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
 *   resolved. Anything else is logged, and the reporter is disabled
 * @server_port: the server's TCP port, up to 65,535; carbon's own is 2003. GObject rejects a
 *   larger one with a warning, and the port is then 0, where no server is
 *
 * Creates a carbon reporter, which starts to connect.
 *
 * Returns: (transfer full) (type VekMetricCarbonReporter): a new reporter
 */
VEK_EXPORT
VekMetricReporter *vek_metric_carbon_reporter_new(const gchar *prefix, const gchar *server_address,
                                                  guint server_port);

G_END_DECLS
