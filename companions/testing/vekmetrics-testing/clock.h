#pragma once

/* A clock for test programs: it stands still until the test moves it.
 *
 * This is a static library of its own, vekmetrics-testing-clock. In a program that calls any of
 * these functions, and exports its symbols, g_get_real_time() and g_get_monotonic_time() read this
 * clock: in the program itself, in vekmetrics, and in other libraries. What GLib does inside, such
 * as the timeouts of its main loop, keeps to the real clocks.
 *
 * A program that does not export it is ended by the first call that sets it: those libraries would
 * go on reading GLib's clocks. Any thread may call any function. */

#include <glib.h>

G_BEGIN_DECLS

/* Sets both clocks, in microseconds: that of g_get_real_time(), since the Unix epoch, and that of
 * g_get_monotonic_time(). They start at 1,000,000,000 seconds and at 1,000 seconds. */
void vek_testing_clock_set(gint64 real_time, gint64 monotonic_time);

/* Moves both clocks on; with a negative number, back. */
void vek_testing_clock_advance(gint64 microseconds);

/* Sets what is called at each reading, on the thread that reads and after the clock was read: NULL,
 * as in the beginning, for nothing. So time can pass in code that never waits for the test. */
void vek_testing_clock_set_hook(void (*hook)(gboolean monotonic));

G_END_DECLS
