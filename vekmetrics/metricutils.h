#pragma once

#include <glib.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

/**
 * vek_metrics_rotate_files:
 * @fname: (type filename): the name of a file in @logdir
 * @logdir: (type filename): the directory
 * @n_files: the highest number that an old copy may bear; 0 keeps none. Each number up to it is
 *   tried, whether there is such a file or not
 *
 * Makes room for a fresh file: `name.1` becomes `name.2` and so on, the newest first, and the file
 * itself becomes `name.1`. What bore the number @n_files is replaced.
 *
 * Nothing happens when the file does not exist. Gaps in the numbers stay, numbers above @n_files
 * are left alone, and a rename that fails stops nothing and is not logged. No other program may
 * rotate the same files at the same time.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metrics_rotate_files(const gchar *fname, const gchar *logdir, guint n_files);

G_END_DECLS
