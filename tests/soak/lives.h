#pragma once

/* Metrics that come and go, and how often the registry is to report each of them. */

#include "ledger.h"

#include <vekmetrics/vekmetrics.h>

enum { MAX_PASSES = 6 };

typedef enum { COUNTER, GAUGE, METER, HISTOGRAM, RECENT_HISTOGRAM, TIMER, TIMELINE } Kind;

gboolean is_aggregated(Kind kind);

/* What a pass reports of a metric that it does not report. */
#define NOTHING (-1.0)

/* How a metric lives. One begins in each turn, which ends with a periodic pass. The metric is
 * updated at the beginning of each of its first turns. At the beginning of its last, the program
 * lets it go. */
typedef struct {
  Kind kind;
  gboolean has_dimensions;
  gint64 interval; /* of a gauge, in µs */
  guint n_names;   /* how many names are taken in turn; 0 if each metric has its own */
  guint n_turns;
  guint n_updates;
  gboolean is_retired;  /* the program marks it inactive before it lets it go */
  gboolean comes_again; /* the program gets it again, updates it and lets it go in the last turn */
  /* What is reported in each turn by a pass of the session's own, by the periodic pass behind it,
   * and by a periodic pass without a session. */
  double own[MAX_PASSES], behind[MAX_PASSES], alone[MAX_PASSES];
} Life;

extern const Life lives[];
extern const guint n_lives;

typedef struct {
  VekMetricRegistry *registry;
  guint stride;    /* turns from one metric of a row to the next */
  guint last_turn; /* in which metrics begin */
  gpointer held[MAX_ROWS][MAX_PASSES];
} Population;

/* Begins a turn, of which the first is 1. */
void population_begin_turn(Population *population, guint turn);

/* Notes what a pass in this turn reports to an output. */
typedef enum { OWN, BEHIND, ALONE } Pass;
void population_expect(const Population *population, Output *output, Pass pass, guint turn);
