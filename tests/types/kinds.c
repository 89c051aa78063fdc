/* Tests of all kinds of metrics under one key: who asks for a kind may get a metric of another. */

#include "support/fixture.h"

#include <string.h>

/* Each returns a metric of the key "m", with its neutral value asserted where there is one. */

static gpointer counter_new(void) {
  return vek_metric_registry_counter_new(fixture.registry, "m", NULL, NULL);
}

static gpointer gauge_new(void) {
  return vek_metric_registry_gauge_new(fixture.registry, "m", NULL, 0, NULL);
}

static gpointer meter_new(void) {
  return vek_metric_registry_meter_new(fixture.registry, "m", NULL, NULL);
}

static gpointer histogram_new(void) {
  return vek_metric_registry_histogram_new(fixture.registry, "m", NULL, NULL, NULL);
}

static gpointer timer_new(void) {
  return vek_metric_registry_timer_new(fixture.registry, "m", "Seconds", NULL, NULL);
}

static gpointer timeline_new(void) {
  return vek_metric_registry_timeline_new(fixture.registry, "m");
}

/* The operations, each with what it returns after a failed check. */

static void counter_add(gpointer metric) {
  vek_metric_counter_add(metric, 5);
}

static void counter_inc(gpointer metric) {
  vek_metric_counter_inc(metric);
}

static void counter_dec(gpointer metric) {
  vek_metric_counter_dec(metric);
}

static void counter_get_count(gpointer metric) {
  g_assert_cmpint(vek_metric_counter_get_count(metric), ==, 0);
}

static void counter_get_time(gpointer metric) {
  g_assert_cmpint(vek_metric_counter_get_time(metric), ==, 0);
}

static void gauge_set_value(gpointer metric) {
  vek_metric_gauge_set_value(metric, 0.5);
}

static void gauge_add_value(gpointer metric) {
  vek_metric_gauge_add_value(metric, 0.5);
}

static void gauge_get_value(gpointer metric) {
  gint64 time = 42;
  g_assert_cmpfloat(vek_metric_gauge_get_value(metric, &time), ==, 0.0);
  g_assert_cmpint(time, ==, 42);
}

static void gauge_get_last_change_time(gpointer metric) {
  g_assert_cmpint(vek_metric_gauge_get_last_change_time(metric), ==, 0);
}

static void meter_mark(gpointer metric) {
  vek_metric_meter_mark(metric, 5);
}

static void meter_get_rate(gpointer metric) {
  g_assert_cmpfloat(vek_metric_meter_get_rate(metric), ==, 0.0);
}

static void meter_get_total(gpointer metric) {
  g_assert_cmpfloat(vek_metric_meter_get_total(metric), ==, 0.0);
}

static void meter_get_time(gpointer metric) {
  g_assert_cmpint(vek_metric_meter_get_time(metric), ==, 0);
}

static void histogram_set(gpointer metric) {
  vek_metric_histogram_set(metric, 0.5);
}

static void histogram_get_snapshot(gpointer metric) {
  g_assert_null(vek_metric_histogram_get_snapshot(metric));
}

static void timer_start(gpointer metric) {
  vek_metric_timer_start(metric);
}

static void timer_stop(gpointer metric) {
  vek_metric_timer_stop(metric);
}

static void timer_set_usec(gpointer metric) {
  vek_metric_timer_set_usec(metric, 500);
}

/* Bring a metric to what its row says that it reports. */

static void use_counter(gpointer metric) {
  vek_metric_counter_add(metric, 42);
}

static void use_gauge(gpointer metric) {
  vek_metric_gauge_set_value(metric, 2.5);
}

static void use_meter(gpointer metric) {
  vek_metric_meter_mark(metric, 1);
  vek_testing_clock_advance(2 * G_USEC_PER_SEC);
  vek_metric_meter_mark(metric, 10);
}

static void use_histogram(gpointer metric) {
  vek_metric_histogram_set(metric, 2.5);
}

static void use_timer(gpointer metric) {
  vek_metric_timer_set_usec(metric, 2500000);
}

static void use_timeline(gpointer metric) {
  vek_metric_timeline_add_range(metric, 1, 2, 3);
}

typedef struct {
  void (*call)(gpointer metric);
  const char *name;
} Operation;

typedef struct {
  const char *type;
  gpointer (*make)(void);
  const char *check; /* of its operations; those of a timeline have none */
  Operation operations[6];
  void (*use)(gpointer metric);
  const char *report; /* after that */
} Kind;

#define OPERATION(name) \
  { name, "vek_metric_" #name }

static const Kind kinds[] = {
    {"VekMetricCounter",
     counter_new,
     "VEK_IS_METRIC_COUNTER(counter)",
     {OPERATION(counter_add), OPERATION(counter_inc), OPERATION(counter_dec),
      OPERATION(counter_get_count), OPERATION(counter_get_time)},
     use_counter,
     "a count m 42 @1000\na flush\n"},
    {"VekMetricGauge",
     gauge_new,
     "VEK_IS_METRIC_GAUGE(gauge)",
     {OPERATION(gauge_set_value), OPERATION(gauge_add_value), OPERATION(gauge_get_value),
      OPERATION(gauge_get_last_change_time)},
     use_gauge,
     "a value m 2.5 @1000\na flush\n"},
    {"VekMetricMeter",
     meter_new,
     "VEK_IS_METRIC_METER(meter)",
     {OPERATION(meter_mark), OPERATION(meter_get_rate), OPERATION(meter_get_total),
      OPERATION(meter_get_time)},
     use_meter,
     "a value m 5 @2001000\na flush\n"},
    {"VekMetricHistogram",
     histogram_new,
     "VEK_IS_METRIC_HISTOGRAM(histogram)",
     {OPERATION(histogram_set), OPERATION(histogram_get_snapshot)},
     use_histogram,
     "a aggregated m n=1 sum=2.5 min=2.5 max=2.5 @1000\na flush\n"},
    {"VekMetricTimer",
     timer_new,
     "VEK_IS_METRIC_TIMER(timer)",
     {OPERATION(timer_start), OPERATION(timer_stop), OPERATION(timer_set_usec)},
     use_timer,
     "a aggregated m n=1 sum=2.5 min=2.5 max=2.5 Seconds @1000\na flush\n"},
    {"VekMetricTimeline",
     timeline_new,
     NULL,
     {{NULL, NULL}},
     use_timeline,
     "a timeline m [1:2..3]\na flush\n"},
};

static GBytes *copy_instance(gpointer metric) {
  GTypeQuery query;
  g_type_query(G_OBJECT_TYPE(metric), &query);
  return g_bytes_new(metric, query.instance_size);
}

static void try_pair(const Kind *found, const Kind *asked) {
  fixture_reset();
  vek_testing_clock_set(1000, 1000);
  g_autoptr(GObject) metric = found->make();
  found->use(metric);

  g_autoptr(GObject) again = asked->make();
  g_assert_true(again == metric);
  if (!g_type_is_a(G_OBJECT_TYPE(metric), g_type_from_name(asked->type))) {
    assert_invalid_cast(found->type, asked->type);
    g_autoptr(GBytes) before = copy_instance(metric);
    for (const Operation *operation = asked->operations; operation->call; operation++) {
      operation->call(metric);
      assert_failed_check(operation->name, asked->check);
    }
    g_autoptr(GBytes) after = copy_instance(metric);
    g_assert_true(g_bytes_equal(before, after));
  }
  assert_nothing_logged();

  fixture_report();
  assert_recorded(fixture.record, found->report);
}

TEST(operations_of_a_kind_leave_a_metric_of_another_untouched) {
  for (gsize i = 0; i < G_N_ELEMENTS(kinds); i++)
    for (gsize j = 0; j < G_N_ELEMENTS(kinds); j++)
      if (i != j) {
        g_test_message("%s, asked for as %s", kinds[i].type, kinds[j].type);
        try_pair(&kinds[i], &kinds[j]);
      }
}
