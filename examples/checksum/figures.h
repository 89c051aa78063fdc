#pragma once

/* What the program measures: all of its metrics, made in one place.
 *
 * Any thread may update the metrics of the struct. The functions are for the main thread, where the
 * registry's own pass runs as well: so no reporter ever serves two passes at the same time. */

#include <vekmetrics/vekmetrics.h>

typedef struct {
  VekMetricRegistry *registry;
  GPtrArray *metrics; /* all but the next; one that only the registry holds is soon gone */
  GHashTable *errors_by_reason; /* from reason to VekMetricCounter */

  VekMetricCounter *folders;
  VekMetricCounter *skipped; /* neither regular files nor folders */
  VekMetricCounter *errors;
  VekMetricHistogram *file_size;
  VekMetricGauge *waiting; /* files that no thread has begun yet */

  /* By algorithm. */
  VekMetricCounter *bytes;
  VekMetricCounter *files_empty;
  VekMetricCounter *files_with_data;
  VekMetricTimer *file_time;
  VekMetricMeter *speed;      /* the bytes per second, as a moving average */
  VekMetricGauge *throughput; /* the bytes of each second by itself */

  /* A VekMetricTimeline for each worker that is idle; who hashes a file takes one out meanwhile. A
   * range is a file: the id is its number in the order in which the walk came upon them, the bounds
   * are microseconds since the Unix epoch. */
  GAsyncQueue *idle_workers;
} Figures;

/* Makes the metrics, for that many workers. */
Figures *figures_new(const char *algorithm, int workers);

/* Lets the metrics and the registry go, and with it the registry's hold on its reporters. */
void figures_free(Figures *figures);

/* Counts a failure, in all and under its reason. */
void figures_count_error(Figures *figures, int error_number);

gint64 figures_get_files(Figures *figures);
