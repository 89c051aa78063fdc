#pragma once

/* What was to be reported of each metric, and what came out at the other end of a reporter.
 *
 * Metrics are called "metric-ROW-NUMBER". */

#include <glib.h>

enum { MAX_ROWS = 16, N_SLOTS = 32 };

typedef struct {
  guint64 n_lines; /* in all */
  struct {
    guint n_lines;
    double sum;
  } entries[MAX_ROWS][N_SLOTS]; /* by row and number, of which few are in use at a time */
} Ledger;

/* What comes out of a reporter. */
typedef struct {
  const char *name;
  guint lines_of_samples; /* how many lines it writes of a histogram or a timer */
  gboolean has_ranges;    /* whether it writes those of timelines, */
  gboolean has_figures;   /* and anything else */
  Ledger expected;
  Ledger received;
} Output;

void output_expect(Output *output, guint row, guint number, guint n_lines, double value);

/* Each takes in a line of one format. Lines without a metric are passed over. */
void output_take_carbon(Output *output, const char *line);
void output_take_console(Output *output, const char *line);
void output_take_csv(Output *output, const char *line);
void output_take_json(Output *output, const char *line);
void output_take_ranges(Output *output, const char *line);
void output_take_recorded(Output *output, const char *line);

typedef void (*TakeLine)(Output *output, const char *line);

/* Takes in each line of a text, which is changed. Returns what follows the last. */
char *take_lines(char *text, Output *output, TakeLine take);

/* Takes in a file, if there is one, and empties it: its reporter may have it open. */
void take_file(const char *folder, const char *name, Output *output, TakeLine take);

/* Asserts that all was received that was expected, and nothing else, and begins anew. */
void output_settle(Output *output);
