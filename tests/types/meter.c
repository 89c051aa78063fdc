/* Tests of VekMetricMeter. Unless a test says otherwise, the sampling period is the default of 1 s
 * and the time constant that of 60 s. */

#include "support/fixture.h"
#include "support/modeltest.h"
#include "support/replace.h"

#include <math.h>
#include <string.h>

enum { SECOND = 1000000 };

/* Called once by the next reader of any lock, just before it lets go. */
static void (*before_reader_unlock)(gpointer data);
static gpointer before_reader_unlock_data;

/* Takes the place of GLib's, for the library too, so that a test can act while a meter is held. */
void g_rw_lock_reader_unlock(GRWLock *lock) {
  void (*callback)(gpointer) = before_reader_unlock;
  if (callback) {
    before_reader_unlock = NULL;
    callback(before_reader_unlock_data);
  }
  NEXT(g_rw_lock_reader_unlock)(lock);
}

static VekMetricMeter *meter_new(void) {
  return vek_metric_registry_meter_new(fixture.registry, "requests", NULL, NULL);
}

/* A meter whose clock has been started, now. */
static VekMetricMeter *running_meter_new(void) {
  VekMetricMeter *meter = meter_new();
  vek_metric_meter_mark(meter, 1);
  return meter;
}

/* A running meter that has ticked to 5 a second, now. */
static VekMetricMeter *ticked_meter_new(void) {
  VekMetricMeter *meter = running_meter_new();
  vek_testing_clock_advance(2 * SECOND);
  vek_metric_meter_mark(meter, 10);
  return meter;
}

static void assert_rate(VekMetricMeter *meter, gdouble rate) {
  g_assert_cmpfloat_with_epsilon(vek_metric_meter_get_rate(meter), rate, 1e-9);
}

TEST(first_mark_only_starts_the_clock) {
  vek_testing_clock_set(1000, 500);
  g_autoptr(VekMetricMeter) meter = meter_new();
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 1000);

  vek_testing_clock_set(2000, 1500);
  vek_metric_meter_mark(meter, 5);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 0.0);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 2000);

  vek_testing_clock_set(3000, 2500);
  vek_metric_meter_mark(meter, 5);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 5.0);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 2000);
}

TEST(rate_read_before_any_mark_starts_the_clock) {
  vek_testing_clock_set(1000, 1000001);
  g_autoptr(VekMetricMeter) meter = meter_new();

  vek_testing_clock_set(2000, 1000001);
  g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 0.0);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 2000);
  vek_metric_meter_mark(meter, 30);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 30.0);

  /* That read was a tick: the next one is smoothed. */
  vek_testing_clock_advance(2 * SECOND);
  assert_rate(meter, 0.5);
}

TEST(rate_read_within_the_first_period_of_the_clock_starts_nothing) {
  vek_testing_clock_set(1000, 1000000);
  g_autoptr(VekMetricMeter) meter = meter_new();

  vek_testing_clock_set(2000, 1000000);
  g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 0.0);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 1000);
  vek_metric_meter_mark(meter, 30);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 0.0);
}

TEST(marks_within_a_sampling_period_change_the_total_but_not_the_rate) {
  g_autoptr(VekMetricMeter) meter = ticked_meter_new();

  vek_testing_clock_advance(SECOND / 2);
  vek_metric_meter_mark(meter, 100);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 110.0);
  assert_rate(meter, 5.0);
}

TEST(tick_needs_more_than_the_sampling_period) {
  static const struct {
    gint64 elapsed;
    gboolean ticks;
  } rows[] = {{999999, FALSE}, {1000000, FALSE}, {1000001, TRUE}};

  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    for (gboolean by_mark = FALSE; by_mark <= TRUE; by_mark++) {
      fixture_reset();
      vek_testing_clock_set(SECOND, SECOND);
      g_autoptr(VekMetricMeter) meter = running_meter_new();
      vek_testing_clock_advance(rows[i].elapsed);
      if (by_mark)
        vek_metric_meter_mark(meter, 1);
      else
        vek_metric_meter_get_rate(meter);
      g_assert_cmpint(vek_metric_meter_get_time(meter) - SECOND, ==,
                      rows[i].ticks ? rows[i].elapsed : 0);
    }
  }
}

TEST(first_tick_sets_the_rate_to_the_instant_rate) {
  vek_testing_clock_set(1000, 500);
  g_autoptr(VekMetricMeter) meter = running_meter_new();

  vek_testing_clock_advance(2 * SECOND);
  vek_metric_meter_mark(meter, 10);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 2001000);
  g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 5.0);
}

TEST(weight_is_linear_and_not_limited) {
  /* From 5 a second, with so much marked after so many seconds. */
  static const struct {
    gint64 seconds;
    gdouble marked;
    gdouble rate;
  } rows[] = {
      {6, 48, 5.3},     /* a tenth of the way from 5 to 8 */
      {30, 240, 6.5},   /* half of it */
      {60, 480, 8.0},   /* all */
      {120, 960, 11.0}, /* twice: past it */
      {90, 0, 0.0},     /* it would be below 0 */
      {30, 0, 2.5},     /* above 0 it is left alone */
  };

  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    fixture_reset();
    g_autoptr(VekMetricMeter) meter = ticked_meter_new();
    vek_testing_clock_advance(rows[i].seconds * SECOND);
    vek_metric_meter_mark(meter, rows[i].marked);
    assert_rate(meter, rows[i].rate);
  }
}

TEST(clamp_at_zero_leaves_not_a_number_alone) {
  g_autoptr(VekMetricMeter) meter = running_meter_new();

  vek_testing_clock_advance(2 * SECOND);
  vek_metric_meter_mark(meter, INFINITY);
  g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, INFINITY);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, INFINITY);
  for (guint i = 0; i < 3; i++) {
    vek_testing_clock_advance(2 * SECOND);
    g_assert_cmpint(isnan(vek_metric_meter_get_rate(meter)), !=, 0);
  }
}

TEST(refused_marks_change_nothing_and_do_not_tick) {
  static const gdouble refused[] = {-1, NAN, -INFINITY, -4.9e-324};

  for (gsize i = 0; i < G_N_ELEMENTS(refused); i++) {
    fixture_reset();
    g_autoptr(VekMetricMeter) meter = meter_new();
    vek_metric_meter_mark(meter, refused[i]);
    assert_failed_check("vek_metric_meter_mark", "value >= 0");

    /* The clock is not started: this is still the first mark. */
    vek_testing_clock_set(SECOND, SECOND);
    vek_metric_meter_mark(meter, 1);
    g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 0.0);

    vek_testing_clock_set(3 * SECOND, 3 * SECOND);
    count_readings();
    vek_metric_meter_mark(meter, refused[i]);
    assert_failed_check("vek_metric_meter_mark", "value >= 0");
    g_assert_cmpuint(get_monotonic_readings(), ==, 0);
    g_assert_cmpint(vek_metric_meter_get_time(meter), ==, SECOND);
    g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 0.0);
    g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 0.0);
  }
}

TEST(mark_of_zero_is_counted_and_may_tick) {
  static const gdouble zeros[] = {0.0, -0.0};

  for (gsize i = 0; i < G_N_ELEMENTS(zeros); i++) {
    fixture_reset();
    vek_testing_clock_set(SECOND, SECOND);
    g_autoptr(VekMetricMeter) meter = meter_new();
    vek_metric_meter_mark(meter, zeros[i]);
    vek_metric_meter_mark(meter, 8);

    vek_testing_clock_advance(2 * SECOND);
    vek_metric_meter_mark(meter, zeros[i]);
    g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 3 * SECOND);
    g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 8.0);
    g_assert_cmpfloat(vek_metric_meter_get_rate(meter), ==, 4.0);
  }
}

TEST(report_carries_the_stamp_of_the_tick_before) {
  char *dimensions[] = {"host", "h1", NULL};
  vek_testing_clock_set(1000, 500);
  g_autoptr(VekMetricMeter) meter =
      vek_metric_registry_meter_new(fixture.registry, "requests", "Count", dimensions);
  vek_metric_meter_mark(meter, 1);
  vek_metric_meter_mark(meter, 16);

  /* This report ticks, and shows the tick's rate with the time at which the clock was started. */
  vek_testing_clock_set(4001000, 4000500);
  fixture_report();
  assert_recorded(fixture.record,
                  "a value requests{host=h1} 4 Count @1000\n"
                  "a flush\n");

  vek_testing_clock_set(4001001, 4000501);
  fixture_report();
  assert_recorded(fixture.record,
                  "a value requests{host=h1} 4 Count @4001000\n"
                  "a flush\n");
}

TEST(report_of_a_meter_never_marked_carries_its_creation) {
  vek_testing_clock_set(1000, 500);
  g_autoptr(VekMetricMeter) meter = meter_new();

  vek_testing_clock_set(4001000, 4000500);
  fixture_report();
  assert_recorded(fixture.record,
                  "a value requests 0 @1000\n"
                  "a flush\n");
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 4001000);
}

typedef struct {
  VekMetricMeter *meter;
  gdouble rate;
} Read;

static gpointer read_rate(gpointer data) {
  Read *read = data;
  read->rate = vek_metric_meter_get_rate(read->meter);
  return NULL;
}

static void read_rate_in_another_thread(gpointer data) {
  g_thread_join(g_thread_new("reader", read_rate, data));
}

TEST(rate_read_under_contention_neither_ticks_nor_reads_a_clock) {
  g_autoptr(VekMetricMeter) meter = ticked_meter_new();
  gint64 time = vek_metric_meter_get_time(meter);
  vek_metric_meter_mark(meter, 600);

  /* A tick is due, but this thread holds the meter while the other one reads. */
  vek_testing_clock_set(90 * SECOND, 9000 * G_GINT64_CONSTANT(1000000));
  Read read = {meter, -1};
  count_readings();
  before_reader_unlock_data = &read;
  before_reader_unlock = read_rate_in_another_thread;
  vek_metric_meter_get_total(meter);

  g_assert_cmpfloat(read.rate, ==, 5.0);
  g_assert_cmpuint(get_monotonic_readings(), ==, 0);
  g_assert_cmpuint(get_real_readings(), ==, 0);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, time);

  read_rate(&read);
  g_assert_cmpuint(get_monotonic_readings(), ==, 1);
  g_assert_cmpint(vek_metric_meter_get_time(meter), ==, 90 * SECOND);
}

static void mark_from_reporter(VekTestingRecorder *recorder, const char *line, gpointer meter) {
  (void)recorder;
  (void)line;
  vek_metric_meter_mark(meter, 1);
}

TEST(reporter_may_use_the_meter) {
  g_autoptr(VekMetricMeter) meter = running_meter_new();

  on_recorded(fixture.reporter, mark_from_reporter, meter);
  fixture_report();
  /* Twice: the flush was a call too. */
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 2.0);
}

TEST(properties_are_time_constant_and_sampling_period) {
  static const struct {
    const char *name;
    gint64 minimum;
    gint64 default_value;
  } rows[] = {{"time-constant", 1000000, 60000000}, {"sampling-period", 1, 1000000}};
  g_autoptr(VekMetricMeter) registered = meter_new();
  g_autoptr(VekMetricMeter) given =
      g_object_new(VEK_TYPE_METRIC_METER, "name", "requests", "time-constant",
                   G_GINT64_CONSTANT(7000000), "sampling-period", G_GINT64_CONSTANT(7000000), NULL);

  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    GParamSpecInt64 *pspec =
        G_PARAM_SPEC_INT64(assert_construct_only_property(VEK_TYPE_METRIC_METER, rows[i].name));
    g_assert_cmpint(pspec->minimum, ==, rows[i].minimum);
    g_assert_cmpint(pspec->maximum, ==, G_GINT64_CONSTANT(9223372036854775807));
    g_assert_cmpint(pspec->default_value, ==, rows[i].default_value);

    gint64 value;
    g_object_get(registered, rows[i].name, &value, NULL);
    g_assert_cmpint(value, ==, rows[i].default_value);
    g_object_get(given, rows[i].name, &value, NULL);
    g_assert_cmpint(value, ==, 7000000);
  }
  assert_unknown_property_warns(registered);
}

TEST(properties_out_of_range_are_refused) {
  static const struct {
    const char *name;
    gint64 value;
    const char *message;
  } rows[] = {
      {"time-constant", 999999,
       "value \"999999\" of type 'gint64' is invalid or out of range for property 'time-constant' "
       "of type 'gint64'"},
      {"sampling-period", 0,
       "value \"0\" of type 'gint64' is invalid or out of range for property 'sampling-period' "
       "of type 'gint64'"},
  };

  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricMeter) meter =
        g_object_new(VEK_TYPE_METRIC_METER, "name", "requests", rows[i].name, rows[i].value, NULL);
    assert_logged("GLib-GObject", G_LOG_LEVEL_WARNING, rows[i].message);
    gint64 value;
    g_object_get(meter, rows[i].name, &value, NULL);
    g_assert_cmpint(value, ==, 0);
  }
}

TEST(given_time_constant_and_sampling_period_are_used) {
  vek_testing_clock_set(SECOND, SECOND);
  g_autoptr(VekMetricMeter) meter =
      g_object_new(VEK_TYPE_METRIC_METER, "name", "requests", "time-constant",
                   G_GINT64_CONSTANT(4000000), "sampling-period", G_GINT64_CONSTANT(10), NULL);
  vek_metric_meter_mark(meter, 1);
  vek_metric_meter_mark(meter, 8);
  vek_testing_clock_advance(SECOND);
  assert_rate(meter, 8.0);

  vek_metric_meter_mark(meter, 1);
  vek_testing_clock_advance(10);
  assert_rate(meter, 8.0);
  vek_testing_clock_advance(SECOND - 10);
  assert_rate(meter, 6.25);
}

TEST(failed_checks_do_nothing) {
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "load", NULL, 0, NULL);
  /* An object of another kind is not a meter. */
  gpointer others[] = {NULL, gauge};

  for (gsize i = 0; i < G_N_ELEMENTS(others); i++) {
    vek_metric_meter_mark(others[i], -1);
    assert_failed_check("vek_metric_meter_mark", "VEK_IS_METRIC_METER(meter)");
    g_assert_cmpfloat(vek_metric_meter_get_rate(others[i]), ==, 0.0);
    assert_failed_check("vek_metric_meter_get_rate", "VEK_IS_METRIC_METER(meter)");
    g_assert_cmpfloat(vek_metric_meter_get_total(others[i]), ==, 0.0);
    assert_failed_check("vek_metric_meter_get_total", "VEK_IS_METRIC_METER(meter)");
    g_assert_cmpint(vek_metric_meter_get_time(others[i]), ==, 0);
    assert_failed_check("vek_metric_meter_get_time", "VEK_IS_METRIC_METER(meter)");
  }
}

TEST(constructor_checks_registry_and_name) {
  g_assert_null(vek_metric_registry_meter_new(NULL, "requests", NULL, NULL));
  assert_failed_check("vek_metric_registry_meter_new", "VEK_IS_METRIC_REGISTRY(registry)");
  g_assert_null(vek_metric_registry_meter_new(fixture.registry, NULL, NULL, NULL));
  assert_failed_check("vek_metric_registry_meter_new", "name != NULL");
}

TEST(meter_of_the_same_name_is_the_same) {
  g_autoptr(VekMetricMeter) meter = meter_new();
  g_autoptr(VekMetricMeter) again = meter_new();
  g_assert_true(again == meter);
}

TEST(metric_of_another_kind_is_returned_with_a_warning) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  g_autoptr(GObject) returned = (gpointer)meter_new();
  assert_invalid_cast("VekMetricCounter", "VekMetricMeter");
  g_assert_true(returned == (gpointer)counter);
}

/* The model keeps the marks since the last tick and adds them up when it ticks. */
typedef struct {
  VekMetricMeter *meter;
  gdouble constant;
  gint64 period;
  gint64 now; /* monotonic; real time is the same and a day */
  gint64 started;
  gint64 stamp;
  GArray *marks;
  gdouble total;
  gboolean has_rate;
  gdouble rate;
} MeterModel;

enum { ADVANCE, ADVANCE_BY_PERIOD, MARK, MARK_REFUSED, READ_RATE, REPORT, N_KINDS };

static const gint64 kDay = G_GINT64_CONSTANT(86400000000);

static void set_model_time(const MeterModel *model) {
  vek_testing_clock_set(kDay + model->now, model->now);
}

static gpointer begin_model(GRand *random) {
  static const gint64 periods[] = {1, 1000, SECOND, 5 * SECOND};
  static const gint64 constants[] = {SECOND, 3 * SECOND, 60 * SECOND};
  MeterModel *model = g_new0(MeterModel, 1);
  fixture_reset();
  model->now = g_rand_int_range(random, 1, 3 * SECOND);
  set_model_time(model);
  model->stamp = kDay + model->now;
  model->period = periods[g_rand_int_range(random, 0, G_N_ELEMENTS(periods))];
  gint64 constant = constants[g_rand_int_range(random, 0, G_N_ELEMENTS(constants))];
  model->constant = (gdouble)constant;
  model->marks = g_array_new(FALSE, FALSE, sizeof(gdouble));
  model->meter = g_object_new(VEK_TYPE_METRIC_METER, "name", "requests", "time-constant", constant,
                              "sampling-period", model->period, NULL);
  return model;
}

static void end_model(gpointer subject) {
  MeterModel *model = subject;
  g_object_unref(model->meter);
  g_array_unref(model->marks);
  g_free(model);
}

static void draw_operation(GRand *random, ModelOperation *operation) {
  static const gdouble rare[] = {0.0, 1e300, INFINITY};
  static const gint64 scales[] = {10, 2000, 2 * SECOND, 60 * SECOND};
  operation->kind = g_rand_int_range(random, 0, N_KINDS);
  operation->number =
      g_rand_int_range(random, 0, scales[g_rand_int_range(random, 0, G_N_ELEMENTS(scales))]);
  operation->value = g_rand_int_range(random, 0, 200) == 0
                         ? rare[g_rand_int_range(random, 0, G_N_ELEMENTS(rare))]
                         : g_rand_double_range(random, 0, 1000);
}

static char *describe_operation(const ModelOperation *operation) {
  static const char *const names[] = {"advance",      "advance by period", "mark",
                                      "mark refused", "read rate",         "report"};
  return g_strdup_printf("%s number=%" G_GINT64_FORMAT " value=%.17g", names[operation->kind],
                         operation->number, operation->value);
}

static void expect_tick(MeterModel *model) {
  if (model->now - model->started <= model->period)
    return;
  gdouble elapsed = (gdouble)(model->now - model->started);
  gdouble sum = 0.0;
  for (guint i = 0; i < model->marks->len; i++)
    sum += g_array_index(model->marks, gdouble, i);
  gdouble instant = sum / elapsed;
  model->rate =
      model->has_rate ? model->rate + elapsed / model->constant * (instant - model->rate) : instant;
  if (model->rate < 0)
    model->rate = 0;
  model->has_rate = TRUE;
  model->started = model->now;
  model->stamp = kDay + model->now;
  g_array_set_size(model->marks, 0);
}

static void expect_mark(MeterModel *model, gdouble value) {
  if (model->started == 0) {
    model->started = model->now;
    model->stamp = kDay + model->now;
    return;
  }
  model->total += value;
  g_array_append_val(model->marks, value);
  expect_tick(model);
}

/* As texts, in which not-a-number equals itself, of either sign. */
static char *compare_texts(const char *what, const char *text, const char *expected) {
  g_autoptr(GString) unsigned_text = g_string_new(text);
  g_autoptr(GString) unsigned_expected = g_string_new(expected);
  g_string_replace(unsigned_text, "-nan", "nan", 0);
  g_string_replace(unsigned_expected, "-nan", "nan", 0);
  return g_string_equal(unsigned_text, unsigned_expected)
             ? NULL
             : g_strdup_printf("%s %s, not %s", what, text, expected);
}

static char *compare_numbers(const char *what, gdouble number, gdouble expected) {
  char text[G_ASCII_DTOSTR_BUF_SIZE];
  char expected_text[G_ASCII_DTOSTR_BUF_SIZE];
  g_ascii_dtostr(text, sizeof text, number);
  g_ascii_dtostr(expected_text, sizeof expected_text, expected);
  return compare_texts(what, text, expected_text);
}

static char *compare_report(MeterModel *model) {
  g_autoptr(GSList) reporters = g_slist_prepend(NULL, fixture.reporter);
  gint64 stamp = model->stamp;
  expect_tick(model);
  g_autofree char *rate = describe_number(model->rate * 1000000);
  g_autofree char *expected =
      g_strdup_printf("a value requests %s @%" G_GINT64_FORMAT "\n", rate, stamp);
  report_to(model->meter, reporters);
  char *difference = compare_texts("reported", fixture.record->str, expected);
  g_string_truncate(fixture.record, 0);
  return difference;
}

static char *apply_operation(gpointer subject, const ModelOperation *operation) {
  MeterModel *model = subject;
  char *difference = NULL;

  switch (operation->kind) {
  case ADVANCE: model->now += operation->number; break;
  case ADVANCE_BY_PERIOD: model->now += model->period; break;
  case MARK:
    expect_mark(model, operation->value);
    vek_metric_meter_mark(model->meter, operation->value);
    break;
  case MARK_REFUSED:
    vek_metric_meter_mark(model->meter, -1 - operation->value);
    assert_failed_check("vek_metric_meter_mark", "value >= 0");
    break;
  case READ_RATE:
    expect_tick(model);
    difference =
        compare_numbers("rate", vek_metric_meter_get_rate(model->meter), model->rate * 1000000);
    break;
  case REPORT: difference = compare_report(model); break;
  }
  set_model_time(model);

  if (!difference)
    difference = compare_numbers("total", vek_metric_meter_get_total(model->meter), model->total);
  if (!difference && vek_metric_meter_get_time(model->meter) != model->stamp)
    difference = g_strdup("time is not that of the last tick");
  return difference;
}

TEST(random_histories_agree_with_a_model) {
  static const ModelTest test = {begin_model, draw_operation, apply_operation, end_model,
                                 describe_operation};
  model_test_run(&test, 50000);
}

enum { N_THREADS = 4, N_MARKS = 5000 };

static void mark_many(guint thread, gpointer meter) {
  (void)thread;
  for (guint i = 0; i < N_MARKS; i++) {
    vek_testing_clock_advance(SECOND / 8); /* marks and passes tick now and then */
    vek_metric_meter_mark(meter, 1);
  }
}

TEST(threads_lose_no_mark) {
  g_autoptr(VekMetricMeter) meter = running_meter_new();
  g_assert_cmpuint(fixture_run_threads(N_THREADS, mark_many, meter), ==, 0);
  g_assert_cmpfloat(vek_metric_meter_get_total(meter), ==, 20000);
}
