/* Runs a fuzz target over the files of folders: fuzz-TARGET FOLDER...
 *
 * The fuzzer has a main() of its own. With this one a compiler without it builds the target, and
 * what was found once is tested with everything else. */

#include <glib.h>

int LLVMFuzzerTestOneInput(const guint8 *data, gsize size);

static void replay(const char *folder) {
  g_autoptr(GError) error = NULL;
  g_autoptr(GDir) files = g_dir_open(folder, 0, &error);
  g_assert_no_error(error);
  int n_files = 0;
  for (const char *name; (name = g_dir_read_name(files)); n_files++) {
    g_autofree char *path = g_build_filename(folder, name, NULL);
    g_autofree char *contents = NULL;
    gsize size;
    g_file_get_contents(path, &contents, &size, &error);
    g_assert_no_error(error);
    g_test_message("%s", path);
    LLVMFuzzerTestOneInput((const guint8 *)contents, size);
  }
  g_assert_cmpint(n_files, >, 0);
}

int main(int argc, char **argv) {
  g_test_init(&argc, &argv, NULL);
  g_log_set_always_fatal(G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL); /* an input may be warned of */
  for (int i = 1; i < argc; i++) {
    g_autofree char *name = g_path_get_basename(argv[i]);
    g_autofree char *path = g_strconcat("/fuzz/", name, NULL);
    g_test_add_data_func(path, argv[i], (GTestDataFunc)replay);
  }
  return g_test_run();
}
