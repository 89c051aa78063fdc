#include "drainage.hpp"

#include "common/internal.hpp"
#include "drain.h"

// The library's own do not say whether they are busy. But each of their operations that is under
// way, a connection or a write, holds a reference.
static bool holds_itself(gpointer reporter) {
  return VEK_IS_METRIC_CARBON_REPORTER(reporter) || VEK_IS_METRIC_JSON_LOG_REPORTER(reporter);
}

static bool is_busy(gpointer reporter) {
  if (VEK_SERVICE_IS_DRAIN(reporter))
    return vek_service_drain_is_busy(vekin::as<VekServiceDrain>(reporter));
  return holds_itself(reporter) && g_atomic_int_get(&vekin::as<GObject>(reporter)->ref_count) > 1;
}

// A flush may let the main loop run, in which the wait ends, too.
static void end(vekin::Drainage *self, bool drained) {
  if (g_source_is_destroyed(&self->source))
    return;
  g_clear_handle_id(&self->timeout, g_source_remove);
  g_source_destroy(&self->source);
  g_ptr_array_set_size(self->reporters, 0);
  self->on_end(drained, self->data);
}

// Asked before each turn of the main loop.
static gboolean prepare(GSource *source, gint *) {
  auto *self = reinterpret_cast<vekin::Drainage *>(source);

  for (guint i = 0; i < self->reporters->len; i++)
    if (!is_busy(self->reporters->pdata[i]))
      return TRUE;
  return FALSE;
}

// The wait may end meanwhile, and release the reporter.
static void flush(VekMetricReporter *reporter) {
  g_object_ref(reporter);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
  g_object_unref(reporter);
}

// A reporter that has become idle is flushed once more: what was under way may have been the
// connection that its output waits for.
static void flush_idle(vekin::Drainage *self) {
  self->flushing = true;
  for (guint i = self->reporters->len; i-- > 0;) {
    auto *reporter = vekin::as<VekMetricReporter>(self->reporters->pdata[i]);
    if (is_busy(reporter))
      continue;
    flush(reporter);
    if (g_source_is_destroyed(&self->source))
      break;
    if (!is_busy(reporter))
      g_ptr_array_remove_index(self->reporters, i);
  }
  self->flushing = false;

  if (self->reporters->len == 0)
    end(self, true);
}

static gboolean dispatch(GSource *source, GSourceFunc, gpointer) {
  flush_idle(reinterpret_cast<vekin::Drainage *>(source));
  return G_SOURCE_CONTINUE;
}

static gboolean on_late(gpointer data) {
  auto *self = static_cast<vekin::Drainage *>(data);

  [[maybe_unused]] g_autoptr(GSource) alive = g_source_ref(&self->source);
  if (!self->flushing)
    flush_idle(self);  // one may have become idle on another thread, which did not wake the loop
  for (guint i = 0; i < self->reporters->len; i++) {
    auto *reporter = self->reporters->pdata[i];
    vek_warning("%s was not done in time%s", G_OBJECT_TYPE_NAME(reporter),
                holds_itself(reporter) ? ", or somebody else holds a reference to it" : "");
  }
  end(self, false);
  return G_SOURCE_REMOVE;
}

static void finalize(GSource *source) {
  g_ptr_array_unref(reinterpret_cast<vekin::Drainage *>(source)->reporters);
}

static GSourceFuncs functions = {
    .prepare = prepare,
    .check = nullptr,
    .dispatch = dispatch,
    .finalize = finalize,
    .closure_callback = nullptr,
    .closure_marshal = nullptr,
};

vekin::Drainage *vekin::drainage_start(GPtrArray *reporters, guint timeout_ms,
                                       void (*on_end)(bool drained, gpointer data), gpointer data) {
  auto *self = reinterpret_cast<Drainage *>(g_source_new(&functions, sizeof(Drainage)));
  self->reporters = reporters;
  self->on_end = on_end;
  self->data = data;

  // Those that were not busy after the last pass are done.
  for (guint i = reporters->len; i-- > 0;)
    if (!is_busy(reporters->pdata[i]))
      g_ptr_array_remove_index(reporters, i);
  if (reporters->len == 0) {
    end(self, true);
    return self;
  }
  g_source_attach(&self->source, nullptr);
  self->timeout = g_timeout_add(timeout_ms, on_late, self);
  return self;
}

void vekin::drainage_stop(Drainage *drainage) {
  end(drainage, false);
}
