#pragma once

/* The command line. */

#include <glib.h>

typedef struct {
  char **folders;  /* at least one; files are accepted too */
  char *algorithm; /* the lower-case name */
  GChecksumType type;
  int jobs;
  guint every;  /* milliseconds between reports; 0 for none */
  char *output; /* the file for the checksums; NULL for standard output */
  gboolean quiet;
} Options;

/* What the program exits with. */
enum { STATUS_OK = 0, STATUS_ERRORS = 1, STATUS_USAGE = 2, STATUS_INTERRUPTED = 130 };

/* Reads the command line. Exits by itself after --help, --version and mistakes. */
void options_parse(Options *options, int argc, char **argv);

void options_clear(Options *options);
