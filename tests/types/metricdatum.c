/* Tests of VekMetricDatum. */

#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"

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

TEST(new_datum_has_nothing_but_a_name) {
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

TEST(name_may_be_null) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new(NULL);
  g_assert_null(vek_metric_datum_get_metric_name(datum));
}

TEST(ref_and_unref_count_holders) {
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

TEST(holders_are_counted_across_threads) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  run_threads(4, ref_and_unref_often, read_datum, datum);
  g_assert_cmpint(datum_ref_count(datum), ==, 1);
}

TEST(boxed_copies_are_references) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_DATUM), ==, "VekMetricDatum");
  g_assert_true(G_TYPE_IS_BOXED(VEK_TYPE_METRIC_DATUM));

  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  gpointer copy = g_boxed_copy(VEK_TYPE_METRIC_DATUM, datum);
  g_assert_true(copy == datum);
  g_assert_cmpint(datum_ref_count(datum), ==, 2);
  g_boxed_free(VEK_TYPE_METRIC_DATUM, copy);
  g_assert_cmpint(datum_ref_count(datum), ==, 1);
}

TEST(refused_numbers_of_dimensions_leave_none) {
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

TEST(numbers_of_dimensions_from_1_to_10_are_accepted) {
  dimensions_new();
  for (guint n = 1; n <= 10; n++) {
    VekMetricDatum *datum = vek_metric_datum_new("frames");
    vek_metric_datum_set_dimensions(datum, dimensions, n);
    assert_dimensions(datum, n);
    vek_metric_datum_unref(datum);
  }
  dimensions_free();
}

TEST(last_unref_drops_one_reference_to_each_dimension) {
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

TEST(timestamp_reads_back) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  const gint64 timestamps[] = {1700000000004211, -1, G_MININT64, G_MAXINT64, 0};
  for (gsize i = 0; i < G_N_ELEMENTS(timestamps); i++) {
    vek_metric_datum_set_timestamp(datum, timestamps[i]);
    g_assert_cmpint(vek_metric_datum_get_timestamp(datum), ==, timestamps[i]);
  }
}

TEST(unit_is_copied) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  char unit[] = "any text";
  vek_metric_datum_set_unit(datum, unit);
  unit[0] = 'A';
  g_assert_cmpstr(vek_metric_datum_get_unit(datum), ==, "any text");
}

TEST(unit_may_be_null) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_unit(datum, NULL);
  g_assert_null(vek_metric_datum_get_unit(datum));
}

/* So that what a caller borrowed stays valid. */
TEST(second_unit_does_not_release_the_first) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_unit(datum, "Count");
  g_autofree char *first = (char *)vek_metric_datum_get_unit(datum);

  vek_metric_datum_set_unit(datum, "Seconds");

  g_assert_cmpstr(vek_metric_datum_get_unit(datum), ==, "Seconds");
  g_assert_cmpstr(first, ==, "Count");
}

TEST(second_dimensions_do_not_release_the_first) {
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

TEST(values_are_clamped) {
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

TEST(negative_zero_keeps_its_sign) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_value(datum, -0.0);
  g_assert_true(signbit(vek_metric_datum_get_value(datum)));
}

TEST(not_a_number_passes_through) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_value(datum, NAN);
  g_assert_true(isnan(vek_metric_datum_get_value(datum)));
  g_assert_true(vek_metric_datum_get_value_set(datum));
}

TEST(value_may_be_overwritten) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_value(datum, 1.0);
  vek_metric_datum_set_value(datum, 2.0);
  g_assert_cmpfloat(vek_metric_datum_get_value(datum), ==, 2.0);
}

TEST(statistics_are_never_clamped) {
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

TEST(failed_checks_name_their_own_function) {
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

TEST(missing_dimensions_are_checked_before_their_number) {
  g_autoptr(VekMetricDatum) datum = vek_metric_datum_new("frames");
  vek_metric_datum_set_dimensions(datum, NULL, 0);
  assert_failed_check("vek_metric_datum_set_dimensions", "dimensions != NULL");
  assert_dimensions(datum, 0);
}
