#pragma once

/* A walk over everything below some folders, one step at a time.
 *
 * It keeps one open folder for each level, however many files there are. */

#include <glib.h>

typedef enum {
  WALK_FILE,    /* a regular file */
  WALK_FOLDER,  /* a folder, which the next steps go through */
  WALK_SKIPPED, /* anything else: symbolic links, devices, sockets */
  WALK_FAILED,  /* something that could not be examined or opened; the walk goes on */
  WALK_END,
} WalkStep;

typedef struct _Walk Walk;

/* Starts a walk; the paths must live as long. Only links among them are followed. */
Walk *walk_new(char **paths);

void walk_free(Walk *walk);

/* Takes the next step. */
WalkStep walk_next(Walk *walk);

/* The path that the last step came upon, until the next; and why it failed, if it did. */
const char *walk_get_path(Walk *walk);
int walk_get_error_number(Walk *walk);
