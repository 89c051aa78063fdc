#include "graphitereporter.h"

#include "common/internal.hpp"
#include "common/numbers.hpp"
#include "drain.h"
#include "graphitelines.hpp"
#include "linesender.hpp"

#include <algorithm>
#include <span>

struct _VekServiceGraphiteReporter {
  GObject parent_instance;

  char *prefix;
  char *host;
  guint port;
  GVariant *quantiles;  // NULL for none
  gboolean tags;

  vekin::GraphiteLines lines;
  vekin::LineSender sender;
  gboolean opened;  // FALSE without a host, and after dispose

  struct {  // what the properties were when they last notified
    gboolean connected;
    guint queued;
    guint64 sent;
    guint64 dropped;
  } notified;
};
static_assert(vekin::ZeroFillable<VekServiceGraphiteReporter>);

static constexpr guint kDefaultPort = 2003;
static constexpr guint kDefaultMaxLines = 100000;

enum : guint {
  PROP_PREFIX = 1,
  PROP_HOST,
  PROP_PORT,
  PROP_MAX_LINES,
  PROP_QUANTILES,
  PROP_TAGS,
  PROP_CONNECTED,
  PROP_QUEUED_LINES,
  PROP_SENT_LINES,
  PROP_DROPPED_LINES,
  N_PROPERTIES,
};
static GParamSpec *properties[N_PROPERTIES];

static void vek_service_graphite_reporter_reporter_init(VekMetricReporterInterface *iface);
static void vek_service_graphite_reporter_drain_init(VekServiceDrainInterface *iface);

G_DEFINE_TYPE_WITH_CODE(VekServiceGraphiteReporter, vek_service_graphite_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              vek_service_graphite_reporter_reporter_init)
                            G_IMPLEMENT_INTERFACE(VEK_SERVICE_TYPE_DRAIN,
                                                  vek_service_graphite_reporter_drain_init))

// Notifies of what has changed; last, for what is called may do anything.
static void notify_changes(VekServiceGraphiteReporter *self) {
  auto before = self->notified;
  auto now = self->notified = {
      .connected = self->sender.connection.stream != nullptr,
      .queued = self->sender.queue.n_lines,
      .sent = self->sender.queue.n_sent,
      .dropped = self->sender.queue.n_dropped,
  };
  const struct {
    guint property;
    bool changed;
  } rows[] = {
      {PROP_CONNECTED, now.connected != before.connected},
      {PROP_QUEUED_LINES, now.queued != before.queued},
      {PROP_SENT_LINES, now.sent != before.sent},
      {PROP_DROPPED_LINES, now.dropped != before.dropped},
  };

  auto *object = G_OBJECT(self);
  g_object_ref(object);
  for (auto [property, changed] : rows)
    if (changed)
      g_object_notify_by_pspec(object, properties[property]);
  g_object_unref(object);
}

static void on_changed(GObject *owner) {
  notify_changes(vekin::as<VekServiceGraphiteReporter>(owner));
}

static void queue_line(VekServiceGraphiteReporter *self, const char *suffix, const char *value,
                       gint64 timestamp) {
  self->sender.push(self->lines.make(suffix, value, timestamp));
}

static void vek_service_graphite_reporter_process_count(VekMetricReporter *reporter,
                                                        const gchar *name, gchar **dimensions,
                                                        const gchar *unit, gint64 timestamp,
                                                        gint64 count) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(reporter);
  if (!self->opened)
    return;

  self->lines.begin(self->prefix, self->tags, name, dimensions, unit);
  queue_line(self, "", vekin::Decimal(count).text, timestamp);
}

static void vek_service_graphite_reporter_process_value(VekMetricReporter *reporter,
                                                        const gchar *name, gchar **dimensions,
                                                        const gchar *unit, gint64 timestamp,
                                                        gdouble value) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(reporter);
  if (!self->opened)
    return;

  self->lines.begin(self->prefix, self->tags, name, dimensions, unit);
  queue_line(self, "", vekin::FixedPoint(value).text, timestamp);
}

// None for NULL.
static std::span<const gdouble> as_span(GVariant *quantiles) {
  gsize n = 0;
  auto *first = quantiles ? g_variant_get_fixed_array(quantiles, &n, sizeof(gdouble)) : nullptr;
  return {static_cast<const gdouble *>(first), n};
}

static void vek_service_graphite_reporter_process_aggregated(VekMetricReporter *reporter,
                                                             const gchar *name, gchar **dimensions,
                                                             const gchar *unit,
                                                             VekMetricSnapshot *snapshot) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(reporter);
  if (!self->opened)
    return;

  self->lines.begin(self->prefix, self->tags, name, dimensions, unit);
  gint64 time = vek_metric_snapshot_get_time(snapshot);
  auto queue_value = [&](const char *suffix, gdouble value) {
    queue_line(self, suffix, vekin::FixedPoint(value).text, time);
  };
  queue_value(".average", vek_metric_snapshot_get_average(snapshot));
  queue_line(self, ".n_samples", vekin::Decimal(vek_metric_snapshot_get_n_samples(snapshot)).text,
             time);
  queue_value(".min", vek_metric_snapshot_get_min(snapshot));
  queue_value(".max", vek_metric_snapshot_get_max(snapshot));
  // A handler of "notify", which a lost connection calls, may set others.
  g_autoptr(GVariant) quantiles = self->quantiles ? g_variant_ref(self->quantiles) : nullptr;
  for (gdouble quantile : as_span(quantiles))
    queue_value(vekin::QuantileSuffix(quantile).text,
                vek_metric_snapshot_get_quantile(snapshot, quantile));
}

static void vek_service_graphite_reporter_flush(VekMetricReporter *reporter) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(reporter);
  self->sender.flush();
  notify_changes(self);
}

static void vek_service_graphite_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = vek_service_graphite_reporter_process_count;
  iface->process_value = vek_service_graphite_reporter_process_value;
  iface->process_aggregated = vek_service_graphite_reporter_process_aggregated;
  iface->flush = vek_service_graphite_reporter_flush;
}

static gboolean vek_service_graphite_reporter_is_busy(VekServiceDrain *drain) {
  return vekin::as<VekServiceGraphiteReporter>(drain)->sender.is_busy();
}

static void vek_service_graphite_reporter_drain_init(VekServiceDrainInterface *iface) {
  iface->is_busy = vek_service_graphite_reporter_is_busy;
}

static bool are_from_0_to_1(GVariant *quantiles) {
  return std::ranges::all_of(as_span(quantiles),
                             [](gdouble quantile) { return quantile >= 0 && quantile <= 1; });
}

static void vek_service_graphite_reporter_set_property(GObject *object, guint id,
                                                       const GValue *value, GParamSpec *pspec) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(object);

  switch (id) {
  case PROP_PREFIX: self->prefix = g_value_dup_string(value); break;
  case PROP_HOST: self->host = g_value_dup_string(value); break;
  case PROP_PORT: self->port = g_value_get_uint(value); break;
  case PROP_MAX_LINES:
    self->sender.queue.set_max_lines(g_value_get_uint(value));
    notify_changes(self);
    break;
  case PROP_QUANTILES: {
    auto *quantiles = g_value_get_variant(value);
    vek_return_if_fail(are_from_0_to_1(quantiles));
    g_clear_pointer(&self->quantiles, g_variant_unref);
    self->quantiles = quantiles ? g_variant_ref(quantiles) : nullptr;
    break;
  }
  case PROP_TAGS: self->tags = g_value_get_boolean(value); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_service_graphite_reporter_get_property(GObject *object, guint id, GValue *value,
                                                       GParamSpec *pspec) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(object);

  switch (id) {
  case PROP_PREFIX: g_value_set_string(value, self->prefix); break;
  case PROP_HOST: g_value_set_string(value, self->host); break;
  case PROP_PORT: g_value_set_uint(value, self->port); break;
  case PROP_MAX_LINES: g_value_set_uint(value, self->sender.queue.max_lines); break;
  case PROP_QUANTILES: g_value_set_variant(value, self->quantiles); break;
  case PROP_TAGS: g_value_set_boolean(value, self->tags); break;
  case PROP_CONNECTED: g_value_set_boolean(value, self->sender.connection.stream != nullptr); break;
  case PROP_QUEUED_LINES: g_value_set_uint(value, self->sender.queue.n_lines); break;
  case PROP_SENT_LINES: g_value_set_uint64(value, self->sender.queue.n_sent); break;
  case PROP_DROPPED_LINES: g_value_set_uint64(value, self->sender.queue.n_dropped); break;
  default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

static void vek_service_graphite_reporter_dispose(GObject *object) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(object);
  self->opened = FALSE;
  self->sender.connection.close();

  G_OBJECT_CLASS(vek_service_graphite_reporter_parent_class)->dispose(object);
}

static void vek_service_graphite_reporter_finalize(GObject *object) {
  auto *self = vekin::as<VekServiceGraphiteReporter>(object);
  self->sender.queue.clear();
  self->lines.clear();
  g_clear_pointer(&self->quantiles, g_variant_unref);
  g_free(self->prefix);
  g_free(self->host);

  G_OBJECT_CLASS(vek_service_graphite_reporter_parent_class)->finalize(object);
}

static void vek_service_graphite_reporter_constructed(GObject *object) {
  G_OBJECT_CLASS(vek_service_graphite_reporter_parent_class)->constructed(object);

  auto *self = vekin::as<VekServiceGraphiteReporter>(object);
  vek_return_if_fail(self->host != NULL && *self->host != '\0');
  self->sender.open(self->host, static_cast<guint16>(self->port), object, on_changed);
  self->opened = TRUE;
}

static void vek_service_graphite_reporter_class_init(VekServiceGraphiteReporterClass *klass) {
  auto *object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = vek_service_graphite_reporter_set_property;
  object_class->get_property = vek_service_graphite_reporter_get_property;
  object_class->dispose = vek_service_graphite_reporter_dispose;
  object_class->finalize = vek_service_graphite_reporter_finalize;
  object_class->constructed = vek_service_graphite_reporter_constructed;

  constexpr auto kReadable = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  properties[PROP_PREFIX] =
      g_param_spec_string("prefix", "prefix", "prefix", nullptr, vekin::kConstructOnly);
  properties[PROP_HOST] =
      g_param_spec_string("host", "host", "host", nullptr, vekin::kConstructOnly);
  properties[PROP_PORT] = g_param_spec_uint("port", "port", "port", 1, G_MAXUINT16, kDefaultPort,
                                            vekin::kConstructOnly);
  properties[PROP_MAX_LINES] = g_param_spec_uint("max-lines", "max-lines", "max-lines", 1,
                                                 G_MAXUINT, kDefaultMaxLines, vekin::kConstruct);
  properties[PROP_QUANTILES] = g_param_spec_variant(
      "quantiles", "quantiles", "quantiles", G_VARIANT_TYPE("ad"), nullptr, vekin::kConstruct);
  properties[PROP_TAGS] = g_param_spec_boolean("tags", "tags", "tags", FALSE, vekin::kConstruct);
  properties[PROP_CONNECTED] =
      g_param_spec_boolean("connected", "connected", "connected", FALSE, kReadable);
  properties[PROP_QUEUED_LINES] =
      g_param_spec_uint("queued-lines", "queued-lines", "queued-lines", 0, G_MAXUINT, 0, kReadable);
  properties[PROP_SENT_LINES] =
      g_param_spec_uint64("sent-lines", "sent-lines", "sent-lines", 0, G_MAXUINT64, 0, kReadable);
  properties[PROP_DROPPED_LINES] = g_param_spec_uint64(
      "dropped-lines", "dropped-lines", "dropped-lines", 0, G_MAXUINT64, 0, kReadable);
  g_object_class_install_properties(object_class, N_PROPERTIES, properties);
}

// GObject refuses values out of range with a warning; then these stay.
static void vek_service_graphite_reporter_init(VekServiceGraphiteReporter *self) {
  self->port = kDefaultPort;
  self->sender.queue.max_lines = kDefaultMaxLines;
  self->lines.init();
}

VekMetricReporter *vek_service_graphite_reporter_new(const gchar *prefix, const gchar *host,
                                                     guint port) {
  vek_return_val_if_fail(host != NULL && *host != '\0', NULL);
  vek_return_val_if_fail(port > 0 && port <= G_MAXUINT16, NULL);

  return VEK_METRIC_REPORTER(g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, "prefix", prefix,
                                          "host", host, "port", port, nullptr));
}
