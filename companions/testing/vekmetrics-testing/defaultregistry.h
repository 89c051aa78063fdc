#pragma once

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/**
 * vek_testing_registry_push:
 *
 * Makes a new registry the default one, until [func@VekTesting.registry_pop] restores the previous
 * one. Calls can be nested.
 *
 * In C, `g_autoptr(VekTestingRegistry) registry = vek_testing_registry_push();` pops the registry
 * at the end of the scope. Call both functions on the thread that runs the tests.
 *
 * Returns: (transfer none): the new registry, which the library owns
 */
VEK_EXPORT
VekMetricRegistry *vek_testing_registry_push(void);

/**
 * vek_testing_registry_pop:
 *
 * Removes the default registry that the last [func@VekTesting.registry_push] created, and restores
 * the previous one. References to its metrics stay valid, but no registry reports them any more.
 *
 * Without a matching push, this is a failed check and does nothing.
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
