#include "slowreporter.h"

static void slow_reporter_reporter_init(VekMetricReporterInterface *iface);
static void slow_reporter_drain_init(VekServiceDrainInterface *iface);

G_DEFINE_TYPE_WITH_CODE(SlowReporter, slow_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER, slow_reporter_reporter_init)
                            G_IMPLEMENT_INTERFACE(VEK_SERVICE_TYPE_DRAIN, slow_reporter_drain_init))

static gboolean on_operation_done(gpointer reporter) {
  SLOW_REPORTER(reporter)->busy = FALSE;
  return G_SOURCE_REMOVE;
}

static void slow_reporter_flush(VekMetricReporter *reporter) {
  SlowReporter *self = SLOW_REPORTER(reporter);
  g_assert_false(self->busy);
  self->n_flushes++;
  if (self->n_operations == 0) {
    if (self->on_last_flush)
      self->on_last_flush(self->data);
    return;
  }
  self->busy = TRUE;
  if (self->n_operations == G_MAXUINT) /* never to end */
    return;
  self->n_operations--;
  g_idle_add_full(self->priority, on_operation_done, self, NULL);
}

static void slow_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->flush = slow_reporter_flush;
}

static gboolean slow_reporter_is_busy(VekServiceDrain *drain) {
  return SLOW_REPORTER(drain)->busy;
}

static void slow_reporter_drain_init(VekServiceDrainInterface *iface) {
  iface->is_busy = slow_reporter_is_busy;
}

static void slow_reporter_class_init(SlowReporterClass *klass) {
  (void)klass;
}

static void slow_reporter_init(SlowReporter *self) {
  (void)self;
}

SlowReporter *slow_reporter_new(guint n_operations) {
  SlowReporter *self = g_object_new(SLOW_TYPE_REPORTER, NULL);
  self->n_operations = n_operations;
  self->priority = G_PRIORITY_DEFAULT_IDLE;
  return self;
}

void add_slow(VekServiceSession *session, SlowReporter *slow) {
  vek_service_session_add_reporter(session, VEK_METRIC_REPORTER(g_object_ref(slow)));
}
