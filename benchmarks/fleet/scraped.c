/* One process of a fleet that Prometheus scrapes, for fleet.py:
 *
 *   bench-scraped METRICS
 *
 * Prints the port that it serves the text on. A pass runs every second. At the end of the standard
 * input, prints how many scrapes were answered, with how many samples, and how many seconds of
 * processor time that took, passes included. */

#include <glib-unix.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <vekmetrics-web/vekmetrics-web.h>

#include "metrics.h"

typedef struct {
  VekMetricRegistry *registry;
  GPtrArray *metrics;
  VekServicePrometheusReporter *reporter;
  int n_passes, n_samples; /* samples of a text */
  gint64 n_scrapes, n_served;
} Program;

static gboolean on_second(gpointer data) {
  Program *program = data;
  metrics_update(program->metrics, program->n_passes++);
  vek_metric_registry_report(program->registry, VEK_METRIC_REPORTER(program->reporter));

  g_autofree char *text = vek_service_prometheus_reporter_get_text(
      program->reporter, VEK_SERVICE_PROMETHEUS_FORMAT_TEXT);
  g_auto(GStrv) lines = g_strsplit(text, "\n", -1);
  program->n_samples = 0;
  for (char **line = lines; *line; line++)
    program->n_samples += **line && **line != '#';
  return G_SOURCE_CONTINUE;
}

static void on_finished(G_GNUC_UNUSED SoupServer *server, G_GNUC_UNUSED SoupServerMessage *message,
                        gpointer data) {
  Program *program = data;
  program->n_scrapes++;
  program->n_served += program->n_samples;
}

static gboolean on_end(G_GNUC_UNUSED int fd, G_GNUC_UNUSED GIOCondition condition, gpointer loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

int main(int argc, char **argv) {
  if (argc != 2)
    return 2;
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(GPtrArray) metrics = metrics_new(registry, atoi(argv[1]));
  g_autoptr(VekServicePrometheusReporter) reporter = vek_service_prometheus_reporter_new();
  Program program = {.registry = registry, .metrics = metrics, .reporter = reporter};
  on_second(&program);
  g_timeout_add_seconds(1, on_second, &program);

  g_autoptr(SoupServer) soup_server = soup_server_new(NULL, NULL);
  g_signal_connect(soup_server, "request-finished", G_CALLBACK(on_finished), &program);
  g_autoptr(VekWebServer) server = vek_web_server_new(reporter);
  vek_web_server_attach(server, soup_server, NULL);
  g_autoptr(GError) error = NULL;
  if (!soup_server_listen_local(soup_server, 0, SOUP_SERVER_LISTEN_IPV4_ONLY, &error))
    g_error("%s", error->message);
  GSList *uris = soup_server_get_uris(soup_server);
  printf("%d\n", g_uri_get_port(uris->data));
  fflush(stdout);
  g_slist_free_full(uris, (GDestroyNotify)g_uri_unref);

  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  g_unix_fd_add(STDIN_FILENO, G_IO_IN | G_IO_HUP, on_end, loop);
  g_main_loop_run(loop);
  printf("%" G_GINT64_FORMAT " %" G_GINT64_FORMAT " %.6f\n", program.n_scrapes, program.n_served,
         (double)clock() / CLOCKS_PER_SEC);
  return 0;
}
