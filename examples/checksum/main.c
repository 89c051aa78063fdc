/* Hashes every file below some folders, on several threads, and measures itself meanwhile. */

#include <glib-unix.h>
#include <locale.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <vekmetrics-service/vekmetrics-service.h>

#include "progress.h"
#include "work.h"

#ifdef WITH_WEB
#include "serve.h"
#endif

/* What the program exits with. Figures that cannot be written do not change it: a program does not
 * suffer from being measured. */
enum { STATUS_OK = 0, STATUS_ERRORS = 1, STATUS_USAGE = 2, STATUS_INTERRUPTED = 130 };

typedef struct {
  char **folders;
  int jobs;
  int every;      /* seconds */
  double seconds; /* 0 for no limit */
  gboolean repeat, quiet, progress, console;
  char *csv, *json, *timeline; /* folders */
  char *carbon, *prefix;
  int port;    /* -1 for no server */
  double wait; /* seconds */
} Options;

#define EXIT_WITH_USAGE(...)                    \
  do {                                          \
    g_printerr("checksum: " __VA_ARGS__);       \
    g_printerr("\nTry \"checksum --help\".\n"); \
    exit(STATUS_USAGE);                         \
  } while (0)

static void parse(Options *options, int argc, char **argv) {
  *options = (Options){.jobs = (int)g_get_num_processors(), .every = 60, .port = -1, .wait = 5.0};
  const GOptionEntry entries[] = {
      {"jobs", 'j', 0, G_OPTION_ARG_INT, &options->jobs,
       "Hash this many files at a time (default: one for each processor)", "N"},
      {"every", 'e', 0, G_OPTION_ARG_INT, &options->every,
       "Report the figures that often (default: 60)", "SECONDS"},
      {"repeat", 'r', 0, G_OPTION_ARG_NONE, &options->repeat,
       "Begin again when all files are hashed", NULL},
      {"for", 'f', 0, G_OPTION_ARG_DOUBLE, &options->seconds, "End after that long", "SECONDS"},
      {"quiet", 'q', 0, G_OPTION_ARG_NONE, &options->quiet, "Print no checksums", NULL},
      {"progress", 'p', 0, G_OPTION_ARG_NONE, &options->progress,
       "Say what is done, on standard error", NULL},
      {"console", 0, 0, G_OPTION_ARG_NONE, &options->console,
       "Print the figures (the default without another place for them)", NULL},
      {"csv", 0, 0, G_OPTION_ARG_FILENAME, &options->csv,
       "Append a line for each figure to FOLDER/figures.csv", "FOLDER"},
      {"json", 0, 0, G_OPTION_ARG_FILENAME, &options->json,
       "Append a line for each report to FOLDER/figures.json", "FOLDER"},
      {"timeline", 0, 0, G_OPTION_ARG_FILENAME, &options->timeline,
       "Append a line for each file to FOLDER/timeline.csv", "FOLDER"},
      {"carbon", 0, 0, G_OPTION_ARG_STRING, &options->carbon,
       "Send the figures to the carbon server there", "ADDRESS:PORT"},
      {"prefix", 0, 0, G_OPTION_ARG_STRING, &options->prefix,
       "Put PREFIX and a dot before their names there", "PREFIX"},
#ifdef WITH_WEB
      {"serve", 0, 0, G_OPTION_ARG_INT, &options->port,
       "Serve the figures on PORT of this machine, or on a free one for 0; print the address",
       "PORT"},
#endif
      {"wait", 0, 0, G_OPTION_ARG_DOUBLE, &options->wait,
       "Wait that long for the last figures to be taken (default: 5)", "SECONDS"},
      {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &options->folders, NULL, NULL},
      G_OPTION_ENTRY_NULL,
  };
  g_autoptr(GOptionContext) context = g_option_context_new(
      "[FOLDER...] - hash every file below /usr/share/doc, or below the folders given");
  g_option_context_add_main_entries(context, entries, NULL);
  g_autoptr(GError) error = NULL;
  if (!g_option_context_parse(context, &argc, &argv, &error))
    EXIT_WITH_USAGE("%s", error->message);

  if (options->jobs < 1 || options->jobs > 256)
    EXIT_WITH_USAGE("--jobs takes a number from 1 to 256");
  if (options->every < 1 || options->every > 60)
    EXIT_WITH_USAGE("--every takes seconds from 1 to 60");
  if (!(options->seconds >= 0.0 && options->seconds <= 86400.0))
    EXIT_WITH_USAGE("--for takes seconds from 0 to 86400");
  if (options->port < -1 || options->port > G_MAXUINT16)
    EXIT_WITH_USAGE("--serve takes a port from 0 to 65535");
  if (!(options->wait >= 0.0 && options->wait <= 86400.0))
    EXIT_WITH_USAGE("--wait takes seconds from 0 to 86400");
  if (!options->csv && !options->json && !options->timeline && !options->carbon &&
      options->port < 0)
    options->console = TRUE;
  if (!options->folders)
    options->folders = g_strdupv((char *[]){"/usr/share/doc", NULL});
}

static VekMetricReporter *new_carbon_reporter(const Options *options) {
  g_autoptr(GSocketConnectable) given = g_network_address_parse(options->carbon, 2003, NULL);
  GNetworkAddress *address = given ? G_NETWORK_ADDRESS(given) : NULL;
  /* Only numbers: the reporter looks no names up. */
  if (!address || !g_hostname_is_ip_address(g_network_address_get_hostname(address)))
    EXIT_WITH_USAGE("--carbon takes a numeric ADDRESS:PORT or [IPV6-ADDRESS]:PORT, not \"%s\"",
                    options->carbon);
  return vek_metric_carbon_reporter_new(options->prefix, g_network_address_get_hostname(address),
                                        g_network_address_get_port(address));
}

static VekServiceSession *new_session(const Options *options, Progress *progress) {
  VekServiceSession *session = vek_service_session_new(NULL);
  g_object_set(session, "period", options->every, NULL);
  VekMetricReporter *reporters[] = {
      progress ? VEK_METRIC_REPORTER(g_object_ref(progress)) : NULL,
      options->carbon ? new_carbon_reporter(options) : NULL,
      options->console ? vek_metric_console_reporter_new() : NULL,
      options->csv ? vek_metric_log_reporter_new("figures", options->csv) : NULL,
      options->json ? vek_metric_json_log_reporter_new("figures", options->json, NULL, 0, 0) : NULL,
      options->timeline ? vek_metric_timeline_reporter_new("timeline", options->timeline) : NULL,
  };
  for (gsize i = 0; i < G_N_ELEMENTS(reporters); i++)
    if (reporters[i])
      vek_service_session_add_reporter(session, reporters[i]);
  return session;
}

typedef struct {
  GMainLoop *loop;
  gboolean interrupted;
} Program;

/* The signal gets its default meaning back, as it does at the end of the run: the second one, or
 * one that comes while the last figures are written, ends the program at once. */
static gboolean on_signal(gpointer data) {
  Program *program = data;
  program->interrupted = TRUE;
  g_main_loop_quit(program->loop);
  return G_SOURCE_REMOVE;
}

static gboolean on_time_over(gpointer data) {
  Program *program = data;
  g_main_loop_quit(program->loop);
  return G_SOURCE_REMOVE;
}

int main(int argc, char **argv) {
  setlocale(LC_ALL, "");
  static Options options;
  parse(&options, argc, argv);
  static Figures figures;
  figures_init(&figures, options.every);
  g_autoptr(Progress) progress =
      options.progress ? progress_new(&figures, options.folders, options.jobs, options.seconds)
                       : NULL;
  VekServiceSession *session = new_session(&options, progress);
  gpointer server = NULL;
#ifdef WITH_WEB
  g_autoptr(GError) error = NULL;
  if (options.port >= 0 && !(server = serve(session, (guint)options.port, &error)))
    EXIT_WITH_USAGE("--serve: %s", error->message);
#endif

  Program program = {.loop = g_main_loop_new(NULL, FALSE)};
  g_unix_signal_add(SIGINT, on_signal, &program);
  g_unix_signal_add(SIGTERM, on_signal, &program);
  if (options.seconds > 0)
    g_timeout_add((guint)(options.seconds * 1000.0), on_time_over, &program);
  Work *work = work_new(options.folders, options.jobs, options.quiet, options.repeat, &figures,
                        program.loop);
  g_main_loop_run(program.loop);
  while (g_source_remove_by_user_data(&program))
    ;

  /* First what counts ends, then the session. */
  work_free(work);
  vek_service_session_finish(session, (guint)(options.wait * 1000.0));
  g_object_unref(session);
  g_clear_object(&server);
  if (progress)
    progress_end(progress);

  gboolean well = vek_metric_counter_get_count(figures.errors) == 0;
  g_main_loop_unref(program.loop);
  if (fflush(stdout) != 0 || ferror(stdout)) {
    g_printerr("checksum: standard output: write error\n");
    well = FALSE;
  }
  return program.interrupted ? STATUS_INTERRUPTED : well ? STATUS_OK : STATUS_ERRORS;
}
