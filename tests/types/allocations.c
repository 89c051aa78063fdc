/* What the library takes from the heap and gives back, operation by operation.
 *
 * This program defines malloc() and its kin, so that the library and GLib call them here too. Under
 * a sanitizer or valgrind they belong to the tool, nothing is counted, and the tests are skipped.
 */

#include "support/fixture.h"

#include <vekmetrics/vekmetrics.h>

/* What the thread has done so far. */
typedef struct {
  guint taken;      /* blocks */
  gsize bytes;      /* their sizes together */
  guint given_back; /* blocks */
} Count;
static __thread Count count;

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

/* The C library's own: to look them up by name may allocate. */
extern __typeof__(malloc) __libc_malloc;
extern __typeof__(calloc) __libc_calloc;
extern __typeof__(realloc) __libc_realloc;
extern __typeof__(free) __libc_free;

void *malloc(size_t size) {
  count.taken++;
  count.bytes += size;
  return __libc_malloc(size);
}

void *calloc(size_t n, size_t size) {
  count.taken++;
  count.bytes += n * size;
  return __libc_calloc(n, size);
}

void *realloc(void *block, size_t size) {
  count.taken++;
  count.bytes += size;
  count.given_back += block != NULL;
  return __libc_realloc(block, size);
}

void free(void *block) {
  count.given_back += block != NULL;
  __libc_free(block);
}

#endif

static gboolean is_counted(void) {
  Count before = count;
  g_free(g_malloc(1));
  return count.taken != before.taken;
}

#define COUNTED_TEST(function)                                            \
  static void function##_counted(void);                                   \
  TEST(function) {                                                        \
    if (is_counted())                                                     \
      function##_counted();                                               \
    else                                                                  \
      g_test_skip("malloc() belongs to a sanitizer or to valgrind here"); \
  }                                                                       \
  static void function##_counted(void)

#define assert_counted(before, blocks, size, freed)                         \
  G_STMT_START {                                                            \
    Count counted_ = count;                                                 \
    g_assert_cmpuint(counted_.taken - (before).taken, ==, blocks);          \
    g_assert_cmpuint(counted_.bytes - (before).bytes, ==, size);            \
    g_assert_cmpuint(counted_.given_back - (before).given_back, ==, freed); \
  }                                                                         \
  G_STMT_END

/* Adds more samples than the store holds, so that a ring turns over. */
static void assert_adding_allocates_nothing(VekMetricStore *store) {
  Count before = count;
  for (guint i = 0; i < 10; i++)
    vek_metric_store_add(store, i);
  assert_counted(before, 0, 0, 0);
}

COUNTED_TEST(fixed_size_store_add_allocates_nothing) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_size_store_new(4);
  assert_adding_allocates_nothing(store);
}

COUNTED_TEST(fixed_time_store_add_allocates_nothing) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_time_store_new(1000000, 4);
  assert_adding_allocates_nothing(store);
  vek_testing_clock_advance(2000000);
  assert_adding_allocates_nothing(store);
}

/* What making a store takes and freeing it gives back. */
static Count count_store(GType type, const char *property, guint size) {
  Count before = count;
  VekMetricStore *store = g_object_new(type, property, size, NULL);
  Count made = count;
  g_object_unref(store);
  g_assert_cmpuint(count.given_back - before.given_back, ==, count.taken - before.taken);
  return (Count){made.taken - before.taken, made.bytes - before.bytes, 0};
}

/* Of two stores, the larger takes as many blocks, and more bytes only for its slots. */
static void assert_slots_take(GType type, const char *property, gsize bytes_per_slot) {
  g_object_unref(g_object_new(type, NULL)); /* what the type takes once is no part of it */
  Count small = count_store(type, property, 1);
  Count large = count_store(type, property, 1001);
  g_assert_cmpuint(large.taken, ==, small.taken);
  g_assert_cmpuint(large.bytes - small.bytes, ==, 1000 * bytes_per_slot);
}

COUNTED_TEST(fixed_size_store_takes_8_bytes_a_slot_at_construction) {
  assert_slots_take(VEK_TYPE_METRIC_FIXED_SIZE_STORE, "window-size", 8);
}

COUNTED_TEST(fixed_time_store_takes_16_bytes_a_slot_at_construction) {
  assert_slots_take(VEK_TYPE_METRIC_FIXED_TIME_STORE, "max-size", 16);
}

/* Takes a snapshot and counts that, and then drops it, which gives back what it still holds. */
#define assert_snapshot_takes(store, blocks, size, freed)                \
  G_STMT_START {                                                         \
    Count before_ = count;                                               \
    VekMetricSnapshot *snapshot_ = vek_metric_store_get_snapshot(store); \
    assert_counted(before_, blocks, size, freed);                        \
    vek_metric_snapshot_unref(snapshot_);                                \
    g_assert_cmpuint(count.given_back - before_.given_back, ==, blocks); \
  }                                                                      \
  G_STMT_END

enum { RECORD = 8 + 3 * sizeof(gpointer), SAMPLE = 8 }; /* bytes */

COUNTED_TEST(snapshot_takes_one_record_and_one_array) {
  g_autoptr(VekMetricStore) fixed_size = vek_metric_fixed_size_store_new(4);
  g_autoptr(VekMetricStore) fixed_time = vek_metric_fixed_time_store_new(1000000, 4);
  assert_snapshot_takes(fixed_size, 1, RECORD, 0);
  assert_snapshot_takes(fixed_time, 1, RECORD, 0);

  for (guint i = 0; i < 3; i++) {
    vek_metric_store_add(fixed_size, i);
    vek_metric_store_add(fixed_time, i);
  }
  assert_snapshot_takes(fixed_size, 2, RECORD + 3 * SAMPLE, 0);
  assert_snapshot_takes(fixed_time, 2, RECORD + 3 * SAMPLE, 0);
}

COUNTED_TEST(fixed_time_store_rotation_copies_the_samples_before_the_oldest) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_time_store_new(1000000, 8);
  for (guint i = 0; i < 11; i++)
    vek_metric_store_add(store, i);
  /* Three lie before the oldest, in each of the two arrays. */
  assert_snapshot_takes(store, 4, RECORD + 8 * SAMPLE + 2 * 3 * SAMPLE, 2);
  assert_snapshot_takes(store, 2, RECORD + 8 * SAMPLE, 0);
}

COUNTED_TEST(fixed_time_store_cut_allocates_nothing) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_time_store_new(1000000, 8);
  for (guint i = 0; i < 4; i++) {
    vek_metric_store_add(store, i);
    vek_testing_clock_advance(400000);
  }
  assert_snapshot_takes(store, 2, RECORD + 2 * SAMPLE, 0);
  vek_testing_clock_advance(2000000);
  assert_snapshot_takes(store, 1, RECORD, 0);
}

COUNTED_TEST(range_store_add_range_takes_one_record_and_one_list_node) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  for (guint i = 0; i < 3; i++) {
    Count before = count;
    vek_metric_store_add_range(store, 1, 2, 3);
    assert_counted(before, 2, sizeof(VekMetricRange) + sizeof(GSList), 0);
  }
}

COUNTED_TEST(range_store_move_data_allocates_and_copies_nothing) {
  g_autoptr(VekMetricStore) store = vek_metric_range_store_new();
  for (guint i = 0; i < 3; i++)
    vek_metric_store_add_range(store, 1, 2, 3);
  Count before = count;
  GSList *batch = vek_metric_range_store_move_data(VEK_METRIC_RANGE_STORE(store));
  assert_counted(before, 0, 0, 0);
  g_slist_free_full(batch, g_free);
  assert_counted(before, 0, 0, 6);
}

COUNTED_TEST(range_store_frees_the_ranges_it_still_holds) {
  g_object_unref(vek_metric_range_store_new()); /* what the type takes once is no part of it */
  Count before = count;
  VekMetricStore *store = vek_metric_range_store_new();
  for (guint i = 0; i < 3; i++)
    vek_metric_store_add_range(store, 1, 2, 3);
  g_object_unref(store);
  g_assert_cmpuint(count.given_back - before.given_back, ==, count.taken - before.taken);
}

COUNTED_TEST(pass_frees_the_ranges_that_it_took) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricReporter) console = vek_metric_console_reporter_new();
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "t");
  vek_metric_registry_report(registry, console); /* what is made once and stays */
  Count before = count;
  for (guint i = 0; i < 3; i++)
    vek_metric_timeline_add_range(timeline, 1, 2, 3);
  vek_metric_registry_report(registry, console);
  g_assert_cmpuint(count.given_back - before.given_back, ==, count.taken - before.taken);
}
