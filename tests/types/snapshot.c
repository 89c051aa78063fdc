/* Tests of VekMetricSnapshot. */

#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <vekmetrics/vekmetrics.h>

#include "support/fixture.h"
#include "support/heap.h"

#define ONE_TO_FIVE 1, 2, 3, 4, 5

/* A snapshot of the values that follow. */
#define SNAPSHOT(...)                                     \
  vek_metric_snapshot_new((const gdouble[]){__VA_ARGS__}, \
                          sizeof((const gdouble[]){__VA_ARGS__}) / sizeof(gdouble))

static void assert_all_zero(VekMetricSnapshot *snapshot, gsize n_samples) {
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, n_samples);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 0.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_average(snapshot), ==, 0.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_min(snapshot), ==, 0.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_max(snapshot), ==, 0.0);
  for (guint percent = 0; percent <= 100; percent++)
    g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, percent / 100.0), ==, 0.0);
}

TEST(no_array_and_no_samples_give_zeros) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(NULL, 0);
  assert_all_zero(snapshot, 0);
}

TEST(an_array_without_samples_gives_zeros) {
  const gdouble samples[] = {7.0};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, 0);
  assert_all_zero(snapshot, 0);
}

TEST(samples_without_an_array_are_counted_and_give_zeros) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(NULL, 7);
  assert_all_zero(snapshot, 7);
}

TEST(one_sample_is_every_statistic) {
  g_autoptr(VekMetricSnapshot) snapshot = SNAPSHOT(-2.5);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 1);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, -2.5);
  g_assert_cmpfloat(vek_metric_snapshot_get_average(snapshot), ==, -2.5);
  g_assert_cmpfloat(vek_metric_snapshot_get_min(snapshot), ==, -2.5);
  g_assert_cmpfloat(vek_metric_snapshot_get_max(snapshot), ==, -2.5);
  for (guint percent = 0; percent <= 100; percent++)
    g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, percent / 100.0), ==, -2.5);
}

TEST(several_samples_give_their_statistics) {
  g_autoptr(VekMetricSnapshot) snapshot = SNAPSHOT(4, -1, 2.5, 0.5);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 4);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 6.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_average(snapshot), ==, 1.5);
  g_assert_cmpfloat(vek_metric_snapshot_get_min(snapshot), ==, -1.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_max(snapshot), ==, 4.0);
}

TEST(the_smallest_samples_are_added_first) {
  /* 2^53 takes up 1 only by pairs. */
  g_autoptr(VekMetricSnapshot) snapshot = SNAPSHOT(9007199254740992.0, 1, 1);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 9007199254740994.0);
}

TEST(a_quantile_is_interpolated_from_position_one_on) {
  static const struct {
    gdouble samples[5];
    gsize n_samples;
    gdouble q;
    gdouble quantile;
  } rows[] = {
      {{ONE_TO_FIVE}, 5, 0.5, 3.0},    {{ONE_TO_FIVE}, 5, 0.99, 4.96},
      {{10, 20}, 2, 0.5, 10.0},        {{10, 20}, 2, 1.0, 20.0},
      {{ONE_TO_FIVE}, 5, 0.0, 1.0},    {{ONE_TO_FIVE}, 5, -0.0, 1.0},
      {{ONE_TO_FIVE}, 5, 0.2499, 1.0}, {{ONE_TO_FIVE}, 5, 0.25, 2.0},
      {{ONE_TO_FIVE}, 5, 0.375, 2.5},  {{ONE_TO_FIVE}, 5, 0.75, 4.0},
      {{ONE_TO_FIVE}, 5, 1.0, 5.0},    {{1, 2, 10}, 3, 0.25, 1.0},
      {{1, 2, 10}, 3, 0.5, 2.0},       {{1, 2, 10}, 3, 0.75, 6.0},
      {{1, 2, 10}, 3, 1.0, 10.0},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricSnapshot) snapshot =
        vek_metric_snapshot_new(rows[i].samples, rows[i].n_samples);
    g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, rows[i].q), ==, rows[i].quantile);
  }
}

TEST(quantile_zero_is_the_minimum_and_one_the_maximum) {
  g_autoptr(VekMetricSnapshot) snapshot = SNAPSHOT(5, -3, 9, 1);
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, 0.0), ==, -3.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, 1.0), ==, 9.0);
}

TEST(of_two_samples_every_quantile_below_one_is_the_smaller) {
  g_autoptr(VekMetricSnapshot) snapshot = SNAPSHOT(20, 10);
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, 0.75), ==, 10.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, nextafter(1.0, 0.0)), ==, 10.0);
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, 1.0), ==, 20.0);
}

TEST(a_quantile_out_of_range_is_a_failed_check) {
  const gdouble out_of_range[] = {-0.1,      1.1,      -5e-324, nextafter(1.0, 2.0),
                                  -INFINITY, INFINITY, NAN};
  g_autoptr(VekMetricSnapshot) snapshot = SNAPSHOT(ONE_TO_FIVE);
  g_autoptr(VekMetricSnapshot) empty = vek_metric_snapshot_new(NULL, 0);
  for (gsize i = 0; i < G_N_ELEMENTS(out_of_range); i++) {
    g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, out_of_range[i]), ==, 0.0);
    assert_failed_check("vek_metric_snapshot_get_quantile", "q >= 0 && q <= 1");
    g_assert_cmpfloat(vek_metric_snapshot_get_quantile(empty, out_of_range[i]), ==, 0.0);
    assert_failed_check("vek_metric_snapshot_get_quantile", "q >= 0 && q <= 1");
  }
}

TEST(the_callers_array_is_left_in_its_order) {
  gdouble samples[] = {5, 3, 1, 4, 2};
  const gdouble unchanged[] = {5, 3, 1, 4, 2};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, G_N_ELEMENTS(samples));
  g_assert_cmpmem(samples, sizeof samples, unchanged, sizeof unchanged);
  g_assert_cmpfloat(vek_metric_snapshot_get_min(snapshot), ==, 1.0);
}

TEST(the_snapshots_samples_are_ascending_copies) {
  gdouble samples[] = {5, 3, 1, 4, 2};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, G_N_ELEMENTS(samples));
  for (gsize i = 0; i < G_N_ELEMENTS(samples); i++)
    samples[i] = 99;
  for (gsize i = 0; i < G_N_ELEMENTS(samples); i++)
    g_assert_cmpfloat(vek_metric_snapshot_get_quantile(snapshot, i / 4.0), ==, i + 1.0);
}

TEST(time_is_the_wall_clock_at_creation) {
  vek_testing_clock_set(G_GINT64_CONSTANT(1700000000123456), 5);
  count_readings();
  g_autoptr(VekMetricSnapshot) snapshot = SNAPSHOT(ONE_TO_FIVE);
  g_assert_cmpuint(get_real_readings(), ==, 1);
  g_assert_cmpuint(get_monotonic_readings(), ==, 0);

  vek_testing_clock_advance(1000);
  g_assert_cmpint(vek_metric_snapshot_get_time(snapshot), ==, G_GINT64_CONSTANT(1700000000123456));
  g_autoptr(VekMetricSnapshot) later = vek_metric_snapshot_new(NULL, 0);
  g_assert_cmpint(vek_metric_snapshot_get_time(later), ==, G_GINT64_CONSTANT(1700000000124456));
}

TEST(failed_checks_log_and_return_neutral_values) {
  g_assert_null(vek_metric_snapshot_ref(NULL));
  assert_failed_check("vek_metric_snapshot_ref", "snapshot != NULL");
  vek_metric_snapshot_unref(NULL);
  assert_failed_check("vek_metric_snapshot_unref", "snapshot != NULL");
  g_assert_cmpint(vek_metric_snapshot_get_time(NULL), ==, 0);
  assert_failed_check("vek_metric_snapshot_get_time", "snapshot != NULL");
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(NULL), ==, 0);
  assert_failed_check("vek_metric_snapshot_get_n_samples", "snapshot != NULL");
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(NULL), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_sum", "snapshot != NULL");
  g_assert_cmpfloat(vek_metric_snapshot_get_average(NULL), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_average", "snapshot != NULL");
  g_assert_cmpfloat(vek_metric_snapshot_get_min(NULL), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_min", "snapshot != NULL");
  g_assert_cmpfloat(vek_metric_snapshot_get_max(NULL), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_max", "snapshot != NULL");
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(NULL, 0.5), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_quantile", "snapshot != NULL");
}

TEST(the_snapshot_is_checked_before_the_quantile) {
  g_assert_cmpfloat(vek_metric_snapshot_get_quantile(NULL, 2.0), ==, 0.0);
  assert_failed_check("vek_metric_snapshot_get_quantile", "snapshot != NULL");
}

TEST(copying_a_boxed_snapshot_takes_a_reference) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_SNAPSHOT), ==, "VekMetricSnapshot");
  g_assert_true(G_TYPE_IS_BOXED(VEK_TYPE_METRIC_SNAPSHOT));

  VekMetricSnapshot *snapshot = SNAPSHOT(ONE_TO_FIVE);
  gpointer copy = g_boxed_copy(VEK_TYPE_METRIC_SNAPSHOT, snapshot);
  g_assert_true(copy == snapshot);

  vek_metric_snapshot_unref(snapshot);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(copy), ==, 15.0);
  g_boxed_free(VEK_TYPE_METRIC_SNAPSHOT, copy);
}

TEST(the_first_of_two_unrefs_leaves_the_samples_readable) {
  VekMetricSnapshot *snapshot = SNAPSHOT(ONE_TO_FIVE);
  g_assert_true(vek_metric_snapshot_ref(snapshot) == snapshot);
  vek_metric_snapshot_unref(snapshot);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 15.0);
  vek_metric_snapshot_unref(snapshot);
}

static void make_and_unref(void) {
  VekMetricSnapshot *snapshot = SNAPSHOT(ONE_TO_FIVE);
  g_boxed_free(VEK_TYPE_METRIC_SNAPSHOT, g_boxed_copy(VEK_TYPE_METRIC_SNAPSHOT, snapshot));
  vek_metric_snapshot_ref(snapshot);
  vek_metric_snapshot_unref(snapshot);
  vek_metric_snapshot_unref(snapshot);
}

TEST(the_last_unref_frees_the_array) {
  assert_frees_all(make_and_unref);
}

static void ref_and_unref_often(guint thread, gpointer snapshot) {
  (void)thread;
  for (guint i = 0; i < 40000; i++) {
    vek_metric_snapshot_ref(snapshot);
    vek_metric_snapshot_unref(snapshot);
    if (i % 100 == 0) /* or each thread does all its work in one time slice, alone */
      g_thread_yield();
  }
}

static void read_snapshot(gpointer snapshot) {
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 1.0);
}

TEST(threads_share_a_snapshot) {
  static const gdouble samples[8192] = {1.0};
  gsize used = heap_get_used();

  VekMetricSnapshot *snapshot = vek_metric_snapshot_new(samples, G_N_ELEMENTS(samples));
  run_threads(4, ref_and_unref_often, read_snapshot, snapshot);

  /* A count that is off by one either way would not free the large array now. */
  vek_metric_snapshot_unref(snapshot);
  g_assert_cmpuint(heap_get_used(), <, used + sizeof samples);
}

/* Not-a-number is equal to everything. */
static int compare_doubles(const void *a, const void *b) {
  gdouble left = *(const gdouble *)a;
  gdouble right = *(const gdouble *)b;
  return (left > right) - (left < right);
}

TEST(not_a_number_stands_where_sorting_leaves_it) {
  const gdouble samples[] = {3, NAN, 1, 5, NAN, 2, 4, 0, NAN};
  gdouble sorted[G_N_ELEMENTS(samples)];
  memcpy(sorted, samples, sizeof samples);
  qsort(sorted, G_N_ELEMENTS(sorted), sizeof *sorted, compare_doubles);

  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, G_N_ELEMENTS(samples));
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 9);
  g_assert_true(isnan(vek_metric_snapshot_get_sum(snapshot)));
  g_assert_true(isnan(vek_metric_snapshot_get_average(snapshot)));
  gdouble min = vek_metric_snapshot_get_min(snapshot);
  g_assert_cmpmem(&min, sizeof min, &sorted[0], sizeof min);
  gdouble max = vek_metric_snapshot_get_max(snapshot);
  g_assert_cmpmem(&max, sizeof max, &sorted[8], sizeof max);
}

/* A second opinion on every statistic, as simple as can be. */
typedef struct {
  gsize n;
  gdouble sorted[2048];
} Model;

static void model_insert(Model *model, gdouble sample) {
  gsize at = model->n++;
  for (; at > 0 && model->sorted[at - 1] > sample; at--)
    model->sorted[at] = model->sorted[at - 1];
  model->sorted[at] = sample;
}

static gdouble model_sum(const Model *model) {
  gdouble sum = 0.0;
  for (gsize i = 0; i < model->n; i++)
    sum += model->sorted[i];
  return sum;
}

static gdouble model_quantile(const Model *model, gdouble q) {
  if (model->n == 0)
    return 0.0;
  gdouble position = (gdouble)(model->n - 1) * q;
  if (position < 1.0)
    return model->sorted[0];
  gsize below = (gsize)floor(position);
  if (below >= model->n - 1)
    return model->sorted[model->n - 1];
  gdouble gap = model->sorted[below + 1] - model->sorted[below];
  volatile gdouble part = (position - below) * gap; /* rounded by itself, on any machine */
  return model->sorted[below] + part;
}

static gdouble random_sample(void) {
  static const gdouble odd[] = {
      0.0, -0.0, INFINITY, -INFINITY, G_MAXDOUBLE, -G_MAXDOUBLE, 5e-324, 1.0, -1.0,
  };
  switch (g_test_rand_int_range(0, 8)) {
  case 0: return odd[g_test_rand_int_range(0, G_N_ELEMENTS(odd))];
  case 1: return g_test_rand_int_range(-3, 4); /* many ties */
  case 2: return g_test_rand_double_range(-1e300, 1e300);
  case 3: return g_test_rand_double_range(0.0, 1e-9);
  default: return g_test_rand_double_range(-1000.0, 1000.0);
  }
}

/* Finite samples only, so that most rounds have figures worth comparing. */
static gdouble random_plain_sample(void) {
  return g_test_rand_bit() ? g_test_rand_int_range(-3, 4) : g_test_rand_double_range(-50.0, 50.0);
}

static gsize random_n_samples(void) {
  switch (g_test_rand_int_range(0, 8)) {
  case 0: return g_test_rand_int_range(0, 2049);
  case 1: return g_test_rand_int_range(0, 4);
  default: return g_test_rand_int_range(0, 65);
  }
}

/* With the seed that the program prints first, the round tells all that is needed to repeat. */
static void assert_agrees(guint round, gsize n, const char *what, gdouble q, gdouble actual,
                          gdouble expected) {
  if (actual == expected || (isnan(actual) && isnan(expected)))
    return;
  g_autofree char *message =
      g_strdup_printf("round %u, %" G_GSIZE_FORMAT " samples, %s %.17g: %.17g should be %.17g",
                      round, n, what, q, actual, expected);
  g_assert_cmpstr(message, ==, NULL);
}

TEST(any_samples_agree_with_a_simple_model) {
  enum { ROUNDS = 2000, QUANTILES = 20 };
  for (guint round = 0; round < ROUNDS; round++) {
    gdouble samples[2048];
    Model model = {.n = 0};
    gsize n = random_n_samples();
    gboolean plain = g_test_rand_bit();
    for (gsize i = 0; i < n; i++) {
      samples[i] = plain ? random_plain_sample() : random_sample();
      model_insert(&model, samples[i]);
    }

    g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, n);
    gdouble sum = model_sum(&model);
    assert_agrees(round, n, "count", 0, vek_metric_snapshot_get_n_samples(snapshot), n);
    assert_agrees(round, n, "sum", 0, vek_metric_snapshot_get_sum(snapshot), sum);
    assert_agrees(round, n, "average", 0, vek_metric_snapshot_get_average(snapshot),
                  n ? sum / n : 0.0);
    assert_agrees(round, n, "min", 0, vek_metric_snapshot_get_min(snapshot),
                  n ? model.sorted[0] : 0.0);
    assert_agrees(round, n, "max", 0, vek_metric_snapshot_get_max(snapshot),
                  n ? model.sorted[n - 1] : 0.0);
    for (guint i = 0; i < QUANTILES; i++) {
      gdouble q = g_test_rand_double_range(0.0, 1.0);
      if (i < 2)
        q = i;
      else if (i < 8 && n > 1) /* as near as can be to a sample */
        q = (gdouble)g_test_rand_int_range(0, n) / (n - 1);
      assert_agrees(round, n, "quantile", q, vek_metric_snapshot_get_quantile(snapshot, q),
                    model_quantile(&model, q));
    }
  }
}
