/* Tests of VekMetricTimeline. */

#include "support/fixture.h"

#include <stdio.h>
#include <stdlib.h>

static VekMetricTimeline *timeline_new(void) {
  return vek_metric_registry_timeline_new(fixture.registry, "render");
}

TEST(ranges_reach_every_reporter_once_in_one_batch_newest_first) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();
  g_autoptr(VekMetricReporter) other = record_to(fixture.record, "b");
  g_autoptr(GSList) reporters = g_slist_prepend(g_slist_prepend(NULL, other), fixture.reporter);

  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  vek_metric_timeline_add_range(timeline, 2, 300, 420);
  report_to(timeline, reporters);
  assert_recorded(fixture.record,
                  "a timeline render [2:300..420 1:100..250]\n"
                  "b timeline render [2:300..420 1:100..250]\n");
}

TEST(empty_batch_is_passed_on) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();

  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  fixture_report();
  assert_recorded(fixture.record,
                  "a timeline render [1:100..250]\n"
                  "a flush\n");
  fixture_report();
  assert_recorded(fixture.record,
                  "a timeline render []\n"
                  "a flush\n");
}

TEST(report_to_nobody_drops_the_batch) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();

  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  report_to(timeline, NULL);
  fixture_report();
  assert_recorded(fixture.record,
                  "a timeline render []\n"
                  "a flush\n");
}

TEST(ranges_are_neither_compared_nor_changed) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();

  vek_metric_timeline_add_range(timeline, G_MININT, G_MAXINT64, G_MININT64);
  vek_metric_timeline_add_range(timeline, G_MAXINT, -5, -5);
  vek_metric_timeline_add_range(timeline, 0, 0, 0);
  fixture_report();
  assert_recorded(fixture.record,
                  "a timeline render [0:0..0 2147483647:-5..-5 "
                  "-2147483648:9223372036854775807..-9223372036854775808]\n"
                  "a flush\n");
}

TEST(moved_ranges_belong_to_the_caller) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();
  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  vek_metric_timeline_add_range(timeline, 2, 300, 420);

  GSList *ranges = vek_metric_timeline_move_data(timeline);
  g_assert_cmpuint(g_slist_length(ranges), ==, 2);
  const VekMetricRange *newest = ranges->data;
  g_assert_cmpint(newest->id, ==, 2);
  g_assert_cmpint(newest->start, ==, 300);
  g_assert_cmpint(newest->end, ==, 420);
  const VekMetricRange *oldest = ranges->next->data;
  g_assert_cmpint(oldest->id, ==, 1);
  g_slist_free_full(ranges, g_free);

  g_assert_null(vek_metric_timeline_move_data(timeline));
}

TEST(timeline_has_no_properties_of_its_own) {
  g_autoptr(GTypeClass) klass = g_type_class_ref(VEK_TYPE_METRIC_TIMELINE);
  guint n;
  g_autofree GParamSpec **pspecs = g_object_class_list_properties(G_OBJECT_CLASS(klass), &n);
  for (guint i = 0; i < n; i++)
    g_assert_cmpstr(g_type_name(pspecs[i]->owner_type), ==, "VekMetric");
}

TEST(timeline_of_the_same_name_is_the_same) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();
  g_autoptr(VekMetricTimeline) again = timeline_new();
  g_assert_true(again == timeline);
  g_assert_null(vek_metric_get_dimensions(VEK_METRIC(timeline)));
  g_assert_null(vek_metric_get_unit(VEK_METRIC(timeline)));
}

TEST(construction_keeps_a_store_that_is_there) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();
  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  G_OBJECT_GET_CLASS(timeline)->constructed(G_OBJECT(timeline));
  fixture_report();
  assert_recorded(fixture.record,
                  "a timeline render [1:100..250]\n"
                  "a flush\n");
}

TEST(moving_the_data_of_nothing_fails_the_check) {
  g_assert_null(vek_metric_timeline_move_data(NULL));
  assert_failed_check("vek_metric_timeline_move_data", "timeline");
}

TEST(disposed_timeline_falls_to_the_checks_of_its_store) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();
  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  run_dispose(timeline);
  run_dispose(timeline);

  vek_metric_timeline_add_range(timeline, 2, 300, 420);
  assert_failed_check("vek_metric_store_add_range", "VEK_IS_METRIC_STORE(store)");
  g_assert_null(vek_metric_timeline_move_data(timeline));
  assert_failed_check("vek_metric_timeline_move_data",
                      "VEK_IS_METRIC_RANGE_STORE(timeline->store)");
}

TEST(constructor_checks_the_registry) {
  g_assert_null(vek_metric_registry_timeline_new(NULL, "render"));
  assert_failed_check("vek_metric_registry_timeline_new", "VEK_IS_METRIC_REGISTRY(registry)");
}

TEST(timeline_without_a_name_aborts_in_the_registry) {
  if (g_test_subprocess()) {
    fixture_reset();
    vek_metric_registry_timeline_new(fixture.registry, NULL);
    exit(EXIT_SUCCESS);
  }

  g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_failed();
  g_test_trap_assert_stderr(
      "*\nVEK:metrics:ERROR:../vekmetrics/registry:85:get_key: "
      "assertion failed: (name != NULL)\n*");
}

TEST(metric_of_another_kind_is_returned_with_a_warning) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "render", NULL, NULL);
  g_autoptr(GObject) returned = (gpointer)timeline_new();
  assert_invalid_cast("VekMetricCounter", "VekMetricTimeline");
  g_assert_true(returned == (gpointer)counter);
}

enum { N_THREADS = 4, N_RANGES = 2000 };

static void add_many(guint thread, gpointer timeline) {
  for (gint64 i = 0; i < N_RANGES; i++)
    vek_metric_timeline_add_range(timeline, (gint)thread, i, -i);
}

TEST(threads_lose_and_double_no_range) {
  g_autoptr(VekMetricTimeline) timeline = timeline_new();
  fixture_run_threads(N_THREADS, add_many, timeline);

  guint seen[N_THREADS][N_RANGES] = {{0}};
  g_auto(GStrv) words = g_strsplit_set(fixture.record->str, " []\n", -1);
  for (char **word = words; *word; word++) {
    int thread;
    int start;
    int end;
    if (sscanf(*word, "%d:%d..%d", &thread, &start, &end) != 3)
      continue;
    g_assert_cmpint(thread, <, N_THREADS);
    g_assert_cmpint(start, <, N_RANGES);
    g_assert_cmpint(end, ==, -start);
    seen[thread][start]++;
  }
  for (guint thread = 0; thread < N_THREADS; thread++)
    for (guint start = 0; start < N_RANGES; start++)
      g_assert_cmpuint(seen[thread][start], ==, 1);
}
