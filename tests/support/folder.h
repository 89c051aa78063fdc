#pragma once

/* Temporary folders, and all that is in one as text that tests compare whole. */

#include <glib.h>

G_BEGIN_DECLS

/* Makes an empty folder; folder_remove() takes it away with all that is in it. */
char *folder_new(void);
void folder_remove(char *folder);

/* Puts a file there, or replaces one. */
void folder_write(const char *folder, const char *name, const char *contents);

/* Describes what is in the folder, sorted by name: "NAME: CONTENTS" for a file, "NAME/\n" for a
 * folder in it, "NAME -> TARGET\n" for a symbolic link. */
char *folder_describe(const char *folder);

/* Compares the folder with such a description. */
void assert_folder(const char *folder, const char *description);

/* How many descriptors the process has open. */
guint count_open_files(void);

G_END_DECLS
