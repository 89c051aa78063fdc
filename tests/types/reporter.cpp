// Tests of VekMetricReporter. They are in C++ because its dispatchers are private.

#include <vekmetrics/vekmetrics.h>
#include <vekmetrics/reporter.hpp>

#include <cstddef>

#include "support/fixture.h"

// A reporter that sets every slot and keeps the arguments of the last call.
struct Witness {
  GObject parent_instance;

  const char *slot;
  guint n_calls;
  const gchar *name;
  gchar **dimensions;
  const gchar *unit;
  gint64 timestamp;
  gint64 count;
  gdouble value;
  GSList *samples;
  VekMetricSnapshot *snapshot;
};

struct WitnessClass {
  GObjectClass parent_class;
};

static Witness *note(VekMetricReporter *reporter, const char *slot) {
  auto *self = reinterpret_cast<Witness *>(reporter);
  self->slot = slot;
  self->n_calls++;
  return self;
}

static void witness_process_count(VekMetricReporter *reporter, const gchar *name,
                                  gchar **dimensions, const gchar *unit, gint64 timestamp,
                                  gint64 count) {
  auto *self = note(reporter, "process_count");
  self->name = name;
  self->dimensions = dimensions;
  self->unit = unit;
  self->timestamp = timestamp;
  self->count = count;
}

static void witness_process_value(VekMetricReporter *reporter, const gchar *name,
                                  gchar **dimensions, const gchar *unit, gint64 timestamp,
                                  gdouble value) {
  auto *self = note(reporter, "process_value");
  self->name = name;
  self->dimensions = dimensions;
  self->unit = unit;
  self->timestamp = timestamp;
  self->value = value;
}

static void witness_process_timeline_samples(VekMetricReporter *reporter, const gchar *name,
                                             GSList *samples) {
  auto *self = note(reporter, "process_timeline_samples");
  self->name = name;
  self->samples = samples;
}

static void witness_process_aggregated(VekMetricReporter *reporter, const gchar *name,
                                       gchar **dimensions, const gchar *unit,
                                       VekMetricSnapshot *snapshot) {
  auto *self = note(reporter, "process_aggregated");
  self->name = name;
  self->dimensions = dimensions;
  self->unit = unit;
  self->snapshot = snapshot;
}

static void witness_flush(VekMetricReporter *reporter) {
  note(reporter, "flush");
}

static void witness_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = witness_process_count;
  iface->process_value = witness_process_value;
  iface->process_timeline_samples = witness_process_timeline_samples;
  iface->process_aggregated = witness_process_aggregated;
  iface->flush = witness_flush;
}

G_DEFINE_TYPE_WITH_CODE(Witness, witness, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER, witness_reporter_init))

static void witness_class_init(WitnessClass *) {}

static void witness_init(Witness *) {}

// A witness of timelines, which no other figures reach.
using TimelineWitness = Witness;
using TimelineWitnessClass = WitnessClass;

static void timeline_witness_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_timeline_samples = witness_process_timeline_samples;
  iface->flush = witness_flush;
}

G_DEFINE_TYPE_WITH_CODE(TimelineWitness, timeline_witness, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              timeline_witness_reporter_init))

static void timeline_witness_class_init(TimelineWitnessClass *) {}

static void timeline_witness_init(TimelineWitness *) {}

// A witness of flushes alone.
using Flusher = Witness;
using FlusherClass = WitnessClass;

static void flusher_reporter_init(VekMetricReporterInterface *iface) {
  iface->flush = witness_flush;
}

G_DEFINE_TYPE_WITH_CODE(Flusher, flusher, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER, flusher_reporter_init))

static void flusher_class_init(FlusherClass *) {}

static void flusher_init(Flusher *) {}

static VekMetricReporter *reporter_new(GType type) {
  return VEK_METRIC_REPORTER(g_object_new(type, nullptr));
}

static Witness *witness(VekMetricReporter *reporter) {
  return reinterpret_cast<Witness *>(reporter);
}

// One report of a registry that has a counter and nothing else.
static void report_a_counter(VekMetricReporter *reporter) {
  auto *registry = VEK_METRIC_REGISTRY(g_object_new(VEK_TYPE_METRIC_REGISTRY, nullptr));
  auto *counter = vek_metric_registry_counter_new(registry, "requests", nullptr, nullptr);
  vek_metric_registry_report(registry, reporter);
  g_object_unref(counter);
  g_object_unref(registry);
}

TEST(the_type_is_an_interface_for_objects) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_REPORTER), ==, "VekMetricReporter");
  g_assert_true(G_TYPE_IS_INTERFACE(VEK_TYPE_METRIC_REPORTER));
  guint n_prerequisites = 0;
  g_autofree GType *prerequisites =
      g_type_interface_prerequisites(VEK_TYPE_METRIC_REPORTER, &n_prerequisites);
  g_assert_cmpuint(n_prerequisites, ==, 1);
  g_assert_cmpuint(prerequisites[0], ==, G_TYPE_OBJECT);
}

TEST(the_interface_has_no_properties_and_no_signals) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(witness_get_type());
  gpointer iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  guint n_properties = 0;
  g_free(g_object_interface_list_properties(iface, &n_properties));
  g_assert_cmpuint(n_properties, ==, 0);
  guint n_signals = 0;
  g_free(g_signal_list_ids(VEK_TYPE_METRIC_REPORTER, &n_signals));
  g_assert_cmpuint(n_signals, ==, 0);
}

TEST(the_default_interface_sets_no_slot) {
  gpointer defaults = g_type_default_interface_ref(VEK_TYPE_METRIC_REPORTER);
  auto *iface = static_cast<VekMetricReporterInterface *>(defaults);
  g_assert_true(iface->process_count == nullptr);
  g_assert_true(iface->process_value == nullptr);
  g_assert_true(iface->process_timeline_samples == nullptr);
  g_assert_true(iface->process_aggregated == nullptr);
  g_assert_true(iface->flush == nullptr);
  g_type_default_interface_unref(defaults);
}

static char kName[] = "requests";
static char kUnit[] = "Count";
static char kHost[] = "host";
static char kH1[] = "h1";
static char *kDimensions[] = {kHost, kH1, nullptr};

// The pointers themselves must arrive, NULL as NULL.
static void assert_identity_passed(const Witness *seen, const char *slot, guint n_calls,
                                   gchar **dimensions, const gchar *unit) {
  g_assert_cmpstr(seen->slot, ==, slot);
  g_assert_cmpuint(seen->n_calls, ==, n_calls);
  g_assert_true(seen->name == kName);
  g_assert_true(seen->dimensions == dimensions);
  g_assert_true(seen->unit == unit);
}

TEST(counts_are_passed_unchanged) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(witness_get_type());
  auto *seen = witness(reporter);

  vek_metric_reporter_process_count(reporter, kName, kDimensions, kUnit, G_MAXINT64, G_MININT64);
  assert_identity_passed(seen, "process_count", 1, kDimensions, kUnit);
  g_assert_cmpint(seen->timestamp, ==, G_MAXINT64);
  g_assert_cmpint(seen->count, ==, G_MININT64);

  vek_metric_reporter_process_count(reporter, kName, nullptr, nullptr, -1, 1);
  assert_identity_passed(seen, "process_count", 2, nullptr, nullptr);
  g_assert_cmpint(seen->timestamp, ==, -1);
  g_assert_cmpint(seen->count, ==, 1);
}

TEST(values_are_passed_unchanged) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(witness_get_type());
  auto *seen = witness(reporter);

  vek_metric_reporter_process_value(reporter, kName, kDimensions, kUnit, G_MAXINT64, 0.1);
  assert_identity_passed(seen, "process_value", 1, kDimensions, kUnit);
  g_assert_cmpint(seen->timestamp, ==, G_MAXINT64);
  g_assert_cmpfloat(seen->value, ==, 0.1);

  vek_metric_reporter_process_value(reporter, kName, nullptr, nullptr, -1, -G_MAXDOUBLE);
  assert_identity_passed(seen, "process_value", 2, nullptr, nullptr);
  g_assert_cmpint(seen->timestamp, ==, -1);
  g_assert_cmpfloat(seen->value, ==, -G_MAXDOUBLE);
}

TEST(timeline_samples_are_passed_unchanged) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(witness_get_type());
  auto *seen = witness(reporter);
  g_autoptr(GSList) samples = g_slist_prepend(nullptr, nullptr);

  vek_metric_reporter_process_timeline_samples(reporter, kName, samples);
  assert_identity_passed(seen, "process_timeline_samples", 1, nullptr, nullptr);
  g_assert_true(seen->samples == samples);

  vek_metric_reporter_process_timeline_samples(reporter, kName, nullptr);
  assert_identity_passed(seen, "process_timeline_samples", 2, nullptr, nullptr);
  g_assert_null(seen->samples);
}

TEST(snapshots_are_passed_unchanged) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(witness_get_type());
  auto *seen = witness(reporter);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(nullptr, 0);

  vek_metric_reporter_process_aggregated(reporter, kName, kDimensions, kUnit, snapshot);
  assert_identity_passed(seen, "process_aggregated", 1, kDimensions, kUnit);
  g_assert_true(seen->snapshot == snapshot);

  vek_metric_reporter_process_aggregated(reporter, kName, nullptr, nullptr, snapshot);
  assert_identity_passed(seen, "process_aggregated", 2, nullptr, nullptr);
  g_assert_true(seen->snapshot == snapshot);
}

TEST(a_flush_is_passed) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(witness_get_type());
  vek_metric_reporter_flush(reporter);
  g_assert_cmpstr(witness(reporter)->slot, ==, "flush");
  g_assert_cmpuint(witness(reporter)->n_calls, ==, 1);
}

TEST(figures_without_a_slot_are_passed_over_silently) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(flusher_get_type());
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(nullptr, 0);
  vek_metric_reporter_process_count(reporter, kName, kDimensions, kUnit, 1, 2);
  vek_metric_reporter_process_value(reporter, kName, kDimensions, kUnit, 1, 2.0);
  vek_metric_reporter_process_timeline_samples(reporter, kName, nullptr);
  vek_metric_reporter_process_aggregated(reporter, kName, kDimensions, kUnit, snapshot);
  g_assert_cmpuint(witness(reporter)->n_calls, ==, 0);
}

TEST(a_reporter_of_timelines_is_not_told_of_a_counter) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(timeline_witness_get_type());
  report_a_counter(reporter);
  g_assert_cmpstr(witness(reporter)->slot, ==, "flush");
  g_assert_cmpuint(witness(reporter)->n_calls, ==, 1);
}

TEST(a_reporter_that_only_flushes_is_valid) {
  g_autoptr(VekMetricReporter) reporter = reporter_new(flusher_get_type());
  report_a_counter(reporter);
  report_a_counter(reporter);
  g_assert_cmpstr(witness(reporter)->slot, ==, "flush");
  g_assert_cmpuint(witness(reporter)->n_calls, ==, 2);
}
