#pragma once

/* Threads of which one runs at a time. At each lock that the library takes or releases, and at each
 * reading of a clock, the turn goes to a thread that is drawn at random, so that a seed repeats a
 * program exactly.
 *
 * The thread sanitizer does not see how turns are passed: what only they keep apart is a race to
 * it. Threads that wait for each other end the program. */

#include <glib.h>

G_BEGIN_DECLS

#define N_THREADS 4

/* Begins a program, in which the thread 0 has the first turn. */
void turns_begin(guint32 seed);

/* Takes part as the thread of this number, from 0; returns at its first turn. */
void turns_join(int thread);

/* Ends a thread's part. */
void turns_leave(void);

/* Passes the turn on, in a thread that takes part. */
void turns_pass(void);

/* A hash of all turns since the program began. */
guint64 turns_get_trace(void);

G_END_DECLS
