#include "csvtest.h"

#include "support/fixture.h"
#include "support/folder.h"

#include <glib/gstdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static VekMetricReporter *make(const char *folder) {
  return csv_kind.make("figures", folder);
}

static void flush(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

static void assert_lines(const char *folder, guint n) {
  g_autoptr(GString) expected = g_string_new("figures.csv: ");
  for (guint i = 0; i < n; i++)
    g_string_append(expected, csv_kind.line);
  assert_folder(folder, expected->str);
}

/* Runs the test in a process of its own, in an empty folder. Here, this compares what the process
 * prints to standard error, and returns FALSE. */
static gboolean in_folder_of_its_own(const char *printed) {
  char *folder = folder_new();
  if (g_test_subprocess()) {
    g_assert_cmpint(g_chdir(folder), ==, 0);
    g_free(folder);
    return TRUE;
  }
  folder_remove(folder);

  g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_passed();
  g_test_trap_assert_stderr(printed);
  return FALSE;
}

static void leave_folder(void) {
  char *folder = g_get_current_dir();
  g_assert_cmpint(g_chdir("/"), ==, 0);
  folder_remove(folder);
}

/* Does with a reporter all that can be done with one, and more lines than a buffer takes. */
static void use(VekMetricReporter *reporter) {
  for (guint i = 0; i < 1000; i++)
    csv_kind.write(reporter);
  flush(reporter);
  csv_kind.write(reporter);
  flush(reporter);
}

TEST(type_is_a_plain_object_that_reports) {
  g_assert_cmpstr(g_type_name(g_type_parent(csv_kind.get_type())), ==, "GObject");
  g_assert_false(G_TYPE_IS_ABSTRACT(csv_kind.get_type()));
  g_assert_true(g_type_is_a(csv_kind.get_type(), VEK_TYPE_METRIC_REPORTER));
}

TEST(properties_are_construct_only_strings) {
  g_autoptr(GTypeClass) klass = g_type_class_ref(csv_kind.get_type());
  guint n = 0;
  g_autofree GParamSpec **found = g_object_class_list_properties(G_OBJECT_CLASS(klass), &n);

  static const char *const names[] = {"dirname", "basename"};
  g_assert_cmpuint(n, ==, G_N_ELEMENTS(names));
  for (guint i = 0; i < n; i++) {
    g_assert_cmpstr(found[i]->name, ==, names[i]);
    GParamSpec *pspec = assert_construct_only_property(csv_kind.get_type(), names[i]);
    g_assert_cmpstr(G_PARAM_SPEC_TYPE_NAME(pspec), ==, "GParamString");
    g_assert_cmpstr(g_value_get_string(g_param_spec_get_default_value(pspec)), ==, NULL);
  }
}

TEST(properties_are_copies_that_read_back) {
  char *folder = folder_new();
  char basename[] = "figures";
  g_autofree char *dirname = g_strdup(folder);
  g_autoptr(VekMetricReporter) reporter = csv_kind.make(basename, dirname);
  memset(basename, 'x', strlen(basename));
  memset(dirname, 'x', strlen(dirname));

  g_autofree char *got_basename = NULL;
  g_autofree char *got_dirname = NULL;
  g_object_get(reporter, "basename", &got_basename, "dirname", &got_dirname, NULL);
  g_assert_cmpstr(got_basename, ==, "figures");
  g_assert_cmpstr(got_dirname, ==, folder);
  folder_remove(folder);
}

TEST(unknown_property_ids_give_the_standard_warning) {
  g_autoptr(VekMetricReporter) reporter = csv_kind.make(NULL, NULL);
  assert_unknown_property_warns(reporter);
}

TEST(without_a_name_nothing_is_made_and_nothing_said) {
  if (!in_folder_of_its_own(""))
    return;

  static const struct {
    const char *basename, *dirname;
  } rows[] = {{NULL, "logs"}, {"figures", NULL}, {NULL, NULL}};
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricReporter) reporter = csv_kind.make(rows[i].basename, rows[i].dirname);
    use(reporter);
  }
  assert_folder(".", "");
  leave_folder();
}

TEST(directory_that_cannot_be_made_gives_one_message_and_no_file) {
  if (!in_folder_of_its_own(csv_kind.folder_below_a_file))
    return;

  folder_write(".", "file", "as it was\n");
  g_autoptr(VekMetricReporter) reporter = csv_kind.make("figures", "file/logs");
  use(reporter);
  assert_folder(".", "file: as it was\n");

  /* It is not tried again. */
  g_assert_cmpint(g_remove("file"), ==, 0);
  use(reporter);
  assert_folder(".", "");
  leave_folder();
}

TEST(directory_without_a_name_cannot_be_made) {
  if (!in_folder_of_its_own(csv_kind.folder_without_a_name))
    return;

  g_autoptr(VekMetricReporter) reporter = csv_kind.make("figures", "");
  use(reporter);
  assert_folder(".", "");
  leave_folder();
}

TEST(file_that_cannot_be_opened_gives_one_message) {
  if (!in_folder_of_its_own("Cannot open log file \"logs/figures.csv\".\n"))
    return;

  g_assert_cmpint(g_mkdir_with_parents("logs/figures.csv", 0755), ==, 0);
  g_autoptr(VekMetricReporter) reporter = make("logs");
  use(reporter);
  assert_folder("logs", "figures.csv/\n");

  g_assert_cmpint(g_rmdir("logs/figures.csv"), ==, 0);
  use(reporter);
  assert_folder("logs", "");
  leave_folder();
}

TEST(full_disk_is_not_noticed) {
  if (!in_folder_of_its_own(""))
    return;

  g_assert_cmpint(symlink("/dev/full", "figures.csv"), ==, 0);
  g_autoptr(VekMetricReporter) reporter = make(".");
  use(reporter);
  g_clear_object(&reporter);
  assert_folder(".", "figures.csv -> /dev/full\n");
  leave_folder();
}

TEST(link_in_the_folder_is_followed) {
  char *folder = folder_new();
  folder_write(folder, "elsewhere", "");
  g_autofree char *path = g_build_filename(folder, "figures.csv", NULL);
  g_assert_cmpint(symlink("elsewhere", path), ==, 0);
  g_autoptr(VekMetricReporter) reporter = make(folder);
  csv_kind.write(reporter);
  flush(reporter);
  g_autofree char *expected =
      g_strdup_printf("elsewhere: %sfigures.csv -> elsewhere\n", csv_kind.line);
  assert_folder(folder, expected);
  folder_remove(folder);
}

TEST(basename_may_lead_out_of_the_folder) {
  char *folder = folder_new();
  g_autofree char *inner = g_build_filename(folder, "inner", NULL);
  g_object_unref(csv_kind.make("../figures", inner));
  assert_folder(folder, "figures.csv: inner/\n");
  folder_remove(folder);
}

TEST(file_has_the_mode_that_the_umask_leaves) {
  char *folder = folder_new();
  g_autofree char *path = g_build_filename(folder, "figures.csv", NULL);
  mode_t mask = umask(077);
  g_object_unref(make(folder));
  umask(mask);
  GStatBuf status;
  g_assert_cmpint(g_stat(path, &status), ==, 0);
  g_assert_cmphex(status.st_mode, ==, S_IFREG | 0600);
  folder_remove(folder);
}

TEST(missing_directories_are_made_for_everybody_to_read) {
  char *folder = folder_new();
  g_autofree char *outer = g_build_filename(folder, "outer", NULL);
  g_autofree char *inner = g_build_filename(outer, "inner", NULL);
  mode_t mask = umask(0);
  g_object_unref(make(inner));
  umask(mask);

  const char *const made[] = {outer, inner};
  for (guint i = 0; i < G_N_ELEMENTS(made); i++) {
    GStatBuf status;
    g_assert_cmpint(g_stat(made[i], &status), ==, 0);
    g_assert_cmphex(status.st_mode, ==, S_IFDIR | 0755);
  }
  assert_folder(inner, "figures.csv: ");
  folder_remove(folder);
}

TEST(file_is_named_by_basename_and_dirname) {
  static const struct {
    const char *basename, *suffix, *found;
  } rows[] = {
      {"figures", "", "figures.csv: "}, {"figures", "/", "figures.csv: "},
      {"a.b", "", "a.b.csv: "},         {"", "", ".csv: "},
      {"%s", "", "%s.csv: "},           {"figures.csv", "", "figures.csv.csv: "},
  };
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    char *folder = folder_new();
    g_autofree char *dirname = g_strconcat(folder, rows[i].suffix, NULL);
    g_object_unref(csv_kind.make(rows[i].basename, dirname));
    assert_folder(folder, rows[i].found);
    folder_remove(folder);
  }
}

TEST(existing_file_is_appended_to_never_truncated) {
  char *folder = folder_new();
  folder_write(folder, "figures.csv", "as it was\n");
  for (guint i = 0; i < 2; i++) {
    g_autoptr(VekMetricReporter) reporter = make(folder);
    csv_kind.write(reporter);
    flush(reporter);
  }

  g_autofree char *found =
      g_strconcat("figures.csv: as it was\n", csv_kind.line, csv_kind.line, NULL);
  assert_folder(folder, found);
  folder_remove(folder);
}

TEST(lines_are_visible_only_after_a_flush) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = make(folder);
  csv_kind.write(reporter);
  csv_kind.write(reporter);
  assert_lines(folder, 0);
  flush(reporter);
  assert_lines(folder, 2);
  flush(reporter);
  assert_lines(folder, 2);
  folder_remove(folder);
}

TEST(lines_are_visible_when_the_buffer_fills) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = make(folder);
  g_autofree char *path = g_build_filename(folder, "figures.csv", NULL);
  g_autoptr(GString) written = g_string_new(NULL);
  while (written->len < 1000000) {
    csv_kind.write(reporter);
    g_string_append(written, csv_kind.line);
  }

  g_autofree char *seen = NULL;
  gsize length = 0;
  g_assert_true(g_file_get_contents(path, &seen, &length, NULL));
  g_assert_cmpuint(length, >, 0);
  g_assert_cmpuint(length, <, written->len);
  g_string_truncate(written, length);
  g_assert_cmpstr(seen, ==, written->str);
  folder_remove(folder);
}

/* Two programs would do the same. */
TEST(two_reporters_of_one_file_cut_lines_where_a_buffer_is_full) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = make(folder);
  g_autoptr(VekMetricReporter) other = make(folder);
  g_autofree char *path = g_build_filename(folder, "figures.csv", NULL);
  for (guint i = 0; i < 1000; i++)
    csv_kind.write(reporter);
  g_autofree char *seen = NULL;
  gsize length = 0;
  g_assert_true(g_file_get_contents(path, &seen, &length, NULL));
  g_assert_cmpuint(length % strlen(csv_kind.line), >, 0);

  csv_kind.write(other);
  flush(other);
  flush(reporter);
  g_autoptr(GString) expected = g_string_new(NULL);
  for (guint i = 0; i < 1000; i++)
    g_string_append(expected, csv_kind.line);
  g_string_insert(expected, (gssize)length, csv_kind.line);
  g_string_prepend(expected, "figures.csv: ");
  assert_folder(folder, expected->str);
  folder_remove(folder);
}

TEST(released_reporter_closes_its_file) {
  char *folder = folder_new();
  guint n_open = count_open_files();
  VekMetricReporter *reporter = make(folder);
  g_assert_cmpuint(count_open_files(), ==, n_open + 1);
  csv_kind.write(reporter);
  g_object_unref(reporter);
  assert_lines(folder, 1);
  g_assert_cmpuint(count_open_files(), ==, n_open);
  folder_remove(folder);
}

static void write_lines(guint thread, gpointer reporter) {
  (void)thread;
  for (guint i = 0; i < 500; i++)
    csv_kind.write(reporter);
}

static void flush_meanwhile(gpointer reporter) {
  flush(reporter);
}

TEST(lines_of_several_threads_stay_whole) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = make(folder);
  run_threads(4, write_lines, flush_meanwhile, reporter);
  assert_lines(folder, 2000);
  folder_remove(folder);
}
