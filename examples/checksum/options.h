#pragma once

/* The command line. */

#include <gio/gio.h>

typedef struct {
  char **folders;  /* at least one; files are accepted too */
  char *algorithm; /* the lower-case name */
  GChecksumType type;
  int jobs;
  guint every;  /* milliseconds between reports; 0 for none */
  char *output; /* the file for the checksums; NULL for standard output */
  gboolean quiet;

  /* Where the figures go; NULL or FALSE for not there. */
  gboolean console;
  char *csv; /* a folder, as the next two */
  char *timeline;
  char *json;
  int max_reports; /* in a JSON file; 0 for no limit */
  int keep;        /* so many full JSON files */
  char *carbon;    /* as it was given */
  char *carbon_address;
  guint16 carbon_port;
  char *prefix;
  guint wait; /* milliseconds for each of them at the end */
} Options;

/* What the program exits with. Figures that cannot be written do not change it: a program does not
 * suffer from being measured. */
enum { STATUS_OK = 0, STATUS_ERRORS = 1, STATUS_USAGE = 2, STATUS_INTERRUPTED = 130 };

/* Reads the command line. Exits by itself after --help, --version and mistakes. */
void options_parse(Options *options, int argc, char **argv);

void options_clear(Options *options);
