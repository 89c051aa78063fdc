#pragma once

/* Calls of the C library that fail when a test wants it. The program defines the functions of the
 * library that the code under test, GLib, GIO and libsoup call and that can fail on good arguments,
 * so that a test can number their calls and fail some of them.
 *
 * Calls on descriptors other than files and sockets are not counted: a main context wakes another
 * one up by an eventfd. Allocations are not among the calls, because GLib ends the program without
 * memory. */

#include <glib.h>

G_BEGIN_DECLS

enum { MAX_FAULTS = 2 };

/* The calls that fail, numbered from 1; 0 for none. */
typedef struct {
  guint calls[MAX_FAULTS];
  gboolean halves; /* they do not fail, but do half of the work or are interrupted */
} Plan;

/* A call that has failed. */
typedef struct {
  const char *function;
  guint pass;
} Fault;

/* Begins to count, on all threads; and ends it. */
void faults_begin(const Plan *plan);
void faults_end(void);

/* The calls between these are those of the test itself, on this thread. */
void faults_pause(void);
void faults_resume(void);

/* Faults from now on are in this pass. */
void faults_set_pass(guint pass);
guint faults_get_pass(void);

/* How many calls were counted, and the faults among them. */
guint faults_get_n_calls(void);
guint faults_get_n_faults(void);
const Fault *faults_get(guint i);

/* How many connections were begun over TCP. */
guint faults_get_n_connections(void);

G_END_DECLS
