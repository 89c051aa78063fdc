/* Tests of clocks that jump, the wall clock in either direction, and of long silences. */

#include "support/fixture.h"

enum { SECOND = 1000000 };
#define SECONDS(n) (G_GINT64_CONSTANT(n) * SECOND)
#define MONOTONIC SECONDS(5000)

/* Where the wall clock jumps from: 2023-11-14 22:13:20, 20 seconds into an interval of 60. */
#define BEFORE SECONDS(1700000000)

typedef struct {
  const char *name;
  gint64 now;
  /* Of a gauge with an interval of 60 seconds, set to 2.5 before: what it shows, and reports. */
  gdouble value;
  gint64 stamp;
  gboolean is_reported;
} Jump;

static const Jump jumps[] = {
    {"an-hour-forward", SECONDS(1700003600), 0.0, 0, FALSE},
    {"an-hour-back", SECONDS(1699996400), 2.5, SECONDS(1699996380), TRUE},
    {"ten-years-forward", SECONDS(2015576000), 0.0, 0, FALSE},
    {"ten-years-back", SECONDS(1384424000), 2.5, SECONDS(1384423980), TRUE},
    {"to-the-epoch", 0, 2.5, 0, FALSE}, /* the start of the last reported interval is 0 at first */
    {"before-the-epoch", SECONDS(-90), 2.5, SECONDS(-60), TRUE}, /* division truncates to zero */
    {"to-the-year-1", SECONDS(-62135596800), 2.5, SECONDS(-62135596800), TRUE},
    {"to-the-end-of-9999", SECONDS(253402300799), 0.0, 0, FALSE},
    {"to-the-year-10000", SECONDS(253402300800), 0.0, 0, FALSE},
    {"to-the-last-microsecond", G_MAXINT64, 0.0, 0, FALSE},
};

static void jump_to(gint64 now) {
  vek_testing_clock_set(now, MONOTONIC);
}

static void assert_reported(const char *format, ...) G_GNUC_PRINTF(1, 2);

static void assert_reported(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  g_autofree char *lines = g_strdup_vprintf(format, arguments);
  va_end(arguments);
  fixture_report();
  assert_recorded(fixture.record, lines);
}

static void jump_with_a_counter(const Jump *jump) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "m", NULL, NULL);
  jump_to(jump->now);
  assert_reported("a count m 0 @1700000000000000\na flush\n");
  vek_metric_counter_inc(counter);
  assert_reported("a count m 1 @%" G_GINT64_FORMAT "\na flush\n", jump->now);
}

static void jump_with_a_gauge(const Jump *jump) {
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "m", NULL, 0, NULL);
  vek_metric_gauge_set_value(gauge, 2.5);
  jump_to(jump->now);
  assert_reported("a value m 2.5 @%" G_GINT64_FORMAT "\na flush\n", jump->now);
}

static void jump_with_a_gauge_of_intervals(const Jump *jump) {
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "m", NULL, SECONDS(60), NULL);
  vek_metric_gauge_set_value(gauge, 2.5);
  jump_to(jump->now);
  gint64 stamp = -1;
  g_assert_cmpfloat(vek_metric_gauge_get_value(gauge, &stamp), ==, jump->value);
  g_assert_cmpint(stamp, ==, jump->stamp);
  if (jump->is_reported)
    assert_reported("a value m 2.5 @%" G_GINT64_FORMAT "\na flush\n", jump->stamp);
  assert_reported("a flush\n");
}

static void jump_with_a_meter(const Jump *jump) {
  g_autoptr(VekMetricMeter) meter =
      vek_metric_registry_meter_new(fixture.registry, "m", NULL, NULL);
  vek_metric_meter_mark(meter, 1);
  jump_to(jump->now);
  assert_reported("a value m 0 @1700000000000000\na flush\n");

  /* Two seconds of the monotonic clock: a tick, which the wall clock stamps. */
  vek_testing_clock_set(jump->now, MONOTONIC + SECONDS(2));
  vek_metric_meter_mark(meter, 10);
  assert_reported("a value m 5 @%" G_GINT64_FORMAT "\na flush\n", jump->now);
}

static void jump_with_a_histogram(const Jump *jump) {
  g_autoptr(VekMetricStore) recent = vek_metric_fixed_time_store_new(SECONDS(60), 10);
  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(fixture.registry, "m", NULL, recent, NULL);
  vek_metric_histogram_set(histogram, 2.5);
  jump_to(jump->now);
  assert_reported("a aggregated m n=1 sum=2.5 min=2.5 max=2.5 @%" G_GINT64_FORMAT "\na flush\n",
                  jump->now);
}

static void jump_with_a_timer(const Jump *jump) {
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(fixture.registry, "m", "Seconds", NULL, NULL);
  vek_metric_timer_start(timer);
  vek_testing_clock_set(jump->now, MONOTONIC + SECONDS(2));
  vek_metric_timer_stop(timer);
  assert_reported("a aggregated m n=1 sum=2 min=2 max=2 Seconds @%" G_GINT64_FORMAT "\na flush\n",
                  jump->now);
}

TEST_ROWS(wall_clock_jumps, jumps) {
  static void (*const jump_with[])(const Jump *) = {
      jump_with_a_counter, jump_with_a_gauge,     jump_with_a_gauge_of_intervals,
      jump_with_a_meter,   jump_with_a_histogram, jump_with_a_timer,
  };
  for (gsize i = 0; i < G_N_ELEMENTS(jump_with); i++) {
    vek_testing_clock_set(BEFORE, MONOTONIC);
    fixture_reset();
    jump_with[i](data);
  }
}

/* Long silences. The periods are so short that a loop over all that have passed would not end. */

/* A meter that has ticked to 5 a second, with the shortest sampling period. */
static VekMetricMeter *ticked_meter_new(void) {
  vek_testing_clock_set(BEFORE, MONOTONIC);
  VekMetricMeter *meter = g_object_new(VEK_TYPE_METRIC_METER, "sampling-period", (gint64)1, NULL);
  vek_metric_meter_mark(meter, 1);
  vek_testing_clock_advance(2 * SECOND);
  vek_metric_meter_mark(meter, 10);
  g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 5.0);
  return meter;
}

TEST(meter_falls_to_zero_over_400_idle_days_at_once) {
  g_autoptr(VekMetricMeter) meter = ticked_meter_new();
  vek_testing_clock_advance(400 * SECONDS(86400));
  count_readings();
  g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 0.0);
  g_assert_cmpuint(get_monotonic_readings(), ==, 1);
  g_assert_cmpuint(get_real_readings(), ==, 1);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, BEFORE + SECONDS(2 + 400 * 86400));
}

typedef struct {
  const char *name;
  gint64 idle;
  gdouble marked; /* at its end: 10 a second */
  gdouble rate;   /* from 5 to 10, so many times as the time constant of 60 s has passed */
} Silence;

static const Silence silences[] = {
    {"mark-after-2-idle-seconds", SECONDS(2), 20, 5.0 + 5.0 / 30},
    {"mark-after-an-idle-hour", SECONDS(3600), 36000, 305.0},
    {"mark-after-400-idle-days", SECONDS(34560000), 345600000, 2880005.0},
};

TEST_ROWS(mark_weighs_as_much_as_the_time_that_passed, silences) {
  const Silence *silence = data;
  g_autoptr(VekMetricMeter) meter = ticked_meter_new();
  vek_testing_clock_advance(silence->idle);
  count_readings();
  vek_metric_meter_mark(meter, silence->marked);
  g_assert_cmpuint(get_monotonic_readings(), ==, 1);
  g_assert_cmpuint(get_real_readings(), ==, 1);
  g_assert_cmpfloat_with_epsilon(vek_metric_meter_get_rate(meter), silence->rate, 1e-6);
}

TEST(meter_does_not_tick_while_the_monotonic_clock_is_back) {
  g_autoptr(VekMetricMeter) meter = ticked_meter_new();
  vek_testing_clock_advance(-SECONDS(3600));
  vek_metric_meter_mark(meter, 7);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 17.0);
  g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 5.0);
}

TEST(gauge_of_short_intervals_skips_400_days_at_once) {
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "m", NULL, 10, NULL);
  vek_metric_gauge_add_value(gauge, 2.5);
  vek_testing_clock_advance(400 * SECONDS(86400) + 5);
  count_readings();
  assert_reported("a flush\n");
  vek_metric_gauge_add_value(gauge, 1.5); /* the report rolled: the sum carries on */
  vek_testing_clock_advance(5);
  assert_reported("a value m 4 @1734560000000010\na flush\n");
  g_assert_cmpuint(get_real_readings(), ==, 3);
}

TEST(store_of_a_recent_time_is_empty_after_ten_years) {
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(VekMetricStore) recent = vek_metric_fixed_time_store_new(SECONDS(60), 10);
  for (int i = 0; i < 20; i++)
    vek_metric_store_add(recent, i);
  vek_testing_clock_advance(SECONDS(315576000));
  count_readings();
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(recent);
  g_assert_cmpuint(vek_metric_snapshot_get_n_samples(snapshot), ==, 0);
  g_assert_cmpuint(get_monotonic_readings(), ==, 1);
}

TEST(store_of_a_recent_time_keeps_samples_of_a_clock_that_was_ahead) {
  vek_testing_clock_set(BEFORE, MONOTONIC);
  g_autoptr(VekMetricStore) recent = vek_metric_fixed_time_store_new(SECONDS(60), 10);
  vek_metric_store_add(recent, 2.5);
  vek_testing_clock_advance(-SECONDS(3600));
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_store_get_snapshot(recent);
  g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, 2.5);
}

TEST(timer_records_ten_years_and_negative_hours) {
  static const struct {
    gint64 passed;
    gdouble recorded;
  } rows[] = {{SECONDS(315576000), 315576000.0}, {-SECONDS(3600), -3600.0}};
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    fixture_reset();
    vek_testing_clock_set(BEFORE, MONOTONIC);
    g_autoptr(VekMetricTimer) timer =
        vek_metric_registry_timer_new(fixture.registry, "m", "Seconds", NULL, NULL);
    vek_metric_timer_start(timer);
    vek_testing_clock_advance(rows[i].passed);
    vek_metric_timer_stop(timer);
    g_autoptr(VekMetricSnapshot) snapshot =
        vek_metric_histogram_get_snapshot(VEK_METRIC_HISTOGRAM(timer));
    g_assert_cmpfloat(vek_metric_snapshot_get_sum(snapshot), ==, rows[i].recorded);
  }
}
