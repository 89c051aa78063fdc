#pragma once

/* The hashing of all files below some folders, on threads of its own. */

#include "figures.h"

typedef struct _Work Work;

/* Starts the threads, which print a line for each file unless they are to be quiet. When all is
 * done, they begin again if they are to repeat; otherwise the main loop is quit. It is also quit if
 * there is no file. */
Work *work_new(char **folders, int n_threads, gboolean quiet, gboolean repeat, Figures *figures,
               GMainLoop *loop);

/* Finishes the files that are being hashed, and no others; no figure changes after that. */
void work_free(Work *work);
