/* Tests of VekMetricJsonLogReporter. */

#include <vekmetrics/vekmetrics.h>

#include "jsonlog.h"
#include "support/fixture.h"
#include "support/folder.h"
#include "support/heap.h"

#include <gio/gio.h>
#include <glib/gstdio.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#define SOURCE "../vekmetrics/jsonlogreporter"

static void assert_stream(const char *record) {
  g_assert_cmpstr(script.record->str, ==, record);
  g_string_truncate(script.record, 0);
}

static void flush_and_settle(VekMetricReporter *reporter, const char *name) {
  flush_line(reporter, name);
  settle(reporter);
}

/* Compares the folder with a list of "FILE=NAMES", the names being those of the lines that the file
 * holds, and of "FOLDER/". */
static void assert_lines(const char *description) {
  g_autoptr(GString) expected = g_string_new(NULL);
  g_auto(GStrv) files = g_strsplit(description, " ", -1);
  for (char **file = files; *file; file++) {
    char *names = strchr(*file, '=');
    if (names) {
      g_autofree char *text = lines(names + 1);
      g_string_append_printf(expected, "%.*s: %s", (int)(names - *file), *file, text);
    } else if (**file) {
      g_string_append_printf(expected, "%s\n", *file);
    }
  }
  assert_folder(test_folder, expected->str);
}

/* Files, rotation. */

TEST(flush_with_nothing_collected_writes_nothing) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  flush_reporter(reporter);
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 1);
  assert_lines("log.json=");
  flush_and_settle(reporter, "a");
  flush_reporter(reporter);
  settle(reporter);
  drop_reporter(reporter);
  assert_lines("log.json= log.json.1=a"); /* it is no report either */
  end_test();
}

TEST(existing_lines_are_kept) {
  begin_test();
  g_autofree char *old = lines("x");
  folder_write(test_folder, "log.json", old);
  VekMetricReporter *reporter = log_reporter_new(2, 1);
  flush_and_settle(reporter, "a");
  assert_lines("log.json=xa");
  flush_and_settle(reporter, "b"); /* reports are counted, not lines */
  drop_reporter(reporter);
  assert_lines("log.json= log.json.1=xab");
  end_test();
}

TEST(folder_is_made_with_its_parents) {
  begin_test();
  g_autofree char *parent = g_build_filename(test_folder, "x", NULL);
  g_autofree char *path = g_build_filename(parent, "y", NULL);
  mode_t mask = umask(0);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 0, 0);
  umask(mask);

  GStatBuf status;
  g_assert_cmpint(g_stat(parent, &status), ==, 0);
  g_assert_cmpint(status.st_mode & 07777, ==, 0755);
  g_assert_cmpint(g_stat(path, &status), ==, 0);
  g_assert_cmpint(status.st_mode & 07777, ==, 0755);
  assert_folder(path, "log.json: ");
  drop_reporter(reporter);
  end_test();
}

TEST(link_in_the_folder_is_followed_and_rotated_itself) {
  begin_test();
  folder_write(test_folder, "elsewhere", "");
  g_autofree char *path = g_build_filename(test_folder, "log.json", NULL);
  g_assert_cmpint(symlink("elsewhere", path), ==, 0);
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  flush_line(reporter, "a");
  drop_reporter(reporter);
  g_autofree char *a = lines("a");
  g_autofree char *description =
      g_strdup_printf("elsewhere: %slog.json: log.json.1 -> elsewhere\n", a);
  assert_folder(test_folder, description);
  end_test();
}

TEST(basename_may_lead_out_of_the_folder) {
  begin_test();
  g_autofree char *inner = g_build_filename(test_folder, "inner", NULL);
  drop_reporter(vek_metric_json_log_reporter_new("../log", inner, NULL, 0, 0));
  assert_folder(test_folder, "inner/\nlog.json: ");
  end_test();
}

TEST(file_has_the_mode_that_the_umask_leaves) {
  begin_test();
  g_autofree char *path = g_build_filename(test_folder, "log.json", NULL);
  mode_t mask = umask(077);
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  umask(mask);
  GStatBuf status;
  g_assert_cmpint(g_stat(path, &status), ==, 0);
  g_assert_cmphex(status.st_mode, ==, S_IFREG | 0600);
  drop_reporter(reporter);
  end_test();
}

TEST(without_a_name_nothing_is_made) {
  begin_test();
  g_autofree char *path = g_build_filename(test_folder, "x", NULL);
  VekMetricReporter *reporters[] = {
      vek_metric_json_log_reporter_new(NULL, path, "a1", 1, 1),
      vek_metric_json_log_reporter_new("log", NULL, "a1", 1, 1),
      vek_metric_json_log_reporter_new(NULL, NULL, NULL, 0, 0),
  };
  for (gsize i = 0; i < G_N_ELEMENTS(reporters); i++) {
    flush_line(reporters[i], "a");
    flush_reporter(reporters[i]);
    g_assert_cmpint(G_OBJECT(reporters[i])->ref_count, ==, 1);
    g_object_unref(reporters[i]);
  }
  assert_folder(test_folder, "");
  end_test();
}

TEST(max_reports_and_rotate_shift_the_files) {
  static const char *const after[] = {
      "log.json=a",
      "log.json=ab",
      "log.json= log.json.1=abc",
      "log.json=d log.json.1=abc",
      "log.json=de log.json.1=abc",
      "log.json= log.json.1=def log.json.2=abc",
      "log.json=g log.json.1=def log.json.2=abc",
      "log.json=gh log.json.1=def log.json.2=abc",
      "log.json= log.json.1=ghi log.json.2=def",
  };
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(3, 2);
  for (gsize i = 0; i < G_N_ELEMENTS(after); i++) {
    flush_and_settle(reporter, (char[]){(char)('a' + i), '\0'});
    assert_lines(after[i]);
  }
  drop_reporter(reporter);
  end_test();
}

TEST(folder_that_has_gone_is_made_again_at_a_rotation) {
  begin_test();
  g_autofree char *path = g_build_filename(test_folder, "x", "y", NULL);
  g_autofree char *parent = g_path_get_dirname(path);
  g_autofree char *file = g_build_filename(path, "log.json", NULL);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 1, 1);
  g_assert_cmpint(g_remove(file), ==, 0);
  g_assert_cmpint(g_rmdir(path), ==, 0);
  g_assert_cmpint(g_rmdir(parent), ==, 0);
  flush_and_settle(reporter, "a");
  assert_folder(path, "log.json: ");
  drop_reporter(reporter);
  end_test();
}

TEST(without_max_reports_the_file_is_never_rotated) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 2);
  for (int i = 0; i < 8; i++)
    flush_and_settle(reporter, (char[]){(char)('a' + i), '\0'});
  drop_reporter(reporter);
  assert_lines("log.json=abcdefgh");
  end_test();
}

TEST(without_rotate_the_full_file_is_deleted) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(2, 0);
  flush_and_settle(reporter, "a");
  flush_and_settle(reporter, "b");
  assert_lines("log.json=");
  flush_and_settle(reporter, "c");
  drop_reporter(reporter);
  assert_lines("log.json=c");
  end_test();
}

TEST(lines_that_wait_go_to_the_file_of_their_turn) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(2, 9);
  for (int i = 0; i < 5; i++)
    flush_line(reporter, (char[]){(char)('a' + i), '\0'});
  drop_reporter(reporter);
  assert_lines("log.json=e log.json.1=cd log.json.2=ab");
  end_test();
}

/* Two programs would do the same. */
TEST(two_reporters_of_one_file_rotate_each_others_lines_away) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  VekMetricReporter *other = log_reporter_new(1, 1);
  flush_and_settle(reporter, "a");
  assert_lines("log.json= log.json.1=a");
  flush_and_settle(other, "b"); /* into the file that is log.json.1 now, and is replaced next */
  assert_lines("log.json= log.json.1=");
  drop_reporter(reporter);
  drop_reporter(other);
  end_test();
}

/* The chain of operations. */

static void record_end(gpointer data, GObject *reporter) {
  (void)data;
  (void)reporter;
  g_string_append(script.record, "the reporter is gone\n");
}

TEST(one_write_and_flush_runs_at_a_time) {
  begin_scripted_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  assert_stream("open log.json afresh\n");
  flush_line(reporter, "a");
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 2);
  flush_line(reporter, "b");
  flush_line(reporter, "c");
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 2);

  g_object_weak_ref(G_OBJECT(reporter), record_end, NULL);
  drop_reporter(reporter);

  assert_stream(
      "write a\nflush\nwrite b\nflush\nwrite c\nflush\nthe reporter is gone\nclose at last\n");
  end_test();
}

TEST(rotation_runs_between_the_flush_and_the_next_write) {
  begin_scripted_test();
  folder_write(test_folder, "log.json", "old\n");
  VekMetricReporter *reporter = log_reporter_new(2, 1);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  flush_line(reporter, "c");
  g_object_weak_ref(G_OBJECT(reporter), record_end, NULL);
  drop_reporter(reporter);

  assert_stream(
      "open log.json that exists\n"
      "write a\nflush\nwrite b\nflush\nclose\nopen log.json afresh\nwrite c\nflush\n"
      "the reporter is gone\nclose at last\n");
  assert_folder(test_folder, "log.json.1: old\n");
  end_test();
}

TEST(next_flush_starts_a_new_chain) {
  begin_scripted_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  flush_and_settle(reporter, "a");
  assert_stream("open log.json afresh\nwrite a\nflush\n");
  flush_and_settle(reporter, "b");
  assert_stream("write b\nflush\n");
  drop_reporter(reporter);
  end_test();
}

TEST(dropped_reporter_cancels_what_it_started) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  g_autoptr(GCancellable) cancellable = g_object_ref(last_cancellable);
  flush_and_settle(reporter, "a");
  g_assert_false(g_cancellable_is_cancelled(cancellable));
  drop_reporter(reporter);
  g_assert_true(g_cancellable_is_cancelled(cancellable));
  end_test();
}

TEST(dropped_reporter_still_writes_its_lines) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(2, 1);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  flush_line(reporter, "c");
  process_count(reporter, "never flushed", NULL, NULL, 0, 0);
  drop_reporter(reporter);
  assert_lines("log.json=c log.json.1=ab");
  end_test();
}

/* Failures. */

static void assert_warned(const char *function, const char *message) {
  assert_logged_from(SOURCE, function, G_LOG_LEVEL_WARNING, message);
}

/* GIO's message about a file that it cannot open. */
static void assert_open_failed(void) {
  g_autofree char *path = g_build_filename(test_folder, "log.json", NULL);
  g_autoptr(GFile) file = g_file_new_for_path(path);
  g_autoptr(GError) error = NULL;
  g_assert_null(G_FILE_GET_IFACE(file)->append_to(file, G_FILE_CREATE_NONE, NULL, &error));
  g_autofree char *message =
      g_strdup_printf("Could not append to file in %s: %s", path, error->message);
  assert_warned("open_log_file", message);
}

/* Lines that are kept cost more than their names; what GLib keeps for reuse is far less. */
enum { N_LINES = 1000, NAME_LENGTH = 2000 };

static void flush_many(VekMetricReporter *reporter) {
  g_autofree char *name = g_strnfill(NAME_LENGTH, 'x');
  for (int i = 0; i < N_LINES; i++)
    flush_line(reporter, name);
}

static VekMetricReporter *inert;

static void flush_inert(void) {
  flush_line(inert, "x");
}

static void assert_inert(VekMetricReporter *reporter) {
  inert = reporter;
  assert_frees_all(flush_inert);
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 1);
  drop_reporter(reporter);
}

static void block(const char *name) {
  g_autofree char *path = g_build_filename(test_folder, name, NULL);
  g_assert_cmpint(g_mkdir(path, 0755), ==, 0);
  folder_write(path, "inside", "");
}

TEST(folder_that_cannot_be_made_is_logged) {
  begin_test();
  folder_write(test_folder, "file", "");
  g_autofree char *path = g_build_filename(test_folder, "file", "below", NULL);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 0, 0);
  g_autofree char *message = g_strdup_printf("Cannot create log dir \"%s\".", path);
  assert_warned("open_log_file", message);
  assert_inert(reporter);
  assert_folder(test_folder, "file: ");
  end_test();
}

TEST(file_that_cannot_be_opened_is_logged) {
  begin_test();
  block("log.json");
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  assert_open_failed();
  assert_inert(reporter);
  assert_lines("log.json/");
  end_test();
}

TEST(failed_write_is_logged_and_counts_as_a_report) {
  begin_test();
  g_autofree char *path = g_build_filename(test_folder, "log.json", NULL);
  g_assert_cmpint(symlink("/dev/full", path), ==, 0);
  VekMetricReporter *reporter = log_reporter_new(2, 1);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  flush_line(reporter, "c");
  drop_reporter(reporter);

  for (int i = 0; i < 2; i++)
    assert_warned("on_log_written",
                  "Could not write log: Error writing to file: No space left on device");
  g_autofree char *c = lines("c");
  g_autofree char *description = g_strdup_printf("log.json: %slog.json.1 -> /dev/full\n", c);
  assert_folder(test_folder, description);
  end_test();
}

TEST(failed_write_is_flushed_all_the_same) {
  begin_scripted_test();
  script.write = (ScriptedOutcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  drop_reporter(reporter);
  assert_stream("open log.json afresh\nwrite a\nflush\nwrite b\nflush\nclose at last\n");
  assert_warned("on_log_written", "Could not write log: as the test said");
  assert_warned("on_log_written", "Could not write log: as the test said");
  end_test();
}

/* A limit on the size of files stands for a disk that fills: what fits of a line is written. */
static void set_file_limit(rlim_t bytes) {
  struct rlimit limit;
  g_assert_cmpint(getrlimit(RLIMIT_FSIZE, &limit), ==, 0);
  limit.rlim_cur = MIN(bytes, limit.rlim_max);
  g_assert_cmpint(setrlimit(RLIMIT_FSIZE, &limit), ==, 0);
}

TEST(full_disk_cuts_the_line_and_later_ones_go_on) {
  begin_test();
  signal(SIGXFSZ, SIG_IGN);
  VekMetricReporter *reporter = log_reporter_new(4, 1);
  set_file_limit(77 + 15); /* one line and the beginning of another */
  flush_and_settle(reporter, "a");
  flush_and_settle(reporter, "b");
  flush_and_settle(reporter, "c");
  set_file_limit(RLIM_INFINITY);
  for (int i = 0; i < 2; i++)
    assert_warned("on_log_written", "Could not write log: Error writing to file: File too large");

  g_autofree char *a = lines("a");
  g_autofree char *d = lines("d");
  flush_and_settle(reporter, "d");
  g_autofree char *joined = g_strdup_printf("log.json: log.json.1: %s2023-11-14 22:1%s", a, d);
  assert_folder(test_folder, joined);
  flush_line(reporter, "e");
  drop_reporter(reporter);

  g_autofree char *e = lines("e");
  g_autofree char *fresh = g_strdup_printf("log.json: %slog.json.1: %s2023-11-14 22:1%s", e, a, d);
  assert_folder(test_folder, fresh);
  end_test();
}

TEST(failed_flush_is_logged_and_the_chain_goes_on) {
  begin_scripted_test();
  folder_write(test_folder, "log.json", "old\n");
  script.flush = (ScriptedOutcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  drop_reporter(reporter);
  assert_stream(
      "open log.json that exists\nwrite a\nflush\nclose\n"
      "open log.json afresh\nwrite b\nflush\nclose\nopen log.json afresh\nclose at last\n");
  assert_warned("on_stream_flushed", "Could not flush output stream: as the test said");
  assert_warned("on_stream_flushed", "Could not flush output stream: as the test said");
  assert_folder(test_folder, "log.json.1: old\n");
  end_test();
}

TEST(failed_close_is_logged_and_rotation_goes_on) {
  begin_scripted_test();
  folder_write(test_folder, "log.json", "old\n");
  script.close = (ScriptedOutcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  flush_and_settle(reporter, "a");
  assert_stream("open log.json that exists\nwrite a\nflush\nclose\nopen log.json afresh\n");
  assert_warned("rotate_file", "Could not close output stream: as the test said");
  assert_folder(test_folder, "log.json.1: old\n");
  script.close = (ScriptedOutcome){0};
  flush_and_settle(reporter, "b");
  assert_stream("write b\nflush\nclose\nopen log.json afresh\n");
  drop_reporter(reporter);
  end_test();
}

TEST(cancelled_write_ends_all_writing) {
  begin_scripted_test();
  script.write = (ScriptedOutcome){.cancels = TRUE};
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  settle(reporter); /* its reference is released */
  assert_logged_from(SOURCE, "on_log_written", G_LOG_LEVEL_DEBUG,
                     "Write on output stream was cancelled");
  flush_line(reporter, "c");
  assert_stream("open log.json afresh\nwrite a\n");

  drop_reporter(reporter);
  assert_stream("close at last\n");
  end_test();
}

TEST(cancelled_flush_ends_all_writing) {
  begin_scripted_test();
  script.flush = (ScriptedOutcome){.cancels = TRUE};
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  settle(reporter);
  assert_logged_from(SOURCE, "on_stream_flushed", G_LOG_LEVEL_DEBUG,
                     "Flush on output stream was cancelled");
  assert_stream("open log.json afresh\nwrite a\nflush\n"); /* nor is the file rotated */

  flush_and_settle(reporter, "c"); /* the next write is cancelled before it begins */
  assert_logged_from(SOURCE, "on_log_written", G_LOG_LEVEL_DEBUG,
                     "Write on output stream was cancelled");
  flush_line(reporter, "d");
  assert_stream("");
  drop_reporter(reporter);
  assert_stream("close at last\n");
  end_test();
}

/* Of an error, the code alone decides. */
TEST(code_of_a_cancelled_write_in_another_domain_counts_as_one) {
  begin_scripted_test();
  script.write = (ScriptedOutcome){.domain = G_FILE_ERROR, .code = G_IO_ERROR_CANCELLED};
  VekMetricReporter *reporter = log_reporter_new(0, 0);
  flush_and_settle(reporter, "a");
  assert_logged_from(SOURCE, "on_log_written", G_LOG_LEVEL_DEBUG,
                     "Write on output stream was cancelled");
  assert_stream("open log.json afresh\nwrite a\n");
  drop_reporter(reporter);
  end_test();
}

TEST(code_of_a_cancelled_flush_in_another_domain_counts_as_one) {
  begin_scripted_test();
  script.flush = (ScriptedOutcome){.domain = G_FILE_ERROR, .code = G_IO_ERROR_CANCELLED};
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  settle(reporter);
  assert_logged_from(SOURCE, "on_stream_flushed", G_LOG_LEVEL_DEBUG,
                     "Flush on output stream was cancelled");
  assert_stream("open log.json afresh\nwrite a\nflush\n");

  /* Nothing was cancelled, so the next flush goes on where the chain ended. */
  script.flush = (ScriptedOutcome){0};
  flush_and_settle(reporter, "c");
  assert_stream(
      "write b\nflush\nclose\nopen log.json afresh\n"
      "write c\nflush\nclose\nopen log.json afresh\n");
  drop_reporter(reporter);
  end_test();
}

TEST(file_that_cannot_be_opened_again_ends_all_writing) {
  begin_test();
  VekMetricReporter *reporter = log_reporter_new(1, 1);
  g_autofree char *path = g_build_filename(test_folder, "log.json", NULL);
  g_assert_cmpint(g_remove(path), ==, 0);
  block("log.json"); /* which cannot be moved onto the other, nor removed */
  block("log.json.1");
  flush_line(reporter, "a");
  gsize used = heap_get_used();
  flush_many(reporter);
  settle(reporter);
  assert_open_failed();
  g_assert_cmpuint(heap_get_used(), <, used + N_LINES * NAME_LENGTH / 2);
  assert_inert(reporter);
  assert_lines("log.json/ log.json.1/");
  end_test();
}

TEST(folder_that_cannot_be_made_again_ends_all_writing) {
  begin_test();
  g_autofree char *path = g_build_filename(test_folder, "x", NULL);
  g_autofree char *file = g_build_filename(path, "log.json", NULL);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 1, 1);
  g_assert_cmpint(g_remove(file), ==, 0);
  g_assert_cmpint(g_rmdir(path), ==, 0);
  folder_write(test_folder, "x", "");
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  settle(reporter);
  g_autofree char *message = g_strdup_printf("Cannot create log dir \"%s\".", path);
  assert_warned("open_log_file", message);
  assert_inert(reporter);
  assert_folder(test_folder, "x: ");
  end_test();
}

/* A rotation logs what it fails to do, and whoever hears of it may flush the same reporter. */

TEST(flush_within_a_rotation_leaves_one_write_running) {
  begin_scripted_test();
  VekMetricReporter *reporter = log_reporter_new(1, 0);
  flush_line(reporter, "a");
  flush_line(reporter, "b");
  script.flushed_at_close = reporter;
  settle(reporter);
  assert_stream(
      "open log.json afresh\nwrite a\nflush\nclose\nopen log.json afresh\n"
      "flush\nclose\nopen log.json afresh\n" /* of b: its stream was being closed, or was closed */
      "write z\nflush\nclose\nopen log.json afresh\n");
  assert_logged_from_like(SOURCE, "on_log_written", G_LOG_LEVEL_WARNING,
                          "Could not write log: Stream *");
  drop_reporter(reporter);
  end_test();
}

TEST(flush_within_a_rotation_that_loses_the_file_ends_all_writing) {
  begin_scripted_test();
  VekMetricReporter *reporter = log_reporter_new(1, 0);
  script.open = (ScriptedOutcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  flush_line(reporter, "a");
  gsize used = heap_get_used();
  flush_many(reporter);
  script.flushed_at_close = reporter;
  settle(reporter);
  g_assert_cmpuint(heap_get_used(), <, used + N_LINES * NAME_LENGTH / 2);
  assert_stream("open log.json afresh\nwrite a\nflush\nclose\nopen log.json afresh\n");
  assert_logged_from_like(SOURCE, "open_log_file", G_LOG_LEVEL_WARNING,
                          "Could not append to file in *: as the test said");
  assert_logged_from_like(SOURCE, "on_log_written", G_LOG_LEVEL_WARNING,
                          "Could not write log: Stream *");
  assert_inert(reporter);
  end_test();
}

/* Assertions: the completions are called as GIO never would. */

static void abort_on_foreign_data_of_a_write(void) {
  writes_are_held_back = TRUE;
  flush_line(log_reporter_new(0, 0), "a");
  last_completion.callback(g_object_new(SCRIPTED_TYPE_STREAM, NULL), NULL, g_cancellable_new());
}

static void abort_on_foreign_source_of_a_write(void) {
  writes_are_held_back = TRUE;
  flush_line(log_reporter_new(0, 0), "a");
  last_completion.callback(G_OBJECT(g_cancellable_new()), NULL, last_completion.data);
}

static void abort_on_foreign_data_of_a_flush(void) {
  flush_and_settle(log_reporter_new(0, 0), "a");
  last_completion.callback(g_object_new(SCRIPTED_TYPE_STREAM, NULL), NULL, g_cancellable_new());
}

static void abort_on_foreign_source_of_a_flush(void) {
  flush_and_settle(log_reporter_new(0, 0), "a");
  last_completion.callback(G_OBJECT(g_cancellable_new()), NULL, last_completion.data);
}

static void abort_on_a_flush_that_was_not_started(void) {
  flush_and_settle(log_reporter_new(0, 0), "a");
  last_completion.callback(g_object_new(SCRIPTED_TYPE_STREAM, NULL), NULL, last_completion.data);
}

typedef struct {
  const char *path;
  void (*abort)(void);
  const char *message;
} AbortRow;

static const AbortRow abort_rows[] = {
    {"write-completion-asserts-its-data", abort_on_foreign_data_of_a_write,
     "on_log_written: assertion failed: (VEK_IS_METRIC_JSON_LOG_REPORTER(user_data))"},
    {"write-completion-asserts-its-source", abort_on_foreign_source_of_a_write,
     "on_log_written: assertion failed: (G_IS_OUTPUT_STREAM(source))"},
    {"flush-completion-asserts-its-data", abort_on_foreign_data_of_a_flush,
     "on_stream_flushed: assertion failed: (VEK_IS_METRIC_JSON_LOG_REPORTER(user_data))"},
    {"flush-completion-asserts-its-source", abort_on_foreign_source_of_a_flush,
     "on_stream_flushed: assertion failed: (G_IS_OUTPUT_STREAM(source))"},
    {"flush-completion-asserts-that-it-was-started", abort_on_a_flush_that_was_not_started,
     "on_stream_flushed: assertion failed: (self->io_operation_in_progress)"},
};

TEST_ROWS(aborts_by_the_table, abort_rows) {
  const AbortRow *row = data;
  if (g_test_subprocess()) {
    const struct rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    script.record = g_string_new(NULL); /* so no file is made */
    test_folder = g_strdup("/");
    row->abort();
    return;
  }

  g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_failed();
  g_autofree char *pattern = g_strdup_printf("*VEK:metrics:ERROR:" SOURCE ":*:%s*", row->message);
  g_test_trap_assert_stderr(pattern);
}

/* The type. */

TEST(type_is_a_plain_object_and_a_reporter) {
  GType type = VEK_TYPE_METRIC_JSON_LOG_REPORTER;
  g_assert_cmpstr(g_type_name(type), ==, "VekMetricJsonLogReporter");
  g_assert_true(g_type_parent(type) == G_TYPE_OBJECT);
  g_assert_true(g_type_is_a(type, VEK_TYPE_METRIC_REPORTER));
  g_assert_false(G_TYPE_IS_ABSTRACT(type));
  g_assert_false(G_TYPE_IS_FINAL(type));
}

TEST(properties_are_construct_only) {
  static const struct {
    const char *name, *nick;
    gboolean is_string;
  } rows[] = {
      {"dirname", "dirname", TRUE},         {"basename", "basename", TRUE},
      {"instance-id", "instance id", TRUE}, {"max-reports", "max-reports", FALSE},
      {"rotate", "rotate", FALSE},
  };
  g_autoptr(GTypeClass) klass = g_type_class_ref(VEK_TYPE_METRIC_JSON_LOG_REPORTER);
  guint n_properties;
  g_autofree GParamSpec **found =
      g_object_class_list_properties(G_OBJECT_CLASS(klass), &n_properties);
  g_assert_cmpuint(n_properties, ==, G_N_ELEMENTS(rows));
  for (guint i = 0; i < n_properties; i++) {
    g_assert_cmpstr(found[i]->name, ==, rows[i].name);
    g_assert_cmpstr(g_param_spec_get_nick(found[i]), ==, rows[i].nick);
    g_assert_cmpstr(g_param_spec_get_blurb(found[i]), ==, rows[i].nick);
    g_assert_cmphex(found[i]->flags, ==,
                    G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY | G_PARAM_STATIC_STRINGS);
    if (rows[i].is_string) {
      g_assert_true(G_IS_PARAM_SPEC_STRING(found[i]));
      g_assert_null(G_PARAM_SPEC_STRING(found[i])->default_value);
    } else {
      g_assert_true(G_IS_PARAM_SPEC_UINT(found[i]));
      g_assert_cmpuint(G_PARAM_SPEC_UINT(found[i])->minimum, ==, 0);
      g_assert_cmpuint(G_PARAM_SPEC_UINT(found[i])->maximum, ==, 4294967295);
      g_assert_cmpuint(G_PARAM_SPEC_UINT(found[i])->default_value, ==, 0);
    }
  }
}

TEST(properties_read_back) {
  begin_test();
  VekMetricReporter *reporter =
      vek_metric_json_log_reporter_new("log", test_folder, "a1", 4294967295, 7);
  g_autofree char *dirname = NULL, *basename = NULL, *instance_id = NULL;
  guint max_reports, rotate;
  g_object_get(reporter, "dirname", &dirname, "basename", &basename, "instance-id", &instance_id,
               "max-reports", &max_reports, "rotate", &rotate, NULL);
  g_assert_cmpstr(dirname, ==, test_folder);
  g_assert_cmpstr(basename, ==, "log");
  g_assert_cmpstr(instance_id, ==, "a1");
  g_assert_cmpuint(max_reports, ==, 4294967295);
  g_assert_cmpuint(rotate, ==, 7);
  g_object_unref(reporter);
  end_test();
}

TEST(unknown_property_warns) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_json_log_reporter_new(NULL, NULL, NULL, 0, 0);
  assert_unknown_property_warns(reporter);
}
