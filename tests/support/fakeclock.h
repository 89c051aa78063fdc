#pragma once

/* The clock of a test program: it stands still until the test moves it.
 *
 * Linked into the program and exported from it, its functions take the place of GLib's
 * g_get_real_time(), g_get_monotonic_time() and g_timeout_add_seconds() for the library too. */

#include <glib.h>

G_BEGIN_DECLS

/* Sets both clocks, in microseconds. They start at 1,000,000,000 s and 1,000 s. */
void fake_clock_set(gint64 real_time, gint64 monotonic_time);

/* Moves both clocks on. */
void fake_clock_advance(gint64 microseconds);

/* Makes every later reading move its clock on by this much, after it was taken; 0 ends that. */
void fake_clock_set_step(gint64 microseconds);

/* How often a clock was read since the last fake_clock_set(). */
guint fake_clock_get_real_readings(void);
guint fake_clock_get_monotonic_readings(void);

/* Called at each reading, on the thread that reads, after it was taken; NULL for none. */
void fake_clock_set_hook(void (*hook)(void));

/* The arguments of the last g_timeout_add_seconds(), and how often it was called at all. The call
 * goes on to GLib. */
guint fake_clock_get_timeout_seconds(void);
guint fake_clock_get_n_timeouts(void);

G_END_DECLS
