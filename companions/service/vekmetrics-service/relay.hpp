#pragma once

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

#define VEK_SERVICE_TYPE_RELAY (vek_service_relay_get_type())

// The reporter that a session registers: it hands each call on to the session's reporters. Its
// registry keeps it for good, for the session of then and for those that follow.
//
// A pass works on the reporters that were there when it began. Passes are of the thread that runs
// the default main context; all else may be called on any thread.
G_DECLARE_FINAL_TYPE(VekServiceRelay, vek_service_relay, VEK_SERVICE, RELAY, GObject)

// Gets the registry's relay for a session, which a pass's end is told to from then on; NULL if it
// has one already. The session is borrowed.
VekServiceRelay *vek_service_relay_claim(VekMetricRegistry *registry, GObject *session,
                                         void (*on_pass_end)(GObject *session));

// Ends the session's claim: the relay is inert. Returns the reporters.
GPtrArray *vek_service_relay_disclaim(VekServiceRelay *relay);

// Takes the reporter over, or lets go of it if it is there already. FALSE if the relay is not, or
// no longer, the session's.
bool vek_service_relay_add(VekServiceRelay *relay, GObject *session, VekMetricReporter *reporter);

// Whether it was there.
bool vek_service_relay_remove(VekServiceRelay *relay, GObject *session,
                              VekMetricReporter *reporter);

// Runs a pass that retires no metric.
void vek_service_relay_report(VekServiceRelay *relay, VekMetricRegistry *registry);

bool vek_service_relay_is_in_pass(VekServiceRelay *relay);

G_END_DECLS
