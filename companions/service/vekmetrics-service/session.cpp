#include "session.h"

#include "common/internal.hpp"
#include "drainage.hpp"
#include "relay.hpp"
#include "weakref.hpp"

#include <glib-unix.h>

static constexpr guint kRegistryPeriod = 60;  // seconds

struct _VekServiceSession {
  GObject parent_instance;

  VekMetricRegistry *registry;  // NULL once the session is over; changes under the lock
  VekServiceRelay *relay;       // NULL if the registry had a session already

  GMutex lock;  // guards the fields below
  guint period;
  gint64 last_pass;  // monotonic clock in µs
  guint timer;       // for the next pass; 0 while none is needed

  // Of the thread that runs the default main context.
  vekin::Drainage *drainage;  // NULL before the session is finished
  bool ended;                 // the wait is over
  gboolean drained;           // what it came to
  GSList *tasks;              // of GTask: who waits asynchronously
};
static_assert(vekin::ZeroFillable<VekServiceSession>);

enum : guint { PROP_PERIOD = 1, PROP_REGISTRY, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

G_DEFINE_TYPE(VekServiceSession, vek_service_session, G_TYPE_OBJECT)

namespace {

// Owns the default main context, unless another thread does: passes and the end are of one thread.
class MainContext {
public:
  MainContext() : is_owned(g_main_context_acquire(nullptr)) {}
  ~MainContext() {
    if (is_owned)
      g_main_context_release(nullptr);
  }
  MainContext(const MainContext &) = delete;
  MainContext &operator=(const MainContext &) = delete;

  const bool is_owned;
};

}  // namespace

// On the thread of the passes, without the lock: no other one ends a session that is in use.
static bool session_is_over(VekServiceSession *session) {
  return !session->registry;
}

// Whether a reporter is being called, which must not call back.
static bool session_is_in_pass(VekServiceSession *session) {
  return (session->relay && vek_service_relay_is_in_pass(session->relay)) ||
         (session->drainage && session->drainage->flushing);
}

static void run_pass(VekServiceSession *self) {
  vek_service_relay_report(self->relay, self->registry);
}

// Another thread may let the session go meanwhile, so that the timer knows it weakly.
static gboolean on_period(gpointer data) {
  g_autoptr(VekServiceSession) self = vekin::as<VekServiceSession>(vekin::weak_ref_get(data));
  if (self && !session_is_over(self) && !session_is_in_pass(self))
    run_pass(self);
  return G_SOURCE_CONTINUE;
}

// Sets the timer anew, so that it fires the period after the last pass. The lock is held.
static void set_timer(VekServiceSession *self, gint64 now) {
  g_clear_handle_id(&self->timer, g_source_remove);
  if (!self->registry || self->period == kRegistryPeriod)
    return;

  gint64 period = self->period * G_USEC_PER_SEC;
  gint64 left = CLAMP(period - (now - self->last_pass), 0, period);
  auto seconds = static_cast<guint>(left / G_USEC_PER_SEC);
  self->timer = g_timeout_add_seconds_full(G_PRIORITY_DEFAULT, seconds, on_period,
                                           vekin::weak_ref_new(self), vekin::weak_ref_free);
}

static void on_pass_end(GObject *object) {
  auto *self = vekin::as<VekServiceSession>(object);
  vekin::MutexLock held(self->lock);
  // One reading for both: after a microsecond, the whole seconds left would be one too few.
  self->last_pass = g_get_monotonic_time();
  set_timer(self, self->last_pass);
}

// A pass holds the registry's lock, which freeing the registry would wait for.
static void release_registry(VekServiceSession *self, VekMetricRegistry *registry) {
  if (g_main_context_is_owner(nullptr) && session_is_in_pass(self))
    g_idle_add_once(g_object_unref, registry);
  else
    g_object_unref(registry);
}

// Ends the session; returns its reporters, if it had not ended.
static GPtrArray *end_session(VekServiceSession *self) {
  VekMetricRegistry *registry;
  {
    vekin::MutexLock held(self->lock);
    registry = g_steal_pointer(&self->registry);
    set_timer(self, g_get_monotonic_time());
  }
  if (!registry)
    return nullptr;
  auto *reporters = vek_service_relay_disclaim(self->relay);
  release_registry(self, registry);
  return reporters;
}

static void on_drained(bool drained, gpointer data) {
  auto *self = vekin::as<VekServiceSession>(data);
  self->ended = true;
  self->drained = drained;
  g_autoslist(GTask) tasks = g_steal_pointer(&self->tasks);
  for (auto *task : vekin::Each<GTask>(tasks))
    g_task_return_boolean(task, drained);
}

static void start_to_finish(VekServiceSession *self, guint timeout_ms) {
  if (self->drainage || self->ended)
    return;
  run_pass(self);
  self->drainage = vekin::drainage_start(end_session(self), timeout_ms, on_drained, self);
}

static gboolean on_cancelled(GCancellable *, gpointer data) {
  vekin::drainage_stop(static_cast<VekServiceSession *>(data)->drainage);
  return G_SOURCE_REMOVE;
}

static void destroy_source(gpointer data) {
  auto *source = static_cast<GSource *>(data);
  g_source_destroy(source);
  g_source_unref(source);
}

static void vek_service_session_set_property(GObject *object, guint id, const GValue *value,
                                             GParamSpec *pspec) {
  auto *self = vekin::as<VekServiceSession>(object);

  vekin::MutexLock held(self->lock);
  switch (id) {
  case PROP_PERIOD:
    self->period = g_value_get_uint(value);
    set_timer(self, g_get_monotonic_time());
    break;
  case PROP_REGISTRY:
    self->registry = static_cast<VekMetricRegistry *>(g_value_dup_object(value));
    break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_service_session_get_property(GObject *object, guint id, GValue *value,
                                             GParamSpec *pspec) {
  auto *self = vekin::as<VekServiceSession>(object);

  vekin::MutexLock held(self->lock);
  switch (id) {
  case PROP_PERIOD: g_value_set_uint(value, self->period); break;
  case PROP_REGISTRY: g_value_set_object(value, self->registry); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_service_session_dispose(GObject *object) {
  auto *self = vekin::as<VekServiceSession>(object);
  if (g_autoptr(GPtrArray) reporters = end_session(self); reporters)
    self->ended = true;
  g_clear_object(&self->relay);

  G_OBJECT_CLASS(vek_service_session_parent_class)->dispose(object);
}

static void vek_service_session_finalize(GObject *object) {
  auto *self = vekin::as<VekServiceSession>(object);
  if (self->drainage)
    g_source_unref(&self->drainage->source);
  g_mutex_clear(&self->lock);

  G_OBJECT_CLASS(vek_service_session_parent_class)->finalize(object);
}

static void vek_service_session_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_service_session_parent_class)->constructed(object);

  auto *self = vekin::as<VekServiceSession>(object);
  if (!self->registry)
    self->registry = vekin::as<VekMetricRegistry>(g_object_ref(vek_metric_registry_get_default()));
  self->last_pass = g_get_monotonic_time();
  self->relay = vek_service_relay_claim(self->registry, object, on_pass_end);
  if (!self->relay) {
    self->ended = true;
    g_clear_object(&self->registry);
  }
  vekin::MutexLock held(self->lock);
  set_timer(self, self->last_pass);  // not before, for the period is set before the registry is
}

static void vek_service_session_class_init(VekServiceSessionClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_service_session_set_property;
  object_class->get_property = vek_service_session_get_property;
  object_class->dispose = vek_service_session_dispose;
  object_class->finalize = vek_service_session_finalize;
  object_class->constructed = vek_service_session_constructed;

  properties[PROP_PERIOD] = g_param_spec_uint("period", "period", "period", 1, kRegistryPeriod,
                                              kRegistryPeriod, vekin::kConstruct);
  properties[PROP_REGISTRY] = g_param_spec_object("registry", "registry", "registry",
                                                  VEK_TYPE_METRIC_REGISTRY, vekin::kConstructOnly);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_service_session_init(VekServiceSession *self) {
  g_mutex_init(&self->lock);
}

VekServiceSession *vek_service_session_new(VekMetricRegistry *registry) {
  vek_return_val_if_fail(registry == NULL || VEK_IS_METRIC_REGISTRY(registry), nullptr);

  g_autoptr(VekServiceSession) self =
      VEK_SERVICE_SESSION(g_object_new(VEK_SERVICE_TYPE_SESSION, "registry", registry, nullptr));
  bool registry_has_session = !self->relay;
  vek_return_val_if_fail(!registry_has_session, nullptr);
  return g_steal_pointer(&self);
}

void vek_service_session_add_reporter(VekServiceSession *session, VekMetricReporter *reporter) {
  vek_return_if_fail(VEK_IS_METRIC_REPORTER(reporter));
  g_autoptr(VekMetricReporter) owned = reporter;
  vek_return_if_fail(VEK_SERVICE_IS_SESSION(session));

  bool session_is_over =
      !session->relay ||
      !vek_service_relay_add(session->relay, G_OBJECT(session), g_steal_pointer(&owned));
  vek_return_if_fail(!session_is_over);
}

gboolean vek_service_session_remove_reporter(VekServiceSession *session,
                                             VekMetricReporter *reporter) {
  vek_return_val_if_fail(VEK_SERVICE_IS_SESSION(session), FALSE);
  vek_return_val_if_fail(VEK_IS_METRIC_REPORTER(reporter), FALSE);

  return session->relay && vek_service_relay_remove(session->relay, G_OBJECT(session), reporter);
}

void vek_service_session_report(VekServiceSession *session) {
  vek_return_if_fail(VEK_SERVICE_IS_SESSION(session));
  MainContext main_context;
  vek_return_if_fail(main_context.is_owned);
  vek_return_if_fail(!session_is_in_pass(session));
  vek_return_if_fail(!session_is_over(session));

  [[maybe_unused]] g_autoptr(VekServiceSession) alive = VEK_SERVICE_SESSION(g_object_ref(session));
  run_pass(session);
}

gboolean vek_service_session_finish(VekServiceSession *session, guint timeout_ms) {
  vek_return_val_if_fail(VEK_SERVICE_IS_SESSION(session), FALSE);
  MainContext main_context;
  vek_return_val_if_fail(main_context.is_owned, FALSE);
  vek_return_val_if_fail(!session_is_in_pass(session), FALSE);

  [[maybe_unused]] g_autoptr(VekServiceSession) alive = VEK_SERVICE_SESSION(g_object_ref(session));
  start_to_finish(session, timeout_ms);
  while (!session->ended)
    g_main_context_iteration(nullptr, TRUE);
  return session->drained;
}

void vek_service_session_finish_async(VekServiceSession *session, guint timeout_ms,
                                      GCancellable *cancellable, GAsyncReadyCallback callback,
                                      gpointer user_data) {
  vek_return_if_fail(VEK_SERVICE_IS_SESSION(session));
  vek_return_if_fail(cancellable == NULL || G_IS_CANCELLABLE(cancellable));
  MainContext main_context;
  vek_return_if_fail(main_context.is_owned);
  vek_return_if_fail(!session_is_in_pass(session));

  g_autoptr(GTask) task = g_task_new(session, cancellable, callback, user_data);
  start_to_finish(session, timeout_ms);
  if (session->ended)
    return g_task_return_boolean(task, session->drained);

  session->tasks = g_slist_prepend(session->tasks, g_object_ref(task));
  if (cancellable) {
    auto *source = g_cancellable_source_new(cancellable);
    g_source_set_callback(source, G_SOURCE_FUNC(on_cancelled), session, nullptr);
    g_source_attach(source, nullptr);
    g_task_set_task_data(task, source, destroy_source);
  }
}

gboolean vek_service_session_finish_finish(VekServiceSession *session, GAsyncResult *result,
                                           GError **error) {
  vek_return_val_if_fail(g_task_is_valid(result, session), FALSE);

  return g_task_propagate_boolean(G_TASK(result), error);
}

namespace {

// What a signal ends: first the loop, then the wait.
struct Run {
  VekServiceSession *session;
  GMainLoop *loop;
};

}  // namespace

static gboolean on_signal(gpointer data) {
  auto *run = static_cast<Run *>(data);

  g_main_loop_quit(run->loop);
  if (run->session->drainage)
    vekin::drainage_stop(run->session->drainage);
  return G_SOURCE_CONTINUE;
}

gboolean vek_service_session_run(VekServiceSession *session, GMainLoop *loop, guint timeout_ms) {
  vek_return_val_if_fail(VEK_SERVICE_IS_SESSION(session), FALSE);
  vek_return_val_if_fail(loop != NULL, FALSE);
  vek_return_val_if_fail(g_main_loop_get_context(loop) == g_main_context_default(), FALSE);
  MainContext main_context;
  vek_return_val_if_fail(main_context.is_owned, FALSE);
  vek_return_val_if_fail(!session_is_in_pass(session), FALSE);

  [[maybe_unused]] g_autoptr(VekServiceSession) alive = VEK_SERVICE_SESSION(g_object_ref(session));
  Run run = {.session = session, .loop = loop};
  guint sources[] = {g_unix_signal_add(SIGINT, on_signal, &run),
                     g_unix_signal_add(SIGTERM, on_signal, &run)};
  g_main_loop_run(loop);
  gboolean drained = vek_service_session_finish(session, timeout_ms);
  for (guint source : sources)
    g_source_remove(source);
  return drained;
}
