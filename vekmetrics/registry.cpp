#include "registry.h"

#include "common/internal.hpp"
#include "metric.hpp"
#include "pass.hpp"
#include "registry.hpp"

#include <span>

static constexpr guint kReportInterval = 60;  // seconds

struct _VekMetricRegistry {
  GObject parent_instance;

  GRWLock lock;         // guards the fields below; a pass holds it for reading
  GSList *reporters;    // of VekMetricReporter, the newest first
  GHashTable *metrics;  // from key to VekMetric
  guint report_source_id;
};
static_assert(vekin::ZeroFillable<VekMetricRegistry>);

static VekMetricRegistry *metric_registry;  // the default; unguarded

G_DEFINE_TYPE(VekMetricRegistry, vek_metric_registry, G_TYPE_OBJECT)

// Puts a string and a "." at the beginning of the room and takes them off it, if they fit. Byte by
// byte: strings of keys are so short that calls to measure and to copy them would take longer.
static bool put_part(std::span<char> &room, const char *string) {
  char *to = room.data();
  char *end = to + room.size();
  for (; to != end; to++, string++) {
    *to = *string;
    if (!*string) {
      *to++ = '.';
      room = {to, end};
      return true;
    }
  }
  return false;
}

// Dimensions first, then the name: two metrics whose strings join to the same text are one. The key
// is put into the space, or allocated if it does not fit there.
static char *get_key(const char *name, char **dimensions, std::span<char> space) {
  // The line is part of the message and fixed, so that crash reports of all releases fall together.
  if (!name) [[unlikely]]  // Untested: this ends the process
    g_assertion_message_expr(G_LOG_DOMAIN, "../vekmetrics/registry", 85, __func__, "name != NULL");

  // An empty vector joins to an empty string, which is a part, too.
  auto room = space;
  if (dimensions && !*dimensions)
    put_part(room, "");
  bool fits = true;
  for (char **part = dimensions; fits && part && *part; part++)
    fits = put_part(room, *part);
  if (fits && put_part(room, name)) {
    room.data()[-1] = '\0';
    return space.data();
  }

  g_autofree char *joined = dimensions ? g_strjoinv(".", dimensions) : nullptr;
  return joined ? g_strconcat(joined, ".", name, nullptr) : g_strdup(name);
}

namespace {

// A key to look up with: one of usual length needs no allocation.
class Key {
public:
  Key(const char *name, char **dimensions) : text(get_key(name, dimensions, space)) {}
  ~Key() {
    if (text != space)
      g_free(text);
  }
  Key(const Key &) = delete;
  Key &operator=(const Key &) = delete;

  operator const char *() const { return text; }

private:
  char space[128];
  char *text;
};

}  // namespace

static gboolean remove_metric(gpointer, gpointer value, gpointer) {
  auto *metric = vekin::as<VekMetric>(value);
  vek_return_val_if_fail(VEK_IS_METRIC(metric), FALSE);

  return !vek_metric_get_private(metric)->active;
}

static gboolean report_metrics_callback(gpointer data) {
  auto *self = static_cast<VekMetricRegistry *>(data);

  // The pass works on the list as it is now: a reporter registered later waits for the next.
  auto *reporters = static_cast<GSList *>(g_atomic_pointer_get(&self->reporters));
  if (vekin::ReaderLock held(self->lock); reporters)
    vekin::run_pass(self->metrics, reporters);

  vekin::WriterLock held(self->lock);
  g_hash_table_foreach_remove(self->metrics, remove_metric, nullptr);
  return G_SOURCE_CONTINUE;
}

static void vek_metric_registry_dispose(GObject *object) {
  auto *self = vekin::as<VekMetricRegistry>(object);

  {
    vekin::WriterLock held(self->lock);
    g_slist_free_full(g_steal_pointer(&self->reporters), g_object_unref);
    g_clear_pointer(&self->metrics, g_hash_table_unref);
    g_clear_handle_id(&self->report_source_id, g_source_remove);
  }

  G_OBJECT_CLASS(vek_metric_registry_parent_class)->dispose(object);
}

static void vek_metric_registry_finalize(GObject *object) {
  g_rw_lock_clear(&vekin::as<VekMetricRegistry>(object)->lock);

  G_OBJECT_CLASS(vek_metric_registry_parent_class)->finalize(object);
}

static void vek_metric_registry_class_init(VekMetricRegistryClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->dispose = vek_metric_registry_dispose;
  object_class->finalize = vek_metric_registry_finalize;
}

static void vek_metric_registry_init(VekMetricRegistry *self) {
  g_rw_lock_init(&self->lock);
  self->metrics = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_object_unref);
}

VekMetric *vekin::create_metric(VekMetricRegistry *registry, GType type, ...) {
  va_list properties;
  va_start(properties, type);
  auto *created = vekin::as<VekMetric>(g_object_new_valist(type, "name", properties));
  va_end(properties);
  Key key(vek_metric_get_name(created), vek_metric_get_dimensions(created));

  VekMetric *stored;
  {
    vekin::WriterLock held(registry->lock);
    stored = static_cast<VekMetric *>(g_hash_table_lookup(registry->metrics, key));
    if (!stored) {
      g_hash_table_insert(registry->metrics, g_strdup(key), g_object_ref(created));
      return created;
    }
    g_object_ref(stored);
  }
  g_object_unref(created);  // unlocked: what its dispose calls must not meet the lock
  return stored;
}

VekMetricRegistry *vek_metric_registry_get_default(void) {
  if (!metric_registry)
    metric_registry = VEK_METRIC_REGISTRY(g_object_new(VEK_TYPE_METRIC_REGISTRY, nullptr));
  return metric_registry;
}

void vek_metric_registry_set_default(VekMetricRegistry *registry) {
  g_set_object(&metric_registry, registry);
}

VekMetric *vek_metric_registry_get_metric(VekMetricRegistry *registry, const gchar *name,
                                          gchar **dimensions) {
  vek_return_val_if_fail(VEK_IS_METRIC_REGISTRY(registry), nullptr);
  vek_return_val_if_fail(name != NULL, nullptr);

  Key key(name, dimensions);
  vekin::ReaderLock held(registry->lock);
  auto *metric = static_cast<VekMetric *>(g_hash_table_lookup(registry->metrics, key));
  return metric ? vekin::as<VekMetric>(g_object_ref(metric)) : nullptr;
}

void vek_metric_registry_register_reporter(VekMetricRegistry *registry,
                                           VekMetricReporter *reporter) {
  vek_return_if_fail(VEK_IS_METRIC_REGISTRY(registry));
  vek_return_if_fail(VEK_IS_METRIC_REPORTER(reporter));

  vekin::WriterLock held(registry->lock);
  // The timer holds no reference: dispose removes it.
  if (!registry->reporters)
    registry->report_source_id =
        g_timeout_add_seconds(kReportInterval, report_metrics_callback, registry);
  auto *reporters = g_slist_prepend(registry->reporters, g_object_ref(reporter));
  g_atomic_pointer_set(&registry->reporters, reporters);
}

void vek_metric_registry_report(VekMetricRegistry *registry, VekMetricReporter *reporter) {
  vek_return_if_fail(VEK_IS_METRIC_REGISTRY(registry));
  vek_return_if_fail(VEK_IS_METRIC_REPORTER(reporter));

  auto *reporters = g_slist_prepend(nullptr, g_object_ref(reporter));
  {
    vekin::ReaderLock held(registry->lock);
    vekin::run_pass(registry->metrics, reporters);
  }
  g_slist_free_full(reporters, g_object_unref);
}
