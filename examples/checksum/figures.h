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
  VekMetricMeter *speed;      /* the bytes per second, as a moving average */
  VekMetricGauge *throughput; /* the bytes of each second by itself */
} Figures;

/* Makes the metrics, for as long as the program runs. */
void figures_init(Figures *figures);

/* Counts a failure, in all and under its reason. */
void figures_count_error(Figures *figures, int error_number);
