#pragma once

/* Tells on standard error what the program does. */

#include "figures.h"

#define PROGRESS_TYPE (progress_get_type())
G_DECLARE_FINAL_TYPE(Progress, progress, EXAMPLE, PROGRESS, GObject)

/* Prints a line that says what begins. The result is a reporter: on a terminal, it shows in each
 * pass how far the work is. */
Progress *progress_new(const Figures *figures, char **folders, int n_threads, double seconds);

/* Prints a line that says what was done. */
void progress_end(Progress *progress);
