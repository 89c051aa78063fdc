#include "torture.h"

#include "faults.h"
#include "support/fixture.h"
#include "support/folder.h"
#include "support/replace.h"
#include "verdict.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

/* Of the address sanitizer; NULL without it. */
__attribute__((weak)) int __lsan_do_recoverable_leak_check(void);

enum { LONGEST_RUN = 60 /* seconds */, MOST_WRONG_RUNS = 5 };

/* The run that is under way. */
static Plan plan;
static int printed = -1; /* a file in memory, in place of standard error */
static int standard_error;

static guint n_wrong_runs; /* of the scenario */

/* In place of GLib's, which it calls: what is tried again later is tried at once. GIO's own delays
 * are shorter. */
GSource *g_timeout_source_new(guint interval) {
  return NEXT(g_timeout_source_new)(interval >= 750 ? 0 : interval);
}

static char *describe_plan(void) {
  g_autoptr(GString) text = g_string_new(plan.halves ? "half of" : "without");
  for (guint i = 0; i < MAX_FAULTS && plan.calls[i] > 0; i++) {
    g_string_append_printf(text, "%s call %u", i > 0 ? " and" : "", plan.calls[i]);
    if (i < faults_get_n_faults())
      g_string_append_printf(text, ", %s in pass %u", faults_get(i)->function, faults_get(i)->pass);
  }
  return g_string_free(g_steal_pointer(&text), FALSE);
}

static void note_wrong(const char *wrong) {
  g_autofree char *description = describe_plan();
  g_test_message("%s: %s", description, wrong);
}

static void begin_to_catch(void) {
  printed = memfd_create("printed", MFD_CLOEXEC);
  standard_error = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  dup2(printed, STDERR_FILENO);
}

/* Returns what was printed to standard error. */
static char *end_to_catch(void) {
  if (printed < 0)
    return g_strdup("");
  dup2(standard_error, STDERR_FILENO);
  close(standard_error);
  off_t size = lseek(printed, 0, SEEK_END);
  char *text = g_malloc0((gsize)size + 1);
  g_assert_cmpint(pread(printed, text, (gsize)size, 0), ==, size);
  close(printed);
  printed = -1;
  return text;
}

/* A signal that ends the process: an assertion, a crash, a run that does not end. */
static void on_signal(int number) {
  faults_pause();
  signal(number, SIG_DFL);
  fprintf(stderr, "%s%s\n", end_to_catch(), describe_plan());
  raise(number);
}

static guint count_descriptors(void) {
  DIR *folder = opendir("/proc/self/fd");
  g_assert_nonnull(folder);
  guint n = 0;
  while (readdir(folder))
    n++;
  closedir(folder);
  return n;
}

/* A thread of GIO may still be about to release a stream. */
static gboolean gets_down_to(guint n_descriptors) {
  for (guint i = 0; i < 10000 && count_descriptors() > n_descriptors; i++)
    g_usleep(1000);
  return count_descriptors() <= n_descriptors;
}

static void append_lines(GPtrArray *lines, const char *text) {
  g_auto(GStrv) parts = g_strsplit(text, "\n", -1);
  for (char **part = parts; *part; part++)
    if (**part)
      g_ptr_array_add(lines, g_strdup(*part));
}

static GStrv finish_lines(GPtrArray *lines) {
  g_ptr_array_add(lines, NULL);
  return (GStrv)g_ptr_array_free(lines, FALSE);
}

/* From the last name to the first: numbered files have the older lines. */
static void append_files(GPtrArray *lines, const char *path) {
  struct dirent **entries;
  int n = scandir(path, &entries, NULL, alphasort);
  g_assert_cmpint(n, >=, 0);
  while (n-- > 0) {
    g_autofree char *entry = g_build_filename(path, entries[n]->d_name, NULL);
    g_autofree char *contents = NULL;
    if (*entries[n]->d_name == '.')
      ;
    else if (g_file_test(entry, G_FILE_TEST_IS_DIR))
      append_files(lines, entry);
    else if (g_file_get_contents(entry, &contents, NULL, NULL))
      append_lines(lines, contents);
    free(entries[n]);
  }
  free(entries);
}

static GStrv take_messages(const char *text) {
  GPtrArray *messages = g_ptr_array_new();
  GLogLevelFlags level;
  for (char *message; (message = log_capture_take(&level));)
    if (level & (G_LOG_LEVEL_DEBUG | G_LOG_LEVEL_INFO))
      g_free(message);
    else
      g_ptr_array_add(messages, message);
  append_lines(messages, text);
  return finish_lines(messages);
}

static Result run_once(const Scenario *scenario) {
  fixture_reset();
  vek_testing_clock_set(G_GINT64_CONSTANT(1000000000000000), G_USEC_PER_SEC);
  Run run = {folder_new(), line_sink_new(), g_string_new(NULL)};
  begin_to_catch();
  alarm(LONGEST_RUN);
  faults_begin(&plan);
  scenario->run(&run);
  settle();
  faults_end();
  g_autofree char *sent = line_sink_end(run.sink, faults_get_n_connections());
  alarm(0);
  g_autofree char *text = end_to_catch();

  GPtrArray *lines = g_ptr_array_new();
  append_lines(lines, sent);
  append_files(lines, run.folder);
  append_lines(lines, run.output->str);
  g_string_free(run.output, TRUE);
  folder_remove(run.folder);
  Result result = {finish_lines(lines), take_messages(text)};
  return result;
}

/* Returns how many calls the run made. */
static guint run_and_compare(const Scenario *scenario, const Result *expected) {
  guint n_descriptors = count_descriptors();
  g_auto(Result) result = run_once(scenario);
  g_auto(GStrv) wrongs = find_wrongs(scenario, &plan, expected, &result);
  for (char **wrong = wrongs; *wrong; wrong++)
    note_wrong(*wrong);
  gboolean is_tidy = gets_down_to(n_descriptors);
  if (!is_tidy)
    note_wrong("descriptors are left");
  n_wrong_runs += *wrongs || !is_tidy;
  return faults_get_n_calls();
}

static gboolean goes_on(void) {
  return n_wrong_runs < MOST_WRONG_RUNS;
}

/* Returns how many calls were failed. */
static guint fail_each(const Scenario *scenario, const Result *expected, gboolean halves) {
  guint n_faults = 0;
  plan = (Plan){.halves = halves};
  do {
    plan.calls[0]++;
    n_faults += run_and_compare(scenario, expected) >= plan.calls[0] ? faults_get_n_faults() : 0;
  } while (goes_on() && faults_get_n_calls() >= plan.calls[0]);
  return n_faults;
}

static guint fail_pairs(const Scenario *scenario, const Result *expected, guint n) {
  guint n_pairs = 0;
  for (guint first = 1; first < n; first++)
    for (guint second = first + 1; second <= n && goes_on(); second++) {
      plan = (Plan){.calls = {first, second}};
      if (run_and_compare(scenario, expected) < second)
        break;
      n_pairs++;
    }
  return n_pairs;
}

void torture(const Scenario *scenario) {
  signal(SIGABRT, on_signal);
  signal(SIGALRM, on_signal);
  signal(SIGSEGV, on_signal);
  n_wrong_runs = 0;

  /* The first run opens what GIO keeps open. */
  plan = (Plan){0};
  g_auto(Result) expected = run_once(scenario);
  run_and_compare(scenario, &expected);

  guint n_calls = fail_each(scenario, &expected, FALSE);
  guint n_halves = fail_each(scenario, &expected, TRUE);
  const char *pairs = g_getenv("TORTURE_PAIRS");
  guint n_pairs = pairs ? fail_pairs(scenario, &expected, (guint)atoi(pairs)) : 0;
  if (__lsan_do_recoverable_leak_check && __lsan_do_recoverable_leak_check())
    n_wrong_runs++;
  g_test_message("%s: %u calls failed, %u did half, %u pairs failed", g_test_get_path(), n_calls,
                 n_halves, n_pairs);
  g_assert_cmpuint(n_calls, >, 0);
  if (n_wrong_runs > 0)
    g_test_fail();
}
