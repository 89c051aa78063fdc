/* Reports to a Graphite server on loopback that is killed and started again, for restarts.py:
 *
 *   restart-client PORT SECONDS
 *
 * For each line on standard input it makes a pass of five counters, whose values are the number of
 * the pass; the first is SECONDS after the epoch, the others a minute apart each. It prints a line
 * when it is connected, and one when it no longer is, with how many lines were sent until then.
 * The input's end ends it once all is sent. It reconnects fifty times as fast as others. */

#include "support/replace.h"

#include <stdio.h>
#include <stdlib.h>
#include <vekmetrics-service/vekmetrics-service.h>
#include <vekmetrics-testing/clock.h>
#include <vekmetrics/vekmetrics.h>

enum { N_COUNTERS = 5 };

/* In place of GLib's, which it calls; GIO's own delays are shorter. */
GSource *g_timeout_source_new(guint interval) {
  return NEXT(g_timeout_source_new)(interval >= 750 ? interval / 50 : interval);
}

static VekMetricRegistry *registry;
static VekMetricCounter *counters[N_COUNTERS];
static VekMetricReporter *reporter;
static gboolean input_ended;

static void print_connected(void) {
  gboolean connected;
  guint64 sent;
  g_object_get(reporter, "connected", &connected, "sent-lines", &sent, NULL);
  if (connected)
    g_print("connected\n");
  else
    g_print("lost %" G_GUINT64_FORMAT "\n", sent);
}

static gboolean on_input(GIOChannel *input, G_GNUC_UNUSED GIOCondition condition,
                         G_GNUC_UNUSED gpointer data) {
  g_autofree char *line = NULL;
  if (g_io_channel_read_line(input, &line, NULL, NULL, NULL) != G_IO_STATUS_NORMAL) {
    input_ended = TRUE;
    return G_SOURCE_REMOVE;
  }
  vek_testing_clock_advance(60 * G_USEC_PER_SEC);
  for (int i = 0; i < N_COUNTERS; i++)
    vek_metric_counter_inc(counters[i]);
  vek_metric_registry_report(registry, reporter);
  g_print("passed\n");
  return G_SOURCE_CONTINUE;
}

int main(int argc, char **argv) {
  if (argc != 3)
    return 2;
  setvbuf(stdout, NULL, _IOLBF, 0);
  vek_testing_clock_set((atoll(argv[2]) - 60) * G_USEC_PER_SEC, G_USEC_PER_SEC);

  reporter = vek_service_graphite_reporter_new("site", "localhost", (guint)atoi(argv[1]));
  g_signal_connect(reporter, "notify::connected", G_CALLBACK(print_connected), NULL);
  registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  for (int i = 0; i < N_COUNTERS; i++) {
    g_autofree char *name = g_strdup_printf("c%d", i);
    counters[i] = vek_metric_registry_counter_new(registry, name, NULL, NULL);
  }

  g_autoptr(GIOChannel) input = g_io_channel_unix_new(0);
  g_io_add_watch(input, G_IO_IN | G_IO_HUP, on_input, NULL);
  while (!input_ended || vek_service_drain_is_busy(VEK_SERVICE_DRAIN(reporter)))
    g_main_context_iteration(NULL, TRUE);

  guint64 sent;
  g_object_get(reporter, "sent-lines", &sent, NULL);
  g_print("sent %" G_GUINT64_FORMAT "\n", sent);
  g_object_unref(reporter);
  for (int i = 0; i < N_COUNTERS; i++)
    g_object_unref(counters[i]);
  g_object_unref(registry);
  return 0;
}
