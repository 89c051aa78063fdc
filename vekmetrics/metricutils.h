#pragma once

#include <glib.h>
#include <vekmetrics/export.h>

G_BEGIN_DECLS

/**
 * vek_metrics_rotate_files:
 * @fname: (type filename): the name of a file in @logdir
 * @logdir: (type filename): the directory
 * @n_files: the largest number of a rotated file; 0 keeps none. The time taken grows with it,
 *   whether the files exist or not
 *
 * Rotates a file: `name.1` becomes `name.2` and so on, and the file itself becomes `name.1`. The
 * file with the number @n_files is replaced.
 *
 * Nothing happens if the file does not exist. Gaps in the numbers stay, files with larger numbers
 * are not touched, and a failed rename is ignored and not logged. No other program may rotate the
 * same files at the same time.
 *
 * Does nothing after a failed check.
 */
VEK_EXPORT
void vek_metrics_rotate_files(const gchar *fname, const gchar *logdir, guint n_files);

G_END_DECLS
