#pragma once

/* Two threads in a test of a lock: one that begins when the other is done, or two that meet. */

#include <glib.h>

G_BEGIN_DECLS

/* Calls first(data) on this thread, then second(data) on another one. The thread sanitizer does not
 * see the order: what no lock keeps apart is a race to it. */
void run_in_turn(void (*first)(gpointer data), void (*second)(gpointer data), gpointer data);

/* The same, but the first one stops at its first call of stop_first(), until the second one waits
 * for a lock, or is done. */
void run_to_meet(void (*first)(gpointer data), void (*second)(gpointer data), gpointer data);

/* To be called by functions of the program in place of GLib's: where the first one stops, and where
 * the second one may be about to wait for what is not a lock. */
void stop_first(void);
void note_second(void);

G_END_DECLS
