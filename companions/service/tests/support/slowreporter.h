#pragma once

/* A reporter that is busy for as long as the test wants it. */

#include <vekmetrics-service/vekmetrics-service.h>

#define SLOW_TYPE_REPORTER (slow_reporter_get_type())
G_DECLARE_FINAL_TYPE(SlowReporter, slow_reporter, SLOW, REPORTER, GObject)

struct _SlowReporter {
  GObject parent_instance;

  guint n_operations; /* so many are to be under way, one after each flush */
  gint priority;      /* of their ends */
  gboolean busy;
  guint n_flushes;
  void (*on_last_flush)(gpointer data); /* when no operation is left, unless NULL */
  gpointer data;
};

/* Makes one that is to have so many operations, or G_MAXUINT for one that never ends. */
SlowReporter *slow_reporter_new(guint n_operations);

/* The test keeps its reference. */
void add_slow(VekServiceSession *session, SlowReporter *slow);
