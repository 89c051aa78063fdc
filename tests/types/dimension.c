/* Tests of VekMetricDimension. */

#include <string.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/heap.h"

TEST(a_dimension_copies_its_strings) {
  char name[] = "host";
  char value[] = "h1";
  g_autoptr(VekMetricDimension) dimension = vek_metric_dimension_new(name, value);
  name[0] = value[0] = '?';

  g_assert_cmpstr(vek_metric_dimension_get_name(dimension), ==, "host");
  g_assert_cmpstr(vek_metric_dimension_get_value(dimension), ==, "h1");
}

TEST(null_strings_are_stored_as_null) {
  g_autoptr(VekMetricDimension) dimension = vek_metric_dimension_new(NULL, NULL);
  g_assert_nonnull(dimension);
  g_assert_null(vek_metric_dimension_get_name(dimension));
  g_assert_null(vek_metric_dimension_get_value(dimension));
}

TEST(each_string_may_be_null_or_empty_by_itself) {
  g_autoptr(VekMetricDimension) nameless = vek_metric_dimension_new(NULL, "h1");
  g_assert_null(vek_metric_dimension_get_name(nameless));
  g_assert_cmpstr(vek_metric_dimension_get_value(nameless), ==, "h1");

  g_autoptr(VekMetricDimension) empty = vek_metric_dimension_new("", NULL);
  g_assert_cmpstr(vek_metric_dimension_get_name(empty), ==, "");
  g_assert_null(vek_metric_dimension_get_value(empty));
}

TEST(getters_lend_the_same_strings_each_time) {
  g_autoptr(VekMetricDimension) dimension = vek_metric_dimension_new("host", "h1");
  const char *name = vek_metric_dimension_get_name(dimension);
  const char *value = vek_metric_dimension_get_value(dimension);
  g_assert_true(vek_metric_dimension_get_name(dimension) == name);
  g_assert_true(vek_metric_dimension_get_value(dimension) == value);
}

TEST(the_first_of_two_unrefs_leaves_the_strings_readable) {
  VekMetricDimension *dimension = vek_metric_dimension_new("host", "h1");
  g_assert_true(vek_metric_dimension_ref(dimension) == dimension);

  vek_metric_dimension_unref(dimension);
  g_assert_cmpstr(vek_metric_dimension_get_name(dimension), ==, "host");
  g_assert_cmpstr(vek_metric_dimension_get_value(dimension), ==, "h1");
  vek_metric_dimension_unref(dimension);
}

static void make_and_unref_twice(void) {
  VekMetricDimension *dimension = vek_metric_dimension_new("host", "h1");
  vek_metric_dimension_ref(dimension);
  vek_metric_dimension_unref(dimension);
  vek_metric_dimension_unref(dimension);
}

TEST(the_second_of_two_unrefs_frees_the_record) {
  assert_frees_all(make_and_unref_twice);
}

TEST(copying_a_boxed_dimension_takes_a_reference) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_DIMENSION), ==, "VekMetricDimension");
  g_assert_true(G_TYPE_IS_BOXED(VEK_TYPE_METRIC_DIMENSION));

  VekMetricDimension *dimension = vek_metric_dimension_new("host", "h1");
  gpointer copy = g_boxed_copy(VEK_TYPE_METRIC_DIMENSION, dimension);
  g_assert_true(copy == dimension);

  vek_metric_dimension_unref(dimension);
  g_assert_cmpstr(vek_metric_dimension_get_name(copy), ==, "host");
  g_boxed_free(VEK_TYPE_METRIC_DIMENSION, copy);
}

static void make_and_free_as_boxed(void) {
  VekMetricDimension *dimension = vek_metric_dimension_new("host", "h1");
  g_boxed_free(VEK_TYPE_METRIC_DIMENSION, g_boxed_copy(VEK_TYPE_METRIC_DIMENSION, dimension));
  g_boxed_free(VEK_TYPE_METRIC_DIMENSION, dimension);
}

TEST(freeing_a_boxed_dimension_drops_a_reference) {
  assert_frees_all(make_and_free_as_boxed);
}

TEST(failed_checks_log_and_return_null) {
  g_assert_null(vek_metric_dimension_ref(NULL));
  assert_failed_check("vek_metric_dimension_ref", "dimension != NULL");
  vek_metric_dimension_unref(NULL);
  assert_failed_check("vek_metric_dimension_unref", "dimension != NULL");
  g_assert_null(vek_metric_dimension_get_name(NULL));
  assert_failed_check("vek_metric_dimension_get_name", "dimension != NULL");
  g_assert_null(vek_metric_dimension_get_value(NULL));
  assert_failed_check("vek_metric_dimension_get_value", "dimension != NULL");
}

static void ref_and_unref_often(guint thread, gpointer dimension) {
  (void)thread;
  for (guint i = 0; i < 40000; i++) {
    vek_metric_dimension_ref(dimension);
    vek_metric_dimension_unref(dimension);
    if (i % 100 == 0) /* or each thread does all its work in one time slice, alone */
      g_thread_yield();
  }
}

static char long_name[65536];

static void read_dimension(gpointer dimension) {
  g_assert_cmpstr(vek_metric_dimension_get_name(dimension), ==, long_name);
  g_assert_cmpstr(vek_metric_dimension_get_value(dimension), ==, "value");
}

TEST(threads_share_a_dimension) {
  memset(long_name, 'n', sizeof long_name - 1);
  gsize used = heap_get_used();

  VekMetricDimension *dimension = vek_metric_dimension_new(long_name, "value");
  run_threads(4, ref_and_unref_often, read_dimension, dimension);

  /* A count that is off by one either way would not free the long name now. */
  vek_metric_dimension_unref(dimension);
  g_assert_cmpuint(heap_get_used(), <, used + sizeof long_name);
}
