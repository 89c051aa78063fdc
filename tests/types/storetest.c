#include "storetest.h"

#include "support/fixture.h"

#include <float.h>

enum { N_THREADS = 4, SAMPLES_PER_THREAD = 100000 };

/* Sample i of n lies at the quantile i / (n - 1), or a shade above where rounding would let the
 * position fall short of it. */
static gdouble get_sample(VekMetricSnapshot *snapshot, gsize i) {
  gsize last = vek_metric_snapshot_get_n_samples(snapshot) - 1;
  if (i == last)
    return vek_metric_snapshot_get_max(snapshot);
  gdouble q = (gdouble)i / (gdouble)last;
  if ((gdouble)last * q < (gdouble)i)
    q *= 1 + 2 * DBL_EPSILON;
  return vek_metric_snapshot_get_quantile(snapshot, q);
}

char *describe_samples(VekMetricSnapshot *snapshot) {
  GString *text = g_string_new(NULL);
  for (gsize i = 0; i < vek_metric_snapshot_get_n_samples(snapshot); i++)
    g_string_append_printf(text, i == 0 ? "%.9g" : " %.9g", get_sample(snapshot, i));
  return g_string_free(text, FALSE);
}

static int compare_values(gconstpointer a, gconstpointer b) {
  gdouble difference = *(const gdouble *)a - *(const gdouble *)b;
  return (difference > 0) - (difference < 0);
}

char *compare_samples(VekMetricStore *store, const gdouble *expected, guint n_expected) {
  g_autoptr(GArray) sorted = g_array_new(FALSE, FALSE, sizeof(gdouble));
  g_array_append_vals(sorted, expected, n_expected);
  g_array_sort(sorted, compare_values);
  g_autoptr(GString) wanted = g_string_new(NULL);
  for (guint i = 0; i < n_expected; i++)
    g_string_append_printf(wanted, i == 0 ? "%.9g" : " %.9g", g_array_index(sorted, gdouble, i));

  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(store);
  g_autofree char *held = describe_samples(snapshot);
  if (g_str_equal(held, wanted->str))
    return NULL;
  return g_strdup_printf("%s is held, not %s", held, wanted->str);
}

void add_samples(VekMetricStore *store, gdouble first, guint n_samples) {
  for (guint i = 0; i < n_samples; i++)
    vek_metric_store_add(store, first + i);
}

static struct {
  VekMetricStore *store;
  GThread *thread;
  gint begun;
  gint added;
} intruder;

static gpointer intrude(gpointer data) {
  (void)data;
  g_atomic_int_set(&intruder.begun, TRUE);
  vek_metric_store_add(intruder.store, 2);
  g_atomic_int_set(&intruder.added, TRUE);
  return NULL;
}

/* Where a snapshot reads the wall clock, gives another thread every chance to get past the lock. It
 * never does if the lock is held. */
static void let_intrude(gboolean monotonic) {
  if (monotonic)
    return;
  vek_testing_clock_set_hook(NULL);

  intruder.thread = g_thread_new("intruder", intrude, NULL);
  while (!g_atomic_int_get(&intruder.begun))
    g_thread_yield();
  for (guint i = 0; i < 1000 && !g_atomic_int_get(&intruder.added); i++)
    g_thread_yield();
  g_assert_false(g_atomic_int_get(&intruder.added));
}

void check_snapshot_keeps_others_out(VekMetricStore *store) {
  vek_testing_clock_set(1, 1);
  vek_metric_store_add(store, 1);
  intruder.store = store;
  vek_testing_clock_set_hook(let_intrude);
  assert_samples(store, "1");
  g_thread_join(intruder.thread);
  assert_samples(store, "1 2");
}

/* Each thread adds the numbers from 0 upwards, plus a million for each thread before it. They are
 * many, and no clock is read under the lock: to yield there would only take time. */
static void add_run(guint thread, gpointer store) {
  vek_testing_clock_set_hook(NULL);
  add_samples(store, thread * 1e6, SAMPLES_PER_THREAD);
}

/* The newest samples of each thread follow one another without a gap. */
static void check_runs(gpointer store) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(store);
  gsize n_samples = vek_metric_snapshot_get_n_samples(snapshot);
  for (gsize i = 1; i < n_samples; i++) {
    gint64 sample = (gint64)(get_sample(snapshot, i) + 0.5);
    gint64 before = (gint64)(get_sample(snapshot, i - 1) + 0.5);
    if (sample / 1000000 == before / 1000000)
      g_assert_cmpint(sample, ==, before + 1);
  }
}

void check_adding_from_threads(VekMetricStore *store, guint capacity) {
  run_threads(N_THREADS, add_run, check_runs, store);

  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(store);
  gsize n_samples = vek_metric_snapshot_get_n_samples(snapshot);
  g_assert_cmpuint(n_samples, ==, MIN(capacity, N_THREADS * SAMPLES_PER_THREAD));
  for (gsize i = 0; i < n_samples; i++) {
    gboolean ends_run =
        i + 1 == n_samples || get_sample(snapshot, i + 1) - get_sample(snapshot, i) > 1.5;
    if (ends_run)
      g_assert_cmpint((gint64)(get_sample(snapshot, i) + 0.5) % 1000000, ==,
                      SAMPLES_PER_THREAD - 1);
  }
}
