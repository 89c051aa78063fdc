#include "options.h"

#include <stdlib.h>

#define DEFAULT_FOLDER "/usr/share/doc"
#define MAX_JOBS 256
#define MAX_SECONDS 86400.0
#define DEFAULT_WAIT 5.0 /* seconds */
#define CARBON_PORT 2003
#define MAX_KEEP 1000

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
    "The figures go to standard output, unless they are wanted elsewhere; --console gives them in\n"
    "both places. FOLDER is made if it is missing; what its files hold already is kept.\n\n"
    "The exit status is 0 if all went well, 1 if something could not be read or written, 2 for a\n"
    "mistake on the command line and 130 if the run was interrupted. Figures that cannot be\n"
    "written are warned about, and do not change it.";

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

/* Seconds as they are given, milliseconds as the main loop takes them. */
static guint parse_seconds(const char *option, double seconds) {
  if (!(seconds >= 0.001 && seconds <= MAX_SECONDS))
    exit_with_usage("%s takes seconds from 0.001 to %.0f", option, MAX_SECONDS);
  return (guint)(seconds * 1000.0);
}

static void check_number(const char *option, int number, int min, int max) {
  if (number < min || number > max)
    exit_with_usage("%s takes a number from %d to %d", option, min, max);
}

static void check_need(const char *option, gboolean given, const char *needed, gboolean present) {
  if (given && !present)
    exit_with_usage("%s needs %s", option, needed);
}

/* Only numbers: the reporter looks no names up. */
static gboolean parse_carbon(Options *options) {
  g_autoptr(GSocketConnectable) given = g_network_address_parse(options->carbon, CARBON_PORT, NULL);
  if (!given)
    return FALSE;
  options->carbon_address = g_strdup(g_network_address_get_hostname(G_NETWORK_ADDRESS(given)));
  options->carbon_port = g_network_address_get_port(G_NETWORK_ADDRESS(given));

  g_autoptr(GSocketAddress) address =
      g_inet_socket_address_new_from_string(options->carbon_address, options->carbon_port);
  return address && options->carbon_port != 0;
}

void options_parse(Options *options, int argc, char **argv) {
  double every = 0.0;
  double wait = DEFAULT_WAIT;
  gboolean version = FALSE;
  *options = (Options){.jobs = (int)MIN(g_get_num_processors(), MAX_JOBS)};

  const GOptionEntry entries[] = {
      {"algorithm", 'a', 0, G_OPTION_ARG_STRING, &options->algorithm,
       "md5, sha1, sha256, sha384 or sha512 (default: sha256)", "NAME"},
      {"jobs", 'j', 0, G_OPTION_ARG_INT, &options->jobs,
       "Hash this many files at a time (default: one for each processor)", "N"},
      {"every", 'e', 0, G_OPTION_ARG_DOUBLE, &every,
       "Report the figures that often during the run, too", "SECONDS"},
      {"output", 'o', 0, G_OPTION_ARG_FILENAME, &options->output,
       "Write the checksums to FILE rather than to standard output", "FILE"},
      {"quiet", 'q', 0, G_OPTION_ARG_NONE, &options->quiet, "Print no checksums", NULL},
      {"console", 0, 0, G_OPTION_ARG_NONE, &options->console,
       "Print the figures (the default without another place for them)", NULL},
      {"csv", 0, 0, G_OPTION_ARG_FILENAME, &options->csv,
       "Append a line for each figure to FOLDER/figures.csv", "FOLDER"},
      {"json", 0, 0, G_OPTION_ARG_FILENAME, &options->json,
       "Append a line for each report to FOLDER/figures.json", "FOLDER"},
      {"max-reports", 0, 0, G_OPTION_ARG_INT, &options->max_reports,
       "Begin a new JSON file after so many reports (default: never)", "N"},
      {"keep", 0, 0, G_OPTION_ARG_INT, &options->keep,
       "Keep so many full JSON files, figures.json.1 being the newest (default: 0)", "N"},
      {"timeline", 0, 0, G_OPTION_ARG_FILENAME, &options->timeline,
       "Append a line for each file to FOLDER/timeline.csv", "FOLDER"},
      {"carbon", 0, 0, G_OPTION_ARG_STRING, &options->carbon,
       "Send the figures to the carbon server there", "ADDRESS:PORT"},
      {"prefix", 0, 0, G_OPTION_ARG_STRING, &options->prefix,
       "Put PREFIX and a dot before their names there", "PREFIX"},
      {"wait", 0, 0, G_OPTION_ARG_DOUBLE, &wait,
       "Give each place that long to take the last figures (default: 5)", "SECONDS"},
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

  check_number("--jobs", options->jobs, 1, MAX_JOBS);
  if (every != 0.0)
    options->every = parse_seconds("--every", every);

  check_number("--max-reports", options->max_reports, 0, G_MAXINT);
  check_number("--keep", options->keep, 0, MAX_KEEP);
  check_need("--max-reports", options->max_reports > 0, "--json", options->json != NULL);
  check_need("--keep", options->keep > 0, "--max-reports", options->max_reports > 0);
  check_need("--prefix", options->prefix != NULL, "--carbon", options->carbon != NULL);
  if (options->carbon && !parse_carbon(options))
    exit_with_usage("--carbon takes a numeric ADDRESS:PORT or [IPV6-ADDRESS]:PORT, not \"%s\"",
                    options->carbon);
  if (!options->csv && !options->timeline && !options->json && !options->carbon)
    options->console = TRUE;
  options->wait = parse_seconds("--wait", wait);

  if (!options->folders)
    options->folders = g_strdupv((char *[]){DEFAULT_FOLDER, NULL});
}

void options_clear(Options *options) {
  g_strfreev(options->folders);
  g_free(options->algorithm);
  g_free(options->output);
  g_free(options->csv);
  g_free(options->timeline);
  g_free(options->json);
  g_free(options->carbon);
  g_free(options->carbon_address);
  g_free(options->prefix);
}
