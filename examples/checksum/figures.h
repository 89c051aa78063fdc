#pragma once

/* What the program measures: all of its metrics, made in one place.
 *
 * Any thread may count what it does on the counters of the struct. The functions are for the main
 * thread, where the registry's own pass runs as well: so the one console reporter never serves two
 * passes at the same time. */

#include <vekmetrics/vekmetrics.h>

typedef struct {
  VekMetricRegistry *registry;
  VekMetricReporter *console;

  VekMetricCounter *folders;
  VekMetricCounter *skipped; /* neither regular files nor folders */
  VekMetricCounter *errors;
  GHashTable *errors_by_reason; /* from reason to VekMetricCounter */

  /* By algorithm. */
  VekMetricCounter *bytes;
  VekMetricCounter *files_empty;
  VekMetricCounter *files_with_data;
} Figures;

/* Makes the metrics and has them reported on the console every 60 seconds. */
Figures *figures_new(const char *algorithm);

void figures_free(Figures *figures);

/* Counts a failure, in all and under its reason. */
void figures_count_error(Figures *figures, int error_number);

gint64 figures_get_files(Figures *figures);

/* Prints the figures now. */
void figures_report(Figures *figures);
