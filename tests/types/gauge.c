/* Tests of VekMetricGauge. Where there are intervals, they last 100 µs. */

#include "support/fixture.h"
#include "support/modeltest.h"
#include "support/replace.h"

/* How often this thread has taken a lock for writing. */
static __thread guint n_writings;

/* In place of GLib's, which it calls. */
void g_rw_lock_writer_lock(GRWLock *lock) {
  n_writings++;
  NEXT(g_rw_lock_writer_lock)(lock);
}

static VekMetricGauge *gauge_new(gint64 interval) {
  return vek_metric_registry_gauge_new(fixture.registry, "load", NULL, interval, NULL);
}

/* Real time alone matters to a gauge. */
static void set_time(gint64 now) {
  vek_testing_clock_set(now, 1);
}

static void set_at(gint64 now, VekMetricGauge *gauge, gdouble value) {
  set_time(now);
  vek_metric_gauge_set_value(gauge, value);
}

static void add_at(gint64 now, VekMetricGauge *gauge, gdouble value) {
  set_time(now);
  vek_metric_gauge_add_value(gauge, value);
}

static void assert_value_at(gint64 now, VekMetricGauge *gauge, gdouble value, gint64 stamp) {
  gint64 time = -1;
  set_time(now);
  g_assert_cmpfloat(vek_metric_gauge_get_value(gauge, &time), ==, value);
  g_assert_cmpint(time, ==, stamp);
}

static void assert_report_at(gint64 now, const char *lines) {
  set_time(now);
  fixture_report();
  assert_recorded(fixture.record, lines);
}

TEST(never_set_gauge_reports_nothing_and_reads_zero_with_stamp_zero) {
  static const gint64 intervals[] = {0, 100};
  for (gsize i = 0; i < G_N_ELEMENTS(intervals); i++) {
    fixture_reset();
    g_autoptr(VekMetricGauge) gauge = gauge_new(intervals[i]);
    assert_value_at(1050, gauge, 0.0, 0);
    assert_report_at(1150, "a flush\n");
    g_assert_cmpint(vek_metric_gauge_get_last_change_time(gauge), ==, 0);
  }
}

TEST(without_interval_every_pass_reports_the_current_value_and_time) {
  char *dimensions[] = {"host", "h1", NULL};
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "load", "Percent", 0, dimensions);

  set_at(1000, gauge, 2.5);
  assert_report_at(2000,
                   "a value load{host=h1} 2.5 Percent @2000\n"
                   "a flush\n");
  assert_report_at(3000,
                   "a value load{host=h1} 2.5 Percent @3000\n"
                   "a flush\n");
  add_at(3500, gauge, -4);
  assert_report_at(4000,
                   "a value load{host=h1} -1.5 Percent @4000\n"
                   "a flush\n");
  assert_value_at(5000, gauge, -1.5, 5000);
}

TEST(gauge_set_in_one_interval_is_reported_once_in_the_next) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1050, gauge, 1.5);
  assert_report_at(1120,
                   "a value load 1.5 @1100\n"
                   "a flush\n");
  assert_report_at(1199, "a flush\n");
}

TEST(gauge_first_set_and_reported_in_one_interval_reports_zero_first) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1050, gauge, 7);
  assert_report_at(1060,
                   "a value load 0 @1000\n"
                   "a flush\n");
  assert_report_at(1110,
                   "a value load 7 @1100\n"
                   "a flush\n");
}

TEST(value_that_stood_when_the_interval_began_is_reported) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1050, gauge, 1);
  set_at(1070, gauge, 2);
  set_at(1100, gauge, 3);
  set_at(1110, gauge, 4);
  assert_report_at(1120,
                   "a value load 2 @1100\n"
                   "a flush\n");
}

TEST(gauge_unchanged_for_two_intervals_reports_nothing) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1099, gauge, 1.5);
  assert_report_at(1200, "a flush\n");
  assert_value_at(1200, gauge, 0.0, 0);

  /* The gauge is not lost: the value is still there. */
  add_at(1250, gauge, 1);
  assert_report_at(1300,
                   "a value load 2.5 @1300\n"
                   "a flush\n");
}

TEST(change_a_whole_interval_before_a_boundary_is_too_old_for_it) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1000, gauge, 1.5);
  assert_value_at(1100, gauge, 0.0, 0);
  assert_report_at(1100, "a flush\n");

  set_at(1201, gauge, 2.5);
  assert_value_at(1300, gauge, 2.5, 1300);
  assert_report_at(1300,
                   "a value load 2.5 @1300\n"
                   "a flush\n");
}

TEST(added_values_are_reported_as_the_sum_of_the_interval) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  add_at(1010, gauge, 1);
  add_at(1020, gauge, 2);
  add_at(1110, gauge, 4);
  assert_report_at(1120,
                   "a value load 3 @1100\n"
                   "a flush\n");
  add_at(1130, gauge, 8);
  add_at(1210, gauge, 16);
  assert_report_at(1220,
                   "a value load 12 @1200\n"
                   "a flush\n");
  assert_report_at(1310,
                   "a value load 16 @1300\n"
                   "a flush\n");
}

TEST(sum_carries_on_when_a_report_rolled_first) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  add_at(1010, gauge, 3);
  assert_report_at(1110,
                   "a value load 3 @1100\n"
                   "a flush\n");
  add_at(1120, gauge, 4);
  assert_value_at(1210, gauge, 7, 1200);
}

TEST(sum_carries_on_when_a_read_rolled_first) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  add_at(1010, gauge, 3);
  assert_value_at(1110, gauge, 3, 1100);
  add_at(1120, gauge, 4);
  assert_value_at(1210, gauge, 7, 1200);
}

TEST(sum_carries_on_when_a_set_rolled_first) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  add_at(1010, gauge, 3);
  set_at(1110, gauge, 10);
  add_at(1120, gauge, 4);
  assert_value_at(1130, gauge, 3, 1100);
  assert_value_at(1210, gauge, 14, 1200);
}

TEST(boundaries_are_multiples_of_the_interval_since_the_epoch) {
  set_time(1037);
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1037, gauge, 1);
  assert_report_at(1099,
                   "a value load 0 @1000\n"
                   "a flush\n");
  assert_report_at(1100,
                   "a value load 1 @1100\n"
                   "a flush\n");
}

TEST(report_to_nobody_rolls_and_counts_as_the_boundary_reported) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1050, gauge, 3);
  set_time(1110);
  report_to(gauge, NULL);
  assert_report_at(1120, "a flush\n");

  add_at(1130, gauge, 4);
  assert_report_at(1200,
                   "a value load 7 @1200\n"
                   "a flush\n");
}

TEST(reading_repeats_and_leaves_the_boundary_to_the_report) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1050, gauge, 3);
  assert_value_at(1110, gauge, 3, 1100);
  assert_value_at(1120, gauge, 3, 1100);
  assert_report_at(1130,
                   "a value load 3 @1100\n"
                   "a flush\n");
  assert_value_at(1140, gauge, 3, 1100);
}

TEST(time_of_the_value_may_be_ignored) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(0);

  set_at(1000, gauge, 3);
  g_assert_cmpfloat(vek_metric_gauge_get_value(gauge, NULL), ==, 3);
}

TEST(sets_and_adds_alone_are_changes) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1050, gauge, 1);
  g_assert_cmpint(vek_metric_gauge_get_last_change_time(gauge), ==, 1050);
  add_at(1060, gauge, 0);
  g_assert_cmpint(vek_metric_gauge_get_last_change_time(gauge), ==, 1060);
  assert_value_at(1110, gauge, 1, 1100);
  assert_report_at(1120,
                   "a value load 1 @1100\n"
                   "a flush\n");
  g_assert_cmpint(vek_metric_gauge_get_last_change_time(gauge), ==, 1060);
}

TEST(largest_interval_does_not_overflow) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(G_MAXINT64);

  set_at(G_MAXINT64 - 1, gauge, 3);
  assert_value_at(G_MAXINT64, gauge, 3, G_MAXINT64);
  assert_report_at(G_MAXINT64,
                   "a value load 3 @9223372036854775807\n"
                   "a flush\n");
}

TEST(negative_interval_is_refused_and_leaves_none) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(-1);
  assert_logged("GLib-GObject", G_LOG_LEVEL_WARNING,
                "value \"-1\" of type 'gint64' is invalid or out of range for property 'interval' "
                "of type 'gint64'");

  set_at(1050, gauge, 3);
  assert_report_at(1060,
                   "a value load 3 @1060\n"
                   "a flush\n");
}

TEST(reports_and_reads_take_the_lock_for_writing) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);

  set_at(1050, gauge, 7);
  n_writings = 0;
  assert_report_at(1060,
                   "a value load 0 @1000\n"
                   "a flush\n");
  g_assert_cmpuint(n_writings, ==, 1);
  assert_value_at(1060, gauge, 0, 1000);
  g_assert_cmpuint(n_writings, ==, 2);
}

static void change_from_reporter(VekTestingRecorder *recorder, const char *line, gpointer gauge) {
  (void)recorder;
  (void)line;
  vek_metric_gauge_add_value(gauge, 1);
}

TEST(reporter_may_use_the_gauge) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(0);
  vek_metric_gauge_set_value(gauge, 1);

  on_recorded(fixture.reporter, change_from_reporter, gauge);
  assert_report_at(1000,
                   "a value load 1 @1000\n"
                   "a flush\n");
  /* Twice: the flush was a call too. */
  assert_value_at(2000, gauge, 3, 2000);
}

TEST(property_is_the_interval) {
  GParamSpecInt64 *pspec =
      G_PARAM_SPEC_INT64(assert_construct_only_property(VEK_TYPE_METRIC_GAUGE, "interval"));
  g_assert_cmpint(pspec->minimum, ==, 0);
  g_assert_cmpint(pspec->maximum, ==, G_GINT64_CONSTANT(9223372036854775807));
  g_assert_cmpint(pspec->default_value, ==, 0);

  g_autoptr(VekMetricGauge) gauge = gauge_new(100);
  gint64 interval;
  g_object_get(gauge, "interval", &interval, NULL);
  g_assert_cmpint(interval, ==, 100);
  assert_unknown_property_warns(gauge);
}

TEST(failed_checks_do_nothing) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  /* An object of another kind is not a gauge. */
  gpointer others[] = {NULL, counter};

  for (gsize i = 0; i < G_N_ELEMENTS(others); i++) {
    vek_metric_gauge_set_value(others[i], 1);
    assert_failed_check("vek_metric_gauge_set_value", "VEK_IS_METRIC_GAUGE(gauge)");
    vek_metric_gauge_add_value(others[i], 1);
    assert_failed_check("vek_metric_gauge_add_value", "VEK_IS_METRIC_GAUGE(gauge)");
    gint64 time = 99;
    g_assert_cmpfloat(vek_metric_gauge_get_value(others[i], &time), ==, 0.0);
    assert_failed_check("vek_metric_gauge_get_value", "VEK_IS_METRIC_GAUGE(gauge)");
    g_assert_cmpint(time, ==, 99);
    g_assert_cmpint(vek_metric_gauge_get_last_change_time(others[i]), ==, 0);
    assert_failed_check("vek_metric_gauge_get_last_change_time", "VEK_IS_METRIC_GAUGE(gauge)");
  }
}

TEST(constructor_checks_registry_and_name) {
  g_assert_null(vek_metric_registry_gauge_new(NULL, "load", NULL, 0, NULL));
  assert_failed_check("vek_metric_registry_gauge_new", "VEK_IS_METRIC_REGISTRY(registry)");
  g_assert_null(vek_metric_registry_gauge_new(fixture.registry, NULL, NULL, 0, NULL));
  assert_failed_check("vek_metric_registry_gauge_new", "name != NULL");
}

TEST(existing_gauge_keeps_its_own_interval) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);
  g_autoptr(VekMetricGauge) again = gauge_new(500);
  g_assert_true(again == gauge);

  set_at(1050, gauge, 3);
  assert_value_at(1110, gauge, 3, 1100);
}

TEST(metric_of_another_kind_is_returned_with_a_warning) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "load", NULL, NULL);
  g_autoptr(GObject) returned = (gpointer)gauge_new(0);
  assert_invalid_cast("VekMetricCounter", "VekMetricGauge");
  g_assert_true(returned == (gpointer)counter);
}

/* The model thinks in boundaries: the one that was last noticed, the value that stood then, and the
 * one that was last reported. */
typedef struct {
  VekMetricGauge *gauge;
  gint64 interval;
  gint64 now;
  gint64 changed;
  gdouble value;
  gint64 boundary;
  gdouble stood;
  gint64 reported;
} GaugeModel;

enum { ADVANCE, ADVANCE_TO_BOUNDARY, SET, ADD, READ, REPORT, REPORT_TO_NOBODY, N_KINDS };

static gpointer begin_model(GRand *random) {
  static const gint64 intervals[] = {0, 1, 2, 7, 100, 1000000};
  GaugeModel *model = g_new0(GaugeModel, 1);
  fixture_reset();
  model->interval = intervals[g_rand_int_range(random, 0, G_N_ELEMENTS(intervals))];
  model->gauge = gauge_new(model->interval);
  model->now = g_rand_int_range(random, 1, 300);
  set_time(model->now);
  return model;
}

static void end_model(gpointer subject) {
  GaugeModel *model = subject;
  g_object_unref(model->gauge);
  g_free(model);
}

static void draw_operation(GRand *random, ModelOperation *operation) {
  operation->kind = g_rand_int_range(random, 0, N_KINDS);
  operation->number = g_rand_int_range(random, 0, 4) * g_rand_int_range(random, 0, 100);
  operation->value = g_rand_int_range(random, -8, 9) / 4.0;
}

static char *describe_operation(const ModelOperation *operation) {
  static const char *const names[] = {"advance", "advance to boundary", "set", "add", "read",
                                      "report",  "report to nobody"};
  return g_strdup_printf("%s number=%" G_GINT64_FORMAT " value=%g", names[operation->kind],
                         operation->number, operation->value);
}

/* Whether a boundary was passed that nobody had noticed. */
static gboolean notice_boundary(GaugeModel *model) {
  if (model->interval == 0)
    return FALSE;
  gint64 boundary = model->now - model->now % model->interval;
  if (boundary == model->boundary)
    return FALSE;
  model->stood = model->value;
  model->boundary = boundary;
  return TRUE;
}

static void expect_pair(GaugeModel *model, gdouble *value, gint64 *stamp) {
  *value = 0.0;
  *stamp = 0;
  if (model->changed == 0)
    return;
  notice_boundary(model);
  if (model->interval == 0) {
    *value = model->value;
    *stamp = model->now;
  } else if (model->boundary - model->changed < model->interval) {
    *value = model->stood;
    *stamp = model->boundary;
  }
}

static char *expect_report(GaugeModel *model) {
  gdouble value;
  gint64 stamp;
  expect_pair(model, &value, &stamp);
  if (stamp == 0 || (model->interval > 0 && stamp == model->reported))
    return g_strdup("");
  model->reported = stamp;
  g_autofree char *number = describe_number(value);
  return g_strdup_printf("a value load %s @%" G_GINT64_FORMAT "\n", number, stamp);
}

static char *compare_read(GaugeModel *model) {
  gdouble value;
  gint64 stamp;
  expect_pair(model, &value, &stamp);
  gint64 read_stamp;
  gdouble read = vek_metric_gauge_get_value(model->gauge, &read_stamp);
  if (read == value && read_stamp == stamp)
    return NULL;
  return g_strdup_printf("read %.17g at %" G_GINT64_FORMAT ", not %.17g at %" G_GINT64_FORMAT, read,
                         read_stamp, value, stamp);
}

static char *compare_report(GaugeModel *model) {
  g_autofree char *line = expect_report(model);
  g_autofree char *expected = g_strconcat(line, "a flush\n", NULL);
  fixture_report();
  if (g_str_equal(fixture.record->str, expected)) {
    g_string_truncate(fixture.record, 0);
    return NULL;
  }
  return g_strdup_printf("reported '%s', not '%s'", fixture.record->str, expected);
}

static char *apply_operation(gpointer subject, const ModelOperation *operation) {
  GaugeModel *model = subject;
  g_autofree char *difference = NULL;

  switch (operation->kind) {
  case ADVANCE: model->now += operation->number; break;
  case ADVANCE_TO_BOUNDARY:
    if (model->interval > 0)
      model->now += model->interval - model->now % model->interval;
    break;
  case SET:
    notice_boundary(model);
    model->value = operation->value;
    model->changed = model->now;
    vek_metric_gauge_set_value(model->gauge, operation->value);
    break;
  case ADD:
    if (notice_boundary(model))
      model->value = 0.0;
    model->value += operation->value;
    model->changed = model->now;
    vek_metric_gauge_add_value(model->gauge, operation->value);
    break;
  case READ: difference = compare_read(model); break;
  case REPORT: difference = compare_report(model); break;
  case REPORT_TO_NOBODY:
    g_free(expect_report(model));
    report_to(model->gauge, NULL);
    break;
  }
  set_time(model->now);

  gint64 changed = vek_metric_gauge_get_last_change_time(model->gauge);
  if (!difference && changed != model->changed)
    return g_strdup_printf("changed at %" G_GINT64_FORMAT ", not %" G_GINT64_FORMAT, changed,
                           model->changed);
  return g_steal_pointer(&difference);
}

TEST(random_histories_agree_with_a_model) {
  static const ModelTest test = {begin_model, draw_operation, apply_operation, end_model,
                                 describe_operation};
  model_test_run(&test, 50000);
}

enum { N_THREADS = 4, N_ADDS = 5000 };

static void add_many(guint thread, gpointer gauge) {
  (void)thread;
  for (guint i = 0; i < N_ADDS; i++)
    vek_metric_gauge_add_value(gauge, 1);
}

static void set_and_read_many(guint thread, gpointer gauge) {
  (void)thread;
  for (guint i = 0; i < N_ADDS; i++) {
    vek_metric_gauge_set_value(gauge, i);
    vek_metric_gauge_get_value(gauge, NULL);
  }
}

TEST(threads_set_and_read_one_at_a_time) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(100);
  g_assert_cmpuint(fixture_run_threads(N_THREADS, set_and_read_many, gauge), ==, 0);
}

TEST(threads_lose_no_addition) {
  g_autoptr(VekMetricGauge) gauge = gauge_new(0);
  g_assert_cmpuint(fixture_run_threads(N_THREADS, add_many, gauge), ==, 0);
  assert_value_at(1000, gauge, 20000, 1000);
}
