/* Tests of VekMetricStore. */

#include "support/fixture.h"

#include <vekmetrics/vekmetrics.h>

#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

/* A store of an application's own that keeps the last arguments and supports no ranges. */
typedef struct {
  VekMetricStore parent_instance;
  guint n_added;
  gdouble value;
  VekMetricSnapshot *snapshot;
} SampleKeeper;
typedef struct {
  VekMetricStoreClass parent_class;
} SampleKeeperClass;
static GType sample_keeper_get_type(void);
G_DEFINE_TYPE(SampleKeeper, sample_keeper, VEK_TYPE_METRIC_STORE)

static void sample_keeper_add(VekMetricStore *store, gdouble value) {
  SampleKeeper *self = (SampleKeeper *)store;
  self->n_added++;
  self->value = value;
}

static VekMetricSnapshot *sample_keeper_get_snapshot(VekMetricStore *store) {
  return ((SampleKeeper *)store)->snapshot;
}

static void sample_keeper_class_init(SampleKeeperClass *klass) {
  VEK_METRIC_STORE_CLASS(klass)->add = sample_keeper_add;
  VEK_METRIC_STORE_CLASS(klass)->get_snapshot = sample_keeper_get_snapshot;
}

static void sample_keeper_init(SampleKeeper *self) {
  (void)self;
}

/* One derived from that, which overrides one operation and adds another. */
typedef struct {
  SampleKeeper parent_instance;
  gdouble doubled;
  VekMetricRange range;
} RangeKeeper;
typedef struct {
  SampleKeeperClass parent_class;
} RangeKeeperClass;
static GType range_keeper_get_type(void);
G_DEFINE_TYPE(RangeKeeper, range_keeper, sample_keeper_get_type())

static void range_keeper_add(VekMetricStore *store, gdouble value) {
  ((RangeKeeper *)store)->doubled = 2 * value;
}

static void range_keeper_add_range(VekMetricStore *store, gint id, gint64 start, gint64 end) {
  ((RangeKeeper *)store)->range = (VekMetricRange){id, start, end};
}

static void range_keeper_class_init(RangeKeeperClass *klass) {
  VEK_METRIC_STORE_CLASS(klass)->add = range_keeper_add;
  VEK_METRIC_STORE_CLASS(klass)->add_range = range_keeper_add_range;
}

static void range_keeper_init(RangeKeeper *self) {
  (void)self;
}

TEST(type_is_a_plain_object_without_properties) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_STORE), ==, "VekMetricStore");
  g_assert_cmpstr(g_type_name(g_type_parent(VEK_TYPE_METRIC_STORE)), ==, "GObject");
  g_assert_false(G_TYPE_IS_ABSTRACT(VEK_TYPE_METRIC_STORE));
  g_assert_true(G_TYPE_IS_DERIVABLE(VEK_TYPE_METRIC_STORE));

  GTypeQuery query;
  g_type_query(VEK_TYPE_METRIC_STORE, &query);
  g_assert_cmpuint(query.instance_size, ==, sizeof(GObject));
  g_autoptr(GTypeClass) klass = g_type_class_ref(VEK_TYPE_METRIC_STORE);
  guint n_properties = 77;
  g_free(g_object_class_list_properties(G_OBJECT_CLASS(klass), &n_properties));
  g_assert_cmpuint(n_properties, ==, 0);
  guint n_signals = 77;
  g_free(g_signal_list_ids(VEK_TYPE_METRIC_STORE, &n_signals));
  g_assert_cmpuint(n_signals, ==, 0);
}

TEST(each_store_sets_the_operations_it_supports) {
  const struct {
    GType type;
    gboolean add, add_range, get_snapshot;
  } rows[] = {
      {VEK_TYPE_METRIC_STORE, FALSE, FALSE, FALSE},
      {VEK_TYPE_METRIC_FIXED_SIZE_STORE, TRUE, FALSE, TRUE},
      {VEK_TYPE_METRIC_FIXED_TIME_STORE, TRUE, FALSE, TRUE},
      {VEK_TYPE_METRIC_RANGE_STORE, FALSE, TRUE, FALSE},
  };
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(GTypeClass) klass = g_type_class_ref(rows[i].type);
    VekMetricStoreClass *store_class = VEK_METRIC_STORE_CLASS(klass);
    g_assert_cmpint(store_class->add != NULL, ==, rows[i].add);
    g_assert_cmpint(store_class->add_range != NULL, ==, rows[i].add_range);
    g_assert_cmpint(store_class->get_snapshot != NULL, ==, rows[i].get_snapshot);
  }
}

static void add_to(VekMetricStore *store) {
  vek_metric_store_add(store, 1);
}

static void add_range_to(VekMetricStore *store) {
  vek_metric_store_add_range(store, 1, 2, 3);
}

static void snapshot(VekMetricStore *store) {
  VekMetricSnapshot *taken = vek_metric_store_get_snapshot(store);
  g_assert_null(taken);
}

static const struct {
  const char *function;
  void (*call)(VekMetricStore *store);
} operations[] = {
    {"vek_metric_store_add", add_to},
    {"vek_metric_store_add_range", add_range_to},
    {"vek_metric_store_get_snapshot", snapshot},
};

TEST(missing_store_fails_the_check) {
  for (guint i = 0; i < G_N_ELEMENTS(operations); i++) {
    operations[i].call(NULL);
    assert_failed_check(operations[i].function, "VEK_IS_METRIC_STORE(store)");
  }
}

TEST(object_of_an_unrelated_type_fails_the_check) {
  g_autoptr(GObject) object = g_object_new(G_TYPE_OBJECT, NULL);
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(2);
  for (guint i = 0; i < G_N_ELEMENTS(operations); i++) {
    vek_metric_store_add(store, 1); /* a store that passes opens the way to no other type */
    operations[i].call((VekMetricStore *)object);
    assert_failed_check(operations[i].function, "VEK_IS_METRIC_STORE(store)");
  }
  g_assert_cmpuint(object->ref_count, ==, 1);
}

/* In a process of its own, which must end by the call through a null pointer. */
static void assert_ends_process(VekMetricStore *store, void (*call)(VekMetricStore *store)) {
  pid_t child = fork();
  if (child == 0) {
    signal(SIGSEGV, SIG_DFL);
    call(store);
    _exit(0);
  }
  g_assert_cmpint(child, >, 0);

  int status = 0;
  g_assert_cmpint(waitpid(child, &status, 0), ==, child);
  g_assert_true(WIFSIGNALED(status));
  g_assert_cmpint(WTERMSIG(status), ==, SIGSEGV);
}

TEST(operation_left_empty_is_called_unchecked) {
  g_autoptr(VekMetricStore) bare = g_object_new(VEK_TYPE_METRIC_STORE, NULL);
  g_autoptr(VekMetricStore) fixed_size = vek_metric_fixed_size_store_new(1);
  g_autoptr(VekMetricStore) fixed_time = vek_metric_fixed_time_store_new(1000000, 1);
  g_autoptr(VekMetricStore) range = vek_metric_range_store_new();

  for (guint i = 0; i < G_N_ELEMENTS(operations); i++)
    assert_ends_process(bare, operations[i].call);
  assert_ends_process(fixed_size, add_range_to);
  assert_ends_process(fixed_time, add_range_to);
  assert_ends_process(range, add_to);
  assert_ends_process(range, snapshot);
}

TEST(subclass_of_two_operations_receives_exactly_the_value) {
  g_autoptr(VekMetricStore) store = g_object_new(sample_keeper_get_type(), NULL);
  SampleKeeper *keeper = (SampleKeeper *)store;
  const guint64 patterns[] = {
      G_GUINT64_CONSTANT(0x3ff8000000000000), /* 1.5 */
      G_GUINT64_CONSTANT(0x8000000000000000), /* -0.0 */
      G_GUINT64_CONSTANT(0x0000000000000001), /* the smallest above 0 */
      G_GUINT64_CONSTANT(0x7fefffffffffffff), /* the largest */
      G_GUINT64_CONSTANT(0xfff0000000000000), /* -infinity */
      G_GUINT64_CONSTANT(0x7ff8dead0000beef), /* not a number, with a payload */
  };
  for (guint i = 0; i < G_N_ELEMENTS(patterns); i++) {
    gdouble value;
    memcpy(&value, &patterns[i], sizeof value);
    vek_metric_store_add(store, value);
    g_assert_cmpuint(keeper->n_added, ==, i + 1);
    g_assert_cmpmem(&keeper->value, sizeof keeper->value, &patterns[i], sizeof patterns[i]);
  }

  g_autoptr(VekMetricSnapshot) made = vek_metric_snapshot_new(NULL, 0);
  keeper->snapshot = made;
  g_assert_true(vek_metric_store_get_snapshot(store) == made);
  keeper->snapshot = NULL;
  g_assert_null(vek_metric_store_get_snapshot(store));
}

TEST(most_derived_operation_is_called) {
  g_autoptr(VekMetricStore) store = g_object_new(range_keeper_get_type(), NULL);
  RangeKeeper *keeper = (RangeKeeper *)store;
  vek_metric_store_add(store, 21);
  g_assert_cmpfloat(keeper->doubled, ==, 42);
  g_assert_cmpuint(keeper->parent_instance.n_added, ==, 0);
  g_assert_null(vek_metric_store_get_snapshot(store));
}

TEST(add_range_passes_id_start_and_end_bit_for_bit) {
  g_autoptr(VekMetricStore) store = g_object_new(range_keeper_get_type(), NULL);
  RangeKeeper *keeper = (RangeKeeper *)store;
  const VekMetricRange ranges[] = {
      {1, 2, 3},
      {G_MININT, G_MININT64, G_MAXINT64},
      {G_MAXINT, G_MAXINT64, G_MININT64},
      {-1, -1, 0},
      {0x12345678, G_GINT64_CONSTANT(0x0123456789abcdef), G_GINT64_CONSTANT(-0x7edcba9876543210)},
  };
  for (guint i = 0; i < G_N_ELEMENTS(ranges); i++) {
    vek_metric_store_add_range(store, ranges[i].id, ranges[i].start, ranges[i].end);
    g_assert_cmpint(keeper->range.id, ==, ranges[i].id);
    g_assert_cmpint(keeper->range.start, ==, ranges[i].start);
    g_assert_cmpint(keeper->range.end, ==, ranges[i].end);
  }
}
