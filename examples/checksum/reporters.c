#include "reporters.h"

#include "finish.h"
#include "output.h"
#include "tee.h"

typedef struct {
  VekMetricReporter *reporter;
  const char *target; /* where it writes to, for messages */
} Output;

struct _Reporters {
  GArray *outputs;        /* of Output */
  VekMetricReporter *tee; /* stands for all of them */
  guint wait;
};

static void add(Reporters *reporters, VekMetricRegistry *registry, VekMetricReporter *reporter,
                const char *target) {
  Output output = {reporter, target};
  g_array_append_val(reporters->outputs, output);
  tee_reporter_add(TEE_REPORTER(reporters->tee), reporter);
  vek_metric_registry_register_reporter(registry, reporter);
}

Reporters *reporters_new(const Options *options, VekMetricRegistry *registry) {
  Reporters *reporters = g_new(Reporters, 1);
  reporters->outputs = g_array_new(FALSE, FALSE, sizeof(Output));
  reporters->tee = tee_reporter_new();
  reporters->wait = options->wait;

  if (options->console)
    add(reporters, registry, vek_metric_console_reporter_new(), "standard output");
  if (options->csv)
    add(reporters, registry, vek_metric_log_reporter_new("figures", options->csv), options->csv);
  if (options->timeline)
    add(reporters, registry, vek_metric_timeline_reporter_new("timeline", options->timeline),
        options->timeline);
  if (options->json)
    add(reporters, registry,
        vek_metric_json_log_reporter_new("figures", options->json, NULL,
                                         (guint)options->max_reports, (guint)options->keep),
        options->json);
  if (options->carbon)
    add(reporters, registry,
        vek_metric_carbon_reporter_new(options->prefix, options->carbon_address,
                                       options->carbon_port),
        options->carbon);
  return reporters;
}

void reporters_report(Reporters *reporters, VekMetricRegistry *registry) {
  vek_metric_registry_report(registry, reporters->tee);
}

void reporters_finish(Reporters *reporters) {
  g_autofree char *message = g_strdup_printf("the last figures were not taken within %g seconds",
                                             reporters->wait / 1000.0);
  g_object_unref(reporters->tee);
  for (guint i = 0; i < reporters->outputs->len; i++) {
    Output *output = &g_array_index(reporters->outputs, Output, i);
    if (!finish_reporter(output->reporter, reporters->wait))
      output_error(output->target, message);
  }
  g_array_unref(reporters->outputs);
  g_free(reporters);
}
