/* Tests of VekMetricFixedTimeStore. */

#include "storetest.h"
#include "support/fixture.h"
#include "support/modeltest.h"

#include <unistd.h>

enum { WINDOW = 1000000, START = 500000000 }; /* microseconds */

static VekMetricStore *store_new(guint max_size) {
  return vek_metric_fixed_time_store_new(WINDOW, max_size);
}

/* The wall clock shows something else than the monotonic clock throughout. */
static void set_clock(gint64 now) {
  vek_testing_clock_set(7, now);
}

static void add_at(VekMetricStore *store, gint64 now, gdouble value) {
  set_clock(now);
  vek_metric_store_add(store, value);
}

#define assert_samples_at(store, now, samples) \
  G_STMT_START {                               \
    set_clock(now);                            \
    assert_samples(store, samples);            \
  }                                            \
  G_STMT_END

TEST(type_is_a_store_with_a_window_and_a_size) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_FIXED_TIME_STORE), ==, "VekMetricFixedTimeStore");
  g_assert_cmpstr(g_type_name(g_type_parent(VEK_TYPE_METRIC_FIXED_TIME_STORE)), ==,
                  "VekMetricStore");

  GParamSpecInt64 *time_window = G_PARAM_SPEC_INT64(
      assert_construct_only_property(VEK_TYPE_METRIC_FIXED_TIME_STORE, "time-window"));
  g_assert_cmpint(time_window->minimum, ==, 1000000);
  g_assert_cmpint(time_window->maximum, ==, G_MAXINT64);
  g_assert_cmpint(time_window->default_value, ==, 60000000);
  GParamSpecUInt *max_size = G_PARAM_SPEC_UINT(
      assert_construct_only_property(VEK_TYPE_METRIC_FIXED_TIME_STORE, "max-size"));
  g_assert_cmpuint(max_size->minimum, ==, 1);
  g_assert_cmpuint(max_size->maximum, ==, G_MAXUINT);
  g_assert_cmpuint(max_size->default_value, ==, 2048);
}

static void assert_properties(VekMetricStore *store, gint64 time_window, guint max_size) {
  gint64 window_read = 77;
  guint size_read = 77;
  g_object_get(store, "time-window", &window_read, "max-size", &size_read, NULL);
  g_assert_cmpint(window_read, ==, time_window);
  g_assert_cmpuint(size_read, ==, max_size);
}

TEST(properties_read_as_given_at_construction) {
  g_autoptr(VekMetricStore) of_defaults = g_object_new(VEK_TYPE_METRIC_FIXED_TIME_STORE, NULL);
  assert_properties(of_defaults, 60000000, 2048);
  g_autoptr(VekMetricStore) smallest = vek_metric_fixed_time_store_new(1000000, 1);
  assert_properties(smallest, 1000000, 1);
  g_autoptr(VekMetricStore) large = vek_metric_fixed_time_store_new(G_MAXINT64, 100000);
  assert_properties(large, G_MAXINT64, 100000);
}

TEST(values_out_of_range_are_refused) {
  g_autoptr(VekMetricStore) without_window = vek_metric_fixed_time_store_new(999999, 5);
  assert_logged("GLib-GObject", G_LOG_LEVEL_WARNING,
                "value \"999999\" of type 'gint64' is invalid or out of range for property "
                "'time-window' of type 'gint64'");
  assert_properties(without_window, 0, 5);

  g_autoptr(VekMetricStore) without_size = vek_metric_fixed_time_store_new(1000000, 0);
  assert_logged("GLib-GObject", G_LOG_LEVEL_WARNING,
                "value \"0\" of type 'guint' is invalid or out of range for property "
                "'max-size' of type 'guint'");
  assert_properties(without_size, 1000000, 0);
}

TEST(properties_cannot_be_changed_later) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_time_store_new(2000000, 3);
  g_object_set(store, "time-window", (gint64)3000000, NULL);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING,
                     "*construct property \"time-window\" for object 'VekMetricFixedTimeStore' "
                     "can't be set after construction");
  g_object_set(store, "max-size", 4, NULL);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING,
                     "*construct property \"max-size\" for object 'VekMetricFixedTimeStore' "
                     "can't be set after construction");
  assert_properties(store, 2000000, 3);
}

TEST(unknown_property_id_is_warned_of) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_time_store_new(2000000, 3);
  assert_unknown_property_warns(store);
  assert_properties(store, 2000000, 3);
}

TEST(new_store_is_empty) {
  g_autoptr(VekMetricStore) store = store_new(3);
  set_clock(0); /* the zero stamps of unused slots would be young enough */
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(store);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 0);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 0);
  g_assert_cmpfloat(vek_metric_snapshot_get_max(snapshot), ==, 0);
}

TEST(each_operation_reads_the_monotonic_clock_once) {
  g_autoptr(VekMetricStore) store = store_new(3);
  set_clock(START);
  count_readings();
  assert_samples(store, "");
  g_assert_cmpuint(get_monotonic_readings(), ==, 1);
  vek_metric_store_add(store, 1);
  g_assert_cmpuint(get_monotonic_readings(), ==, 2);
  g_assert_cmpuint(get_real_readings(), ==, 1);
  assert_samples(store, "1");
  g_assert_cmpuint(get_monotonic_readings(), ==, 3);
  g_assert_cmpuint(get_real_readings(), ==, 2);
}

TEST(all_expired_empties_the_store) {
  g_autoptr(VekMetricStore) store = store_new(4);
  set_clock(START);
  add_samples(store, 1, 3);
  assert_samples_at(store, START + WINDOW + 1, "");

  /* Both the count and the place of the next sample are back at 0. */
  set_clock(START);
  assert_samples(store, "");
  static const char *const held[] = {"4", "4 5", "4 5 6", "4 5 6 7", "5 6 7 8"};
  for (guint i = 0; i < G_N_ELEMENTS(held); i++) {
    vek_metric_store_add(store, 4 + i);
    assert_samples(store, held[i]);
  }
}

TEST(all_expired_empties_a_full_ring) {
  g_autoptr(VekMetricStore) store = store_new(4);
  set_clock(START);
  add_samples(store, 1, 6);
  assert_samples_at(store, START + WINDOW + 1, "");
  add_at(store, START, 7);
  assert_samples(store, "7");
}

TEST(all_younger_than_the_window_stay) {
  g_autoptr(VekMetricStore) store = store_new(4);
  set_clock(START);
  add_samples(store, 1, 3);
  assert_samples_at(store, START + WINDOW - 1, "1 2 3");
  assert_samples(store, "1 2 3");
  vek_metric_store_add(store, 4);
  assert_samples(store, "1 2 3 4");
}

TEST(with_size_4_six_samples_leave_the_last_four) {
  g_autoptr(VekMetricStore) store = store_new(4);
  set_clock(START);
  add_samples(store, 1, 6);
  assert_samples(store, "3 4 5 6");
  assert_samples(store, "3 4 5 6");
  vek_metric_store_add(store, 7);
  assert_samples(store, "4 5 6 7");
}

TEST(full_ring_is_cut_in_age_order) {
  g_autoptr(VekMetricStore) store = store_new(4);
  for (gint i = 1; i <= 6; i++)
    add_at(store, START + i, i);
  /* Stamps 3 to 6 past the start: with a cutoff of 4, samples 5 and 6 are younger. */
  assert_samples_at(store, START + WINDOW + 4, "5 6");
}

TEST(ages_follow_the_window_that_was_given) {
  g_autoptr(VekMetricStore) store = vek_metric_fixed_time_store_new(5000000, 4);
  add_at(store, START, 1);
  assert_samples_at(store, START + 5000000, "1");
  assert_samples_at(store, START + 5000001, "");

  g_autoptr(VekMetricStore) unending = vek_metric_fixed_time_store_new(G_MAXINT64, 4);
  add_at(unending, 0, 1);
  assert_samples_at(unending, G_MAXINT64 - 1, "1");
}

TEST(single_sample_aged_exactly_the_window_is_kept) {
  g_autoptr(VekMetricStore) store = store_new(4);
  add_at(store, START, 1);
  assert_samples_at(store, START + WINDOW, "1");
  assert_samples(store, "1");
  /* Nothing was cut, so the next sample follows directly. */
  vek_metric_store_add(store, 2);
  assert_samples(store, "2");
  assert_samples_at(store, START + 2 * WINDOW + 1, "");
}

TEST(of_two_aged_exactly_the_window_only_the_newer_is_kept) {
  g_autoptr(VekMetricStore) store = store_new(4);
  set_clock(START);
  add_samples(store, 1, 2);
  assert_samples_at(store, START + WINDOW, "2");
}

TEST(sample_aged_exactly_the_window_goes_when_a_younger_is_held) {
  g_autoptr(VekMetricStore) store = store_new(4);
  add_at(store, START, 1);
  add_at(store, START, 2);
  add_at(store, START + 1, 3);
  assert_samples_at(store, START + WINDOW, "3");
}

TEST(only_the_newest_of_many_aged_exactly_the_window_is_kept) {
  g_autoptr(VekMetricStore) store = store_new(8);
  set_clock(START);
  add_samples(store, 1, 7);
  assert_samples_at(store, START + WINDOW, "7");
}

/* A store of 5 whose last snapshot discarded samples 1 to 3 and kept 4: slot 0 holds sample 4, the
 * skipped slot 1 still 2, and the next sample goes to slot 2. */
static VekMetricStore *store_new_cut(void) {
  VekMetricStore *store = store_new(5);
  set_clock(START);
  add_samples(store, 1, 3);
  add_at(store, START + 500000, 4);
  assert_samples_at(store, START + WINDOW + 200000, "4");
  return store;
}

TEST(next_sample_lies_one_past_the_kept_run) {
  g_autoptr(VekMetricStore) store = store_new_cut();
  /* Sample 5 goes to slot 2, out of sight at first. */
  vek_metric_store_add(store, 5);
  assert_samples(store, "2 4");
  vek_metric_store_add(store, 6);
  assert_samples(store, "2 4 5");
  vek_metric_store_add(store, 7);
  assert_samples(store, "2 4 5 6");
  /* Sample 8 goes to slot 0 in place of 4. The ring is full, 2 is its oldest, and it has expired:
   * the cut leaves four, and sample 9 goes to slot 0 again, in place of 5. Slot 4 still holds 8. */
  vek_metric_store_add(store, 8);
  assert_samples(store, "5 6 7 8");
  vek_metric_store_add(store, 9);
  assert_samples(store, "6 7 8 8 9");
}

TEST(skipped_slot_may_bring_a_kept_sample_back_twice) {
  g_autoptr(VekMetricStore) store = store_new(5);
  add_at(store, START, 1);
  add_at(store, START + 500000, 2);
  assert_samples_at(store, START + WINDOW, "2");
  vek_metric_store_add(store, 3);
  assert_samples(store, "2 2");
  vek_metric_store_add(store, 4);
  assert_samples(store, "2 2 3");
}

TEST(place_one_past_the_kept_run_wraps_at_the_size) {
  g_autoptr(VekMetricStore) store = store_new(3);
  add_at(store, START, 1);
  add_at(store, START + 500000, 2);
  add_at(store, START + 500000, 3);
  assert_samples_at(store, START + WINDOW, "2 3");

  /* Sample 4 takes the place of 2, and slot 2 brings 3 back. */
  vek_metric_store_add(store, 4);
  assert_samples(store, "3 3 4");
}

TEST(skipped_slot_keeps_its_old_stamp) {
  g_autoptr(VekMetricStore) store = store_new_cut();
  vek_metric_store_add(store, 5);
  /* Slot 0 holds sample 4 of 500000 past the start, slot 1 sample 2 of the start itself: the newest
   * of the two by place is the older by stamp, and all is taken to have expired. */
  assert_samples_at(store, START + WINDOW + 500000, "");
}

/* The stamps may be out of order, as the skipped slot leaves them; here the clock does it. What is
 * cut is what the search by halves comes upon. */
TEST(cut_is_searched_by_halves_even_out_of_order) {
  enum { OLD = START, YOUNG = START + 500000 };
  static const struct {
    gint64 stamps[8];
    guint n_samples;
    const char *kept;
  } rows[] = {
      {{OLD, YOUNG, OLD, YOUNG}, 4, "2 3 4"},
      {{OLD, OLD, YOUNG, OLD, YOUNG}, 5, "3 4 5"},
      {{OLD, YOUNG, OLD, YOUNG, YOUNG}, 5, "4 5"},
      {{OLD, YOUNG, YOUNG, OLD, OLD, YOUNG}, 6, "2 3 4 5 6"},
      {{OLD, YOUNG, OLD, OLD, YOUNG, OLD, YOUNG}, 7, "7"},
      {{OLD, YOUNG, YOUNG, OLD, YOUNG, OLD, YOUNG, YOUNG}, 8, "7 8"},
  };
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricStore) store = store_new(20);
    for (guint j = 0; j < rows[i].n_samples; j++)
      add_at(store, rows[i].stamps[j], j + 1);
    assert_samples_at(store, START + WINDOW + 1, rows[i].kept);
  }
}

TEST(first_stamp_younger_than_the_cutoff_keeps_even_older_ones_behind) {
  g_autoptr(VekMetricStore) store = store_new(4);
  add_at(store, START + 500000, 1);
  add_at(store, START, 2);
  assert_samples_at(store, START + WINDOW + 1, "1 2");
}

TEST(last_stamp_older_than_the_cutoff_empties_even_with_younger_ones_before) {
  g_autoptr(VekMetricStore) store = store_new(4);
  add_at(store, START, 1);
  add_at(store, START + 500000, 2);
  add_at(store, START, 3);
  assert_samples_at(store, START + WINDOW + 1, "");
}

TEST(store_without_snapshots_keeps_the_newest_of_any_age) {
  g_autoptr(VekMetricStore) store = store_new(3);
  for (gint i = 1; i <= 5; i++)
    add_at(store, START + i * G_GINT64_CONSTANT(10) * WINDOW, i);
  /* With the clock put back nothing counts as expired, and what was there shows. */
  assert_samples_at(store, START, "3 4 5");
}

TEST(snapshot_time_is_wall_clock_and_ages_are_monotonic) {
  g_autoptr(VekMetricStore) store = store_new(3);
  vek_testing_clock_set(1000, START);
  vek_metric_store_add(store, 1);

  vek_testing_clock_set(G_GINT64_CONSTANT(1700000000000000), START + 1);
  g_autoptr(VekMetricSnapshot) kept = vek_metric_store_get_snapshot(store);
  g_assert_cmpint(vek_metric_snapshot_get_time(kept), ==, G_GINT64_CONSTANT(1700000000000000));
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(kept), ==, 1);

  vek_testing_clock_set(1000, START + WINDOW + 1);
  g_autoptr(VekMetricSnapshot) expired = vek_metric_store_get_snapshot(store);
  g_assert_cmpint(vek_metric_snapshot_get_time(expired), ==, 1000);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(expired), ==, 0);
}

/* Another thread's operation, as it were, that comes between the reading of the clock and the
 * lock. Were the lock held already, this would wait for ever, which the alarm ends. */
static VekMetricStore *raced;

static void add_2_two_seconds_later(gboolean monotonic) {
  (void)monotonic;
  vek_testing_clock_set_hook(NULL);
  vek_testing_clock_advance(2 * WINDOW);
  vek_metric_store_add(raced, 2);
}

static void race(VekMetricStore *store) {
  raced = store;
  vek_testing_clock_set_hook(add_2_two_seconds_later);
  alarm(20);
}

TEST(add_reads_the_clock_before_the_lock) {
  g_autoptr(VekMetricStore) store = store_new(4);
  set_clock(START);
  race(store);
  vek_metric_store_add(store, 1);
  alarm(0);

  /* Sample 1 came in last, with the older stamp: it decides that all has expired. */
  assert_samples(store, "1 2");
  assert_samples_at(store, START + 3 * WINDOW, "");
}

TEST(get_snapshot_reads_the_clock_before_the_lock) {
  g_autoptr(VekMetricStore) store = store_new(4);
  add_at(store, START, 1);
  race(store);
  assert_samples(store, "1 2");
  alarm(0);
  assert_samples(store, "2");
}

TEST(snapshot_is_made_under_the_lock) {
  g_autoptr(VekMetricStore) store = store_new(2);
  check_snapshot_keeps_others_out(store);
}

TEST(threads_lose_no_sample_of_a_large_ring) {
  g_autoptr(VekMetricStore) store = store_new(500000);
  check_adding_from_threads(store, 500000);
}

TEST(threads_push_out_only_the_oldest) {
  g_autoptr(VekMetricStore) store = store_new(9);
  check_adding_from_threads(store, 9);
}

/* The model: slots, how many are held from the first on, and which is written next. */
typedef struct {
  gint64 stamp;
  gdouble value;
} Slot;

typedef struct {
  VekMetricStore *store;
  Slot slots[8];
  guint size;
  guint held;
  guint next;
  gint64 now;
} Subject;

enum { ADD, MOVE_CLOCK, SNAPSHOT };

static gpointer begin(GRand *random) {
  Subject *subject = g_new0(Subject, 1);
  subject->size = (guint)g_rand_int_range(random, 1, 9);
  subject->store = store_new(subject->size);
  subject->now = START;
  set_clock(START);
  return subject;
}

static void draw(GRand *random, ModelOperation *operation) {
  static const guint kinds[] = {ADD, ADD, ADD, ADD, MOVE_CLOCK, MOVE_CLOCK, SNAPSHOT};
  static const gint64 moves[] = {0,          1,  WINDOW / 3,    WINDOW - 1, WINDOW,
                                 WINDOW + 1, -1, -(WINDOW / 3), -WINDOW};
  operation->kind = kinds[g_rand_int_range(random, 0, G_N_ELEMENTS(kinds))];
  operation->number = moves[g_rand_int_range(random, 0, G_N_ELEMENTS(moves))];
  operation->value = g_rand_int_range(random, 0, 1000);
}

static guint search(const Slot *slots, guint low, guint high, gint64 cutoff) {
  if (low >= high)
    return high;
  guint middle = low + (high - low) / 2;
  return slots[middle].stamp > cutoff ? search(slots, low, middle, cutoff)
                                      : search(slots, middle + 1, high, cutoff);
}

/* Shows the slots from the one with this number on as the first ones, and the others after. */
static void turn(Subject *subject, guint first) {
  Slot turned[G_N_ELEMENTS(subject->slots)];
  for (guint i = 0; i < subject->size; i++)
    turned[i] = subject->slots[(first + i) % subject->size];
  for (guint i = 0; i < subject->size; i++)
    subject->slots[i] = turned[i];
}

static void prune(Subject *subject) {
  gint64 cutoff = subject->now - WINDOW;
  if (subject->held == subject->size) {
    turn(subject, subject->next);
    subject->next = 0;
  }
  if (subject->held == 0 || subject->slots[0].stamp > cutoff)
    return;
  if (subject->slots[subject->held - 1].stamp < cutoff) {
    subject->held = 0;
    subject->next = 0;
  } else if (subject->held > 1) {
    guint k = search(subject->slots, 0, subject->held - 1, cutoff);
    subject->held -= k;
    for (guint i = 0; i < subject->held; i++)
      subject->slots[i] = subject->slots[i + k];
    subject->next = (subject->held + 1) % subject->size;
  }
}

static char *compare_snapshots(Subject *subject) {
  prune(subject);
  gdouble held[G_N_ELEMENTS(subject->slots)];
  for (guint i = 0; i < subject->held; i++)
    held[i] = subject->slots[i].value;
  return compare_samples(subject->store, held, subject->held);
}

static char *apply(gpointer data, const ModelOperation *operation) {
  Subject *subject = data;
  switch (operation->kind) {
  case ADD:
    subject->slots[subject->next] = (Slot){subject->now, operation->value};
    subject->next = (subject->next + 1) % subject->size;
    subject->held = MIN(subject->held + 1, subject->size);
    vek_metric_store_add(subject->store, operation->value);
    return NULL;
  case MOVE_CLOCK:
    subject->now += operation->number;
    set_clock(subject->now);
    return NULL;
  default: return compare_snapshots(subject);
  }
}

static void end(gpointer data) {
  Subject *subject = data;
  g_object_unref(subject->store);
  g_free(subject);
}

static char *describe(const ModelOperation *operation) {
  switch (operation->kind) {
  case ADD: return g_strdup_printf("add %g", operation->value);
  case MOVE_CLOCK: return g_strdup_printf("move the clock by %" G_GINT64_FORMAT, operation->number);
  default: return g_strdup("take a snapshot");
  }
}

TEST(random_histories_agree_with_a_model) {
  static const ModelTest test = {begin, draw, apply, end, describe};
  model_test_run(&test, 80000);
}
