// Tests of what the registry does not show outside: its locking and its fields.

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "vekmetrics/registry.hpp"

namespace {

// The registry's instance, field by field.
struct Fields {
  GObject parent_instance;
  GRWLock lock;
  GSList *reporters;
  GHashTable *metrics;
  guint report_source_id;
};

}  // namespace

static Fields *get_fields() {
  return reinterpret_cast<Fields *>(fixture.registry);
}

static const char *get_lock_state() {
  auto *lock = &get_fields()->lock;
  if (g_rw_lock_writer_trylock(lock)) {
    g_rw_lock_writer_unlock(lock);
    return "unlocked";
  }
  if (g_rw_lock_reader_trylock(lock)) {
    g_rw_lock_reader_unlock(lock);
    return "locked for reading";
  }
  return "locked for writing";
}

static void note(const char *event) {
  g_string_append_printf(fixture.record, "%s, %s\n", event, get_lock_state());
}

// A metric that notes how the registry is locked at each step of its life.
G_BEGIN_DECLS
#define TEST_TYPE_PROBE (test_probe_get_type())
G_DECLARE_FINAL_TYPE(TestProbe, test_probe, TEST, PROBE, VekMetric)
G_END_DECLS

struct _TestProbe {
  VekMetric parent_instance;
};

G_DEFINE_TYPE(TestProbe, test_probe, VEK_TYPE_METRIC)

static void test_probe_constructed(GObject *object) {
  note("constructed");
  G_OBJECT_CLASS(test_probe_parent_class)->constructed(object);
}

static void test_probe_dispose(GObject *object) {
  note("disposed");
  G_OBJECT_CLASS(test_probe_parent_class)->dispose(object);
}

static void test_probe_report(VekMetric *, GSList *) {
  note("reported");
}

static void test_probe_class_init(TestProbeClass *klass) {
  G_OBJECT_CLASS(klass)->constructed = test_probe_constructed;
  G_OBJECT_CLASS(klass)->dispose = test_probe_dispose;
  VEK_METRIC_CLASS(klass)->report = test_probe_report;
}

static void test_probe_init(TestProbe *) {}

static VekMetric *probe_new(const char *name) {
  return vekin::create_metric(fixture.registry, TEST_TYPE_PROBE, name, nullptr);
}

static void on_reporter_called(VekTestingRecorder *, const char *, gpointer) {
  note("called");
}

static VekMetricReporter *reporter_new() {
  auto *reporter = record_to(fixture.record, "a");
  on_recorded(reporter, on_reporter_called, nullptr);
  return reporter;
}

TEST(metrics_are_made_and_unused_ones_destroyed_outside_the_lock) {
  g_autoptr(VekMetric) first = probe_new("probe");
  assert_recorded(fixture.record, "constructed, unlocked\n");

  g_autoptr(VekMetric) second = probe_new("probe");
  assert_recorded(fixture.record,
                  "constructed, unlocked\n"
                  "disposed, unlocked\n");
  g_assert_true(second == first);
}

TEST(periodic_pass_reads_until_it_has_flushed_and_then_writes) {
  g_autoptr(VekMetricReporter) reporter = reporter_new();
  vek_metric_registry_register_reporter(fixture.registry, reporter);
  g_object_unref(probe_new("probe"));
  g_string_truncate(fixture.record, 0);

  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record,
                  "reported, locked for reading\n"
                  "a flush\n"
                  "called, locked for reading\n"
                  "disposed, locked for writing\n");
  note("after");
  assert_recorded(fixture.record, "after, unlocked\n");
}

TEST(one_off_pass_reads_until_it_has_flushed) {
  g_autoptr(VekMetricReporter) reporter = reporter_new();
  g_object_unref(probe_new("probe"));
  g_string_truncate(fixture.record, 0);

  vek_metric_registry_report(fixture.registry, reporter);
  assert_recorded(fixture.record,
                  "reported, locked for reading\n"
                  "a flush\n"
                  "called, locked for reading\n");
  note("after");
  assert_recorded(fixture.record, "after, unlocked\n");
}

TEST(dispose_writes_and_empties_the_fields) {
  g_autoptr(VekMetricReporter) reporter = reporter_new();
  vek_metric_registry_register_reporter(fixture.registry, reporter);
  g_object_unref(probe_new("probe"));
  g_assert_cmpuint(get_fields()->report_source_id, !=, 0);
  g_string_truncate(fixture.record, 0);

  run_dispose(fixture.registry);
  assert_recorded(fixture.record, "disposed, locked for writing\n");
  note("after");
  assert_recorded(fixture.record, "after, unlocked\n");
  g_assert_null(get_fields()->reporters);
  g_assert_null(get_fields()->metrics);
  g_assert_cmpuint(get_fields()->report_source_id, ==, 0);
}

TEST(passes_leave_what_is_no_metric_alone) {
  g_autoptr(VekMetricReporter) reporter = record_to(fixture.record, "a");
  vek_metric_registry_register_reporter(fixture.registry, reporter);
  auto *object = g_object_new(G_TYPE_OBJECT, nullptr);
  g_hash_table_insert(get_fields()->metrics, g_strdup("object"), object);

  run_periodic_pass(fixture.registry);
  assert_failed_check("report_metric", "VEK_IS_METRIC(metric)");
  assert_failed_check("remove_metric", "VEK_IS_METRIC(metric)");
  assert_recorded(fixture.record, "a flush\n");
  g_assert_true(g_hash_table_lookup(get_fields()->metrics, "object") == object);
}
