#pragma once

/* The periodic report pass, without waiting for it. */

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/* The registry's timer in the default main context, borrowed; NULL if it has none. */
GSource *find_timer(VekMetricRegistry *registry);

/* Fires the registry's timer, on this thread. */
void run_periodic_pass(VekMetricRegistry *registry);

G_END_DECLS
