/* A service that measures itself: it answers each line of its input on a thread of its own, reports
 * every ten seconds to the console and to a JSON log, and lets its last figures out before it ends,
 * at the end of its input or on a signal.
 *
 * service FOLDER: the log is FOLDER/service.json. */

#include <string.h>
#include <vekmetrics-service/vekmetrics-service.h>

static GMainLoop *loop;
static VekMetricCounter *requests;
static VekMetricHistogram *sizes;

/* Called by the loop, so that it is running: one that does not run yet cannot be ended. */
static gboolean on_end(gpointer data) {
  (void)data;
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

/* Reads by a channel, not from stdin: exit() would wait for stdin while a thread reads from it. */
static gpointer serve(gpointer data) {
  (void)data;
  GIOChannel *input = g_io_channel_unix_new(0);
  g_io_channel_set_encoding(input, NULL, NULL);
  for (char *line; g_io_channel_read_line(input, &line, NULL, NULL, NULL) == G_IO_STATUS_NORMAL;
       g_free(line)) {
    g_strchomp(line);
    vek_metric_counter_inc(requests);
    vek_metric_histogram_set(sizes, (double)strlen(line));
    g_print("%s\n", g_strreverse(line));
  }
  g_io_channel_unref(input);
  g_idle_add(on_end, NULL);
  return NULL;
}

int main(int argc, char **argv) {
  if (argc != 2) {
    g_printerr("usage: %s FOLDER\n", argv[0]);
    return 2;
  }

  g_autoptr(VekServiceSession) session = vek_service_session_new(NULL);
  g_object_set(session, "period", 10, NULL);
  vek_service_session_add_reporter(session, vek_metric_console_reporter_new());
  vek_service_session_add_reporter(
      session, vek_metric_json_log_reporter_new("service", argv[1], NULL, 1440, 7));

  VekMetricRegistry *registry = vek_metric_registry_get_default();
  requests = vek_metric_registry_counter_new(registry, "requests", "Count", NULL);
  sizes = vek_metric_registry_histogram_new(registry, "sizes", "Bytes", NULL, NULL);
  loop = g_main_loop_new(NULL, FALSE);
  g_thread_unref(g_thread_new("serve", serve, NULL));
  vek_service_session_run(session, loop, 5000);
  return 0; /* the thread may still wait for input */
}
