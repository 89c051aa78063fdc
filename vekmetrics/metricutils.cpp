#include "metricutils.h"

#include "common/internal.hpp"

#include <glib/gstdio.h>
#include <stdio.h>

void vek_metrics_rotate_files(const gchar *fname, const gchar *logdir, guint n_files) {
  vek_return_if_fail(fname != NULL);
  vek_return_if_fail(logdir != NULL);

  g_autofree char *path = g_build_filename(logdir, fname, nullptr);
  if (!g_file_test(path, G_FILE_TEST_EXISTS))
    return;

  // The results are ignored: a gap makes its rename fail, and rotation never stops half-way.
  for (guint k = n_files; k >= 1; k--) {
    g_autofree char *from = k > 1 ? g_strdup_printf("%s.%u", path, k - 1) : g_strdup(path);
    g_autofree char *to = g_strdup_printf("%s.%u", path, k);
    rename(from, to);
  }
  g_remove(path);  // still there only without numbers, or if the last rename failed
}
