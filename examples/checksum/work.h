#pragma once

/* The hashing of files, on threads of its own. */

#include "figures.h"

/* A file. */
typedef struct {
  char *path;
  char *checksum;   /* in hexadecimal; NULL if there is none */
  int error_number; /* why there is none; 0 if the work was stopped before */
} Job;

/* Called on the main loop for each job, in the order in which they are done. */
typedef void (*WorkCallback)(const Job *job, gpointer data);

typedef struct _Work Work;

/* Makes a pool of that many threads, which measure what they do as they go; the figures must be
 * made for as many. */
Work *work_new(int jobs, GChecksumType type, Figures *figures, WorkCallback callback,
               gpointer data);

/* To be called when no job is pending. */
void work_free(Work *work);

/* Queues a file. */
void work_push(Work *work, const char *path);

/* Whether enough is queued to keep the threads busy; more would only take memory. */
gboolean work_is_full(Work *work);

/* Whether all jobs have been called back. */
gboolean work_is_idle(Work *work);

/* Finishes the files that are being hashed, and gives the others back undone. */
void work_stop(Work *work);
