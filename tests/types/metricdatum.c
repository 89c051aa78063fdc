/* Tests of VekMetricDatum. */

#include <vekmetrics/vekmetrics.h>

#include "support/logcapture.h"
#include "support/scene.h"

#include <math.h>

/* How the records begin: what their own operations do not show is looked up here. */
typedef struct {
  int ref_count;
  char *metric_name;
  GPtrArray *dimensions;
} DatumHead;

static int datum_ref_count(VekMetricDatum *datum) {
  return g_atomic_int_get(&((DatumHead *)datum)->ref_count);
}

static int dimension_ref_count(VekMetricDimension *dimension) {
  return g_atomic_int_get((int *)dimension);
}

#define N_DIMENSIONS 11

static VekMetricDimension *dimensions[N_DIMENSIONS];

static void dimensions_new(void) {
  for (int i = 0; i < N_DIMENSIONS; i++) {
    g_autofree char *name = g_strdup_printf("name%d", i);
    g_autofree char *value = g_strdup_printf("value%d", i);
    dimensions[i] = vek_metric_dimension_new(name, value);
  }
}

/* Drops the test's references, which must be the only ones. */
static void dimensions_free(void) {
  for (int i = 0; i < N_DIMENSIONS; i++) {
    g_assert_cmpint(dimension_ref_count(dimensions[i]), ==, 1);
    vek_metric_dimension_unref(dimensions[i]);
  }
}

static void assert_dimensions(VekMetricDatum *datum, guint n_dimensions) {
  guint n = 99;
  VekMetricDimension **found = vek_metric_datum_get_dimensions(datum, &n);
  g_assert_cmpuint(n, ==, n_dimensions);
  for (guint i = 0; i < n; i++)
    g_assert_true(found[i] == dimensions[i]);
  if (n_dimensions == 0)
    g_assert_null(found);
}

static void new_datum_has_nothing_but_a_name(void) {
  char name[] = "frames";
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new(name);
  name[0] = 'F'; /* it was copied */

  g_assert_cmpint(datum_ref_count(datum), ==, 1);
  g_assert_cmpstr(vek_metric_datum_get_metric_name(datum), ==, "frames");
  assert_dimensions(datum, 0);
  g_assert_cmpint(vek_metric_datum_get_timestamp(datum), ==, 0);
  g_assert_null(vek_metric_datum_get_unit(datum));
  g_assert_false(vek_metric_datum_get_value_set(datum));
  g_assert_cmpfloat(vek_metric_datum_get_value(datum), ==, 0.0);
  g_assert_false(vek_metric_datum_get_statistic_values_set(datum));
  guint64 sample_count = 1;
  gdouble sum = 1, minimum = 1, maximum = 1;
  vek_metric_datum_get_statistic_values(datum, &sample_count, &sum, &minimum, &maximum);
  g_assert_cmpuint(sample_count, ==, 0);
  g_assert_cmpfloat(sum, ==, 0.0);
  g_assert_cmpfloat(minimum, ==, 0.0);
  g_assert_cmpfloat(maximum, ==, 0.0);
}

static void name_may_be_null(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new(NULL);
  g_assert_null(vek_metric_datum_get_metric_name(datum));
}

static void ref_and_unref_count_holders(void) {
  VekMetricDatum *datum = vek_metric_datum_new("frames");
  g_assert_true(vek_metric_datum_ref(datum) == datum);
  g_assert_cmpint(datum_ref_count(datum), ==, 2);
  vek_metric_datum_unref(datum);
  g_assert_cmpint(datum_ref_count(datum), ==, 1);
  g_assert_cmpstr(vek_metric_datum_get_metric_name(datum), ==, "frames");
  vek_metric_datum_unref(datum);
}

static void ref_and_unref_often(guint thread, gpointer datum) {
  (void)thread;
  for (guint i = 0; i < 40000; i++) {
    vek_metric_datum_ref(datum);
    vek_metric_datum_unref(datum);
    if (i % 100 == 0) /* or each thread does all its work in one time slice, alone */
      g_thread_yield();
  }
}

static void read_datum(gpointer datum) {
  g_assert_cmpstr(vek_metric_datum_get_metric_name(datum), ==, "frames");
}

static void holders_are_counted_across_threads(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  run_threads(4, ref_and_unref_often, read_datum, datum);
  g_assert_cmpint(datum_ref_count(datum), ==, 1);
}

static void boxed_copies_are_references(void) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_DATUM), ==, "VekMetricDatum");
  g_assert_true(G_TYPE_IS_BOXED(VEK_TYPE_METRIC_DATUM));

  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  gpointer copy = g_boxed_copy(VEK_TYPE_METRIC_DATUM, datum);
  g_assert_true(copy == datum);
  g_assert_cmpint(datum_ref_count(datum), ==, 2);
  g_boxed_free(VEK_TYPE_METRIC_DATUM, copy);
  g_assert_cmpint(datum_ref_count(datum), ==, 1);
}

static void refused_numbers_of_dimensions_leave_none(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  dimensions_new();
  const guint refused[] = {0, 11, G_MAXUINT};
  for (gsize i = 0; i < G_N_ELEMENTS(refused); i++) {
    vek_metric_datum_set_dimensions(datum, dimensions, refused[i]);
    assert_failed_check("vek_metric_datum_set_dimensions",
                        "n_dimensions > 0 && n_dimensions <= 10");
    assert_dimensions(datum, 0);
  }
  dimensions_free();
}

static void numbers_of_dimensions_from_1_to_10_are_accepted(void) {
  dimensions_new();
  for (guint n = 1; n <= 10; n++) {
    VekMetricDatum *datum = vek_metric_datum_new("frames");
    vek_metric_datum_set_dimensions(datum, dimensions, n);
    assert_dimensions(datum, n);
    vek_metric_datum_unref(datum);
  }
  dimensions_free();
}

static void last_unref_drops_one_reference_to_each_dimension(void) {
  VekMetricDatum *datum = vek_metric_datum_new("frames");
  dimensions_new();
  vek_metric_datum_set_dimensions(datum, dimensions, 2);
  g_assert_cmpint(dimension_ref_count(dimensions[0]), ==, 2);
  g_assert_cmpint(dimension_ref_count(dimensions[1]), ==, 2);
  g_assert_cmpint(dimension_ref_count(dimensions[2]), ==, 1);

  vek_metric_datum_ref(datum);
  vek_metric_datum_unref(datum);
  g_assert_cmpint(dimension_ref_count(dimensions[0]), ==, 2);
  vek_metric_datum_unref(datum);
  dimensions_free();
}

static void timestamp_reads_back(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  const gint64 timestamps[] = {1700000000004211, -1, G_MININT64, G_MAXINT64, 0};
  for (gsize i = 0; i < G_N_ELEMENTS(timestamps); i++) {
    vek_metric_datum_set_timestamp(datum, timestamps[i]);
    g_assert_cmpint(vek_metric_datum_get_timestamp(datum), ==, timestamps[i]);
  }
}

static void unit_is_copied(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  char unit[] = "any text";
  vek_metric_datum_set_unit(datum, unit);
  unit[0] = 'A';
  g_assert_cmpstr(vek_metric_datum_get_unit(datum), ==, "any text");
}

static void unit_may_be_null(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_unit(datum, NULL);
  g_assert_null(vek_metric_datum_get_unit(datum));
}

/* So that what a caller borrowed stays valid. */
static void second_unit_does_not_release_the_first(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_unit(datum, "Count");
  g_autofree char *first = (char *)vek_metric_datum_get_unit(datum);

  vek_metric_datum_set_unit(datum, "Seconds");

  g_assert_cmpstr(vek_metric_datum_get_unit(datum), ==, "Seconds");
  g_assert_cmpstr(first, ==, "Count");
}

static void second_dimensions_do_not_release_the_first(void) {
  VekMetricDatum *datum = vek_metric_datum_new("frames");
  dimensions_new();
  vek_metric_datum_set_dimensions(datum, dimensions + 5, 2);
  g_autoptr(GPtrArray) first = ((DatumHead *)datum)->dimensions;

  vek_metric_datum_set_dimensions(datum, dimensions, 1);

  assert_dimensions(datum, 1);
  vek_metric_datum_unref(datum);
  g_assert_cmpint(dimension_ref_count(dimensions[0]), ==, 1);
  g_assert_cmpint(dimension_ref_count(dimensions[5]), ==, 2);
  g_assert_cmpint(dimension_ref_count(dimensions[6]), ==, 2);
  g_clear_pointer(&first, g_ptr_array_unref);
  dimensions_free();
}

static void values_are_clamped(void) {
  static const struct {
    gdouble value, stored;
  } rows[] = {
      {42.5, 42.5},
      {1e200, 2.348543e108},
      {-1e200, -2.348543e108},
      {2.348543e108, 2.348543e108},
      {-2.348543e108, -2.348543e108},
      {0x1.000002fb03c9ap+360, 0x1.000002fb03c9ap+360},
      {0x1.000002fb03c9cp+360, 0x1.000002fb03c9bp+360},
      {INFINITY, 2.348543e108},
      {-INFINITY, -2.348543e108},
      {5e-324, 5e-324},
      {0.0, 0.0},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
    vek_metric_datum_set_value(datum, rows[i].value);
    g_assert_cmpfloat(vek_metric_datum_get_value(datum), ==, rows[i].stored);
    g_assert_true(vek_metric_datum_get_value_set(datum));
    g_assert_false(vek_metric_datum_get_statistic_values_set(datum));
  }
}

static void negative_zero_keeps_its_sign(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_value(datum, -0.0);
  g_assert_true(signbit(vek_metric_datum_get_value(datum)));
}

static void not_a_number_passes_through(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_value(datum, NAN);
  g_assert_true(isnan(vek_metric_datum_get_value(datum)));
  g_assert_true(vek_metric_datum_get_value_set(datum));
}

static void value_may_be_overwritten(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_value(datum, 1.0);
  vek_metric_datum_set_value(datum, 2.0);
  g_assert_cmpfloat(vek_metric_datum_get_value(datum), ==, 2.0);
}

static void statistics_are_never_clamped(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  guint64 sample_count;
  gdouble sum, minimum, maximum;

  vek_metric_datum_set_statistic_values(datum, 3, 1.0, 2.0, 3.0);
  vek_metric_datum_set_statistic_values(datum, G_MAXUINT64, 1e200, -INFINITY, 1.5e300);
  vek_metric_datum_get_statistic_values(datum, &sample_count, &sum, &minimum, &maximum);

  g_assert_cmpuint(sample_count, ==, G_MAXUINT64);
  g_assert_cmpfloat(sum, ==, 1e200);
  g_assert_cmpfloat(minimum, ==, -INFINITY);
  g_assert_cmpfloat(maximum, ==, 1.5e300);
  g_assert_true(vek_metric_datum_get_statistic_values_set(datum));
  g_assert_false(vek_metric_datum_get_value_set(datum));
}

static void failed_checks_name_their_own_function(void) {
  guint n = 99;
  guint64 sample_count = 1;
  gdouble sum = 2, minimum = 3, maximum = 4;

  g_assert_null(vek_metric_datum_ref(NULL));
  assert_failed_check("vek_metric_datum_ref", "datum != NULL");
  vek_metric_datum_unref(NULL);
  assert_failed_check("vek_metric_datum_unref", "datum != NULL");
  g_assert_null(vek_metric_datum_get_metric_name(NULL));
  assert_failed_check("vek_metric_datum_get_metric_name", "datum != NULL");
  g_assert_null(vek_metric_datum_get_dimensions(NULL, &n));
  assert_failed_check("vek_metric_datum_get_dimensions", "datum != NULL");
  g_assert_cmpuint(n, ==, 99);
  vek_metric_datum_set_dimensions(NULL, NULL, 0);
  assert_failed_check("vek_metric_datum_set_dimensions", "datum != NULL");
  g_assert_cmpint(vek_metric_datum_get_timestamp(NULL), ==, 0);
  assert_failed_check("vek_metric_datum_get_timestamp", "datum != NULL");
  vek_metric_datum_set_timestamp(NULL, 1);
  assert_failed_check("vek_metric_datum_set_timestamp", "datum != NULL");
  g_assert_null(vek_metric_datum_get_unit(NULL));
  assert_failed_check("vek_metric_datum_get_unit", "datum != NULL");
  vek_metric_datum_set_unit(NULL, "Count");
  assert_failed_check("vek_metric_datum_set_unit", "datum != NULL");
  g_assert_cmpfloat(vek_metric_datum_get_value(NULL), ==, 0.0);
  assert_failed_check("vek_metric_datum_get_value", "datum != NULL");
  vek_metric_datum_set_value(NULL, 1.0);
  assert_failed_check("vek_metric_datum_set_value", "datum != NULL");
  g_assert_false(vek_metric_datum_get_value_set(NULL));
  assert_failed_check("vek_metric_datum_get_value_set", "datum != NULL");
  vek_metric_datum_get_statistic_values(NULL, &sample_count, &sum, &minimum, &maximum);
  assert_failed_check("vek_metric_datum_get_statistic_values", "datum != NULL");
  g_assert_cmpuint(sample_count, ==, 1);
  g_assert_cmpfloat(sum, ==, 2);
  g_assert_cmpfloat(minimum, ==, 3);
  g_assert_cmpfloat(maximum, ==, 4);
  vek_metric_datum_set_statistic_values(NULL, 1, 2, 3, 4);
  assert_failed_check("vek_metric_datum_set_statistic_values", "datum != NULL");
  g_assert_false(vek_metric_datum_get_statistic_values_set(NULL));
  assert_failed_check("vek_metric_datum_get_statistic_values_set", "datum != NULL");
}

static void missing_dimensions_are_checked_before_their_number(void) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_dimensions(datum, NULL, 0);
  assert_failed_check("vek_metric_datum_set_dimensions", "dimensions != NULL");
  assert_dimensions(datum, 0);
}

int main(int argc, char **argv) {
  g_test_init(&argc, &argv, NULL);
  log_capture_init();

  ADD_TEST("metricdatum", new_datum_has_nothing_but_a_name);
  ADD_TEST("metricdatum", name_may_be_null);
  ADD_TEST("metricdatum", ref_and_unref_count_holders);
  ADD_TEST("metricdatum", holders_are_counted_across_threads);
  ADD_TEST("metricdatum", boxed_copies_are_references);
  ADD_TEST("metricdatum", refused_numbers_of_dimensions_leave_none);
  ADD_TEST("metricdatum", numbers_of_dimensions_from_1_to_10_are_accepted);
  ADD_TEST("metricdatum", last_unref_drops_one_reference_to_each_dimension);
  ADD_TEST("metricdatum", timestamp_reads_back);
  ADD_TEST("metricdatum", unit_is_copied);
  ADD_TEST("metricdatum", unit_may_be_null);
  ADD_TEST("metricdatum", second_unit_does_not_release_the_first);
  ADD_TEST("metricdatum", second_dimensions_do_not_release_the_first);
  ADD_TEST("metricdatum", values_are_clamped);
  ADD_TEST("metricdatum", negative_zero_keeps_its_sign);
  ADD_TEST("metricdatum", not_a_number_passes_through);
  ADD_TEST("metricdatum", value_may_be_overwritten);
  ADD_TEST("metricdatum", statistics_are_never_clamped);
  ADD_TEST("metricdatum", failed_checks_name_their_own_function);
  ADD_TEST("metricdatum", missing_dimensions_are_checked_before_their_number);

  return g_test_run();
}
