#pragma once

/* Runs a scenario again and again, and each time fails another call of the C library, or two. What
 * is compared with a run without faults: the lines of all files in the folder, those that were sent
 * to the sink, and what the scenario adds.
 *
 * A run is wrong if it ends the process, does not end within a minute, logs what is not documented
 * or logs it twice, keeps a descriptor, or loses a line that is not documented as lost. The address
 * sanitizer looks for leaks after each scenario. */

#include "linesink.h"

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/* What a run has, and what comes out of it. */
typedef struct {
  char *folder;
  LineSink *sink;
  GString *output; /* lines */
} Run;

/* Which passes lose lines, counted from the one in which a call fails. */
typedef enum {
  NO_PASS,
  THIS_PASS,
  UP_TO_THIS_PASS,
  LATER_PASSES,
  ONE_LINE_AND_LATER_PASSES,
} Losers;

/* What is documented for a call that fails. */
typedef struct {
  const char *function;
  const char *messages; /* a pattern for each, between "|"; NULL for none */
  Losers losers;
  const char *lines; /* a pattern of those that are lost; NULL for all */
} Effect;

typedef struct {
  void (*run)(Run *run);
  const char *messages;  /* also without faults, like those of effects */
  const Effect *effects; /* of the functions that have one, up to one without a function */
} Scenario;

/* Fails each call in turn, then makes each that can do so do half of its work; then fails each two
 * of as many first calls as the environment says in TORTURE_PAIRS. */
void torture(const Scenario *scenario);

/* Makes the metrics of the next pass, whose names begin with "p1", "p2" and so on; and takes them
 * out of further passes. */
void begin_pass(VekMetricRegistry *registry);
void end_pass(void);

/* Runs the next pass for a reporter. */
void report_pass(VekMetricReporter *reporter);

/* Runs the main loop until nothing is ready. */
void settle(void);

G_END_DECLS
