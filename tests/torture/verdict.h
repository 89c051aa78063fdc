#pragma once

/* Compares what a run has left with what a run without faults has. */

#include "faults.h"
#include "torture.h"

G_BEGIN_DECLS

typedef struct {
  GStrv lines;
  GStrv messages; /* logged, and printed to standard error */
} Result;

void result_clear(Result *result);
G_DEFINE_AUTO_CLEANUP_CLEAR_FUNC(Result, result_clear)

/* Returns what is wrong with the run that has just ended; nothing if all is as documented. */
GStrv find_wrongs(const Scenario *scenario, const Plan *plan, const Result *expected,
                  const Result *result);

G_END_DECLS
