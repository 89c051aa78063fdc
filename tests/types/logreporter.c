/* Tests of VekMetricLogReporter. */

#include "csvtest.h"
#include "support/decimalcomma.h"
#include "support/fixture.h"
#include "support/folder.h"

#include <float.h>
#include <math.h>
#include <string.h>

#define NOW G_GINT64_CONSTANT(1700000000000000)

/* A reporter that writes figures.csv in a folder of its own. */
typedef struct {
  char *folder;
  VekMetricReporter *reporter;
  VekMetricReporterInterface *iface;
} Log;

static Log *log_new(void) {
  Log *log = g_new(Log, 1);
  log->folder = folder_new();
  log->reporter = vek_metric_log_reporter_new("figures", log->folder);
  log->iface = VEK_METRIC_REPORTER_GET_IFACE(log->reporter);
  return log;
}

static void log_free(Log *log) {
  g_object_unref(log->reporter);
  folder_remove(log->folder);
  g_free(log);
}
G_DEFINE_AUTOPTR_CLEANUP_FUNC(Log, log_free)

static void process_aggregated(Log *log, const char *name, const gdouble *samples,
                               gsize n_samples) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, n_samples);
  log->iface->process_aggregated(log->reporter, name, NULL, "Seconds", snapshot);
}

/* Flushes and compares the whole file. */
static void assert_file(Log *log, const char *lines) {
  log->iface->flush(log->reporter);
  g_autofree char *description = g_strconcat("figures.csv: ", lines, NULL);
  assert_folder(log->folder, description);
}

static void write_line(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, "requests", NULL, NULL, NOW, 42);
}

TEST(all_but_timelines_are_handled) {
  g_autoptr(Log) log = log_new();
  g_assert_nonnull(log->iface->process_count);
  g_assert_nonnull(log->iface->process_value);
  g_assert_null(log->iface->process_timeline_samples);
  g_assert_nonnull(log->iface->process_aggregated);
  g_assert_nonnull(log->iface->flush);
}

TEST(timeline_batches_produce_no_output) {
  g_autoptr(Log) log = log_new();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "render");
  vek_metric_timeline_add_range(timeline, 1, 100, 250);
  vek_metric_registry_report(registry, log->reporter);
  assert_file(log, "");
}

TEST(counter_with_dimensions_writes_them_with_the_last_semicolon) {
  g_autoptr(Log) log = log_new();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  vek_testing_clock_set(NOW, 1);
  char *dimensions[] = {"host", "a", NULL};
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(registry, "requests", "Count", dimensions);
  vek_metric_counter_add(counter, 42);
  vek_testing_clock_advance(1000);
  vek_metric_registry_report(registry, log->reporter);
  assert_file(log, "1700000000000000,requests,host=a;,42,,,,,,\n");
}

TEST(dimensions_end_each_in_their_separator) {
  static char *vectors[][5] = {
      {NULL},
      {"host", "a", NULL},
      {"host", "a", "zone", "b", NULL},
      {"host", NULL},
      {"host", "a", "zone", NULL},
      {"", "", NULL},
      {"a=b", "c;d", "e,f", "g\nh", NULL},
  };
  g_autoptr(Log) log = log_new();
  log->iface->process_count(log->reporter, "n", NULL, NULL, 1, 2);
  for (guint i = 0; i < G_N_ELEMENTS(vectors); i++)
    log->iface->process_count(log->reporter, "n", vectors[i], NULL, 1, 2);
  assert_file(log,
              "1,n,,2,,,,,,\n"
              "1,n,,2,,,,,,\n"
              "1,n,host=a;,2,,,,,,\n"
              "1,n,host=a;zone=b;,2,,,,,,\n"
              "1,n,host=,2,,,,,,\n"
              "1,n,host=a;zone=,2,,,,,,\n"
              "1,n,=;,2,,,,,,\n"
              "1,n,a=b=c;d;e,f=g\nh;,2,,,,,,\n");
}

TEST(value_and_snapshot_carry_dimensions_too) {
  g_autoptr(Log) log = log_new();
  char *dimensions[] = {"host", "a", "zone", "b", NULL};
  vek_testing_clock_set(1, 1);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(NULL, 0);
  log->iface->process_value(log->reporter, "n", dimensions, NULL, 1, 2.0);
  log->iface->process_aggregated(log->reporter, "n", dimensions, NULL, snapshot);
  assert_file(log,
              "1,n,host=a;zone=b;,2,,,,,,\n"
              "1,n,host=a;zone=b;,0,0,0,0,0,0,0\n");
}

TEST(names_are_written_as_they_stand) {
  static const char *const names[] = {"a,b", "100%s %n", "two\nlines", "\"quoted\"", "\xff", ""};
  g_autoptr(Log) log = log_new();
  for (guint i = 0; i < G_N_ELEMENTS(names); i++)
    log->iface->process_count(log->reporter, names[i], NULL, NULL, 1, 2);
  assert_file(log,
              "1,a,b,,2,,,,,,\n"
              "1,100%s %n,,2,,,,,,\n"
              "1,two\nlines,,2,,,,,,\n"
              "1,\"quoted\",,2,,,,,,\n"
              "1,\xff,,2,,,,,,\n"
              "1,,,2,,,,,,\n");
}

/* As docs/security.md advises. */
TEST(name_that_was_cleaned_is_one_field_of_one_line) {
  char name[] = "../é,1\n\x1b[2J;x=y z";
  g_strcanon(name, G_CSET_A_2_Z G_CSET_a_2_z G_CSET_DIGITS "-_", '_');
  g_autoptr(Log) log = log_new();
  log->iface->process_count(log->reporter, name, NULL, NULL, 1, 2);
  assert_file(log, "1,______1___2J_x_y_z,,2,,,,,,\n");
}

TEST(long_names_are_written_whole) {
  g_autoptr(Log) log = log_new();
  g_autofree char *name = g_strnfill(100000, 'n');
  char *dimensions[] = {name, name, NULL};
  log->iface->process_count(log->reporter, name, dimensions, NULL, 1, 2);
  g_autofree char *expected = g_strconcat("1,", name, ",", name, "=", name, ";,2,,,,,,\n", NULL);
  assert_file(log, expected);
}

TEST(unit_is_left_out) {
  g_autoptr(Log) log = log_new();
  vek_testing_clock_set(1, 1);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(NULL, 0);
  log->iface->process_count(log->reporter, "n", NULL, "Count", 1, 2);
  log->iface->process_value(log->reporter, "n", NULL, "Bytes", 1, 2.0);
  log->iface->process_aggregated(log->reporter, "n", NULL, "Seconds", snapshot);
  assert_file(log,
              "1,n,,2,,,,,,\n"
              "1,n,,2,,,,,,\n"
              "1,n,,0,0,0,0,0,0,0\n");
}

TEST(counts_and_times_are_signed_integers) {
  static const struct {
    gint64 time, count;
  } rows[] = {
      {NOW, 42}, {0, 0}, {-1, -5}, {G_MININT64, G_MAXINT64}, {G_MAXINT64, G_MININT64},
  };
  g_autoptr(Log) log = log_new();
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++)
    log->iface->process_count(log->reporter, "requests", NULL, NULL, rows[i].time, rows[i].count);
  assert_file(log,
              "1700000000000000,requests,,42,,,,,,\n"
              "0,requests,,0,,,,,,\n"
              "-1,requests,,-5,,,,,,\n"
              "-9223372036854775808,requests,,9223372036854775807,,,,,,\n"
              "9223372036854775807,requests,,-9223372036854775808,,,,,,\n");
}

TEST(value_has_17_digits_and_six_empty_columns_after_it) {
  static const gdouble values[] = {0.0,     0.1,      2.5,      -0.0,
                                   1.0 / 3, -1234.5,  1e16,     1e17,
                                   1e22,    0.0001,   0.00001,  123456789012345678.0,
                                   DBL_MAX, -DBL_MAX, DBL_MIN,  0x1p-1074,
                                   NAN,     -NAN,     INFINITY, -INFINITY};
  g_autoptr(Log) log = log_new();
  for (guint i = 0; i < G_N_ELEMENTS(values); i++)
    log->iface->process_value(log->reporter, "load", NULL, NULL, NOW + i, values[i]);
  assert_file(log,
              "1700000000000000,load,,0,,,,,,\n"
              "1700000000000001,load,,0.10000000000000001,,,,,,\n"
              "1700000000000002,load,,2.5,,,,,,\n"
              "1700000000000003,load,,-0,,,,,,\n"
              "1700000000000004,load,,0.33333333333333331,,,,,,\n"
              "1700000000000005,load,,-1234.5,,,,,,\n"
              "1700000000000006,load,,10000000000000000,,,,,,\n"
              "1700000000000007,load,,1e+17,,,,,,\n"
              "1700000000000008,load,,1e+22,,,,,,\n"
              "1700000000000009,load,,0.0001,,,,,,\n"
              "1700000000000010,load,,1.0000000000000001e-05,,,,,,\n"
              "1700000000000011,load,,1.2345678901234568e+17,,,,,,\n"
              "1700000000000012,load,,1.7976931348623157e+308,,,,,,\n"
              "1700000000000013,load,,-1.7976931348623157e+308,,,,,,\n"
              "1700000000000014,load,,2.2250738585072014e-308,,,,,,\n"
              "1700000000000015,load,,4.9406564584124654e-324,,,,,,\n"
              "1700000000000016,load,,nan,,,,,,\n"
              "1700000000000017,load,,-nan,,,,,,\n"
              "1700000000000018,load,,inf,,,,,,\n"
              "1700000000000019,load,,-inf,,,,,,\n");
}

TEST(snapshot_fills_seven_columns) {
  static const struct {
    const char *name;
    gsize n_samples;
    gdouble samples[11];
  } rows[] = {
      {"empty", 0, {0}},
      {"one", 1, {0.1}},
      {"two", 2, {20, 10}},
      {"five", 5, {1, 2, 3, 4, 5}},
      {"eleven", 11, {100, 90, 80, 70, 60, 50, 40, 30, 20, 10, 0}},
      {"negative", 3, {-1, -2.5, -4}},
      {"nan", 1, {NAN}},
      {"infinite", 2, {INFINITY, 1}},
  };
  g_autoptr(Log) log = log_new();
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    vek_testing_clock_set(NOW + i, 1);
    process_aggregated(log, rows[i].name, rows[i].samples, rows[i].n_samples);
  }
  assert_file(log,
              "1700000000000000,empty,,0,0,0,0,0,0,0\n"
              "1700000000000001,one,,0.10000000000000001,1,0.10000000000000001,"
              "0.10000000000000001,0.10000000000000001,0.10000000000000001,0.10000000000000001\n"
              "1700000000000002,two,,15,2,10,20,10,10,10\n"
              "1700000000000003,five,,3,5,1,5,1,3,4.5999999999999996\n"
              "1700000000000004,eleven,,50,11,0,100,10,50,90\n"
              "1700000000000005,negative,,-2.5,3,-4,-1,-4,-2.5,-1.2999999999999998\n"
              "1700000000000006,nan,,nan,1,nan,nan,nan,nan,nan\n"
              "1700000000000007,infinite,,inf,2,1,inf,1,1,1\n");
}

TEST(snapshot_is_stamped_with_the_time_when_it_was_made) {
  g_autoptr(Log) log = log_new();
  vek_testing_clock_set(NOW, 1);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(NULL, 0);
  vek_testing_clock_advance(G_USEC_PER_SEC);
  log->iface->process_aggregated(log->reporter, "latency", NULL, NULL, snapshot);
  assert_file(log, "1700000000000000,latency,,0,0,0,0,0,0,0\n");
}

/* A store that gives no snapshot. */
G_DECLARE_FINAL_TYPE(BareStore, bare_store, BARE, STORE, VekMetricStore)

struct _BareStore {
  VekMetricStore parent_instance;
};

G_DEFINE_TYPE(BareStore, bare_store, VEK_TYPE_METRIC_STORE)

static VekMetricSnapshot *bare_store_get_snapshot(VekMetricStore *store) {
  (void)store;
  return NULL;
}

static void bare_store_class_init(BareStoreClass *klass) {
  VEK_METRIC_STORE_CLASS(klass)->get_snapshot = bare_store_get_snapshot;
}

static void bare_store_init(BareStore *self) {
  (void)self;
}

/* Each read of a missing snapshot is a failed check of its own. */
TEST(snapshot_is_read_in_the_order_of_the_columns) {
  g_autoptr(Log) log = log_new();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricStore) store = g_object_new(bare_store_get_type(), NULL);
  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(registry, "latency", NULL, store, NULL);
  vek_metric_registry_report(registry, log->reporter);
  assert_failed_check("vek_metric_snapshot_get_time", "snapshot != NULL");
  assert_failed_check("vek_metric_snapshot_get_average", "snapshot != NULL");
  assert_failed_check("vek_metric_snapshot_get_n_samples", "snapshot != NULL");
  assert_failed_check("vek_metric_snapshot_get_min", "snapshot != NULL");
  assert_failed_check("vek_metric_snapshot_get_max", "snapshot != NULL");
  for (int i = 0; i < 3; i++)
    assert_failed_check("vek_metric_snapshot_get_quantile", "snapshot != NULL");
  assert_failed_check("vek_metric_snapshot_unref", "snapshot != NULL"); /* by the histogram */
  assert_file(log, "0,latency,,0,0,0,0,0,0,0\n");
}

static guint64 get_bits(gdouble value) {
  guint64 bits = 0;
  memcpy(&bits, &value, sizeof bits);
  return bits;
}

/* Any double but those that are not numbers: every magnitude is as likely as any other. */
static gdouble random_double(void) {
  gdouble value = NAN;
  while (isnan(value)) {
    guint64 bits = (guint64)(guint32)g_test_rand_int() << 32 | (guint32)g_test_rand_int();
    memcpy(&value, &bits, sizeof value);
  }
  return value;
}

static void check_that_doubles_read_back(void) {
  g_autoptr(Log) log = log_new();
  gdouble values[5000];
  for (guint i = 0; i < G_N_ELEMENTS(values); i++) {
    values[i] = random_double();
    if (i % 2 == 0)
      log->iface->process_value(log->reporter, "v", NULL, NULL, i, values[i]);
    else
      process_aggregated(log, "v", &values[i], 1);
  }
  log->iface->flush(log->reporter);

  g_autofree char *path = g_build_filename(log->folder, "figures.csv", NULL);
  g_autofree char *contents = NULL;
  g_assert_true(g_file_get_contents(path, &contents, NULL, NULL));
  g_auto(GStrv) lines = g_strsplit(contents, "\n", 0);
  g_assert_cmpuint(g_strv_length(lines), ==, G_N_ELEMENTS(values) + 1);
  for (guint i = 0; i < G_N_ELEMENTS(values); i++) {
    g_auto(GStrv) columns = g_strsplit(lines[i], ",", 0);
    g_assert_cmpuint(g_strv_length(columns), ==, 10);
    for (guint column = 3; column < 10; column++) {
      if (i % 2 == 0 && column > 3)
        g_assert_cmpstr(columns[column], ==, "");
      else if (column == 4)
        g_assert_cmpstr(columns[column], ==, "1");
      else
        g_assert_cmphex(get_bits(g_ascii_strtod(columns[column], NULL)), ==, get_bits(values[i]));
    }
  }
}

TEST(doubles_read_back_to_the_same_double) {
  check_that_doubles_read_back();
}

TEST(numbers_carry_a_point_in_every_locale) {
  if (!in_decimal_comma())
    return;

  g_autoptr(Log) log = log_new();
  vek_testing_clock_set(NOW, 1);
  log->iface->process_value(log->reporter, "load", NULL, NULL, NOW, 2.5);
  process_aggregated(log, "latency", (const gdouble[]){0.25, 0.75}, 2);
  log->iface->process_count(log->reporter, "requests", NULL, NULL, NOW, 1234567);
  assert_file(log,
              "1700000000000000,load,,2.5,,,,,,\n"
              "1700000000000000,latency,,0.5,2,0.25,0.75,0.25,0.25,0.25\n"
              "1700000000000000,requests,,1234567,,,,,,\n");
  check_that_doubles_read_back();
}

const CsvKind csv_kind = {
    .get_type = vek_metric_log_reporter_get_type,
    .make = vek_metric_log_reporter_new,
    .write = write_line,
    .line = "1700000000000000,requests,,42,,,,,,\n",
    .folder_below_a_file = "Cannot create metric dir \"file/logs\": 20.\n", /* ENOTDIR */
    .folder_without_a_name = "Cannot create metric dir \"\": 22.\n",        /* EINVAL */
};
