/* Tests of VekMetricHistogram. */

#include "support/fixture.h"

#include <math.h>
#include <string.h>

/* A store that keeps every value in order, and counts the snapshots. It keeps the last one, too. */
#define SPY_TYPE_STORE (spy_store_get_type())
G_DECLARE_FINAL_TYPE(SpyStore, spy_store, SPY, STORE, VekMetricStore)

struct _SpyStore {
  VekMetricStore parent_instance;

  GArray *values;
  guint n_snapshots;
  VekMetricSnapshot *snapshot;
};

G_DEFINE_TYPE(SpyStore, spy_store, VEK_TYPE_METRIC_STORE)

static void spy_store_finalize(GObject *object) {
  SpyStore *self = SPY_STORE(object);
  g_array_unref(self->values);
  g_clear_pointer(&self->snapshot, vek_metric_snapshot_unref);
  G_OBJECT_CLASS(spy_store_parent_class)->finalize(object);
}

static void spy_store_add(VekMetricStore *store, gdouble value) {
  g_array_append_val(SPY_STORE(store)->values, value);
}

static VekMetricSnapshot *spy_store_get_snapshot(VekMetricStore *store) {
  SpyStore *self = SPY_STORE(store);
  self->n_snapshots++;
  g_clear_pointer(&self->snapshot, vek_metric_snapshot_unref);
  self->snapshot =
      vek_metric_snapshot_new((gdouble *)(gpointer)self->values->data, self->values->len);
  return vek_metric_snapshot_ref(self->snapshot);
}

static void spy_store_class_init(SpyStoreClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = spy_store_finalize;
  VEK_METRIC_STORE_CLASS(klass)->add = spy_store_add;
  VEK_METRIC_STORE_CLASS(klass)->get_snapshot = spy_store_get_snapshot;
}

static void spy_store_init(SpyStore *self) {
  self->values = g_array_new(FALSE, FALSE, sizeof(gdouble));
}

static SpyStore *spy_store_new(void) {
  return g_object_new(SPY_TYPE_STORE, NULL);
}

/* The count is the first field of a snapshot. */
static gint get_ref_count(VekMetricSnapshot *snapshot) {
  return g_atomic_int_get((gint *)snapshot);
}

static VekMetricHistogram *histogram_new(gpointer store) {
  return vek_metric_registry_histogram_new(fixture.registry, "latency", NULL, store, NULL);
}

TEST(histogram_without_a_store_reports_its_last_60_samples) {
  char *dimensions[] = {"host", "h1", NULL};
  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(fixture.registry, "latency", "Seconds", NULL, dimensions);
  for (guint i = 1; i <= 60; i++)
    vek_metric_histogram_set(histogram, i);
  vek_testing_clock_set(1000, 1);
  fixture_report();
  assert_recorded(fixture.record,
                  "a aggregated latency{host=h1} n=60 sum=1830 min=1 max=60 Seconds @1000\n"
                  "a flush\n");

  for (guint i = 61; i <= 100; i++)
    vek_metric_histogram_set(histogram, i);
  vek_testing_clock_set(2000, 1);
  fixture_report();
  assert_recorded(fixture.record,
                  "a aggregated latency{host=h1} n=60 sum=4230 min=41 max=100 Seconds @2000\n"
                  "a flush\n");
}

TEST(default_store_is_of_fixed_size) {
  g_autoptr(VekMetricHistogram) histogram = histogram_new(NULL);
  g_autoptr(VekMetricStore) store = NULL;
  g_object_get(histogram, "store", &store, NULL);
  g_assert_cmpstr(G_OBJECT_TYPE_NAME(store), ==, "VekMetricFixedSizeStore");
  guint window_size;
  g_object_get(store, "window-size", &window_size, NULL);
  g_assert_cmpuint(window_size, ==, 60);
}

TEST(given_store_is_used_and_held) {
  g_autoptr(SpyStore) store = spy_store_new();
  g_autoptr(VekMetricHistogram) histogram =
      g_object_new(VEK_TYPE_METRIC_HISTOGRAM, "name", "latency", "store", store, NULL);
  g_assert_cmpuint(G_OBJECT(store)->ref_count, ==, 2);

  g_autoptr(VekMetricStore) read = NULL;
  g_object_get(histogram, "store", &read, NULL);
  g_assert_true((gpointer)read == store);
  g_clear_object(&read);

  g_clear_object(&histogram);
  g_assert_cmpuint(G_OBJECT(store)->ref_count, ==, 1);
}

TEST(store_receives_exactly_the_values) {
  static const gdouble values[] = {1.5, NAN, -0.0, INFINITY, -INFINITY, 4.9e-324, 0.1, 1.5};
  g_autoptr(SpyStore) store = spy_store_new();
  g_autoptr(VekMetricHistogram) histogram = histogram_new(store);
  for (gsize i = 0; i < G_N_ELEMENTS(values); i++)
    vek_metric_histogram_set(histogram, values[i]);

  g_assert_cmpmem(store->values->data, store->values->len * sizeof(gdouble), values, sizeof values);
  g_assert_cmpuint(store->n_snapshots, ==, 0);
}

TEST(snapshot_is_the_one_of_the_store) {
  g_autoptr(SpyStore) store = spy_store_new();
  g_autoptr(VekMetricHistogram) histogram = histogram_new(store);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_histogram_get_snapshot(histogram);
  g_assert_true(snapshot == store->snapshot);
  g_assert_cmpint(get_ref_count(snapshot), ==, 2);
}

static void assert_has_snapshot(VekMetricReporter *reporter, VekMetricSnapshot *snapshot) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
  VekTestingRecorder *recorder = VEK_TESTING_RECORDER(reporter);
  g_assert_true(vek_testing_recorder_get_snapshot(recorder, "latency", NULL) == snapshot);
}

TEST(report_gives_one_snapshot_to_all_reporters_and_lets_it_go) {
  g_autoptr(SpyStore) store = spy_store_new();
  g_autoptr(VekMetricHistogram) histogram = histogram_new(store);
  vek_metric_histogram_set(histogram, 3);
  vek_metric_histogram_set(histogram, 1);
  g_autoptr(VekMetricReporter) other = record_to(fixture.record, "b");
  g_autoptr(GSList) reporters = g_slist_prepend(g_slist_prepend(NULL, other), fixture.reporter);

  vek_testing_clock_set(1000, 1);
  report_to(histogram, reporters);
  assert_recorded(fixture.record,
                  "a aggregated latency n=2 sum=4 min=1 max=3 @1000\n"
                  "b aggregated latency n=2 sum=4 min=1 max=3 @1000\n");
  g_assert_cmpuint(store->n_snapshots, ==, 1);
  assert_has_snapshot(fixture.reporter, store->snapshot);
  assert_has_snapshot(other, store->snapshot);
  /* Both reporters and the store. */
  g_assert_cmpint(get_ref_count(store->snapshot), ==, 3);
}

TEST(report_without_samples_passes_an_empty_snapshot) {
  g_autoptr(VekMetricHistogram) histogram = histogram_new(NULL);
  g_autoptr(VekMetricReporter) other = record_to(fixture.record, "b");
  g_autoptr(GSList) reporters = g_slist_prepend(g_slist_prepend(NULL, other), fixture.reporter);

  vek_testing_clock_set(1000, 1);
  report_to(histogram, reporters);
  assert_recorded(fixture.record,
                  "a aggregated latency n=0 sum=0 min=0 max=0 @1000\n"
                  "b aggregated latency n=0 sum=0 min=0 max=0 @1000\n");
}

TEST(report_to_nobody_takes_and_releases_one_snapshot) {
  g_autoptr(SpyStore) store = spy_store_new();
  g_autoptr(VekMetricHistogram) histogram = histogram_new(store);
  report_to(histogram, NULL);
  g_assert_cmpuint(store->n_snapshots, ==, 1);
  g_assert_cmpint(get_ref_count(store->snapshot), ==, 1);
}

TEST(disposing_twice_releases_the_store_once) {
  g_autoptr(SpyStore) store = spy_store_new();
  g_autoptr(VekMetricHistogram) histogram = histogram_new(store);
  run_dispose(histogram);
  g_assert_cmpuint(G_OBJECT(store)->ref_count, ==, 1);
  run_dispose(histogram);
  g_assert_cmpuint(G_OBJECT(store)->ref_count, ==, 1);
}

TEST(disposed_histogram_falls_to_the_checks_of_the_store) {
  g_autoptr(VekMetricHistogram) histogram = histogram_new(NULL);
  run_dispose(histogram);

  vek_metric_histogram_set(histogram, 1);
  assert_failed_check("vek_metric_store_add", "VEK_IS_METRIC_STORE(store)");
  g_assert_null(vek_metric_histogram_get_snapshot(histogram));
  assert_failed_check("vek_metric_store_get_snapshot", "VEK_IS_METRIC_STORE(store)");

  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new(NULL, NULL);
  vek_metric_registry_report(fixture.registry, reporter); /* which takes no samples */
  assert_failed_check("vek_metric_store_get_snapshot", "VEK_IS_METRIC_STORE(store)");
  assert_failed_check("vek_metric_snapshot_unref", "snapshot != NULL");
}

TEST(store_given_for_an_existing_key_is_released) {
  g_autoptr(SpyStore) store = spy_store_new();
  g_autoptr(VekMetricHistogram) histogram = histogram_new(store);

  SpyStore *unused = spy_store_new();
  g_autoptr(VekMetricHistogram) again = histogram_new(unused);
  g_assert_true(again == histogram);
  g_object_add_weak_pointer(G_OBJECT(unused), (gpointer *)&unused);
  g_object_unref(unused);
  g_assert_null(unused);

  vek_metric_histogram_set(again, 1);
  g_assert_cmpuint(store->values->len, ==, 1);
}

TEST(property_is_the_store) {
  GParamSpec *pspec = assert_construct_only_property(VEK_TYPE_METRIC_HISTOGRAM, "store");
  g_assert_cmpstr(G_PARAM_SPEC_TYPE_NAME(pspec), ==, "GParamObject");
  g_assert_cmpstr(g_type_name(pspec->value_type), ==, "VekMetricStore");

  g_autoptr(VekMetricHistogram) histogram = histogram_new(NULL);
  assert_unknown_property_warns(histogram);
}

TEST(failed_checks_do_nothing) {
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "load", NULL, 0, NULL);
  /* An object of another kind is not a histogram. */
  gpointer others[] = {NULL, gauge};

  for (gsize i = 0; i < G_N_ELEMENTS(others); i++) {
    vek_metric_histogram_set(others[i], 1);
    assert_failed_check("vek_metric_histogram_set", "VEK_IS_METRIC_HISTOGRAM(histogram)");
    g_assert_null(vek_metric_histogram_get_snapshot(others[i]));
    assert_failed_check("vek_metric_histogram_get_snapshot", "VEK_IS_METRIC_HISTOGRAM(histogram)");
  }
}

TEST(constructor_checks_registry_and_name) {
  g_autoptr(SpyStore) store = spy_store_new();
  g_assert_null(vek_metric_registry_histogram_new(NULL, "latency", NULL, (gpointer)store, NULL));
  assert_failed_check("vek_metric_registry_histogram_new", "VEK_IS_METRIC_REGISTRY(registry)");
  g_assert_null(
      vek_metric_registry_histogram_new(fixture.registry, NULL, NULL, (gpointer)store, NULL));
  assert_failed_check("vek_metric_registry_histogram_new", "name != NULL");
  g_assert_cmpuint(G_OBJECT(store)->ref_count, ==, 1);
}

TEST(metric_of_another_kind_is_returned_with_a_warning) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "latency", NULL, NULL);
  g_autoptr(GObject) returned = (gpointer)histogram_new(NULL);
  assert_invalid_cast("VekMetricCounter", "VekMetricHistogram");
  g_assert_true(returned == (gpointer)counter);
}

TEST(timer_is_a_histogram) {
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(fixture.registry, "latency", "Seconds", NULL, NULL);
  g_autoptr(VekMetricHistogram) histogram = histogram_new(NULL);
  g_assert_true((gpointer)histogram == timer);
}

enum { N_THREADS = 4, N_SAMPLES = 2000 };

static void set_many(guint thread, gpointer histogram) {
  for (guint i = 0; i < N_SAMPLES; i++)
    vek_metric_histogram_set(histogram, thread * N_SAMPLES + i);
}

TEST(threads_lose_and_double_no_sample) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(N_THREADS * N_SAMPLES + 1);
  g_autoptr(VekMetricHistogram) histogram = histogram_new(store);
  fixture_run_threads(N_THREADS, set_many, histogram);

  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_histogram_get_snapshot(histogram);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 8000);
  /* Each of the numbers from 0 to 7999 is there once, so in a sorted row each has its place. */
  for (guint i = 1; i < 8000; i++) {
    gdouble sample = vek_metric_snapshot_get_quantile(snapshot, i / 7999.0);
    g_assert_cmpfloat_with_epsilon(sample, i, 1e-6);
  }
}
