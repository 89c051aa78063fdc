#include "options.h"

#include <stdlib.h>

#define DEFAULT_FOLDER "/usr/share/doc"
#define MAX_JOBS 256
#define MAX_EVERY 86400.0 /* seconds */

static const struct {
  const char *name;
  GChecksumType type;
} algorithms[] = {
    {"md5", G_CHECKSUM_MD5},       {"sha1", G_CHECKSUM_SHA1},     {"sha256", G_CHECKSUM_SHA256},
    {"sha384", G_CHECKSUM_SHA384}, {"sha512", G_CHECKSUM_SHA512},
};

static const char description[] =
    "Prints a line for each regular file, as sha256sum does and as it can check, then the figures "
    "of\nthe run. Symbolic links below the folders are not followed.\n\n"
    "The exit status is 0 if all went well, 1 if something could not be read or written, 2 for a\n"
    "mistake on the command line and 130 if the run was interrupted.";

G_GNUC_PRINTF(1, 2)
G_GNUC_NORETURN
static void exit_with_usage(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char *message = g_strdup_vprintf(format, arguments);
  va_end(arguments);

  g_printerr("checksum: %s\nTry \"checksum --help\".\n", message);
  g_free(message);
  exit(STATUS_USAGE);
}

static GChecksumType parse_algorithm(const char *name) {
  for (gsize i = 0; i < G_N_ELEMENTS(algorithms); i++)
    if (g_str_equal(name, algorithms[i].name))
      return algorithms[i].type;
  exit_with_usage("unknown algorithm \"%s\"", name);
}

void options_parse(Options *options, int argc, char **argv) {
  double every = 0.0;
  gboolean version = FALSE;
  *options = (Options){.jobs = (int)MIN(g_get_num_processors(), MAX_JOBS)};

  const GOptionEntry entries[] = {
      {"algorithm", 'a', 0, G_OPTION_ARG_STRING, &options->algorithm,
       "md5, sha1, sha256, sha384 or sha512 (default: sha256)", "NAME"},
      {"jobs", 'j', 0, G_OPTION_ARG_INT, &options->jobs,
       "Hash this many files at a time (default: one for each processor)", "N"},
      {"every", 'e', 0, G_OPTION_ARG_DOUBLE, &every,
       "Print the figures that often during the run, too", "SECONDS"},
      {"output", 'o', 0, G_OPTION_ARG_FILENAME, &options->output,
       "Write the checksums to FILE, the figures alone to standard output", "FILE"},
      {"quiet", 'q', 0, G_OPTION_ARG_NONE, &options->quiet, "Print no checksums", NULL},
      {"version", 0, 0, G_OPTION_ARG_NONE, &version, "Print the version", NULL},
      {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &options->folders, NULL, NULL},
      G_OPTION_ENTRY_NULL,
  };
  g_autoptr(GOptionContext) context = g_option_context_new(
      "[FOLDER...] - hash every file below " DEFAULT_FOLDER ", or below the folders given");
  g_option_context_add_main_entries(context, entries, NULL);
  g_option_context_set_description(context, description);

  g_autoptr(GError) error = NULL;
  if (!g_option_context_parse(context, &argc, &argv, &error))
    exit_with_usage("%s", error->message);
  if (version) {
    g_print("checksum (vekmetrics) " VERSION "\n");
    exit(STATUS_OK);
  }

  if (!options->algorithm)
    options->algorithm = g_strdup("sha256");
  options->type = parse_algorithm(options->algorithm);

  if (options->jobs < 1 || options->jobs > MAX_JOBS)
    exit_with_usage("--jobs takes a number from 1 to %d", MAX_JOBS);

  if (every != 0.0 && !(every >= 0.001 && every <= MAX_EVERY))
    exit_with_usage("--every takes seconds from 0.001 to %.0f", MAX_EVERY);
  options->every = (guint)(every * 1000.0);

  if (!options->folders)
    options->folders = g_strsplit(DEFAULT_FOLDER, "\n", 1);
}

void options_clear(Options *options) {
  g_strfreev(options->folders);
  g_free(options->algorithm);
  g_free(options->output);
}
