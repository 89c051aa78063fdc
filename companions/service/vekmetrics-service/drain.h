#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_DRAIN (vek_service_drain_get_type())

/**
 * VekServiceDrain:
 *
 * A reporter whose output continues after `flush` has returned.
 *
 * Such a reporter implements this interface in addition to [iface@Vek.MetricReporter], so that a
 * session can wait for it when it finishes. A reporter that is done when `flush` returns does not
 * need it.
 */
VEK_EXPORT
G_DECLARE_INTERFACE(VekServiceDrain, vek_service_drain, VEK_SERVICE, DRAIN, GObject)

/**
 * VekServiceDrainInterface:
 * @parent_interface: the parent interface
 * @is_busy: returns whether anything is under way; must be set
 *
 * The operation of a drain.
 */
struct _VekServiceDrainInterface {
  GTypeInterface parent_interface;

  gboolean (*is_busy)(VekServiceDrain *drain);
};

/**
 * vek_service_drain_is_busy:
 * @drain: a drain
 *
 * Returns whether anything is under way: a connection attempt, or output that has begun.
 *
 * Output that waits for a later flush is not under way. A session asks in each iteration of the
 * main loop while it waits: a drain that becomes idle on another thread calls
 * `g_main_context_wakeup (NULL)`.
 *
 * Returns: %TRUE while it is busy; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_service_drain_is_busy(VekServiceDrain *drain);

G_END_DECLS
