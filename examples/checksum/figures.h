#pragma once

/* What the program measures: all of its metrics, made in one place. Any thread may use them. */

#include <vekmetrics/vekmetrics.h>

typedef struct {
  VekMetricRegistry *registry;
  GHashTable *errors_by_reason; /* from reason to VekMetricCounter */
  GMutex lock;                  /* guards that table */

  VekMetricCounter *folders;
  VekMetricCounter *skipped; /* neither regular files nor folders */
  VekMetricCounter *errors;
  VekMetricHistogram *file_size;
  VekMetricGauge *open_files;

  /* By algorithm. */
  VekMetricCounter *bytes;
  VekMetricCounter *files_empty;
  VekMetricCounter *files_with_data;
  VekMetricTimer *file_time;
  VekMetricGauge *speed; /* the average since the start */
  gint64 start;          /* in monotonic microseconds */
} Figures;

/* Makes the metrics, for as long as the program runs. Sizes and times are those of the files of the
 * last seconds: as many as there are between two passes. */
void figures_init(Figures *figures, int seconds);

/* Counts what was hashed. */
void figures_add_bytes(Figures *figures, gint64 bytes);

/* Counts a failure, in all and under its reason. */
void figures_count_error(Figures *figures, int error_number);
