/* A service that measures itself: it answers each line of its input on a thread of its own, reports
 * every minute to the console and to a JSON log, and lets its last figures out before it ends.
 *
 * service FOLDER: the log is FOLDER/service.json. */

#include "checksum/finish.h"
#include "checksum/tee.h"

#include <stdio.h>
#include <string.h>

typedef struct {
  GMainLoop *loop;
  VekMetricCounter *requests;
  VekMetricHistogram *sizes;
} Service;

/* Called by the loop, so that it is running: one that does not run yet cannot be ended. */
static gboolean on_end(gpointer loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

static gpointer serve(gpointer data) {
  Service *service = data;
  char line[256];
  while (fgets(line, sizeof line, stdin)) {
    g_strchomp(line);
    vek_metric_counter_inc(service->requests);
    vek_metric_histogram_set(service->sizes, (double)strlen(line));
    g_print("%s\n", g_strreverse(line));
  }
  g_idle_add(on_end, service->loop);
  return NULL;
}

int main(int argc, char **argv) {
  if (argc != 2) {
    g_printerr("usage: %s FOLDER\n", argv[0]);
    return 2;
  }

  VekMetricRegistry *registry = vek_metric_registry_get_default();
  VekMetricReporter *console = vek_metric_console_reporter_new();
  VekMetricReporter *log = vek_metric_json_log_reporter_new("service", argv[1], NULL, 1440, 7);
  vek_metric_registry_register_reporter(registry, console); /* a pass every 60 seconds from here */
  vek_metric_registry_register_reporter(registry, log);

  Service service = {
      .loop = g_main_loop_new(NULL, FALSE),
      .requests = vek_metric_registry_counter_new(registry, "requests", "Count", NULL),
      .sizes = vek_metric_registry_histogram_new(registry, "sizes", "Bytes", NULL, NULL),
  };
  GThread *thread = g_thread_new("serve", serve, &service);
  g_main_loop_run(service.loop);

  /* Nothing is updated any more: one last pass for all reporters. */
  g_thread_join(thread);
  VekMetricReporter *tee = tee_reporter_new();
  tee_reporter_add(TEE_REPORTER(tee), console);
  tee_reporter_add(TEE_REPORTER(tee), log);
  vek_metric_registry_report(registry, tee);

  /* What holds the reporters goes before they are finished. */
  g_object_unref(tee);
  vek_metric_registry_set_default(NULL);
  finish_reporter(console, 5000);
  if (!finish_reporter(log, 5000))
    g_printerr("The last figures were not taken in time.\n");

  g_object_unref(service.requests);
  g_object_unref(service.sizes);
  g_main_loop_unref(service.loop);
  return 0;
}
