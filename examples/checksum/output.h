#pragma once

/* What the program prints: always on the main thread, and never into the progress line. */

#include <glib.h>
#include <stdio.h>

/* Takes over what GLib prints: the console reporter's sections, messages, and what is logged. */
void output_init(void);

/* Prints a line of sha256sum: the checksum and the path. */
void output_checksum(FILE *file, const char *checksum, const char *path);

/* Prints on standard error what happened to a path. */
void output_error(const char *path, const char *message);

/* Writes out what is still held back; names the file and returns FALSE if any of it was lost. */
gboolean output_flush(FILE *file, const char *path);
