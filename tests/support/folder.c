#include "folder.h"

#include <stdio.h>

typedef GSList Names; /* sorted */

static void names_free(Names *names) {
  g_slist_free_full(names, g_free);
}
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Names, names_free)

static Names *list_names(const char *folder) {
  g_autoptr(GError) error = NULL;
  g_autoptr(GDir) dir = g_dir_open(folder, 0, &error);
  g_assert_no_error(error);
  Names *names = NULL;
  for (const char *name = g_dir_read_name(dir); name; name = g_dir_read_name(dir))
    names = g_slist_insert_sorted(names, g_strdup(name), (GCompareFunc)g_strcmp0);
  return names;
}

static gboolean is_folder(const char *path) {
  return g_file_test(path, G_FILE_TEST_IS_DIR) && !g_file_test(path, G_FILE_TEST_IS_SYMLINK);
}

static void remove_tree(const char *path) {
  if (is_folder(path)) {
    g_autoptr(Names) names = list_names(path);
    for (Names *name = names; name; name = name->next) {
      g_autofree char *child = g_build_filename(path, name->data, NULL);
      remove_tree(child);
    }
  }
  g_assert_cmpint(remove(path), ==, 0);
}

char *folder_new(void) {
  g_autoptr(GError) error = NULL;
  char *folder = g_dir_make_tmp("vekmetrics-XXXXXX", &error);
  g_assert_no_error(error);
  return folder;
}

void folder_remove(char *folder) {
  remove_tree(folder);
  g_free(folder);
}

void folder_write(const char *folder, const char *name, const char *contents) {
  g_autofree char *path = g_build_filename(folder, name, NULL);
  g_autoptr(GError) error = NULL;
  g_file_set_contents(path, contents, -1, &error);
  g_assert_no_error(error);
}

static char *describe(const char *path, const char *name) {
  g_autofree char *target = g_file_read_link(path, NULL);
  if (target)
    return g_strdup_printf("%s -> %s\n", name, target);
  if (is_folder(path))
    return g_strdup_printf("%s/\n", name);

  g_autofree char *contents = NULL;
  g_autoptr(GError) error = NULL;
  g_file_get_contents(path, &contents, NULL, &error);
  g_assert_no_error(error);
  return g_strdup_printf("%s: %s", name, contents);
}

char *folder_describe(const char *folder) {
  GString *found = g_string_new(NULL);
  g_autoptr(Names) names = list_names(folder);
  for (Names *name = names; name; name = name->next) {
    g_autofree char *path = g_build_filename(folder, name->data, NULL);
    g_autofree char *text = describe(path, name->data);
    g_string_append(found, text);
  }
  return g_string_free(found, FALSE);
}

void assert_folder(const char *folder, const char *description) {
  g_autofree char *found = folder_describe(folder);
  g_assert_cmpstr(found, ==, description);
}

guint count_open_files(void) {
  g_autoptr(GDir) dir = g_dir_open("/proc/self/fd", 0, NULL);
  guint n = 0;
  while (g_dir_read_name(dir))
    n++;
  return n;
}
