#pragma once

/* The hashing of all files below some folders, on threads of its own. */

#include "figures.h"

typedef struct _Work Work;

/* Starts the threads, which print a line for each file unless they are to be quiet. When all is
 * done, the main loop is quit. */
Work *work_new(char **folders, int n_threads, gboolean quiet, Figures *figures, GMainLoop *loop);

/* Finishes the files that are being hashed, and no others; no figure changes after that. */
void work_free(Work *work);
