#include "finish.h"

/* Each operation that is under way holds a reference to its reporter. */
static void on_toggle(gpointer data, GObject *reporter, gboolean is_last_reference) {
  gboolean *busy = data;
  (void)reporter;
  *busy = !is_last_reference;
}

static gboolean on_late(gpointer data) {
  guint *timeout = data;
  *timeout = 0;
  return G_SOURCE_REMOVE;
}

gboolean finish_reporter(VekMetricReporter *reporter, guint milliseconds) {
  gboolean busy = TRUE;
  guint timeout = g_timeout_add(milliseconds, on_late, &timeout);

  g_object_add_toggle_ref(G_OBJECT(reporter), on_toggle, &busy);
  g_object_unref(reporter);
  do {
    while (busy && timeout)
      g_main_context_iteration(NULL, TRUE);

    /* What was under way may have been the connection: only now can the figures follow. */
    VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
  } while (busy && timeout);

  g_object_remove_toggle_ref(G_OBJECT(reporter), on_toggle, &busy);
  g_clear_handle_id(&timeout, g_source_remove);
  return !busy;
}
