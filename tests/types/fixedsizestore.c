/* Tests of VekMetricFixedSizeStore. */

#include "storetest.h"
#include "support/fixture.h"
#include "support/modeltest.h"

#include <math.h>

TEST(type_is_a_store_with_a_window_size) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_FIXED_SIZE_STORE), ==, "VekMetricFixedSizeStore");
  g_assert_cmpstr(g_type_name(g_type_parent(VEK_TYPE_METRIC_FIXED_SIZE_STORE)), ==,
                  "VekMetricStore");

  GParamSpecUInt *window_size = G_PARAM_SPEC_UINT(
      assert_construct_only_property(VEK_TYPE_METRIC_FIXED_SIZE_STORE, "window-size"));
  g_assert_cmpuint(window_size->minimum, ==, 1);
  g_assert_cmpuint(window_size->maximum, ==, G_MAXUINT);
  g_assert_cmpuint(window_size->default_value, ==, 60);
}

static guint get_window_size(VekMetricStore *store) {
  guint window_size = 77;
  g_object_get(store, "window-size", &window_size, NULL);
  return window_size;
}

TEST(window_size_reads_as_given_at_construction) {
  g_autoptr(VekMetricStore) of_default = g_object_new(VEK_TYPE_METRIC_FIXED_SIZE_STORE, NULL);
  g_assert_cmpuint(get_window_size(of_default), ==, 60);
  g_autoptr(VekMetricStore) smallest = vek_metric_fixed_size_store_new(1);
  g_assert_cmpuint(get_window_size(smallest), ==, 1);
  g_autoptr(VekMetricStore) large = vek_metric_fixed_size_store_new(100000);
  g_assert_cmpuint(get_window_size(large), ==, 100000);
}

TEST(window_size_of_0_is_refused) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(0);
  assert_logged("GLib-GObject", G_LOG_LEVEL_WARNING,
                "value \"0\" of type 'guint' is invalid or out of range for property "
                "'window-size' of type 'guint'");
  g_assert_cmpuint(get_window_size(store), ==, 0);
  assert_samples(store, "");
}

TEST(window_size_cannot_be_changed_later) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(3);
  g_object_set(store, "window-size", 4, NULL);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING,
                     "*construct property \"window-size\" for object 'VekMetricFixedSizeStore' "
                     "can't be set after construction");
  g_assert_cmpuint(get_window_size(store), ==, 3);
}

TEST(unknown_property_id_is_warned_of) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(3);
  assert_unknown_property_warns(store);
  g_assert_cmpuint(get_window_size(store), ==, 3);
}

TEST(new_store_is_empty) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(3);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(store);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 0);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 0);
  g_assert_cmpfloat(vek_metric_snapshot_get_average(snapshot), ==, 0);
  g_assert_cmpfloat(vek_metric_snapshot_get_min(snapshot), ==, 0);
  g_assert_cmpfloat(vek_metric_snapshot_get_max(snapshot), ==, 0);
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, 0.5), ==, 0);
}

TEST(ring_keeps_the_newest_samples) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(3);
  static const char *const held[] = {"1", "1 2", "1 2 3", "2 3 4", "3 4 5", "4 5 6", "5 6 7"};
  for (guint i = 0; i < G_N_ELEMENTS(held); i++) {
    vek_metric_store_add(store, i + 1);
    assert_samples(store, held[i]);
  }
}

TEST(with_window_3_five_samples_leave_3_4_5) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(3);
  add_samples(store, 1, 5);
  assert_samples(store, "3 4 5");
}

TEST(window_of_1_holds_the_last_sample) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(1);
  add_samples(store, 1, 2);
  assert_samples(store, "2");
}

TEST(default_window_holds_60_samples) {
  g_autoptr(VekMetricStore) store = g_object_new(VEK_TYPE_METRIC_FIXED_SIZE_STORE, NULL);
  add_samples(store, 1, 61);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(store);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 60);
  g_assert_cmpfloat(vek_metric_snapshot_get_min(snapshot), ==, 2);
  g_assert_cmpfloat(vek_metric_snapshot_get_max(snapshot), ==, 61);
}

TEST(snapshots_without_an_add_between_are_the_same) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(3);
  add_samples(store, 1, 4);
  assert_samples(store, "2 3 4");
  assert_samples(store, "2 3 4");
}

TEST(snapshot_is_a_copy_sorted_and_stamped_by_the_wall_clock) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(3);
  vek_testing_clock_set(1000, 5);
  vek_metric_store_add(store, 3);
  vek_metric_store_add(store, 1);
  vek_metric_store_add(store, 2);
  vek_testing_clock_set(2000, 6);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(store);
  vek_metric_store_add(store, 9);

  g_autofree char *samples = describe_samples(snapshot);
  g_assert_cmpstr(samples, ==, "1 2 3");
  g_assert_cmpint(vek_metric_snapshot_get_time(snapshot), ==, 2000);
  assert_samples(store, "1 2 9");
}

TEST(samples_that_are_no_finite_number_are_stored_as_given) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(2);
  vek_metric_store_add(store, INFINITY);
  vek_metric_store_add(store, -INFINITY);
  assert_samples(store, "-inf inf");

  g_autoptr(VekMetricStore) single = vek_metric_fixed_size_store_new(1);
  vek_metric_store_add(single, NAN);
  assert_samples(single, "nan");
}

TEST(snapshot_is_made_under_the_lock) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(2);
  check_snapshot_keeps_others_out(store);
}

TEST(threads_lose_no_sample_of_a_large_ring) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(500000);
  check_adding_from_threads(store, 500000);
}

TEST(threads_push_out_only_the_oldest) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(9);
  check_adding_from_threads(store, 9);
}

/* The model: every sample ever added, of which the last ones count. */
typedef struct {
  VekMetricStore *store;
  GArray *added;
  guint window_size;
} Subject;

static gpointer begin(GRand *random) {
  Subject *subject = g_new(Subject, 1);
  subject->window_size = (guint)g_rand_int_range(random, 1, 9);
  subject->store = vek_metric_fixed_size_store_new(subject->window_size);
  subject->added = g_array_new(FALSE, FALSE, sizeof(gdouble));
  return subject;
}

static void draw(GRand *random, ModelOperation *operation) {
  operation->value = g_rand_int_range(random, -50, 50);
}

static char *apply(gpointer data, const ModelOperation *operation) {
  Subject *subject = data;
  vek_metric_store_add(subject->store, operation->value);
  g_array_append_val(subject->added, operation->value);

  guint n_held = MIN(subject->added->len, subject->window_size);
  const gdouble *held = (const gdouble *)subject->added->data + (subject->added->len - n_held);
  return compare_samples(subject->store, held, n_held);
}

static void end(gpointer data) {
  Subject *subject = data;
  g_object_unref(subject->store);
  g_array_unref(subject->added);
  g_free(subject);
}

static char *describe(const ModelOperation *operation) {
  return g_strdup_printf("add %g", operation->value);
}

TEST(random_histories_agree_with_a_model) {
  static const ModelTest test = {begin, draw, apply, end, describe};
  model_test_run(&test, 30000);
}
