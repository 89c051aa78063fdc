#include "decimalcomma.h"

#include "folder.h"

#include <locale.h>
#include <stdlib.h>

#define LOCALE "de_DE.ISO-8859-1"

static gboolean make_locale(const char *folder) {
  g_autofree char *path = g_build_filename(folder, LOCALE, NULL);
  const char *command[] = {"localedef", "-i", "de_DE", "-f", "ISO-8859-1", path, NULL};
  int status = -1;
  return g_spawn_sync(NULL, (char **)command, NULL,
                      G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL,
                      NULL, NULL, NULL, NULL, &status, NULL) &&
         status == 0;
}

gboolean in_decimal_comma(void) {
  if (g_test_subprocess()) {
    g_assert_cmpstr(setlocale(LC_ALL, LOCALE), ==, LOCALE);
    g_assert_cmpstr(localeconv()->decimal_point, ==, ",");
    return TRUE;
  }

  char *folder = folder_new();
  if (make_locale(folder)) {
    setenv("LOCPATH", folder, TRUE); /* GLib's would log that there have been threads */
    g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
    unsetenv("LOCPATH");
    g_test_trap_assert_passed();
  } else {
    g_test_skip("localedef cannot make " LOCALE ": Debian's package locales is missing");
  }
  folder_remove(folder);
  return FALSE;
}
