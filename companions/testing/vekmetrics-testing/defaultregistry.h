#pragma once

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/**
 * vek_testing_registry_push:
 *
 * Makes a fresh registry the default one, until [func@VekTesting.registry_pop] brings back the one
 * before. Calls can be nested.
 *
 * The stack belongs to the thread that runs the tests.
 *
 * Returns: (transfer none): the fresh registry
 */
VEK_EXPORT
VekMetricRegistry *vek_testing_registry_push(void);

/**
 * vek_testing_registry_pop:
 *
 * Lets go of the default registry that the last [func@VekTesting.registry_push] made, and brings
 * back the one before.
 *
 * Without a push before it, this is a failed check.
 */
VEK_EXPORT
void vek_testing_registry_pop(void);

G_END_DECLS
