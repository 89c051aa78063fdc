#pragma once

/* A clock for test programs, which stands still until the test moves it.
 *
 * The clock is a separate static library, vekmetrics-testing-clock. If a program calls any of these
 * functions and exports its symbols, g_get_real_time() and g_get_monotonic_time() read this clock:
 * in the program itself, in vekmetrics, and in other libraries. GLib itself still reads the real
 * clocks, for example for the timeouts of its main loop.
 *
 * If the program did not export its symbols, libraries would still read GLib's clocks. So the first
 * call that sets the clock then ends the program. Any thread may call any function. */

#include <glib.h>

G_BEGIN_DECLS

/* Sets both clocks, in microseconds: that of g_get_real_time(), since the Unix epoch, and that of
 * g_get_monotonic_time(). They start at 1,000,000,000 seconds and at 1,000 seconds. */
void vek_testing_clock_set(gint64 real_time, gint64 monotonic_time);

/* Moves both clocks forward, or back by a negative number. */
void vek_testing_clock_advance(gint64 microseconds);

/* Sets a function that is called after each reading, on the thread that reads; NULL, the default,
 * for none. It may move the clock, so that time passes between two readings of the code under
 * test. */
void vek_testing_clock_set_hook(void (*hook)(gboolean monotonic));

G_END_DECLS
