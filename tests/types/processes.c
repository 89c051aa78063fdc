/* Tests of the library in processes: before main() and after it, at exit with live objects, across
 * fork() and exec, and with several main contexts. */

#include "support/fixture.h"
#include "support/folder.h"
#include "support/periodicpass.h"
#include "support/tsan-tasks.h"

#include <gio/gio.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

static char *folder; /* of the test that runs; here, valgrind finds it in forked children, too */

/* Before main() and after it. */

static VekMetricCounter *early;

__attribute__((constructor)) static void count_before_main(void) {
  early = vek_metric_registry_counter_new(vek_metric_registry_get_default(), "early", NULL, NULL);
  vek_metric_counter_inc(early);
}

TEST(what_a_constructor_counts_before_main_is_there) {
  vek_metric_registry_report(vek_metric_registry_get_default(), fixture.reporter);
  g_autofree char *expected = g_strdup_printf("a count early 1 @%" G_GINT64_FORMAT "\na flush\n",
                                              vek_metric_counter_get_time(early));
  assert_recorded(fixture.record, expected);
}

static void count_and_report_after_main(void) {
  g_autoptr(VekMetricReporter) console = vek_metric_console_reporter_new();
  vek_metric_counter_inc(early);
  vek_metric_registry_report(vek_metric_registry_get_default(), console);
}

TEST(what_an_atexit_handler_counts_can_be_reported) {
  if (g_test_subprocess()) {
    atexit(count_and_report_after_main);
    return;
  }
  g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_passed();
  g_test_trap_assert_stdout("*general:\nearly: 2\n\n*");
  g_test_trap_assert_stderr("");
}

/* A passed pass leaves each kind of metric, each reporter, and operations that are under way. */
static void leave_everything_alive(const char *dirname) {
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  vek_metric_registry_register_reporter(registry, vek_metric_log_reporter_new("csv", dirname));
  vek_metric_registry_register_reporter(registry,
                                        vek_metric_timeline_reporter_new("time", dirname));
  vek_metric_registry_register_reporter(
      registry, vek_metric_json_log_reporter_new("log", dirname, NULL, 0, 0));
  vek_metric_registry_register_reporter(registry,
                                        vek_metric_carbon_reporter_new(NULL, "127.0.0.1", 1));
  vek_metric_gauge_set_value(vek_metric_registry_gauge_new(registry, "gauge", NULL, 0, NULL), 2.5);
  vek_metric_meter_mark(vek_metric_registry_meter_new(registry, "meter", NULL, NULL), 1);
  vek_metric_histogram_set(
      vek_metric_registry_histogram_new(registry, "histogram", NULL, NULL, NULL), 1);
  vek_metric_timer_set_usec(vek_metric_registry_timer_new(registry, "timer", "Seconds", NULL, NULL),
                            1);
  vek_metric_timeline_add_range(vek_metric_registry_timeline_new(registry, "timeline"), 1, 2, 3);
  run_periodic_pass(registry);
}

TEST(exit_with_live_objects_is_silent_and_keeps_what_was_flushed) {
  if (g_test_subprocess()) {
    leave_everything_alive(g_getenv("TEST_FOLDER"));
    exit(0);
  }
  folder = folder_new();
  g_setenv("TEST_FOLDER", folder, TRUE);
  g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_passed();
  g_test_trap_assert_stderr("");

  g_autofree char *path = g_build_filename(folder, "time.csv", NULL);
  g_autofree char *ranges = NULL;
  g_assert_true(g_file_get_contents(path, &ranges, NULL, NULL));
  g_assert_cmpstr(ranges, ==, "F,timeline,1,2,3\n");
  folder_remove(folder);
}

/* fork() and exec. */

/* Waits for a child process, which must have succeeded. */
static void join_child(pid_t child) {
  int status;
  g_assert_cmpint(waitpid(child, &status, 0), ==, child);
  g_assert_true(WIFEXITED(status));
  g_assert_cmpint(WEXITSTATUS(status), ==, 0);
}

static VekMetricReporter *register_csv(void) {
  VekMetricReporter *csv = vek_metric_log_reporter_new("csv", folder);
  vek_metric_registry_register_reporter(fixture.registry, csv);
  return csv;
}

TEST(forked_child_has_metrics_of_its_own_and_shares_the_files) {
  folder = folder_new();
  g_autoptr(VekMetricReporter) csv = register_csv();
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  vek_metric_counter_add(counter, 3);
  run_periodic_pass(fixture.registry);

  pid_t child = fork();
  g_assert_cmpint(child, !=, -1);
  if (child == 0) {
    vek_metric_counter_inc(counter);
    run_periodic_pass(fixture.registry);
    _exit(0);
  }
  join_child(child);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 3);
  run_periodic_pass(fixture.registry);
  assert_folder(folder,
                "csv.csv: "
                "1000,requests,,3,,,,,,\n"
                "1000,requests,,4,,,,,,\n"
                "1000,requests,,3,,,,,,\n");
  folder_remove(folder);
}

/* Forks a child while a line of the CSV file waits in a buffer. The child ends by exec, because
 * valgrind writes buffers even at _exit(). */
static void fork_within_the_pass(VekTestingRecorder *recorder, const char *line, gpointer data) {
  (void)recorder, (void)line;
  pid_t *child = data;
  if (*child == 0) {
    *child = fork();
    if (*child == 0) {
      execlp("true", "true", NULL);
      _exit(127);
    }
  }
}

TEST(child_that_goes_on_by_exec_writes_no_line_of_its_parent) {
  folder = folder_new();
  pid_t child = 0;
  /* Reporters are called in the reverse order: the CSV file's comes first. */
  on_recorded(fixture.reporter, fork_within_the_pass, &child);
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  g_autoptr(VekMetricReporter) csv = register_csv();
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  run_periodic_pass(fixture.registry);
  join_child(child);
  assert_folder(folder, "csv.csv: 1000,requests,,0,,,,,,\n");
  folder_remove(folder);
}

/* Whether a program that runs in a child process finds one of its descriptors open on the file. */
static gboolean finds_open(const char *listing, const char *path) {
  g_assert_nonnull(strstr(listing, "/dev/null")); /* its own */
  return strstr(listing, path) != NULL;
}

TEST(spawned_programs_get_no_file_but_those_of_plain_exec_do) {
  folder = folder_new();
  g_autofree char *path = g_build_filename(folder, "csv.csv", NULL);
  g_autoptr(VekMetricReporter) csv = register_csv();

  g_autofree char *spawned = NULL;
  g_assert_true(g_spawn_command_line_sync("sh -c 'exec </dev/null; ls -l /proc/self/fd'", &spawned,
                                          NULL, NULL, NULL));
  g_assert_false(finds_open(spawned, path));

  FILE *pipe = popen("exec </dev/null; ls -l /proc/self/fd", "r");
  char executed[4096];
  executed[fread(executed, 1, sizeof executed - 1, pipe)] = '\0';
  g_assert_cmpint(pclose(pipe), ==, 0);
  g_assert_true(finds_open(executed, path));
  folder_remove(folder);
}

/* Main contexts. */

static gpointer iterate_another_context(gpointer data) {
  (void)data;
  g_autoptr(GMainContext) context = g_main_context_new();
  g_main_context_push_thread_default(context);
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  while (g_main_context_iteration(context, FALSE)) {
  }
  g_main_context_pop_thread_default(context);
  return NULL;
}

TEST(periodic_pass_runs_in_the_default_context_whoever_registers) {
  g_thread_join(g_thread_new("another", iterate_another_context, NULL));
  assert_recorded(fixture.record, "");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(json_log_is_written_by_the_context_that_was_thread_default_at_its_flush) {
  folder = folder_new();
  VekMetricReporter *json = vek_metric_json_log_reporter_new("log", folder, NULL, 1, 0);
  g_object_add_weak_pointer(G_OBJECT(json), (gpointer *)&json);
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);

  g_autoptr(GMainContext) context = g_main_context_new();
  g_main_context_push_thread_default(context);
  vek_metric_registry_report(fixture.registry, json);
  g_object_unref(json);
  g_main_context_pop_thread_default(context);

  g_assert_false(g_main_context_iteration(NULL, FALSE));
  g_assert_nonnull(json); /* the write holds it */
  while (json)
    g_main_context_iteration(context, TRUE);
  assert_folder(folder, "log.json: "); /* rotated, as is done after the write */
  folder_remove(folder);
}
