#include "sessiontimer.h"

#include "support/replace.h"

guint timer_seconds;
guint timer_id;
void (*meanwhile)(void);
guint wait_timer_id;

typedef struct {
  GSourceFunc function;
  gpointer data;
  GDestroyNotify notify;
} Timer;

static gboolean on_timer(gpointer data) {
  const Timer *timer = data;
  if (meanwhile)
    meanwhile();
  return timer->function(timer->data);
}

static void timer_free(gpointer data) {
  Timer *timer = data;
  timer->notify(timer->data);
  g_free(timer);
}

/* In place of GLib's: a session does not tell its timer's id. */
guint g_timeout_add_seconds_full(gint priority, guint interval, GSourceFunc function, gpointer data,
                                 GDestroyNotify notify) {
  Timer timer = {function, data, notify};
  g_autoptr(GSource) source = g_timeout_source_new_seconds(interval);
  g_source_set_priority(source, priority);
  g_source_set_callback(source, on_timer, g_memdup2(&timer, sizeof timer), timer_free);
  g_source_set_ready_time(source, -1); /* it does not fire by itself */
  timer_seconds = interval;
  timer_id = g_source_attach(source, NULL);
  return timer_id;
}

void set_period(VekServiceSession *session, guint period) {
  timer_id = 0;
  g_object_set(session, "period", period, NULL);
}

void fire_timer(void) {
  GSource *timer = g_main_context_find_source_by_id(NULL, timer_id);
  g_assert_nonnull(timer);
  g_source_set_ready_time(timer, 0);
  g_assert_true(g_main_context_iteration(NULL, FALSE));
}

/* In place of GLib's, which it calls. */
guint g_timeout_add(guint interval, GSourceFunc function, gpointer data) {
  wait_timer_id = NEXT(g_timeout_add)(interval, function, data);
  return wait_timer_id;
}
