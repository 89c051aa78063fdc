/* Tests of VekMetricCounter. */

#include "support/fixture.h"
#include "support/heap.h"
#include "support/replace.h"

/* The readings of a counter's fields can be counted, and the second can be made to come late: after
 * a change from elsewhere. */
static VekMetricCounter *watched;
static guint watched_size;
static guint n_readings;
static void (*between_readings)(void);

static gboolean is_watched(GRWLock *lock) {
  guint8 *start = (guint8 *)watched;
  return start && (guint8 *)lock >= start && (guint8 *)lock < start + watched_size;
}

/* The library calls this in place of GLib's own. */
void g_rw_lock_reader_lock(GRWLock *lock) {
  if (is_watched(lock) && ++n_readings == 2 && between_readings)
    between_readings();
  NEXT(g_rw_lock_reader_lock)(lock);
}

static void watch(VekMetricCounter *counter, void (*function)(void)) {
  GTypeQuery query;
  g_type_query(VEK_TYPE_METRIC_COUNTER, &query);
  watched_size = query.instance_size;
  watched = counter;
  n_readings = 0;
  between_readings = function;
}

static VekMetricCounter *counter_new(void) {
  return g_object_new(VEK_TYPE_METRIC_COUNTER, "name", "requests", NULL);
}

TEST(the_type_is_registered_on_first_use_only) {
  if (!g_test_subprocess()) {
    g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
    g_test_trap_assert_passed();
    return;
  }
  g_assert_cmpuint(g_type_from_name("VekMetricCounter"), ==, 0);
  GType type = VEK_TYPE_METRIC_COUNTER;
  g_assert_cmpuint(g_type_from_name("VekMetricCounter"), ==, type);
}

TEST(the_type_is_a_metric_without_properties_of_its_own) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC_COUNTER), ==, "VekMetricCounter");
  g_assert_cmpuint(g_type_parent(VEK_TYPE_METRIC_COUNTER), ==, VEK_TYPE_METRIC);
  g_assert_false(G_TYPE_IS_ABSTRACT(VEK_TYPE_METRIC_COUNTER));

  g_autoptr(VekMetricCounter) counter = counter_new();
  guint n_properties = 0;
  g_autofree GParamSpec **properties =
      g_object_class_list_properties(G_OBJECT_GET_CLASS(counter), &n_properties);
  for (guint i = 0; i < n_properties; i++)
    g_assert_cmpuint(properties[i]->owner_type, ==, VEK_TYPE_METRIC);
}

TEST(new_counter_reports_zero_and_its_creation) {
  vek_testing_clock_set(1000, 1);
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", "Count", NULL);
  vek_testing_clock_set(2000, 1);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 0);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 1000);
  fixture_report();

  assert_recorded(fixture.record,
                  "a count requests 0 Count @1000\n"
                  "a flush\n");
}

TEST(add_changes_the_count_and_the_time) {
  vek_testing_clock_set(1000, 1);
  g_autoptr(VekMetricCounter) counter = counter_new();
  vek_testing_clock_set(2000, 1);
  vek_metric_counter_add(counter, 42);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 42);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 2000);

  vek_testing_clock_set(3000, 1);
  count_readings();
  vek_metric_counter_add(counter, 8);
  g_assert_cmpuint(get_real_readings(), ==, 1);
  g_assert_cmpuint(get_monotonic_readings(), ==, 0);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 50);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 3000);
}

TEST(adding_a_negative_value_decreases_the_count) {
  vek_testing_clock_set(1000, 1);
  g_autoptr(VekMetricCounter) counter = counter_new();
  vek_testing_clock_set(2000, 1);
  vek_metric_counter_add(counter, 5);
  vek_metric_counter_add(counter, -12);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, -7);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 2000);
}

TEST(adding_zero_changes_nothing_but_the_time) {
  g_autoptr(VekMetricCounter) counter = counter_new();
  vek_testing_clock_set(1000, 1);
  vek_metric_counter_add(counter, 5);
  vek_testing_clock_set(2000, 1);
  vek_metric_counter_add(counter, 0);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 5);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 2000);
}

TEST(inc_adds_one_and_dec_takes_one) {
  vek_testing_clock_set(1000, 1);
  g_autoptr(VekMetricCounter) counter = counter_new();
  vek_testing_clock_set(2000, 1);
  vek_metric_counter_inc(counter);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 1);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 2000);

  vek_testing_clock_set(3000, 1);
  vek_metric_counter_dec(counter);
  vek_metric_counter_dec(counter);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, -1);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 3000);
}

TEST(the_count_wraps_at_64_bits) {
  g_autoptr(VekMetricCounter) counter = counter_new();
  vek_metric_counter_add(counter, G_MAXINT64);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, G_MAXINT64);
  vek_metric_counter_inc(counter);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, G_MININT64);
  vek_metric_counter_dec(counter);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, G_MAXINT64);
  vek_metric_counter_add(counter, G_MAXINT64);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, -2);
}

TEST(reporting_twice_reports_the_same_count_and_time) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  vek_testing_clock_set(1000, 1);
  vek_metric_counter_add(counter, 42);

  vek_testing_clock_set(2000, 1);
  fixture_report();
  vek_testing_clock_set(3000, 1);
  fixture_report();
  assert_recorded(fixture.record,
                  "a count requests 42 @1000\n"
                  "a flush\n"
                  "a count requests 42 @1000\n"
                  "a flush\n");
}

TEST(a_report_with_no_reporters_only_reads) {
  g_autoptr(VekMetricCounter) counter = counter_new();
  watch(counter, NULL);
  report_to(counter, NULL);
  g_assert_cmpuint(n_readings, ==, 2);
  watch(NULL, NULL);
}

static void add_later(void) {
  vek_testing_clock_set(2000, 1);
  vek_metric_counter_add(watched, 1);
}

TEST(an_add_within_a_report_gives_a_newer_count_with_an_older_time) {
  g_autoptr(GSList) reporters = g_slist_prepend(NULL, fixture.reporter);
  g_autoptr(VekMetricCounter) counter = counter_new();
  vek_testing_clock_set(1000, 1);
  vek_metric_counter_add(counter, 42);

  watch(counter, add_later);
  report_to(counter, reporters);
  watch(NULL, NULL);
  assert_recorded(fixture.record, "a count requests 43 @1000\n");
}

static void on_report_add(VekTestingRecorder *recorder, const char *line, gpointer counter) {
  (void)recorder;
  (void)line;
  vek_testing_clock_set(2000, 1);
  vek_metric_counter_add(counter, 1);
}

TEST(every_reporter_gets_the_same_figures_in_list_order) {
  g_autoptr(VekMetricReporter) b = record_to(fixture.record, "b");
  g_autoptr(GSList) reporters = g_slist_prepend(g_slist_prepend(NULL, fixture.reporter), b);
  const char *dimensions[] = {"host", "h1", NULL};
  g_autoptr(VekMetricCounter) counter = g_object_new(
      VEK_TYPE_METRIC_COUNTER, "name", "requests", "unit", "Count", "dimensions", dimensions, NULL);
  vek_testing_clock_set(1000, 1);
  vek_metric_counter_add(counter, 42);

  /* No lock is held while a reporter is called, and what it adds waits for the next report. */
  gulong handler = on_recorded(b, on_report_add, counter);
  report_to(counter, reporters);
  assert_recorded(fixture.record,
                  "b count requests{host=h1} 42 Count @1000\n"
                  "a count requests{host=h1} 42 Count @1000\n");
  g_signal_handler_disconnect(b, handler);
  report_to(counter, reporters);
  assert_recorded(fixture.record,
                  "b count requests{host=h1} 43 Count @2000\n"
                  "a count requests{host=h1} 43 Count @2000\n");
}

TEST(the_constructor_sets_the_properties) {
  char *dimensions[] = {"host", "h1", NULL};
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", "Count", dimensions);
  g_assert_true(VEK_IS_METRIC_COUNTER(counter));
  g_assert_cmpstr(vek_metric_get_name(VEK_METRIC(counter)), ==, "requests");
  g_assert_cmpstr(vek_metric_get_unit(VEK_METRIC(counter)), ==, "Count");
  g_assert_cmpstrv(vek_metric_get_dimensions(VEK_METRIC(counter)), dimensions);
  g_assert_true(vek_metric_is_active(VEK_METRIC(counter)));

  g_autoptr(VekMetricCounter) bare =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  g_assert_cmpstr(vek_metric_get_name(VEK_METRIC(bare)), ==, "requests");
  g_assert_null(vek_metric_get_unit(VEK_METRIC(bare)));
  g_assert_null(vek_metric_get_dimensions(VEK_METRIC(bare)));
}

TEST(the_same_name_and_dimensions_give_the_same_counter) {
  char *dimensions[] = {"host", "h1", NULL};
  g_autoptr(VekMetricCounter) first =
      vek_metric_registry_counter_new(fixture.registry, "requests", "Count", dimensions);
  g_autoptr(VekMetricCounter) second =
      vek_metric_registry_counter_new(fixture.registry, "requests", "Bytes", dimensions);
  g_assert_true(second == first);
  g_assert_cmpuint(G_OBJECT(first)->ref_count, ==, 3); /* the table's, and one for each call */
  g_assert_cmpstr(vek_metric_get_unit(VEK_METRIC(second)), ==, "Count");

  g_autoptr(VekMetricCounter) other =
      vek_metric_registry_counter_new(fixture.registry, "requests", "Count", NULL);
  g_assert_true(other != first);
}

TEST(a_gauge_under_the_key_is_returned_after_a_warning) {
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "requests", NULL, 0, NULL);
  g_autoptr(GObject) found =
      (GObject *)vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  assert_invalid_cast("VekMetricGauge", "VekMetricCounter");
  g_assert_true(found == G_OBJECT(gauge));
}

static void assert_all_checks_fail(gpointer counter) {
  const char *condition = "VEK_IS_METRIC_COUNTER(counter)";
  vek_metric_counter_add(counter, 1);
  assert_failed_check("vek_metric_counter_add", condition);
  vek_metric_counter_inc(counter);
  assert_failed_check("vek_metric_counter_inc", condition);
  vek_metric_counter_dec(counter);
  assert_failed_check("vek_metric_counter_dec", condition);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 0);
  assert_failed_check("vek_metric_counter_get_count", condition);
  g_assert_cmpint(vek_metric_counter_get_time(counter), ==, 0);
  assert_failed_check("vek_metric_counter_get_time", condition);
}

TEST(null_fails_every_check_and_gives_neutral_values) {
  assert_all_checks_fail(NULL);
}

TEST(a_gauge_fails_every_check_and_is_left_untouched) {
  vek_testing_clock_set(1000, 1);
  g_autoptr(VekMetricGauge) gauge = g_object_new(VEK_TYPE_METRIC_GAUGE, "name", "load", NULL);
  vek_metric_gauge_set_value(gauge, 0.25);
  GTypeQuery query;
  g_type_query(VEK_TYPE_METRIC_GAUGE, &query);
  g_autofree gpointer before = g_memdup2(gauge, query.instance_size);

  vek_testing_clock_set(2000, 1);
  assert_all_checks_fail(gauge);
  g_assert_cmpmem(gauge, query.instance_size, before, query.instance_size);
}

TEST(the_constructor_checks_the_registry_and_then_the_name) {
  g_autoptr(VekMetricCounter) counter = counter_new();
  gpointer not_a_registry = counter;

  g_assert_null(vek_metric_registry_counter_new(NULL, "requests", NULL, NULL));
  assert_failed_check("vek_metric_registry_counter_new", "VEK_IS_METRIC_REGISTRY(registry)");
  g_assert_null(vek_metric_registry_counter_new(not_a_registry, NULL, NULL, NULL));
  assert_failed_check("vek_metric_registry_counter_new", "VEK_IS_METRIC_REGISTRY(registry)");
  g_assert_null(vek_metric_registry_counter_new(fixture.registry, NULL, NULL, NULL));
  assert_failed_check("vek_metric_registry_counter_new", "name != NULL");
}

static void add_often(guint thread, gpointer counter) {
  (void)thread;
  for (guint i = 0; i < 500; i++) {
    vek_metric_counter_add(counter, 3);
    vek_metric_counter_inc(counter);
    vek_metric_counter_dec(counter);
    vek_metric_counter_dec(counter);
  }
}

TEST(threads_add_up_exactly) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  g_assert_cmpuint(fixture_run_threads(4, add_often, counter), ==, 0);
  g_assert_cmpint(vek_metric_counter_get_count(counter), ==, 4000);
}

static void make_and_unref(void) {
  g_object_unref(counter_new());
}

TEST(a_counter_frees_its_lock) {
  assert_frees_all(make_and_unref);
}
