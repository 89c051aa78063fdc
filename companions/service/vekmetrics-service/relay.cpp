#include "relay.hpp"

#include "common/internal.hpp"
#include "kinds.hpp"
#include "reporterlist.hpp"
#include "retirement.hpp"

struct _VekServiceRelay {
  GObject parent_instance;

  // Of the thread that runs passes.
  GPtrArray *pass;  // the reporters of the pass that is under way; NULL if none is
  bool is_own;      // the pass is the session's, not the registry's
  vekin::Retirement retirement;

  GMutex lock;           // guards the fields below
  GPtrArray *reporters;  // of VekMetricReporter; never changed, but replaced; NULL while inert
  GObject *claimant;     // the session whose reporters they are; only compared
  GWeakRef session;      // the same
  void (*on_pass_end)(GObject *session);
};
static_assert(vekin::ZeroFillable<VekServiceRelay>);

static GMutex claim_lock;  // guards which relay is whose

static G_DEFINE_QUARK(vek_service_relay, relay);

static void vek_service_relay_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekServiceRelay, vek_service_relay, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_service_relay_reporter_init))

// Tells whether a pass is under way, which begins here if the relay is not inert.
static bool be_in_pass(VekServiceRelay *self) {
  if (!self->pass) {
    vekin::MutexLock held(self->lock);
    if (self->reporters)
      self->pass = g_ptr_array_ref(self->reporters);
  }
  return self->pass;
}

static void end_pass(VekServiceRelay *self) {
  vekin::retirement_end_pass(self->retirement);
  g_clear_pointer(&self->pass, g_ptr_array_unref);

  g_autoptr(GObject) session = static_cast<GObject *>(g_weak_ref_get(&self->session));
  if (session)
    self->on_pass_end(session);
}

template <typename Operation, typename... Arguments>
static void hand_on(VekMetricReporter *relay, Operation VekMetricReporterInterface::*operation,
                    Arguments... arguments) {
  if (auto *self = vekin::as<VekServiceRelay>(relay); be_in_pass(self))
    vekin::hand_on(self->pass, operation, arguments...);
}

static void vek_service_relay_process_count(VekMetricReporter *reporter, const gchar *name,
                                            gchar **dimensions, const gchar *unit, gint64 timestamp,
                                            gint64 count) {
  hand_on(reporter, &VekMetricReporterInterface::process_count, name, dimensions, unit, timestamp,
          count);
}

static void vek_service_relay_process_value(VekMetricReporter *reporter, const gchar *name,
                                            gchar **dimensions, const gchar *unit, gint64 timestamp,
                                            gdouble value) {
  hand_on(reporter, &VekMetricReporterInterface::process_value, name, dimensions, unit, timestamp,
          value);
}

static void vek_service_relay_process_timeline_samples(VekMetricReporter *reporter,
                                                       const gchar *name, GSList *samples) {
  hand_on(reporter, &VekMetricReporterInterface::process_timeline_samples, name, samples);
}

static void vek_service_relay_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                                 gchar **dimensions, const gchar *unit,
                                                 VekMetricSnapshot *snapshot) {
  hand_on(reporter, &VekMetricReporterInterface::process_aggregated, name, dimensions, unit,
          snapshot);
}

static void vek_service_relay_flush(VekMetricReporter *reporter) {
  hand_on(reporter, &VekMetricReporterInterface::flush);
  if (auto *self = vekin::as<VekServiceRelay>(reporter); self->pass)
    end_pass(self);
}

static void vek_service_relay_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_service_relay_process_count;
  iface->process_value = vek_service_relay_process_value;
  iface->process_timeline_samples = vek_service_relay_process_timeline_samples;
  iface->process_aggregated = vek_service_relay_process_aggregated;
  iface->flush = vek_service_relay_flush;
}

// Of every metric, in whichever pass: the list tells whether a session takes part.
static void on_metric_reports(VekMetric *metric, GSList *reporters) {
  vekin::retirement_note_met(metric);
  for (auto *reporter : vekin::Each<GObject>(reporters)) {
    if (G_OBJECT_TYPE(reporter) != VEK_SERVICE_TYPE_RELAY)
      continue;
    if (auto *self = vekin::as<VekServiceRelay>(reporter); be_in_pass(self))
      vekin::retirement_join(self->retirement, metric, !self->is_own);
  }
}

// It has no reporters any more: a session holds it until it has disclaimed it.
static void vek_service_relay_finalize(GObject *object) {
  auto *self = vekin::as<VekServiceRelay>(object);
  vekin::retirement_clear(self->retirement);
  g_weak_ref_clear(&self->session);
  g_mutex_clear(&self->lock);

  G_OBJECT_CLASS(vek_service_relay_parent_class)->finalize(object);
}

static void vek_service_relay_class_init(VekServiceRelayClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->finalize = vek_service_relay_finalize;

  vekin::retirement_prepare();
  static constexpr vekin::KindHooks hooks = {.made = vekin::retirement_note_made,
                                             .reports = on_metric_reports};
  vekin::hook_kinds(&hooks);
}

static void vek_service_relay_init(VekServiceRelay *self) {
  vekin::retirement_init(self->retirement);
  g_weak_ref_init(&self->session, nullptr);
  g_mutex_init(&self->lock);
}

static VekServiceRelay *find_relay(VekMetricRegistry *registry) {
  return vekin::as<VekServiceRelay>(g_object_get_qdata(G_OBJECT(registry), relay_quark()));
}

VekServiceRelay *vek_service_relay_claim(VekMetricRegistry *registry, GObject *session,
                                         void (*on_pass_end)(GObject *session)) {
  vekin::MutexLock claiming(claim_lock);
  auto *self = find_relay(registry);
  if (!self) {
    self = vekin::as<VekServiceRelay>(g_object_new(VEK_SERVICE_TYPE_RELAY, nullptr));
    g_object_set_qdata_full(G_OBJECT(registry), relay_quark(), self, g_object_unref);
    vek_metric_registry_register_reporter(registry, vekin::as<VekMetricReporter>(self));
  }

  vekin::MutexLock held(self->lock);
  if (self->reporters)
    return nullptr;
  self->reporters = vekin::reporter_list_new();
  self->on_pass_end = on_pass_end;
  self->claimant = session;
  g_weak_ref_set(&self->session, session);
  return vekin::as<VekServiceRelay>(g_object_ref(self));
}

GPtrArray *vek_service_relay_disclaim(VekServiceRelay *relay) {
  vekin::MutexLock held(relay->lock);
  return g_steal_pointer(&relay->reporters);
}

static bool is_of(VekServiceRelay *relay, GObject *session) {
  return relay->reporters && relay->claimant == session;
}

bool vek_service_relay_add(VekServiceRelay *relay, GObject *session, VekMetricReporter *reporter) {
  [[maybe_unused]] g_autoptr(VekMetricReporter) owned = reporter;
  g_autoptr(GPtrArray) before = nullptr;

  vekin::MutexLock held(relay->lock);
  if (!is_of(relay, session))
    return false;
  if (g_ptr_array_find(relay->reporters, reporter, nullptr))
    return true;
  before = relay->reporters;
  relay->reporters = vekin::reporter_list_with(before, reporter);
  return true;
}

bool vek_service_relay_remove(VekServiceRelay *relay, GObject *session,
                              VekMetricReporter *reporter) {
  g_autoptr(GPtrArray) before = nullptr;

  vekin::MutexLock held(relay->lock);
  if (!is_of(relay, session) || !g_ptr_array_find(relay->reporters, reporter, nullptr))
    return false;
  before = relay->reporters;
  relay->reporters = vekin::reporter_list_without(before, reporter);
  return true;
}

void vek_service_relay_report(VekServiceRelay *relay, VekMetricRegistry *registry) {
  relay->is_own = true;
  vek_metric_registry_report(registry, vekin::as<VekMetricReporter>(relay));
  relay->is_own = false;
}

bool vek_service_relay_is_in_pass(VekServiceRelay *relay) {
  return relay->pass;
}
