#pragma once

/* What tests of sessions share. They use the fixture's registry, reporter and record. */

#include <vekmetrics-service/vekmetrics-service.h>

/* Makes a session of the registry that has the reporter. */
VekServiceSession *session_new(void);

/* Tells whether a session has its registry: no other session had it first, and it is not over. */
gboolean has_registry(VekServiceSession *session);

/* Adds a recorder with the label "b". */
void add_b(VekServiceSession *session);

/* Increments a counter that nobody holds afterwards. */
void count(const char *name);

/* Asserts that the function has logged this failed check. */
void assert_refused(const char *function, const char *condition);
