/* Tests of VekMetricRangeStore. */

#include "support/fixture.h"
#include "support/modeltest.h"

/* Moves the ranges out and describes them, as in "3:1..2 1:5..9 ". */
static char *move_out(VekMetricStore *store) {
  GSList *batch = vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(store));
  GString *text = g_string_new(NULL);
  for (GSList *node = batch; node; node = node->next) {
    VekMetricRange *range = node->data;
    g_string_append_printf(text, "%d:%" G_GINT64_FORMAT "..%" G_GINT64_FORMAT " ", range->id,
                           range->start, range->end);
  }
  g_slist_free_full(batch, g_free);
  return g_string_free(text, FALSE);
}

#define assert_moved_out(store, ranges)        \
  G_STMT_START {                               \
    g_autofree char *moved_ = move_out(store); \
    g_assert_cmpstr(moved_, ==, (ranges));     \
  }                                            \
  G_STMT_END

TEST(type_is_a_store_without_properties) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_RANGE_STORE), ==, "VekMetricRangeStore");
  g_assert_cmpstr(g_type_name(g_type_parent(VEK_TYPE_METRIC_RANGE_STORE)), ==, "VekMetricStore");
  g_autoptr(GTypeClass) klass = g_type_class_ref(VEK_TYPE_METRIC_RANGE_STORE);
  guint n_properties = 77;
  g_free(g_object_class_list_properties(G_OBJECT_CLASS(klass), &n_properties));
  g_assert_cmpuint(n_properties, ==, 0);
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  g_assert_true(VEK_IS_METRIC_RANGE_STORE(store));
}

TEST(new_store_moves_out_nothing) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  g_assert_null(vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(store)));
}

TEST(second_move_without_a_range_between_moves_out_nothing) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  vek_metric_store_add_range(store, 1, 2, 3);
  assert_moved_out(store, "1:2..3 ");
  g_assert_null(vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(store)));
}

TEST(ranges_come_out_newest_first) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  vek_metric_store_add_range(store, 1, 10, 11);
  vek_metric_store_add_range(store, 2, 20, 21);
  vek_metric_store_add_range(store, 3, 30, 31);
  assert_moved_out(store, "3:30..31 2:20..21 1:10..11 ");
}

TEST(store_collects_anew_after_a_move) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  vek_metric_store_add_range(store, 1, 10, 11);
  assert_moved_out(store, "1:10..11 ");
  vek_metric_store_add_range(store, 2, 20, 21);
  vek_metric_store_add_range(store, 3, 30, 31);
  assert_moved_out(store, "3:30..31 2:20..21 ");
}

TEST(bounds_of_any_order_and_sign_are_stored_unchanged) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  vek_metric_store_add_range(store, 1, 9, 5);
  vek_metric_store_add_range(store, -2, -7, -8);
  vek_metric_store_add_range(store, 0, 4, 4);
  vek_metric_store_add_range(store, 0, 4, 4);
  vek_metric_store_add_range(store, G_MININT, G_MININT64, G_MAXINT64);
  vek_metric_store_add_range(store, G_MAXINT, G_MAXINT64, G_MININT64);
  assert_moved_out(store,
                   "2147483647:9223372036854775807..-9223372036854775808 "
                   "-2147483648:-9223372036854775808..9223372036854775807 "
                   "0:4..4 0:4..4 -2:-7..-8 1:9..5 ");
}

/* The record that is moved out is the one that was stored: it outlives the store. */
TEST(moved_ranges_belong_to_the_caller) {
  VekMetricStore *store = vek_metric_range_store_new();
  vek_metric_store_add_range(store, 1, 2, 3);
  GSList *batch = vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(store));
  vek_metric_store_add_range(store, 4, 5, 6);
  g_object_unref(store);

  g_assert_cmpuint(g_slist_length(batch), ==, 1);
  VekMetricRange *range = batch->data;
  g_assert_cmpint(range->id, ==, 1);
  g_assert_cmpint(range->start, ==, 2);
  g_assert_cmpint(range->end, ==, 3);
  g_slist_free_full(batch, g_free);
}

enum { N_THREADS = 4, RANGES_PER_THREAD = 100000 };

typedef struct {
  VekMetricStore *store;
  gint64 n_taken[N_THREADS];
} Batches;

/* Each thread adds ranges of its own id that start at 0, 1, 2 and so on. */
static void add_ranges(guint thread, gpointer data) {
  Batches *batches = data;
  for (gint i = 0; i < RANGES_PER_THREAD; i++)
    vek_metric_store_add_range(batches->store, (gint)thread, i, -i);
}

/* Within a batch, from the oldest on, the ranges of each thread go on where the last batch ended.
 */
static void take_batch(gpointer data) {
  Batches *batches = data;
  GSList *batch = vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(batches->store));
  batch = g_slist_reverse(batch);
  for (GSList *node = batch; node; node = node->next) {
    VekMetricRange *range = node->data;
    g_assert_cmpint(range->start, ==, batches->n_taken[range->id]);
    g_assert_cmpint(range->end, ==, -batches->n_taken[range->id]);
    batches->n_taken[range->id]++;
  }
  g_slist_free_full(batch, g_free);
}

TEST(each_range_of_several_threads_is_in_exactly_one_batch) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  Batches batches = {.store = store};
  run_threads(N_THREADS, add_ranges, take_batch, &batches);
  for (guint i = 0; i < N_THREADS; i++)
    g_assert_cmpint(batches.n_taken[i], ==, RANGES_PER_THREAD);
}

/* The model: the text of what is held, the newest first. */
typedef struct {
  VekMetricStore *store;
  GString *held;
} Subject;

enum { ADD_RANGE, MOVE_DATA };

static gpointer begin(GRand *random) {
  (void)random;
  Subject *subject = g_new(Subject, 1);
  subject->store = vek_metric_range_store_new();
  subject->held = g_string_new(NULL);
  return subject;
}

static void draw(GRand *random, ModelOperation *operation) {
  operation->kind = g_rand_int_range(random, 0, 5) == 0 ? MOVE_DATA : ADD_RANGE;
  operation->number = g_rand_int_range(random, -100, 100);
}

static char *apply(gpointer data, const ModelOperation *operation) {
  Subject *subject = data;
  gint64 number = operation->number;
  if (operation->kind == ADD_RANGE) {
    vek_metric_store_add_range(subject->store, (gint)number, number * 3, number * 2);
    g_autofree char *text = g_strdup_printf("%d:%" G_GINT64_FORMAT "..%" G_GINT64_FORMAT " ",
                                            (gint)number, number * 3, number * 2);
    g_string_prepend(subject->held, text);
    return NULL;
  }
  g_autofree char *moved = move_out(subject->store);
  if (!g_str_equal(moved, subject->held->str))
    return g_strdup_printf("moved %s, not %s", moved, subject->held->str);
  g_string_truncate(subject->held, 0);
  return NULL;
}

static void end(gpointer data) {
  Subject *subject = data;
  g_object_unref(subject->store);
  g_string_free(subject->held, TRUE);
  g_free(subject);
}

static char *describe(const ModelOperation *operation) {
  if (operation->kind == MOVE_DATA)
    return g_strdup("move the data out");
  return g_strdup_printf("add the range of id %" G_GINT64_FORMAT, operation->number);
}

TEST(random_histories_agree_with_a_model) {
  static const ModelTest test = {begin, draw, apply, end, describe};
  model_test_run(&test, 30000);
}
