#include "support/fixture.h"
#include "torture.h"

#include <stdio.h>
#include <string.h>

/* Runs the main loop until nothing that is under way holds the reporter. */
static void drain(VekMetricReporter *reporter) {
  while (G_OBJECT(reporter)->ref_count > 1)
    g_main_context_iteration(NULL, TRUE);
}

static void report_passes(VekMetricReporter *reporter, guint n) {
  drain(reporter);
  for (guint i = 0; i < n; i++) {
    report_pass(reporter);
    drain(reporter);
  }
  g_object_unref(reporter);
}

static void print_to_console(Run *run) {
  FILE *before = stdout;
  g_autofree char *path = g_build_filename(run->folder, "printed", NULL);
  while (!(stdout = fopen(path, "a")))
    ;
  report_passes(vek_metric_console_reporter_new(), 3);
  fclose(stdout);
  stdout = before;
}

TEST(console_prints_on_after_a_failed_call) {
  static const Effect effects[] = {{"write", NULL, THIS_PASS, NULL}, {0}};
  torture(&(Scenario){print_to_console, NULL, effects});
}

static char *get_folder(Run *run) {
  return g_build_filename(run->folder, "a", "b", NULL);
}

static void log_to_csv(Run *run) {
  g_autofree char *folder = get_folder(run);
  report_passes(vek_metric_log_reporter_new("log", folder), 3);
}

TEST(csv_log_loses_what_its_page_says) {
  static const Effect effects[] = {
      {"mkdir", "Cannot create metric dir *", LATER_PASSES, NULL},
      {"stat", "Cannot create metric dir *", LATER_PASSES, NULL},
      {"open", "Cannot open log file *", LATER_PASSES, NULL},
      {"write", NULL, THIS_PASS, NULL},
      {0},
  };
  torture(&(Scenario){log_to_csv, NULL, effects});
}

static void log_timelines(Run *run) {
  g_autofree char *folder = get_folder(run);
  report_passes(vek_metric_timeline_reporter_new("log", folder), 3);
}

TEST(timeline_files_lose_what_their_page_says) {
  static const Effect effects[] = {
      {"mkdir", "Cannot create log dir *", LATER_PASSES, NULL},
      {"stat", "Cannot create log dir *", LATER_PASSES, NULL},
      {"open", "Cannot open log file *", LATER_PASSES, NULL},
      {"write", NULL, THIS_PASS, NULL},
      {0},
  };
  torture(&(Scenario){log_timelines, NULL, effects});
}

static void log_to_json(Run *run) {
  g_autofree char *folder = get_folder(run);
  report_passes(vek_metric_json_log_reporter_new("log", folder, "instance", 2, 3), 7);
}

TEST(json_log_loses_what_its_page_says) {
  static const Effect effects[] = {
      {"mkdir", "Cannot create log dir *", LATER_PASSES, NULL},
      {"stat", "Cannot create log dir *", LATER_PASSES, NULL},
      {"open", "Could not append to file in *", LATER_PASSES, NULL},
      {"write", "Could not write log: *", THIS_PASS, NULL},
      /* GLib closes a file again that could not be closed; newer releases complain of it. */
      {"close", "Could not close output stream: *|g_close(fd:*) failed with EBADF*", NO_PASS, NULL},
      {"rename", NULL, UP_TO_THIS_PASS, NULL},
      {0},
  };
  torture(&(Scenario){log_to_json, NULL, effects});
}

static void send_to_carbon(Run *run) {
  report_passes(vek_metric_carbon_reporter_new("site", "127.0.0.1", line_sink_get_port(run->sink)),
                3);
}

TEST(carbon_reporter_gives_up_once) {
  static const char no_connection[] =
      "Could not connect to carbon server: *|Carbon reporter will be disabled";
  static const char no_write[] =
      "Carbon reporter write operation failed with error: *|Carbon reporter will be disabled";
  static const Effect effects[] = {
      {"socket", no_connection, LATER_PASSES, NULL},
      {"connect", no_connection, LATER_PASSES, NULL},
      {"send", no_write, ONE_LINE_AND_LATER_PASSES, NULL},
      {0},
  };
  torture(&(Scenario){send_to_carbon, NULL, effects});
}
