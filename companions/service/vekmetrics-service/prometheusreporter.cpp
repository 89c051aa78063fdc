#include "prometheusreporter.h"

#include "common/internal.hpp"
#include "kinds.hpp"
#include "prometheusfamilies.hpp"
#include "prometheusrules.hpp"
#include "prometheustext.hpp"
#include "reporterlist.hpp"

using namespace vekin::prometheus;

namespace {

// The reporter's own families.
enum Own { LAST_PASS, PASS_DURATION, N_METRICS, N_OWN };

constexpr struct {
  const char *name;
  const char *unit;
} kOwn[N_OWN] = {
    {"vekmetrics_last_pass_timestamp_seconds", "Seconds"},
    {"vekmetrics_pass_duration_seconds", "Seconds"},
    {"vekmetrics_metrics", "Count"},
};

constexpr int kFormats = 2;
constexpr guint kSlice = 1000;  // lines of a text that are written in about half a millisecond
constexpr guint kFewChanges = 16;

}  // namespace

struct _VekServicePrometheusReporter {
  GObject parent_instance;

  // Only passes touch these.
  GHashTable *table;  // of Series
  GString *scratch;
  gint64 start;  // of the pass under way, on the monotonic clock; 0 if none is
  guint n_brought;
  GPtrArray *pass_followers;  // of the pass under way; NULL if none is

  GMutex lock;  // guards what follows, and of each Series what is not of the pass under way
  GPtrArray *followers;
  Policy policy;
  bool has_passed;

  GHashTable *own_table;     // of Series
  Series *own[N_OWN];        // the same
  GPtrArray *series;         // what the text shows beside these
  Arrangement *arrangement;  // of all of them; NULL until needed
  Text texts[kFormats];      // of the last pass
};
static_assert(vekin::ZeroFillable<VekServicePrometheusReporter>);

enum : guint { PROP_KEEP_SECONDS = 1, PROP_PREFIX, N_PROPERTIES };
static GParamSpec *properties[N_PROPERTIES];

static void vek_service_prometheus_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_ENUM_TYPE(VekServicePrometheusFormat, vek_service_prometheus_format,
                   G_DEFINE_ENUM_VALUE(VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS, "openmetrics"),
                   G_DEFINE_ENUM_VALUE(VEK_SERVICE_PROMETHEUS_FORMAT_TEXT, "text"))

G_DEFINE_FINAL_TYPE_WITH_CODE(VekServicePrometheusReporter, vek_service_prometheus_reporter,
                              G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                                    vek_service_prometheus_reporter_reporter_init))

static bool is_format(VekServicePrometheusFormat format) {
  return format == VEK_SERVICE_PROMETHEUS_FORMAT_OPENMETRICS ||
         format == VEK_SERVICE_PROMETHEUS_FORMAT_TEXT;
}

static void forget_texts(VekServicePrometheusReporter *self) {
  for (auto &text : self->texts)
    text_clear(text);
}

static void forget_layouts(VekServicePrometheusReporter *self) {
  for (auto &text : self->texts)
    text_clear_layout(text);
}

static void forget_families(VekServicePrometheusReporter *self) {
  forget_layouts(self);
  g_clear_pointer(&self->arrangement, arrangement_free);
}

static void add_series(gpointer, gpointer series, gpointer array) {
  g_ptr_array_add(vekin::as<GPtrArray>(array), series);
}

// Brings the arrangement up to date one by one if that takes less than to arrange all anew.
static void rearrange(VekServicePrometheusReporter *self, const Changes &changes) {
  if (!self->arrangement)
    return;
  forget_layouts(self);
  bool is_right = changes.came->len + changes.gone->len <= kFewChanges + self->series->len / 64;
  for (guint i = 0; is_right && i < changes.gone->len; i++)
    is_right = arrangement_remove(self->arrangement, vekin::as<Series>(changes.gone->pdata[i]));
  for (guint i = 0; is_right && i < changes.came->len; i++)
    is_right = arrangement_add(self->arrangement, vekin::as<Series>(changes.came->pdata[i]));
  if (!is_right)
    forget_families(self);
}

static void arrange(VekServicePrometheusReporter *self) {
  if (!self->arrangement)
    self->arrangement = arrangement_new(self->own, self->series, self->policy);
}

// Writes up to so many lines of a text. Returns whether there is nothing left to write.
static bool write_text(VekServicePrometheusReporter *self, VekServicePrometheusFormat format,
                       guint n_lines) {
  if (self->texts[format].bytes || !self->has_passed)
    return true;
  arrange(self);
  return text_write(self->texts[format], n_lines,
                    arrangement_get_families(self->arrangement, format), format,
                    self->policy.negative);
}

// Hands a call of the pass on to the followers that there were when it began.
template <typename Operation, typename... Arguments>
static void hand_on(VekMetricReporter *reporter, Operation VekMetricReporterInterface::*operation,
                    Arguments... arguments) {
  auto *self = vekin::as<VekServicePrometheusReporter>(reporter);
  if (!self->pass_followers) {
    vekin::MutexLock held(self->lock);
    self->pass_followers = g_ptr_array_ref(self->followers);
  }
  vekin::hand_on(self->pass_followers, operation, arguments...);
}

static Series *bring(VekMetricReporter *reporter, const char *name, char **dimensions,
                     const char *unit, Kind kind) {
  auto *self = vekin::as<VekServicePrometheusReporter>(reporter);
  if (self->n_brought++ == 0)
    self->start = g_get_monotonic_time();
  auto *series = series_table_get(self->table, self->scratch, name ? name : "", dimensions, kind);
  if (g_strcmp0(series->unit, unit) != 0) [[unlikely]] {
    vekin::MutexLock held(self->lock);
    g_free(series->unit);
    series->unit = g_strdup(unit);
    if (series->is_now)
      forget_families(self);
  }
  series->is_next = true;
  return series;
}

static void vek_service_prometheus_reporter_process_count(VekMetricReporter *reporter,
                                                          const gchar *name, gchar **dimensions,
                                                          const gchar *unit, gint64 timestamp,
                                                          gint64 count) {
  bring(reporter, name, dimensions, unit, Kind::count)->next.count = count;
  hand_on(reporter, &VekMetricReporterInterface::process_count, name, dimensions, unit, timestamp,
          count);
}

static void vek_service_prometheus_reporter_process_value(VekMetricReporter *reporter,
                                                          const gchar *name, gchar **dimensions,
                                                          const gchar *unit, gint64 timestamp,
                                                          gdouble value) {
  bring(reporter, name, dimensions, unit, Kind::value)->next.value = value;
  hand_on(reporter, &VekMetricReporterInterface::process_value, name, dimensions, unit, timestamp,
          value);
}

static void vek_service_prometheus_reporter_process_timeline_samples(VekMetricReporter *reporter,
                                                                     const gchar *name,
                                                                     GSList *samples) {
  hand_on(reporter, &VekMetricReporterInterface::process_timeline_samples, name, samples);
}

static void vek_service_prometheus_reporter_process_aggregated(VekMetricReporter *reporter,
                                                               const gchar *name,
                                                               gchar **dimensions,
                                                               const gchar *unit,
                                                               VekMetricSnapshot *snapshot) {
  auto *series = bring(reporter, name, dimensions, unit, Kind::aggregated);
  series->next.aggregate = aggregate(snapshot);
  hand_on(reporter, &VekMetricReporterInterface::process_aggregated, name, dimensions, unit,
          snapshot);
}

static void end_pass(VekServicePrometheusReporter *self) {
  gint64 time = g_get_monotonic_time();
  gint64 duration = self->n_brought > 0 ? time - self->start : 0;

  vekin::MutexLock held(self->lock);
  auto changes = take_pass(self->table, self->policy, time);
  if (changes.came->len + changes.gone->len > 0) {
    rearrange(self, changes);
    g_ptr_array_set_size(self->series, 0);
    g_hash_table_foreach(self->table, add_series, self->series);
  }
  if (changes.turned_negative)
    forget_layouts(self);
  g_ptr_array_unref(changes.came);
  g_ptr_array_unref(changes.gone);
  forget_texts(self);
  self->own[LAST_PASS]->now.value = g_get_real_time() / static_cast<gdouble>(G_USEC_PER_SEC);
  self->own[PASS_DURATION]->now.value = duration / static_cast<gdouble>(G_USEC_PER_SEC);
  self->own[N_METRICS]->now.value = self->n_brought;
  self->has_passed = true;
  self->n_brought = 0;

  arrange(self);  // as part of the pass, so that requests need not wait for it
}

static void vek_service_prometheus_reporter_flush(VekMetricReporter *reporter) {
  auto *self = vekin::as<VekServicePrometheusReporter>(reporter);
  end_pass(self);
  hand_on(reporter, &VekMetricReporterInterface::flush);
  g_clear_pointer(&self->pass_followers, g_ptr_array_unref);
}

static void vek_service_prometheus_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_service_prometheus_reporter_process_count;
  iface->process_value = vek_service_prometheus_reporter_process_value;
  iface->process_timeline_samples = vek_service_prometheus_reporter_process_timeline_samples;
  iface->process_aggregated = vek_service_prometheus_reporter_process_aggregated;
  iface->flush = vek_service_prometheus_reporter_flush;
}

static void vek_service_prometheus_reporter_set_property(GObject *object, guint id,
                                                         const GValue *value, GParamSpec *pspec) {
  auto *self = VEK_SERVICE_PROMETHEUS_REPORTER(object);
  vekin::MutexLock held(self->lock);
  switch (id) {
  case PROP_KEEP_SECONDS: self->policy.keep_seconds = g_value_get_uint(value); break;
  case PROP_PREFIX:
    g_free(self->policy.prefix);
    self->policy.prefix = g_value_dup_string(value);
    forget_families(self);
    break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_service_prometheus_reporter_get_property(GObject *object, guint id, GValue *value,
                                                         GParamSpec *pspec) {
  auto *self = VEK_SERVICE_PROMETHEUS_REPORTER(object);
  vekin::MutexLock held(self->lock);
  switch (id) {
  case PROP_KEEP_SECONDS: g_value_set_uint(value, self->policy.keep_seconds); break;
  case PROP_PREFIX: g_value_set_string(value, self->policy.prefix); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_service_prometheus_reporter_finalize(GObject *object) {
  auto *self = VEK_SERVICE_PROMETHEUS_REPORTER(object);
  g_clear_pointer(&self->pass_followers, g_ptr_array_unref);
  g_ptr_array_unref(self->followers);
  forget_families(self);
  g_ptr_array_unref(self->series);
  g_hash_table_unref(self->own_table);
  g_hash_table_unref(self->policy.told);
  g_hash_table_unref(self->policy.negative);
  g_hash_table_unref(self->policy.monotonic);
  g_free(self->policy.prefix);
  g_mutex_clear(&self->lock);
  g_string_free(self->scratch, TRUE);
  g_hash_table_unref(self->table);

  G_OBJECT_CLASS(vek_service_prometheus_reporter_parent_class)->finalize(object);
}

static void vek_service_prometheus_reporter_class_init(VekServicePrometheusReporterClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_service_prometheus_reporter_set_property;
  object_class->get_property = vek_service_prometheus_reporter_get_property;
  object_class->finalize = vek_service_prometheus_reporter_finalize;

  properties[PROP_KEEP_SECONDS] = g_param_spec_uint("keep-seconds", "keep-seconds", "keep-seconds",
                                                    0, G_MAXUINT, 0, vekin::kConstruct);
  properties[PROP_PREFIX] =
      g_param_spec_string("prefix", "prefix", "prefix", nullptr, vekin::kConstruct);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

static void vek_service_prometheus_reporter_init(VekServicePrometheusReporter *self) {
  self->table = series_table_new();
  self->scratch = g_string_new(nullptr);
  g_mutex_init(&self->lock);
  self->followers = vekin::reporter_list_new();
  self->policy.monotonic = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free);
  self->policy.negative = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
  self->policy.told = g_hash_table_new_full(
      g_bytes_hash, g_bytes_equal, reinterpret_cast<GDestroyNotify>(g_bytes_unref), nullptr);
  self->own_table = series_table_new();
  for (int i = 0; i < N_OWN; i++) {
    self->own[i] =
        series_table_get(self->own_table, self->scratch, kOwn[i].name, nullptr, Kind::value);
    self->own[i]->unit = g_strdup(kOwn[i].unit);
  }
  self->series = g_ptr_array_new();
}

VekServicePrometheusReporter *vek_service_prometheus_reporter_new(void) {
  return VEK_SERVICE_PROMETHEUS_REPORTER(
      g_object_new(VEK_SERVICE_TYPE_PROMETHEUS_REPORTER, nullptr));
}

char *vek_service_prometheus_reporter_get_text(VekServicePrometheusReporter *reporter,
                                               VekServicePrometheusFormat format) {
  vek_return_val_if_fail(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter), nullptr);
  vek_return_val_if_fail(is_format(format), nullptr);

  g_autoptr(GBytes) bytes = vek_service_prometheus_reporter_get_bytes(reporter, format);
  if (!bytes)
    return nullptr;
  gsize size;
  auto *text = static_cast<const char *>(g_bytes_get_data(bytes, &size));
  return g_strndup(text, size);
}

GBytes *vek_service_prometheus_reporter_get_bytes(VekServicePrometheusReporter *reporter,
                                                  VekServicePrometheusFormat format) {
  vek_return_val_if_fail(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter), nullptr);
  vek_return_val_if_fail(is_format(format), nullptr);

  vekin::MutexLock held(reporter->lock);
  write_text(reporter, format, G_MAXUINT);
  auto *bytes = reporter->texts[format].bytes;
  return bytes ? g_bytes_ref(bytes) : nullptr;
}

gboolean vek_service_prometheus_reporter_prepare_text(VekServicePrometheusReporter *reporter,
                                                      VekServicePrometheusFormat format) {
  vek_return_val_if_fail(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter), FALSE);
  vek_return_val_if_fail(is_format(format), FALSE);

  vekin::MutexLock held(reporter->lock);
  return write_text(reporter, format, kSlice);
}

void vek_service_prometheus_reporter_declare_monotonic(VekServicePrometheusReporter *reporter,
                                                       const char *name) {
  vek_return_if_fail(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter));
  vek_return_if_fail(name != NULL);

  vekin::MutexLock held(reporter->lock);
  if (g_hash_table_contains(reporter->policy.monotonic, name))
    return;
  g_hash_table_insert(reporter->policy.monotonic, g_strdup(name), g_new0(Declaration, 1));
  forget_families(reporter);
}

void vek_service_prometheus_reporter_add_follower(VekServicePrometheusReporter *reporter,
                                                  VekMetricReporter *follower) {
  vek_return_if_fail(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter));
  vek_return_if_fail(VEK_IS_METRIC_REPORTER(follower));
  vek_return_if_fail(follower != (gpointer)reporter);

  vekin::hook_kinds(nullptr);
  g_autoptr(GPtrArray) before = nullptr;
  vekin::MutexLock held(reporter->lock);
  before = reporter->followers;
  reporter->followers = vekin::reporter_list_with(before, follower);
}

gboolean vek_service_prometheus_reporter_remove_follower(VekServicePrometheusReporter *reporter,
                                                         VekMetricReporter *follower) {
  vek_return_val_if_fail(VEK_SERVICE_IS_PROMETHEUS_REPORTER(reporter), FALSE);
  vek_return_val_if_fail(VEK_IS_METRIC_REPORTER(follower), FALSE);

  g_autoptr(GPtrArray) before = nullptr;
  vekin::MutexLock held(reporter->lock);
  if (!g_ptr_array_find(reporter->followers, follower, nullptr))
    return FALSE;
  before = reporter->followers;
  reporter->followers = vekin::reporter_list_without(before, follower);
  return TRUE;
}
