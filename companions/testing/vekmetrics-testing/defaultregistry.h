#pragma once

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/**
 * vek_testing_registry_push:
 *
 * Makes a fresh registry the default one, until [func@VekTesting.registry_pop] brings back the one
 * before. Calls can be nested.
 *
 * In C, `g_autoptr(VekTestingRegistry) registry = vek_testing_registry_push();` pops by itself at
 * the end of the scope. Both functions belong to the thread that runs the tests.
 *
 * Returns: (transfer none): the fresh registry, which the library owns
 */
VEK_EXPORT
VekMetricRegistry *vek_testing_registry_push(void);

/**
 * vek_testing_registry_pop:
 *
 * Takes away the default registry, which the last [func@VekTesting.registry_push] made, and brings
 * back the one before. Whoever holds metrics of it keeps them; no registry reports them any more.
 *
 * Without a push before it, this is a failed check and does nothing.
 */
VEK_EXPORT
void vek_testing_registry_pop(void);

#ifndef __GI_SCANNER__

/* A registry that was pushed, for g_autoptr. */
typedef VekMetricRegistry VekTestingRegistry;

static inline void vek_testing_registry_leave_(VekTestingRegistry *registry) {
  (void)registry;
  vek_testing_registry_pop();
}

G_DEFINE_AUTOPTR_CLEANUP_FUNC(VekTestingRegistry, vek_testing_registry_leave_)

#endif

G_END_DECLS
