/* Tests of vek_metrics_rotate_files(). */

#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/folder.h"

#include <glib/gstdio.h>

typedef struct {
  const char *path;
  const char *names[6]; /* of the files there; each holds "was NAME\n" */
  guint n_files;
  const char *after;
} Row;

static const Row rows[] = {
    {"without-the-file-nothing-changes",
     {"X.1", "X.2", "Y"},
     3,
     "X.1: was X.1\nX.2: was X.2\nY: was Y\n"},
    {"an-empty-folder-stays-empty", {NULL}, 3, ""},
    {"a-lone-file-becomes-number-1", {"X"}, 5, "X.1: was X\n"},
    {"the-highest-number-is-overwritten", {"X", "X.1", "X.2"}, 2, "X.1: was X\nX.2: was X.1\n"},
    {"each-number-moves-up-by-one",
     {"X", "X.1", "X.2"},
     3,
     "X.1: was X\nX.2: was X.1\nX.3: was X.2\n"},
    {"with-0-files-the-file-is-removed", {"X"}, 0, ""},
    {"with-0-files-numbered-ones-stay", {"X", "X.1"}, 0, "X.1: was X.1\n"},
    {"a-gap-stays-where-nothing-moves-onto-it", {"X", "X.3"}, 3, "X.1: was X\nX.3: was X.3\n"},
    {"a-gap-moves-up", {"X", "X.1", "X.3"}, 4, "X.1: was X\nX.2: was X.1\nX.4: was X.3\n"},
    {"numbers-above-the-limit-are-left-alone",
     {"X", "X.1", "X.2", "X.3"},
     1,
     "X.1: was X\nX.2: was X.2\nX.3: was X.3\n"},
    {"two-digits-are-numbers-too",
     {"X", "X.9", "X.10"},
     11,
     "X.1: was X\nX.10: was X.9\nX.11: was X.10\n"},
    {"other-files-are-left-alone",
     {"X", "X.", "X.01", "X.1.1", "XX.1"},
     2,
     "X.: was X.\nX.01: was X.01\nX.1: was X\nX.1.1: was X.1.1\nXX.1: was XX.1\n"},
};

TEST_ROWS(rotates_by_the_table, rows) {
  const Row *row = data;
  char *folder = folder_new();
  for (const char *const *name = row->names; *name; name++) {
    g_autofree char *contents = g_strdup_printf("was %s\n", *name);
    folder_write(folder, *name, contents);
  }

  vek_metrics_rotate_files("X", folder, row->n_files);

  assert_folder(folder, row->after);
  assert_nothing_logged();
  folder_remove(folder);
}

/* Nothing can be renamed onto a folder that is not empty. */
static void block(const char *folder, const char *name) {
  g_autofree char *path = g_build_filename(folder, name, NULL);
  g_assert_cmpint(g_mkdir(path, 0755), ==, 0);
  folder_write(path, "inside", "");
}

TEST(failed_rename_stops_nothing_and_is_silent) {
  char *folder = folder_new();
  block(folder, "X.3");
  folder_write(folder, "X.2", "was X.2\n");
  folder_write(folder, "X.1", "was X.1\n");
  folder_write(folder, "X", "was X\n");

  vek_metrics_rotate_files("X", folder, 3);

  assert_folder(folder, "X.1: was X\nX.2: was X.1\nX.3/\n");
  folder_remove(folder);
}

TEST(file_is_removed_when_it_could_not_be_renamed) {
  char *folder = folder_new();
  block(folder, "X.1");
  folder_write(folder, "X", "was X\n");

  vek_metrics_rotate_files("X", folder, 1);

  assert_folder(folder, "X.1/\n");
  folder_remove(folder);
}

TEST(failed_removal_is_silent) {
  char *folder = folder_new();
  block(folder, "X");

  vek_metrics_rotate_files("X", folder, 0);

  assert_folder(folder, "X/\n");
  folder_remove(folder);
}

TEST(folders_are_renamed_like_files) {
  char *folder = folder_new();
  block(folder, "X.1");
  block(folder, "X");

  vek_metrics_rotate_files("X", folder, 2);

  assert_folder(folder, "X.1/\nX.2/\n");
  folder_remove(folder);
}

TEST(missing_folder_is_silent) {
  vek_metrics_rotate_files("X", "/nowhere/at/all", 2);
}

TEST(failed_checks_come_in_the_arguments_order) {
  vek_metrics_rotate_files(NULL, NULL, 1);
  assert_failed_check("vek_metrics_rotate_files", "fname != NULL");
  vek_metrics_rotate_files("X", NULL, 1);
  assert_failed_check("vek_metrics_rotate_files", "logdir != NULL");
}
