#pragma once

#include <glib-object.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_DRAIN (vek_service_drain_get_type())

/**
 * VekServiceDrain:
 *
 * A reporter that says whether it is still at work.
 *
 * A reporter whose output goes on after `flush` has returned implements this interface beside
 * [iface@Vek.MetricReporter], so that the end of a session can wait for it. A reporter that is done
 * when `flush` returns needs nothing of it.
 */
VEK_EXPORT
G_DECLARE_INTERFACE(VekServiceDrain, vek_service_drain, VEK_SERVICE, DRAIN, GObject)

/**
 * VekServiceDrainInterface:
 * @parent_interface: the parent interface
 * @is_busy: tells whether anything is under way; must be set
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
 * Tells whether anything is under way: a connection that is being made, or output that has begun.
 *
 * Output that waits for a later flush is not under way.
 *
 * Returns: %TRUE while it is busy; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_service_drain_is_busy(VekServiceDrain *drain);

G_END_DECLS
