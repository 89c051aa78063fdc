#pragma once

/* Catches every log message of a test program, structured or not, with its fields; only debug
 * messages of other domains than the library's are passed over, unless a test asks for them.
 * GObject's criticals are taken for warnings.
 *
 * A test takes the messages out in the order in which they came; one that leaves a message behind
 * fails. */

#include <glib.h>

G_BEGIN_DECLS

/* To be called once, after g_test_init(). No message is fatal then, except errors. */
void log_capture_init(void);

/* Catches the debug messages of this domain instead of the library's; those of none if it is NULL,
 * for a long test causes millions. */
void log_capture_set_debug_domain(const char *domain);

/* Takes the oldest message: the exact domain, level and text. */
void assert_logged(const char *domain, GLogLevelFlags level, const char *message);

/* The same for a pattern as of g_pattern_match_simple(). */
void assert_logged_like(const char *domain, GLogLevelFlags level, const char *pattern);

/* The same for a structured message of the library: its source path and function too, and that it
 * has a line. */
void assert_logged_from(const char *file, const char *function, GLogLevelFlags level,
                        const char *message);

/* The same for a pattern. */
void assert_logged_from_like(const char *file, const char *function, GLogLevelFlags level,
                             const char *pattern);

/* Takes the critical of a failed check of the library: "FUNCTION: assertion 'CONDITION' failed". */
void assert_failed_check(const char *function, const char *condition);

void assert_nothing_logged(void);

/* Takes the oldest message, whatever it is, and its level.
 *
 * Returns: (transfer full): its text; NULL if none waits */
char *log_capture_take(GLogLevelFlags *level);

/* How many messages wait to be taken. */
guint log_capture_get_n_waiting(void);

G_END_DECLS
