#include "tee.h"

struct _TeeReporter {
  GObject parent_instance;

  GSList *reporters;
};

static void tee_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_FINAL_TYPE_WITH_CODE(TeeReporter, tee_reporter, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                                    tee_reporter_reporter_init))

/* Calls an operation of each reporter that has it; the first argument is the reporter. */
#define HAND_ON(tee, operation, arguments)                                     \
  for (GSList *node = TEE_REPORTER(tee)->reporters; node; node = node->next) { \
    VekMetricReporter *each = node->data;                                      \
    VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(each);   \
    if (iface->operation)                                                      \
      iface->operation arguments;                                              \
  }

static void tee_reporter_process_count(VekMetricReporter *reporter, const char *name,
                                       char **dimensions, const char *unit, gint64 timestamp,
                                       gint64 count) {
  HAND_ON(reporter, process_count, (each, name, dimensions, unit, timestamp, count));
}

static void tee_reporter_process_value(VekMetricReporter *reporter, const char *name,
                                       char **dimensions, const char *unit, gint64 timestamp,
                                       double value) {
  HAND_ON(reporter, process_value, (each, name, dimensions, unit, timestamp, value));
}

static void tee_reporter_process_timeline_samples(VekMetricReporter *reporter, const char *name,
                                                  GSList *samples) {
  HAND_ON(reporter, process_timeline_samples, (each, name, samples));
}

static void tee_reporter_process_aggregated(VekMetricReporter *reporter, const char *name,
                                            char **dimensions, const char *unit,
                                            VekMetricSnapshot *snapshot) {
  HAND_ON(reporter, process_aggregated, (each, name, dimensions, unit, snapshot));
}

static void tee_reporter_flush(VekMetricReporter *reporter) {
  HAND_ON(reporter, flush, (each));
}

static void tee_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = tee_reporter_process_count;
  iface->process_value = tee_reporter_process_value;
  iface->process_timeline_samples = tee_reporter_process_timeline_samples;
  iface->process_aggregated = tee_reporter_process_aggregated;
  iface->flush = tee_reporter_flush;
}

static void tee_reporter_dispose(GObject *object) {
  TeeReporter *self = TEE_REPORTER(object);
  g_slist_free_full(g_steal_pointer(&self->reporters), g_object_unref);
  G_OBJECT_CLASS(tee_reporter_parent_class)->dispose(object);
}

static void tee_reporter_class_init(TeeReporterClass *klass) {
  G_OBJECT_CLASS(klass)->dispose = tee_reporter_dispose;
}

static void tee_reporter_init(TeeReporter *self) {
  (void)self;
}

VekMetricReporter *tee_reporter_new(void) {
  return VEK_METRIC_REPORTER(g_object_new(TEE_TYPE_REPORTER, NULL));
}

void tee_reporter_add(TeeReporter *tee, VekMetricReporter *reporter) {
  tee->reporters = g_slist_prepend(tee->reporters, g_object_ref(reporter));
}
