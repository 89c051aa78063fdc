#pragma once

/* The timer of a session's own passes, without waiting for it. */

#include <vekmetrics-service/vekmetrics-service.h>

/* Of the timer of whole seconds that was set last with a function to free its data: a session's.
 * Its id is 0 if the test has set it to that and none was set since. */
extern guint timer_seconds;
extern guint timer_id;

/* Sets the period, and timer_id to 0 before. */
void set_period(VekServiceSession *session, guint period);

/* Happens when it has begun to fire, unless NULL. */
extern void (*meanwhile)(void);

/* Fires it, on this thread. */
void fire_timer(void);

/* The id of the timer of milliseconds that was set last: what ends a session's wait. */
extern guint wait_timer_id;
