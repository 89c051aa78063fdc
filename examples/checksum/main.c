/* Hashes every file below some folders, on several threads, and measures itself meanwhile. */

#include <errno.h>
#include <glib-unix.h>
#include <locale.h>
#include <signal.h>

#include "figures.h"
#include "options.h"
#include "output.h"
#include "progress.h"
#include "reporters.h"
#include "walk.h"
#include "work.h"

typedef struct {
  GMainLoop *loop;
  Figures *figures;
  Reporters *reporters;
  Walk *walk;
  Work *work;
  FILE *output;      /* for the checksums; NULL if they are not wanted */
  guint walk_source; /* 0 while enough files are queued, and at the end */
  gboolean walked;   /* no more files are to come */
  gboolean interrupted;
} Program;

static void fail(Program *program, const char *path, int error_number) {
  figures_count_error(program->figures, error_number);
  output_error(path, g_strerror(error_number));
}

static void quit_if_done(Program *program) {
  if (program->walked && work_is_idle(program->work))
    g_main_loop_quit(program->loop);
}

static void stop(Program *program) {
  g_clear_handle_id(&program->walk_source, g_source_remove);
  program->walked = TRUE;
  work_stop(program->work);
  quit_if_done(program);
}

static gboolean on_walk(gpointer data) {
  Program *program = data;
  WalkStep step = walk_next(program->walk);
  const char *path = walk_get_path(program->walk);

  switch (step) {
  case WALK_FILE: work_push(program->work, path); break;
  case WALK_FOLDER: vek_metric_counter_inc(program->figures->folders); break;
  case WALK_SKIPPED: vek_metric_counter_inc(program->figures->skipped); break;
  case WALK_FAILED: fail(program, path, walk_get_error_number(program->walk)); break;
  case WALK_END: program->walked = TRUE; break;
  }
  if (!program->walked && !work_is_full(program->work))
    return G_SOURCE_CONTINUE;

  program->walk_source = 0;
  quit_if_done(program);
  return G_SOURCE_REMOVE;
}

/* The walk takes turns with everything else: signals, timers and finished files. At the priority of
 * idleness it would stand still while reports take longer than they are apart. */
static void walk_on(Program *program) {
  if (program->walk_source == 0 && !program->walked)
    program->walk_source = g_idle_add_full(G_PRIORITY_DEFAULT, on_walk, program, NULL);
}

static void on_job_done(const Job *job, gpointer data) {
  Program *program = data;

  if (job->error_number != 0)
    fail(program, job->path, job->error_number);
  if (job->checksum && program->output)
    output_checksum(program->output, job->checksum, job->path);

  if (program->output && ferror(program->output))
    stop(program);
  walk_on(program);
  quit_if_done(program);
}

static void report(Program *program) {
  reporters_report(program->reporters, program->figures->registry);
}

static gboolean on_every(gpointer data) {
  report(data);
  return G_SOURCE_CONTINUE;
}

/* The signal gets its default meaning back, as it does at the end of the run: the second one, or
 * one that comes while the last figures are written, ends the program at once. */
static gboolean on_signal(gpointer data) {
  Program *program = data;
  program->interrupted = TRUE;
  stop(program);
  return G_SOURCE_REMOVE;
}

static void run(Program *program, guint every) {
  program->loop = g_main_loop_new(NULL, FALSE);
  g_unix_signal_add(SIGINT, on_signal, program);
  g_unix_signal_add(SIGTERM, on_signal, program);
  if (every > 0)
    g_timeout_add(every, on_every, program);

  progress_start(program->figures);
  walk_on(program);
  g_main_loop_run(program->loop);
  progress_stop();
  while (g_source_remove_by_user_data(program))
    ;
  g_main_loop_unref(program->loop);
}

static gboolean open_output(Program *program, const Options *options) {
  if (options->quiet)
    return TRUE;
  program->output = options->output ? fopen(options->output, "we") : stdout;
  if (!program->output)
    output_error(options->output, g_strerror(errno));
  return program->output != NULL;
}

static int finish(Program *program, const Options *options) {
  gboolean written = TRUE;
  if (program->output && program->output != stdout) {
    written = output_flush(program->output, options->output);
    fclose(program->output);
  }

  report(program);
  if (!output_flush(stdout, "standard output"))
    written = FALSE;

  if (program->interrupted)
    return STATUS_INTERRUPTED;
  gboolean read = vek_metric_counter_get_count(program->figures->errors) == 0;
  return read && written ? STATUS_OK : STATUS_ERRORS;
}

int main(int argc, char **argv) {
  setlocale(LC_ALL, "");
  Options options;
  options_parse(&options, argc, argv);
  output_init();

  Program program = {0};
  int status = STATUS_ERRORS;
  if (open_output(&program, &options)) {
    program.figures = figures_new(options.algorithm, options.jobs);
    program.reporters = reporters_new(&options, program.figures->registry);
    program.walk = walk_new(options.folders);
    program.work = work_new(options.jobs, options.type, program.figures, on_job_done, &program);
    run(&program, options.every);
    status = finish(&program, &options);

    work_free(program.work);
    walk_free(program.walk);
    figures_free(program.figures);
    reporters_finish(program.reporters);
  }
  options_clear(&options);
  return status;
}
