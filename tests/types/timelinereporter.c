/* Tests of VekMetricTimelineReporter. */

#include "csvtest.h"
#include "support/fixture.h"
#include "support/folder.h"

typedef GSList Batch;

static void batch_free(Batch *batch) {
  g_slist_free_full(batch, g_free);
}
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Batch, batch_free)

static Batch *prepend(Batch *batch, gint id, gint64 start, gint64 end) {
  VekMetricRange *range = g_new(VekMetricRange, 1);
  *range = (VekMetricRange){id, start, end};
  return g_slist_prepend(batch, range);
}

static void process(VekMetricReporter *reporter, const char *name, Batch *batch) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_timeline_samples(reporter, name, batch);
}

static void flush(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

static void write_line(VekMetricReporter *reporter) {
  g_autoptr(Batch) batch = prepend(NULL, 1, 100, 250);
  process(reporter, "render", batch);
}

TEST(only_timelines_and_flush_are_handled) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new(NULL, NULL);
  VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  g_assert_null(iface->process_count);
  g_assert_null(iface->process_value);
  g_assert_nonnull(iface->process_timeline_samples);
  g_assert_null(iface->process_aggregated);
  g_assert_nonnull(iface->flush);
}

TEST(empty_batch_writes_nothing) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new("ranges", folder);
  process(reporter, "render", NULL);
  flush(reporter);
  assert_folder(folder, "ranges.csv: ");
  folder_remove(folder);
}

TEST(passes_write_the_ranges_since_the_last_one_newest_first) {
  char *folder = folder_new();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new("ranges", folder);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "render");

  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  vek_metric_timeline_add_range(timeline, 2, 300, 420);
  vek_metric_registry_report(registry, reporter);
  assert_folder(folder,
                "ranges.csv: F,render,2,300,420\n"
                "F,render,1,100,250\n");

  vek_metric_registry_report(registry, reporter);
  vek_metric_timeline_add_range(timeline, 5, 500, 510);
  vek_metric_timeline_add_range(timeline, 3, 500, 500);
  vek_metric_timeline_add_range(timeline, 4, 400, 399);
  vek_metric_registry_report(registry, reporter);
  assert_folder(folder,
                "ranges.csv: F,render,2,300,420\n"
                "F,render,1,100,250\n"
                "F,render,4,400,399\n"
                "F,render,3,500,500\n"
                "F,render,5,500,510\n");
  folder_remove(folder);
}

TEST(negative_and_very_large_bounds_are_written_in_full_decimal) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new("ranges", folder);
  g_autoptr(Batch) batch = NULL;
  batch = prepend(batch, 0, 0, 0);
  batch = prepend(batch, -1, -2, -3);
  batch = prepend(batch, G_MAXINT, G_MAXINT64, G_MININT64);
  batch = prepend(batch, G_MININT, G_MININT64, G_MAXINT64);
  process(reporter, "render", batch);
  flush(reporter);

  assert_folder(folder,
                "ranges.csv: "
                "F,render,-2147483648,-9223372036854775808,9223372036854775807\n"
                "F,render,2147483647,9223372036854775807,-9223372036854775808\n"
                "F,render,-1,-2,-3\n"
                "F,render,0,0,0\n");
  folder_remove(folder);
}

TEST(names_are_written_as_they_stand) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new("ranges", folder);
  g_autoptr(Batch) batch = prepend(NULL, 1, 100, 250);
  static const char *const names[] = {"a,b", "100%s %n", "two\nlines", "\"quoted\"", "\xff", ""};
  for (guint i = 0; i < G_N_ELEMENTS(names); i++)
    process(reporter, names[i], batch);
  flush(reporter);

  assert_folder(folder,
                "ranges.csv: F,a,b,1,100,250\n"
                "F,100%s %n,1,100,250\n"
                "F,two\nlines,1,100,250\n"
                "F,\"quoted\",1,100,250\n"
                "F,\xff,1,100,250\n"
                "F,,1,100,250\n");
  folder_remove(folder);
}

TEST(batch_is_only_read) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new("ranges", folder);
  g_autoptr(Batch) batch = prepend(prepend(NULL, 1, 100, 250), 2, 300, 420);
  process(reporter, "render", batch);
  process(reporter, "render", batch);
  flush(reporter);

  assert_folder(folder,
                "ranges.csv: F,render,2,300,420\n"
                "F,render,1,100,250\n"
                "F,render,2,300,420\n"
                "F,render,1,100,250\n");
  folder_remove(folder);
}

TEST(reports_of_other_kinds_produce_no_output) {
  char *folder = folder_new();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricReporter) reporter = vek_metric_timeline_reporter_new("ranges", folder);
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(registry, "requests", NULL, NULL);
  g_autoptr(VekMetricGauge) gauge = vek_metric_registry_gauge_new(registry, "load", NULL, 0, NULL);
  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(registry, "size", NULL, NULL, NULL);
  g_autoptr(VekMetricMeter) meter = vek_metric_registry_meter_new(registry, "bytes", NULL, NULL);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(registry, "latency", "Seconds", NULL, NULL);
  vek_metric_counter_inc(counter);
  vek_metric_gauge_set_value(gauge, 0.25);
  vek_metric_histogram_set(histogram, 3.0);
  vek_metric_meter_mark(meter, 512.0);
  vek_metric_timer_start(timer);
  vek_metric_timer_stop(timer);

  vek_metric_registry_report(registry, reporter);
  assert_folder(folder, "ranges.csv: ");
  folder_remove(folder);
}

TEST(csv_log_of_the_same_name_is_the_same_file) {
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) ranges = vek_metric_timeline_reporter_new("figures", folder);
  g_autoptr(VekMetricReporter) figures = vek_metric_log_reporter_new("figures", folder);
  for (guint i = 0; i < 2; i++) {
    write_line(ranges);
    flush(ranges);
    VEK_METRIC_REPORTER_GET_IFACE(figures)->process_count(figures, "requests", NULL, NULL,
                                                          1700000000000000, 42);
    flush(figures);
  }
  assert_folder(folder,
                "figures.csv: F,render,1,100,250\n"
                "1700000000000000,requests,,42,,,,,,\n"
                "F,render,1,100,250\n"
                "1700000000000000,requests,,42,,,,,,\n");
  folder_remove(folder);
}

const CsvKind csv_kind = {
    .get_type = vek_metric_timeline_reporter_get_type,
    .make = vek_metric_timeline_reporter_new,
    .write = write_line,
    .line = "F,render,1,100,250\n",
    .folder_below_a_file = "Cannot create log dir \"file/logs\".\n",
    .folder_without_a_name = "Cannot create log dir \"\".\n",
};
