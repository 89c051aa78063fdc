// Tests of what the registry does not show outside: its locking and its fields.

#include "support/logcapture.h"
#include "support/periodicpass.h"
#include "support/recordingreporter.h"
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

// What the probes and the reporter of a test write to, and the registry that they watch.
GString *record;
VekMetricRegistry *registry;

}  // namespace

static Fields *get_fields() {
  return reinterpret_cast<Fields *>(registry);
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
  g_string_append_printf(record, "%s, %s\n", event, get_lock_state());
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
  return vek::create_metric(registry, TEST_TYPE_PROBE, name, nullptr);
}

static void on_reporter_called(VekMetricReporter *, gpointer) {
  note("called");
}

static VekMetricReporter *reporter_new() {
  auto *reporter = recording_reporter_new("a", record);
  recording_reporter_set_callback(RECORDING_REPORTER(reporter), on_reporter_called, nullptr);
  return reporter;
}

static void set_up() {
  record = g_string_new(nullptr);
  registry = VEK_METRIC_REGISTRY(g_object_new(VEK_TYPE_METRIC_REGISTRY, nullptr));
}

static void tear_down() {
  g_object_run_dispose(G_OBJECT(registry));  // before the variable is cleared: probes look at it
  g_clear_object(&registry);
  g_string_free(record, TRUE);
}

static void metrics_are_made_and_unused_ones_destroyed_outside_the_lock() {
  g_autoptr(VekMetric) first = probe_new("probe");
  assert_recorded(record, "constructed, unlocked\n");

  g_autoptr(VekMetric) second = probe_new("probe");
  assert_recorded(record,
                  "constructed, unlocked\n"
                  "disposed, unlocked\n");
  g_assert_true(second == first);
}

static void periodic_pass_reads_until_it_has_flushed_and_then_writes() {
  g_autoptr(VekMetricReporter) reporter = reporter_new();
  vek_metric_registry_register_reporter(registry, reporter);
  g_object_unref(probe_new("probe"));
  g_string_truncate(record, 0);

  run_periodic_pass(registry);
  assert_recorded(record,
                  "reported, locked for reading\n"
                  "a flush\n"
                  "called, locked for reading\n"
                  "disposed, locked for writing\n");
  note("after");
  assert_recorded(record, "after, unlocked\n");
}

static void one_off_pass_reads_until_it_has_flushed() {
  g_autoptr(VekMetricReporter) reporter = reporter_new();
  g_object_unref(probe_new("probe"));
  g_string_truncate(record, 0);

  vek_metric_registry_report(registry, reporter);
  assert_recorded(record,
                  "reported, locked for reading\n"
                  "a flush\n"
                  "called, locked for reading\n");
  note("after");
  assert_recorded(record, "after, unlocked\n");
}

static void dispose_writes_and_empties_the_fields() {
  g_autoptr(VekMetricReporter) reporter = reporter_new();
  vek_metric_registry_register_reporter(registry, reporter);
  g_object_unref(probe_new("probe"));
  g_assert_cmpuint(get_fields()->report_source_id, !=, 0);
  g_string_truncate(record, 0);

  g_object_run_dispose(G_OBJECT(registry));
  assert_recorded(record, "disposed, locked for writing\n");
  note("after");
  assert_recorded(record, "after, unlocked\n");
  g_assert_null(get_fields()->reporters);
  g_assert_null(get_fields()->metrics);
  g_assert_cmpuint(get_fields()->report_source_id, ==, 0);
}

static void passes_leave_what_is_no_metric_alone() {
  g_autoptr(VekMetricReporter) reporter = recording_reporter_new("a", record);
  vek_metric_registry_register_reporter(registry, reporter);
  auto *object = g_object_new(G_TYPE_OBJECT, nullptr);
  g_hash_table_insert(get_fields()->metrics, g_strdup("object"), object);

  run_periodic_pass(registry);
  assert_failed_check("report_metric", "VEK_IS_METRIC(metric)");
  assert_failed_check("remove_metric", "VEK_IS_METRIC(metric)");
  assert_recorded(record, "a flush\n");
  g_assert_true(g_hash_table_lookup(get_fields()->metrics, "object") == object);
}

template <void (*test)()>
static void run() {
  set_up();
  test();
  tear_down();
}

int main(int argc, char **argv) {
  g_test_init(&argc, &argv, nullptr);
  log_capture_init();

  add_test("/registry/metrics-are-made-and-unused-ones-destroyed-outside-the-lock",
           run<metrics_are_made_and_unused_ones_destroyed_outside_the_lock>);
  add_test("/registry/periodic-pass-reads-until-it-has-flushed-and-then-writes",
           run<periodic_pass_reads_until_it_has_flushed_and_then_writes>);
  add_test("/registry/one-off-pass-reads-until-it-has-flushed",
           run<one_off_pass_reads_until_it_has_flushed>);
  add_test("/registry/dispose-writes-and-empties-the-fields",
           run<dispose_writes_and_empties_the_fields>);
  add_test("/registry/passes-leave-what-is-no-metric-alone",
           run<passes_leave_what_is_no_metric_alone>);

  return g_test_run();
}
