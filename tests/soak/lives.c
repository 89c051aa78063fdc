#include "lives.h"

#define MINUTE (60 * (gint64)G_USEC_PER_SEC)

/* Turns take a minute and begin 20 seconds behind the full one; the session's own pass comes in
 * the middle. */
const Life lives[] = {
    {.kind = COUNTER, .n_turns = 1, .n_updates = 1, .own = {1}, .behind = {1}, .alone = {1}},
    {.kind = COUNTER,
     .has_dimensions = TRUE,
     .n_turns = 2,
     .n_updates = 2,
     .own = {1, 2},
     .behind = {1, 2},
     .alone = {1, 2}},
    {.kind = COUNTER, /* made again under the name of one that has just been retired */
     .n_names = 1,
     .n_turns = 1,
     .n_updates = 1,
     .own = {1},
     .behind = {1},
     .alone = {1}},
    {.kind = COUNTER,
     .n_names = 8,
     .n_turns = 6,
     .n_updates = 6,
     .own = {1, 2, 3, 4, 5, 6},
     .behind = {1, 2, 3, 4, 5, 6},
     .alone = {1, 2, 3, 4, 5, 6}},
    {.kind = COUNTER,
     .n_turns = 2,
     .n_updates = 2,
     .is_retired = TRUE,
     .own = {1, NOTHING},
     .behind = {1, NOTHING},
     .alone = {1, NOTHING}},
    {.kind = COUNTER, /* the same one */
     .n_turns = 1,
     .n_updates = 1,
     .comes_again = TRUE,
     .own = {2},
     .behind = {2},
     .alone = {2}},
    {.kind = GAUGE,
     .has_dimensions = TRUE,
     .n_turns = 3,
     .n_updates = 3,
     .own = {1, 2, 3},
     .behind = {1, 2, 3},
     .alone = {1, 2, 3}},
    {.kind = GAUGE, /* never set */
     .n_turns = 1,
     .own = {NOTHING},
     .behind = {NOTHING},
     .alone = {NOTHING}},
    {.kind = GAUGE, /* reported when a minute begins, and at first for the one that has begun */
     .interval = MINUTE,
     .n_turns = 2,
     .n_updates = 2,
     .own = {0, NOTHING},
     .behind = {1, 2},
     .alone = {1, 2}},
    {.kind = GAUGE, /* not set in the last minutes */
     .interval = MINUTE,
     .n_turns = 3,
     .n_updates = 1,
     .own = {0, NOTHING, NOTHING},
     .behind = {1, NOTHING, NOTHING},
     .alone = {1, NOTHING, NOTHING}},
    {.kind = METER, /* the first mark starts it; the time constant is a minute */
     .n_turns = 2,
     .n_updates = 2,
     .own = {0, 1},
     .behind = {0, 0.5},
     .alone = {0, 1}},
    {.kind = HISTOGRAM,
     .has_dimensions = TRUE,
     .n_turns = 2,
     .n_updates = 2,
     .own = {1, 1.5},
     .behind = {1, 1.5},
     .alone = {1, 1.5}},
    {.kind = RECENT_HISTOGRAM, /* of the last minute */
     .n_turns = 2,
     .n_updates = 2,
     .own = {1, 2},
     .behind = {1, 2},
     .alone = {1, 2}},
    {.kind = TIMER, .n_turns = 1, .n_updates = 1, .own = {1}, .behind = {1}, .alone = {1}},
    {.kind = TIMELINE, /* each range once */
     .n_turns = 2,
     .n_updates = 2,
     .own = {1, 2},
     .behind = {NOTHING, NOTHING},
     .alone = {1, 2}},
};
const guint n_lives = G_N_ELEMENTS(lives);

static guint get_number(const Life *life, guint first_turn) {
  return life->n_names > 0 ? first_turn % life->n_names : first_turn;
}

static gpointer make(VekMetricRegistry *registry, guint row, guint number) {
  const Life *life = &lives[row];
  char name[40];
  g_snprintf(name, sizeof name, "metric-%u-%u", row, number);
  char *host[] = {(char *)"host", (char *)"a", NULL};
  char **dimensions = life->has_dimensions ? host : NULL;
  switch (life->kind) {
  case COUNTER: return vek_metric_registry_counter_new(registry, name, "Count", dimensions);
  case GAUGE:
    return vek_metric_registry_gauge_new(registry, name, NULL, life->interval, dimensions);
  case METER: return vek_metric_registry_meter_new(registry, name, "Count", dimensions);
  case HISTOGRAM:
    return vek_metric_registry_histogram_new(registry, name, "Bytes", NULL, dimensions);
  case RECENT_HISTOGRAM: {
    g_autoptr(VekMetricStore) store = vek_metric_fixed_time_store_new(MINUTE, 10);
    return vek_metric_registry_histogram_new(registry, name, NULL, store, dimensions);
  }
  case TIMER: return vek_metric_registry_timer_new(registry, name, "Seconds", NULL, dimensions);
  case TIMELINE: return vek_metric_registry_timeline_new(registry, name);
  }
  g_assert_not_reached();
}

static void update(Kind kind, gpointer metric, guint nth) {
  switch (kind) {
  case COUNTER: vek_metric_counter_inc(metric); break;
  case GAUGE: vek_metric_gauge_set_value(metric, nth); break;
  case METER: vek_metric_meter_mark(metric, 60); break;
  case HISTOGRAM:
  case RECENT_HISTOGRAM: vek_metric_histogram_set(metric, nth); break;
  case TIMER: vek_metric_timer_set_usec(metric, nth * (gint64)G_USEC_PER_SEC); break;
  case TIMELINE: vek_metric_timeline_add_range(metric, (gint)nth, 0, g_get_real_time()); break;
  }
}

/* The part of a turn in the life of the metric that began in an earlier one, or in this. */
static void live(Population *self, guint row, guint first_turn, guint nth) {
  const Life *life = &lives[row];
  gpointer *held = &self->held[row][first_turn % MAX_PASSES];
  guint number = get_number(life, first_turn);
  if (nth == 1)
    *held = make(self->registry, row, number);
  if (nth <= life->n_updates)
    update(life->kind, *held, nth);
  if (nth < life->n_turns)
    return;
  if (life->is_retired)
    vek_metric_mark_inactive(*held);
  g_clear_object(held);
  if (!life->comes_again)
    return;
  *held = make(self->registry, row, number);
  update(life->kind, *held, nth);
  g_clear_object(held);
}

/* Whether a metric of the row began so many turns ago that this is the nth. */
static gboolean has_metric(const Population *self, guint row, guint turn, guint nth) {
  if (nth > turn)
    return FALSE;
  guint first_turn = turn + 1 - nth;
  return first_turn <= self->last_turn && first_turn % self->stride == row % self->stride;
}

void population_begin_turn(Population *population, guint turn) {
  for (guint row = 0; row < n_lives; row++)
    for (guint nth = 1; nth <= lives[row].n_turns; nth++)
      if (has_metric(population, row, turn, nth))
        live(population, row, turn + 1 - nth, nth);
}

gboolean is_aggregated(Kind kind) {
  return kind == HISTOGRAM || kind == RECENT_HISTOGRAM || kind == TIMER;
}

static guint get_n_lines(const Output *output, Kind kind) {
  if (is_aggregated(kind))
    return output->lines_of_samples;
  return kind == TIMELINE ? output->has_ranges : output->has_figures;
}

static const double *get_reports(const Life *life, Pass pass) {
  switch (pass) {
  case OWN: return life->own;
  case BEHIND: return life->behind;
  case ALONE: return life->alone;
  }
  g_assert_not_reached();
}

void population_expect(const Population *population, Output *output, Pass pass, guint turn) {
  for (guint row = 0; row < n_lives; row++)
    for (guint nth = 1; nth <= lives[row].n_turns; nth++) {
      double value = get_reports(&lives[row], pass)[nth - 1];
      if (value != NOTHING && has_metric(population, row, turn, nth))
        output_expect(output, row, get_number(&lives[row], turn + 1 - nth),
                      get_n_lines(output, lives[row].kind), value);
    }
}
