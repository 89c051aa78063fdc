/* Random histories of a JSON log in a folder in which other files are, compared with a model. */

#include "jsonlog.h"
#include "support/fixture.h"
#include "support/folder.h"
#include "support/modeltest.h"

#include <glib/gstdio.h>

/* The log is number 0, and the highest number comes from a rotation that keeps as many. */
enum { N_NUMBERS = 9, MAX_REPORTS = 3 };

static GString folder; /* in place of a file's letters: a folder with a file in it */

/* A file is the letters of its lines; the reporter may append to one that has moved or gone. */
typedef struct {
  VekMetricReporter *reporter;
  guint max_reports;
  guint rotate;
  guint n_reports;
  GString *open; /* to which the reporter appends; NULL if it could not be opened */
  GString *names[N_NUMBERS];
  GPtrArray *files; /* all, of GString */
  guint n_letters;
  guint n_warnings; /* that the reporter logs */
} Log;

enum { FLUSH, RESTART, ROTATE, WRITE, BLOCK, REMOVE, N_KINDS };

static char *get_name(guint number) {
  return number == 0 ? g_strdup("log.json") : g_strdup_printf("log.json.%u", number);
}

static GString *file_new(Log *log, const char *letters) {
  GString *file = g_string_new(letters);
  g_ptr_array_add(log->files, file);
  return file;
}

static void free_file(gpointer file) {
  g_string_free(file, TRUE);
}

static void write_file(Log *log, guint number) {
  if (log->names[number] == &folder)
    return;
  g_autofree char *name = get_name(number);
  g_autofree char *line = lines("z");
  folder_write(test_folder, name, line);
  log->names[number] = file_new(log, "z");
}

static void block(Log *log, guint number) {
  if (log->names[number])
    return;
  g_autofree char *name = get_name(number);
  g_autofree char *path = g_build_filename(test_folder, name, NULL);
  g_assert_cmpint(g_mkdir(path, 0755), ==, 0);
  folder_write(path, "inside", "");
  log->names[number] = &folder;
}

static void remove_name(Log *log, guint number) {
  if (!log->names[number])
    return;
  g_autofree char *name = get_name(number);
  folder_remove(g_build_filename(test_folder, name, NULL));
  log->names[number] = NULL;
}

/* What a renaming does. Nothing can take the place of a folder with a file in it, and a folder
 * cannot take the place of a file. */
static void expect_rename(Log *log, guint from, guint to) {
  if (!log->names[from] || log->names[to] == &folder ||
      (log->names[from] == &folder && log->names[to]))
    return;
  log->names[to] = log->names[from];
  log->names[from] = NULL;
}

static void expect_rotation(Log *log, guint n_files) {
  if (!log->names[0])
    return;
  for (guint k = n_files; k >= 1; k--)
    expect_rename(log, k - 1, k);
  if (log->names[0] != &folder)
    log->names[0] = NULL;
}

static void expect_open(Log *log) {
  if (!log->names[0])
    log->names[0] = file_new(log, "");
  log->open = log->names[0] == &folder ? NULL : log->names[0];
  log->n_warnings += !log->open;
  log->n_reports = 0;
}

static void expect_report(Log *log, char letter) {
  if (!log->open)
    return;
  g_string_append_c(log->open, letter);
  if (++log->n_reports == log->max_reports) {
    expect_rotation(log, log->rotate);
    expect_open(log);
  }
}

/* Flushes lines, some of which wait for others. */
static void flush(Log *log, guint n_lines) {
  for (guint i = 0; i < n_lines; i++) {
    char letter[] = {(char)('a' + log->n_letters++ % 25), '\0'};
    flush_line(log->reporter, letter);
    expect_report(log, *letter);
  }
  settle(log->reporter);
}

static void restart(Log *log, guint max_reports, guint rotate) {
  g_clear_pointer(&log->reporter, drop_reporter);
  log->max_reports = max_reports;
  log->rotate = rotate;
  log->reporter = log_reporter_new(max_reports, rotate);
  expect_open(log);
}

static gpointer begin(GRand *random) {
  begin_test();
  Log *log = g_new0(Log, 1);
  log->files = g_ptr_array_new_with_free_func(free_file);
  for (guint number = 0; number < N_NUMBERS; number++) {
    switch (g_rand_int_range(random, 0, 8)) {
    case 0: block(log, number); break;
    case 1:
    case 2:
    case 3: write_file(log, number); break;
    }
  }
  guint max_reports = (guint)g_rand_int_range(random, 0, MAX_REPORTS + 1);
  restart(log, max_reports, (guint)g_rand_int_range(random, 0, N_NUMBERS));
  return log;
}

static void draw(GRand *random, ModelOperation *operation) {
  static const guint kinds[] = {FLUSH, FLUSH, FLUSH, FLUSH, RESTART, ROTATE, WRITE, BLOCK, REMOVE};
  operation->kind = kinds[g_rand_int_range(random, 0, G_N_ELEMENTS(kinds))];
  operation->number = g_rand_int_range(random, 0, N_NUMBERS);
  operation->value = g_rand_int_range(random, 0, MAX_REPORTS + 1);
}

static char *describe_expected(const Log *log) {
  GString *text = g_string_new(NULL);
  for (guint number = 0; number < N_NUMBERS; number++) {
    if (!log->names[number])
      continue;
    g_autofree char *name = get_name(number);
    g_autofree char *contents =
        log->names[number] == &folder ? NULL : lines(log->names[number]->str);
    g_string_append_printf(text, contents ? "%s: %s" : "%s/\n", name, contents);
  }
  return g_string_free(text, FALSE);
}

static char *apply(gpointer data, const ModelOperation *operation) {
  Log *log = data;
  guint number = (guint)operation->number;
  switch (operation->kind) {
  case FLUSH: flush(log, (guint)operation->value); break;
  case RESTART: restart(log, (guint)operation->value, number); break;
  case ROTATE:
    vek_metrics_rotate_files("log.json", test_folder, number);
    expect_rotation(log, number);
    break;
  case WRITE: write_file(log, number); break;
  case BLOCK: block(log, number); break;
  case REMOVE: remove_name(log, number); break;
  }
  for (; log->n_warnings > 0; log->n_warnings--)
    assert_logged_like("VEK:metrics", G_LOG_LEVEL_WARNING,
                       "Could not append to file in */log.json: *");

  g_autofree char *found = folder_describe(test_folder);
  g_autofree char *expected = describe_expected(log);
  return g_str_equal(found, expected)
             ? NULL
             : g_strdup_printf("the folder is\n%s, not\n%s", found, expected);
}

static void end(gpointer data) {
  Log *log = data;
  drop_reporter(log->reporter);
  g_ptr_array_unref(log->files);
  g_free(log);
  end_test();
}

static char *describe(const ModelOperation *operation) {
  static const char *const names[] = {"flush", "restart", "rotate", "write", "block", "remove"};
  return g_strdup_printf("%s number=%" G_GINT64_FORMAT " value=%g", names[operation->kind],
                         operation->number, operation->value);
}

TEST(random_histories_agree_with_a_model) {
  static const ModelTest test = {begin, draw, apply, end, describe};
  model_test_run(&test, 1000);
}
