#pragma once

/* What the two reporters with a CSV file have in common: the file's life, and how it fails. */

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

typedef struct {
  const char *stem; /* where the paths of the tests begin */
  GType type;
  VekMetricReporter *(*make)(const gchar *basename, const gchar *dirname);
  void (*write)(VekMetricReporter *reporter); /* makes the reporter write this line */
  const char *line;
  const char *folder_below_a_file;   /* the messages, when "file/logs" cannot be made, */
  const char *folder_without_a_name; /* and "" */
} CsvKind;

/* Adds the tests that both have. */
void add_csv_tests(const CsvKind *kind);

G_END_DECLS
