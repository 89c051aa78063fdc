#pragma once

/* What the two reporters with a CSV file have in common: the file's life, and how it fails. */

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

typedef struct {
  GType (*get_type)(void);
  VekMetricReporter *(*make)(const gchar *basename, const gchar *dirname);
  void (*write)(VekMetricReporter *reporter); /* makes the reporter write this line */
  const char *line;
  const char *folder_below_a_file;   /* the messages, when "file/logs" cannot be made, */
  const char *folder_without_a_name; /* and "" */
} CsvKind;

/* Of the program; csvtest.c holds the tests that both have. */
extern const CsvKind csv_kind;

G_END_DECLS
