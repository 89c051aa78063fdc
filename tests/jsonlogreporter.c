/* Tests of VekMetricJsonLogReporter. */

#define _GNU_SOURCE /* RTLD_NEXT */

#include <vekmetrics/vekmetrics.h>

#include "support/fakeclock.h"
#include "support/folder.h"
#include "support/heap.h"
#include "support/logcapture.h"
#include "support/scene.h"
#include "support/tsan-tasks.h"

#include <dlfcn.h>
#include <gio/gio.h>
#include <glib/gstdio.h>
#include <math.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#define SOURCE "../vekmetrics/jsonlogreporter"
#define NOW G_GINT64_CONSTANT(1700000000004211) /* 2023-11-14 22:13:20,004211 */

/* A stream in place of the file's, whose operations succeed or fail as a test says. It writes down
 * what is done with it, in the order in which it is done. */

typedef struct {
  GQuark domain;
  int code; /* 0 for success */
  gboolean cancels;
} Outcome;

static GString *stream_record; /* NULL: files are opened for real */
static Outcome open_outcome, write_outcome, flush_outcome, close_outcome;
static VekMetricReporter *flushed_at_close; /* by the next close, as a log writer might do it */

static GMutex streams_lock; /* guards the number of streams */
static GCond streams_changed;
static int n_streams;

struct _ScriptedStream {
  GFileOutputStream parent_instance;
};

#define SCRIPTED_TYPE_STREAM (scripted_stream_get_type())
G_DECLARE_FINAL_TYPE(ScriptedStream, scripted_stream, SCRIPTED, STREAM, GFileOutputStream)
G_DEFINE_TYPE(ScriptedStream, scripted_stream, G_TYPE_FILE_OUTPUT_STREAM)

static void flush_one(VekMetricReporter *reporter, const char *name);

static gboolean act(Outcome outcome, GCancellable *cancellable, GError **error) {
  if (outcome.cancels) {
    g_cancellable_cancel(cancellable);
    return !g_cancellable_set_error_if_cancelled(cancellable, error);
  }
  if (outcome.code != 0)
    g_set_error_literal(error, outcome.domain, outcome.code, "as the test said");
  return outcome.code == 0;
}

static gssize scripted_stream_write(GOutputStream *stream, const void *buffer, gsize count,
                                    GCancellable *cancellable, GError **error) {
  (void)stream;
  if (g_cancellable_set_error_if_cancelled(cancellable, error))
    return -1;

  /* A line is "TIME [{"MetricName":"NAME",...": the name tells which one it is. */
  g_autofree char *line = g_strndup(buffer, count);
  g_auto(GStrv) parts = g_strsplit(line, "\"", 5);
  g_string_append_printf(stream_record, "write %s\n", parts[3]);
  return act(write_outcome, cancellable, error) ? (gssize)count : -1;
}

static gboolean scripted_stream_flush(GOutputStream *stream, GCancellable *cancellable,
                                      GError **error) {
  if (!g_output_stream_is_closing(stream)) { /* closing flushes too */
    g_string_append(stream_record, "flush\n");
    return act(flush_outcome, cancellable, error);
  }
  return TRUE;
}

static gboolean scripted_stream_close(GOutputStream *stream, GCancellable *cancellable,
                                      GError **error) {
  (void)stream;
  g_string_append_printf(stream_record, "close%s\n", cancellable ? "" : " at last");
  if (flushed_at_close)
    flush_one(g_steal_pointer(&flushed_at_close), "z");
  return act(close_outcome, cancellable, error);
}

static void count_streams(int change) {
  g_mutex_lock(&streams_lock);
  n_streams += change;
  g_cond_signal(&streams_changed);
  g_mutex_unlock(&streams_lock);
}

/* The last to hold a stream may be a thread of GIO's. */
static void wait_for_streams(void) {
  g_mutex_lock(&streams_lock);
  while (n_streams > 0)
    g_cond_wait(&streams_changed, &streams_lock);
  g_mutex_unlock(&streams_lock);
}

static void scripted_stream_finalize(GObject *object) {
  G_OBJECT_CLASS(scripted_stream_parent_class)->finalize(object);
  count_streams(-1);
}

static void scripted_stream_class_init(ScriptedStreamClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = scripted_stream_finalize;
  GOutputStreamClass *stream_class = G_OUTPUT_STREAM_CLASS(klass);
  stream_class->write_fn = scripted_stream_write;
  stream_class->flush = scripted_stream_flush;
  stream_class->close_fn = scripted_stream_close;
}

static void scripted_stream_init(ScriptedStream *self) {
  (void)self;
  count_streams(1);
}

static GCancellable *last_cancellable; /* of the reporter that opened a file last; borrowed */

/* In place of GIO's. */
GFileOutputStream *g_file_append_to(GFile *file, GFileCreateFlags flags, GCancellable *cancellable,
                                    GError **error) {
  g_assert_cmpint(flags, ==, G_FILE_CREATE_NONE);
  g_assert_true(G_IS_CANCELLABLE(cancellable));
  last_cancellable = cancellable;
  if (!stream_record)
    return G_FILE_GET_IFACE(file)->append_to(file, flags, cancellable, error);

  g_autofree char *name = g_file_get_basename(file);
  g_string_append_printf(stream_record, "open %s %s\n", name,
                         g_file_query_exists(file, NULL) ? "that exists" : "afresh");
  return act(open_outcome, cancellable, error) ? g_object_new(SCRIPTED_TYPE_STREAM, NULL) : NULL;
}

/* Once asked to, these take the next completion instead of starting its operation. */
static gboolean takes_completions;
static GAsyncReadyCallback completion;
static gpointer completion_data;

void g_output_stream_write_all_async(GOutputStream *stream, const void *buffer, gsize count,
                                     int io_priority, GCancellable *cancellable,
                                     GAsyncReadyCallback callback, gpointer user_data) {
  g_assert_cmpint(io_priority, ==, G_PRIORITY_DEFAULT);
  g_assert_true(G_IS_CANCELLABLE(cancellable));
  completion = callback;
  completion_data = user_data;
  if (takes_completions)
    return;

  __typeof__(&g_output_stream_write_all_async) next = NULL;
  *(void **)&next = dlsym(RTLD_NEXT, __func__);
  next(stream, buffer, count, io_priority, cancellable, callback, user_data);
}

void g_output_stream_flush_async(GOutputStream *stream, int io_priority, GCancellable *cancellable,
                                 GAsyncReadyCallback callback, gpointer user_data) {
  g_assert_cmpint(io_priority, ==, G_PRIORITY_DEFAULT);
  g_assert_true(G_IS_CANCELLABLE(cancellable));
  completion = callback;
  completion_data = user_data;

  __typeof__(&g_output_stream_flush_async) next = NULL;
  *(void **)&next = dlsym(RTLD_NEXT, __func__);
  next(stream, io_priority, cancellable, callback, user_data);
}

/* Every test has a folder of its own. */

static char *folder;

static void begin(void) {
  fake_clock_set(NOW, 1);
  folder = folder_new();
}

static void begin_scripted(void) {
  begin();
  stream_record = g_string_new(NULL);
  open_outcome = write_outcome = flush_outcome = close_outcome = (Outcome){0};
}

static void end(void) {
  if (stream_record)
    g_string_free(g_steal_pointer(&stream_record), TRUE);
  folder_remove(folder);
}

static void assert_stream(const char *record) {
  g_assert_cmpstr(stream_record->str, ==, record);
  g_string_truncate(stream_record, 0);
}

static VekMetricReporter *reporter_new(guint max_reports, guint rotate) {
  return vek_metric_json_log_reporter_new("log", folder, NULL, max_reports, rotate);
}

static void process_count(VekMetricReporter *reporter, const char *name, char **dimensions,
                          const char *unit, gint64 timestamp, gint64 count) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, name, dimensions, unit,
                                                         timestamp, count);
}

static void process_value(VekMetricReporter *reporter, const char *name, char **dimensions,
                          const char *unit, gint64 timestamp, gdouble value) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, name, dimensions, unit,
                                                         timestamp, value);
}

static void process_samples(VekMetricReporter *reporter, const char *name, char **dimensions,
                            const char *unit, const gdouble *samples, gsize n_samples) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, n_samples);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(reporter, name, dimensions, unit,
                                                              snapshot);
}

static void flush(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

/* Collects one data point of this name and starts to write it. */
static void flush_one(VekMetricReporter *reporter, const char *name) {
  process_count(reporter, name, NULL, NULL, 0, 0);
  flush(reporter);
}

/* The lines of such data points. */
static char *lines(const char *names) {
  GString *text = g_string_new(NULL);
  for (const char *name = names; *name; name++)
    g_string_append_printf(text,
                           "2023-11-14 22:13:20,004211 "
                           "[{\"MetricName\":\"%c\",\"Timestamp\":null,\"Value\":0.0}]\n",
                           *name);
  return g_string_free(text, FALSE);
}

/* Runs the main loop until the reporter waits for nothing: each operation holds a reference. */
static void settle(VekMetricReporter *reporter) {
  while (g_atomic_int_get((int *)&G_OBJECT(reporter)->ref_count) > 1)
    g_main_context_iteration(NULL, TRUE);
}

static void flush_and_settle(VekMetricReporter *reporter, const char *name) {
  flush_one(reporter, name);
  settle(reporter);
}

/* Drops the last reference but the operations', which must not outlive them. */
static void drop(VekMetricReporter *reporter) {
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  while (reporter)
    g_main_context_iteration(NULL, TRUE);
  wait_for_streams();
}

/* Compares the folder with a list of "FILE=NAMES", the names being those of the lines that the file
 * holds, and of "FOLDER/". */
static void assert_lines(const char *description) {
  g_autoptr(GString) expected = g_string_new(NULL);
  g_auto(GStrv) files = g_strsplit(description, " ", -1);
  for (char **file = files; *file; file++) {
    char *names = strchr(*file, '=');
    if (names) {
      g_autofree char *text = lines(names + 1);
      g_string_append_printf(expected, "%.*s: %s", (int)(names - *file), *file, text);
    } else if (**file) {
      g_string_append_printf(expected, "%s\n", *file);
    }
  }
  assert_folder(folder, expected->str);
}

/* Compares the one file, in which the expectation writes ' for ". */
static void assert_log(const char *json) {
  g_autofree char *line = *json ? g_strdup_printf("log.json: 2023-11-14 22:13:20,004211 %s\n", json)
                                : g_strdup("log.json: ");
  g_strdelimit(line, "'", '"');
  assert_folder(folder, line);
}

/* The line. */

typedef struct {
  const char *path;
  const char *instance_id;
  const char *dimensions; /* joined by commas */
  const char *unit;
  gint64 count;
  const char *rest; /* of the object, behind the name and the timestamp */
} CountRow;

static const CountRow count_rows[] = {
    {.path = "members-that-are-not-set-are-left-out", .rest = "'Value':0.0"},
    {.path = "count-of-minus-3-is-a-double", .count = -3, .rest = "'Value':-3.0"},
    {.path = "count-that-no-double-holds-is-rounded",
     .count = G_GINT64_CONSTANT(9007199254740993),
     .rest = "'Value':9007199254740992.0"},
    {.path = "largest-count-is-a-double",
     .count = G_MAXINT64,
     .rest = "'Value':9.2233720368547758e+18"},
    {.path = "instance-comes-before-the-metrics-dimensions",
     .instance_id = "a1",
     .dimensions = "host,h1",
     .rest = "'Value':0.0,'Dimensions':["
             "{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]"},
    {.path = "dimensions-keep-their-order",
     .dimensions = "z,1,a,2,z,3",
     .rest = "'Value':0.0,'Dimensions':["
             "{'Name':'z','Value':'1'},{'Name':'a','Value':'2'},{'Name':'z','Value':'3'}]"},
    {.path = "empty-instance-counts-as-set",
     .instance_id = "",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'instance','Value':''}]"},
    {.path = "name-without-a-value-adds-no-dimension", .dimensions = "host", .rest = "'Value':0.0"},
    {.path = "odd-trailing-name-is-ignored",
     .dimensions = "host,h1,rack",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'host','Value':'h1'}]"},
    {.path = "no-dimensions-are-left-out", .dimensions = "", .rest = "'Value':0.0"},
    {.path = "empty-dimensions-are-dimensions",
     .dimensions = ",",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'','Value':''}]"},
    {.path = "ten-dimensions-are-kept",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'a','Value':'0'},{'Name':'b','Value':'1'},"
             "{'Name':'c','Value':'2'},{'Name':'d','Value':'3'},{'Name':'e','Value':'4'},"
             "{'Name':'f','Value':'5'},{'Name':'g','Value':'6'},{'Name':'h','Value':'7'},"
             "{'Name':'i','Value':'8'},{'Name':'j','Value':'9'}]"},
    {.path = "nine-dimensions-and-the-instance-are-kept",
     .instance_id = "x",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8",
     .rest = "'Value':0.0,'Dimensions':[{'Name':'instance','Value':'x'},{'Name':'a','Value':'0'},"
             "{'Name':'b','Value':'1'},{'Name':'c','Value':'2'},{'Name':'d','Value':'3'},"
             "{'Name':'e','Value':'4'},{'Name':'f','Value':'5'},{'Name':'g','Value':'6'},"
             "{'Name':'h','Value':'7'},{'Name':'i','Value':'8'}]"},
    {.path = "seconds-in-lower-case-are-no-known-unit", .unit = "seconds", .rest = "'Value':0.0"},
    {.path = "Seconds-are-a-known-unit", .unit = "Seconds", .rest = "'Unit':'Seconds','Value':0.0"},
    {.path = "empty-unit-is-left-out", .unit = "", .rest = "'Value':0.0"},
    {.path = "beginning-of-a-known-unit-is-left-out", .unit = "Bytes/Secon", .rest = "'Value':0.0"},
    {.path = "unit-that-goes-on-after-a-known-one-is-left-out",
     .unit = "Counts",
     .rest = "'Value':0.0"},
};

static void log_count(const CountRow *row) {
  VekMetricReporter *reporter =
      vek_metric_json_log_reporter_new("log", folder, row->instance_id, 0, 0);
  g_auto(GStrv) dimensions = row->dimensions ? g_strsplit(row->dimensions, ",", -1) : NULL;
  process_count(reporter, "m", dimensions, row->unit, 0, row->count);
  flush(reporter);
  drop(reporter);

  g_autofree char *json = g_strdup_printf("[{'MetricName':'m','Timestamp':null,%s}]", row->rest);
  assert_log(json);
}

static void counts_by_the_table(gconstpointer row) {
  begin();
  log_count(row);
  assert_nothing_logged();
  end();
}

static const CountRow lost_rows[] = {
    {.path = "eleven-dimensions-are-all-lost",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9,k,10",
     .rest = "'Value':0.0"},
    {.path = "instance-takes-one-of-the-ten-places",
     .instance_id = "a1",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9",
     .rest = "'Value':0.0"},
    {.path = "empty-instance-takes-one-of-the-ten-places",
     .instance_id = "",
     .dimensions = "a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9",
     .rest = "'Value':0.0"},
};

static void lost_dimensions_by_the_table(gconstpointer row) {
  begin();
  log_count(row);
  assert_failed_check("vek_metric_datum_set_dimensions", "n_dimensions > 0 && n_dimensions <= 10");
  assert_nothing_logged();
  end();
}

static void all_members_of_a_counter_come_in_order(void) {
  begin();
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", folder, "a1", 0, 0);
  process_count(reporter, "frames", NULL, "Count", NOW, 42);
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'frames','Timestamp':'2023-11-14T22:13:20Z','Unit':'Count',"
      "'Value':42.0,'Dimensions':[{'Name':'instance','Value':'a1'}]}]");
  end();
}

static void twenty_six_units_are_known(void) {
  g_auto(GStrv) units = g_strsplit(
      "Seconds Microseconds Milliseconds "
      "Bytes Kilobytes Megabytes Gigabytes Terabytes Bits Kilobits Megabits Gigabits Terabits "
      "Percent Count Bytes/Second Kilobytes/Second Megabytes/Second Gigabytes/Second "
      "Terabytes/Second Bits/Second Kilobits/Second Megabits/Second Gigabits/Second "
      "Terabits/Second Count/Second",
      " ", -1);
  g_assert_cmpuint(g_strv_length(units), ==, 26);
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  g_autoptr(GString) json = g_string_new(NULL);
  for (gsize i = 0; units[i]; i++) {
    process_count(reporter, "m", NULL, units[i], 0, 0);
    g_string_append_printf(json, "%c{'MetricName':'m','Timestamp':null,'Unit':'%s','Value':0.0}",
                           i == 0 ? '[' : ',', units[i]);
  }
  flush(reporter);
  drop(reporter);

  g_string_append_c(json, ']');
  assert_log(json->str);
  end();
}

typedef struct {
  const char *path;
  gint64 timestamp;
  const char *text;
} TimestampRow;

static const TimestampRow timestamp_rows[] = {
    {"timestamp-of-0-is-null", 0, "null"},
    {"timestamp-of-a-microsecond-is-the-epoch", 1, "'1970-01-01T00:00:00Z'"},
    {"timestamp-has-no-fraction", G_GINT64_CONSTANT(1700000000999999), "'2023-11-14T22:13:20Z'"},
    {"timestamp-is-truncated-toward-zero", -999999, "'1970-01-01T00:00:00Z'"},
    {"timestamp-before-the-epoch-is-a-date", -1999999, "'1969-12-31T23:59:59Z'"},
    {"timestamp-in-the-year-1-is-a-date", G_GINT64_CONSTANT(-62135596800000000),
     "'0001-01-01T00:00:00Z'"},
    {"timestamp-before-the-year-1-is-null", G_GINT64_CONSTANT(-62135596801000000), "null"},
    {"timestamp-in-the-year-9999-is-a-date", G_GINT64_CONSTANT(253402300799999999),
     "'9999-12-31T23:59:59Z'"},
    {"timestamp-after-the-year-9999-is-null", G_GINT64_CONSTANT(253402300800000000), "null"},
    {"largest-timestamp-is-null", G_MAXINT64, "null"},
    {"smallest-timestamp-is-null", G_MININT64, "null"},
};

static void timestamps_by_the_table(gconstpointer data) {
  const TimestampRow *row = data;
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  process_count(reporter, "m", NULL, NULL, row->timestamp, 0);
  flush(reporter);
  drop(reporter);

  g_autofree char *json =
      g_strdup_printf("[{'MetricName':'m','Timestamp':%s,'Value':0.0}]", row->text);
  assert_log(json);
  assert_nothing_logged();
  end();
}

typedef struct {
  const char *path;
  gdouble value;
  const char *text;
} ValueRow;

static const ValueRow value_rows[] = {
    {"whole-value-is-a-double", 42, "42.0"},
    {"value-has-full-precision", 0.1, "0.10000000000000001"},
    {"negative-zero-keeps-its-sign", -0.0, "-0.0"},
    {"exponent-without-a-point-is-json", 1e22, "1e+22"},
    {"negative-exponent-without-a-point-is-json", 1e-8, "1e-08"},
    {"first-value-with-an-exponent-is-json", 1e17, "1e+17"},
    {"large-power-of-ten-is-json", -1e100, "-1e+100"},
    {"exponent-behind-a-point-is-json", 1.5e-300, "1.5000000000000001e-300"},
    {"value-below-the-exponents-has-a-point", 1e16, "10000000000000000.0"},
    {"smallest-value-is-json", 5e-324, "4.9406564584124654e-324"},
    {"large-value-is-clamped", 1e200, "2.3485429999999998e+108"},
    {"small-value-is-clamped", -1e200, "-2.3485429999999998e+108"},
    {"infinite-value-is-clamped", INFINITY, "2.3485429999999998e+108"},
    {"negative-infinite-value-is-clamped", -INFINITY, "-2.3485429999999998e+108"},
    {"not-a-number-is-null", NAN, "null"},
};

static void values_by_the_table(gconstpointer data) {
  const ValueRow *row = data;
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  process_value(reporter, "load", (char *[]){"cpu", "0", NULL}, "Percent", NOW, row->value);
  flush(reporter);
  drop(reporter);

  g_autofree char *json = g_strdup_printf(
      "[{'MetricName':'load','Timestamp':'2023-11-14T22:13:20Z','Unit':'Percent','Value':%s,"
      "'Dimensions':[{'Name':'cpu','Value':'0'}]}]",
      row->text);
  assert_log(json);
  assert_nothing_logged();
  end();
}

typedef struct {
  const char *path;
  const char *text;
  const char *json;
} StringRow;

static const StringRow string_rows[] = {
    {"name-like-a-number-stays", "1e+22.0", "1e+22.0"},
    {"name-like-a-member-stays", "x\":1e+22.0,\"Value\":1e+22.0}",
     "x\\\":1e+22.0,\\\"Value\\\":1e+22.0}"},
    {"name-that-begins-like-a-value-stays", ":1e+22.0", ":1e+22.0"},
    {"backslash-before-a-quote-is-escaped", "x\\\":1e+22.0", "x\\\\\\\":1e+22.0"},
    {"control-characters-are-escaped", "\b\t\n\f\r\x01\x1f\x7f",
     "\\b\\t\\n\\f\\r\\u0001\\u001f\\u007f"},
    {"utf-8-stays", "größe ✓ 😀", "größe ✓ 😀"},
    {"what-is-not-utf-8-is-replaced",
     "a\xff"
     "b\xc3",
     "a\xef\xbf\xbd"
     "b\xef\xbf\xbd"},
    {"encoded-surrogate-is-replaced", "\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},
    {"empty-name-is-a-name", "", ""},
};

static void log_string(const StringRow *row, gdouble value, const char *value_text) {
  begin();
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", folder, row->text, 0, 0);
  char *dimensions[] = {(char *)row->text, (char *)row->text, NULL};
  process_value(reporter, row->text, dimensions, NULL, 0, value);
  flush(reporter);
  drop(reporter);

  g_autofree char *line = g_strdup_printf(
      "log.json: 2023-11-14 22:13:20,004211 [{\"MetricName\":\"%s\",\"Timestamp\":null,"
      "\"Value\":%s,\"Dimensions\":[{\"Name\":\"instance\",\"Value\":\"%s\"},"
      "{\"Name\":\"%s\",\"Value\":\"%s\"}]}]\n",
      row->json, value_text, row->json, row->json, row->json);
  assert_folder(folder, line);
  assert_nothing_logged();
  end();
}

static void strings_by_the_table(gconstpointer row) {
  log_string(row, 1, "1.0");
  log_string(row, 1e22, "1e+22");
}

static void snapshot_without_samples_adds_nothing(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  process_samples(reporter, "latency", NULL, "Seconds", NULL, 0);
  flush(reporter);
  drop(reporter);
  assert_log("");
  end();
}

static void snapshot_with_samples_adds_four_objects(void) {
  begin();
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", folder, "a1", 0, 0);
  const gdouble samples[] = {5, 1, 4, 2, 3};
  process_samples(reporter, "latency", (char *[]){"host", "h1", NULL}, "Seconds", samples, 5);
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'latency','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'StatisticValues':{'SampleCount':5,'Sum':15.0,'Minimum':1.0,'Maximum':5.0},"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]},"
      "{'MetricName':'latency_p50','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'Value':3.0,"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]},"
      "{'MetricName':'latency_p90','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'Value':4.5999999999999996,"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]},"
      "{'MetricName':'latency_p99','Timestamp':'2023-11-14T22:13:20Z','Unit':'Seconds',"
      "'Value':4.96,"
      "'Dimensions':[{'Name':'instance','Value':'a1'},{'Name':'host','Value':'h1'}]}]");
  end();
}

static void data_points_of_a_snapshot_have_its_time(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  const gdouble samples[] = {2};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, 1);
  fake_clock_advance(60 * G_USEC_PER_SEC);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(reporter, "m", NULL, NULL, snapshot);
  fake_clock_set(NOW, 1); /* the line is written at the time that assert_log() expects */
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z',"
      "'StatisticValues':{'SampleCount':1,'Sum':2.0,'Minimum':2.0,'Maximum':2.0}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z','Value':2.0}]");
  end();
}

static void unknown_unit_of_a_snapshot_is_left_out(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  const gdouble samples[] = {2};
  process_samples(reporter, "m", NULL, "Bananas", samples, 1);
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z',"
      "'StatisticValues':{'SampleCount':1,'Sum':2.0,'Minimum':2.0,'Maximum':2.0}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z','Value':2.0}]");
  end();
}

static void statistics_are_not_clamped_but_percentiles_are(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  const gdouble samples[] = {-1e300, 1e22};
  process_samples(reporter, "m", NULL, NULL, samples, 2);
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z','StatisticValues':{"
      "'SampleCount':2,'Sum':-1.0000000000000001e+300,"
      "'Minimum':-1.0000000000000001e+300,'Maximum':1e+22}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108}]");
  end();
}

static void infinite_statistics_are_null(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  const gdouble samples[] = {-INFINITY, INFINITY};
  process_samples(reporter, "m", NULL, NULL, samples, 2);
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z','StatisticValues':{"
      "'SampleCount':2,'Sum':null,'Minimum':null,'Maximum':null}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z',"
      "'Value':-2.3485429999999998e+108}]");
  end();
}

static void eleven_dimensions_of_a_snapshot_are_lost_by_each_data_point(void) {
  begin();
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", folder, "a1", 0, 0);
  g_auto(GStrv) dimensions = g_strsplit("a,0,b,1,c,2,d,3,e,4,f,5,g,6,h,7,i,8,j,9", ",", -1);
  const gdouble samples[] = {2};
  process_samples(reporter, "m", dimensions, NULL, samples, 1);
  for (int i = 0; i < 4; i++)
    assert_failed_check("vek_metric_datum_set_dimensions",
                        "n_dimensions > 0 && n_dimensions <= 10");
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'2023-11-14T22:13:20Z',"
      "'StatisticValues':{'SampleCount':1,'Sum':2.0,'Minimum':2.0,'Maximum':2.0}},"
      "{'MetricName':'m_p50','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p90','Timestamp':'2023-11-14T22:13:20Z','Value':2.0},"
      "{'MetricName':'m_p99','Timestamp':'2023-11-14T22:13:20Z','Value':2.0}]");
  end();
}

static void data_points_keep_the_order_of_their_collection(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  process_value(reporter, "z", NULL, NULL, 0, 0.5);
  process_count(reporter, "a", NULL, NULL, 0, 1);
  process_value(reporter, "z", NULL, NULL, 0, 2);
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'z','Timestamp':null,'Value':0.5},"
      "{'MetricName':'a','Timestamp':null,'Value':1.0},"
      "{'MetricName':'z','Timestamp':null,'Value':2.0}]");
  end();
}

static void each_data_point_has_its_own_timestamp(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  static const gint64 seconds[] = {1, 2, 1, 0, 1, 999999999999, 1};
  for (gsize i = 0; i < G_N_ELEMENTS(seconds); i++)
    process_count(reporter, "m", NULL, NULL, seconds[i] * G_USEC_PER_SEC, 0);
  flush(reporter);
  drop(reporter);
  assert_log(
      "[{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:02Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':null,'Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0},"
      "{'MetricName':'m','Timestamp':null,'Value':0.0},"
      "{'MetricName':'m','Timestamp':'1970-01-01T00:00:01Z','Value':0.0}]");
  end();
}

static void registry_pass_reaches_the_file(void) {
  begin();
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(registry, "frames", "Count", NULL);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "render");
  vek_metric_timeline_add_range(timeline, 1, 2, 3);
  VekMetricReporter *reporter = reporter_new(0, 0);
  g_assert_null(VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_timeline_samples);

  vek_metric_counter_add(counter, 42);
  vek_metric_registry_report(registry, reporter);
  drop(reporter);

  assert_log(
      "[{'MetricName':'frames','Timestamp':'2023-11-14T22:13:20Z','Unit':'Count',"
      "'Value':42.0}]");
  end();
}

static void line_begins_with_the_time_of_the_flush(void) {
  static const struct {
    gint64 now;
    const char *text;
  } rows[] = {
      {NOW, "2023-11-14 22:13:20,004211"},
      {G_GINT64_CONSTANT(1700000000000000), "2023-11-14 22:13:20,000000"},
      {G_GINT64_CONSTANT(1700000000999999), "2023-11-14 22:13:20,999999"},
      {G_GINT64_CONSTANT(1704067199999999), "2023-12-31 23:59:59,999999"},
      {G_GINT64_CONSTANT(1709186645000001), "2024-02-29 06:04:05,000001"},
      {-1, "1969-12-31 23:59:59,999999"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    begin();
    VekMetricReporter *reporter = reporter_new(0, 0);
    process_count(reporter, "m", NULL, NULL, 0, 0);
    fake_clock_set(rows[i].now, 1);
    flush(reporter);
    fake_clock_set(NOW, 1);
    drop(reporter);

    g_autofree char *line = g_strdup_printf(
        "log.json: %s [{\"MetricName\":\"m\",\"Timestamp\":null,\"Value\":0.0}]\n", rows[i].text);
    assert_folder(folder, line);
    end();
  }
}

/* Files, rotation. */

static void flush_with_nothing_collected_writes_nothing(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(1, 1);
  flush(reporter);
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 1);
  assert_lines("log.json=");
  flush_and_settle(reporter, "a");
  flush(reporter);
  settle(reporter);
  drop(reporter);
  assert_lines("log.json= log.json.1=a"); /* it is no report either */
  end();
}

static void existing_lines_are_kept(void) {
  begin();
  g_autofree char *old = lines("x");
  folder_write(folder, "log.json", old);
  VekMetricReporter *reporter = reporter_new(2, 1);
  flush_and_settle(reporter, "a");
  assert_lines("log.json=xa");
  flush_and_settle(reporter, "b"); /* reports are counted, not lines */
  drop(reporter);
  assert_lines("log.json= log.json.1=xab");
  end();
}

static void folder_is_made_with_its_parents(void) {
  begin();
  g_autofree char *parent = g_build_filename(folder, "x", NULL);
  g_autofree char *path = g_build_filename(parent, "y", NULL);
  mode_t mask = umask(0);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 0, 0);
  umask(mask);

  GStatBuf status;
  g_assert_cmpint(g_stat(parent, &status), ==, 0);
  g_assert_cmpint(status.st_mode & 07777, ==, 0755);
  g_assert_cmpint(g_stat(path, &status), ==, 0);
  g_assert_cmpint(status.st_mode & 07777, ==, 0755);
  assert_folder(path, "log.json: ");
  drop(reporter);
  end();
}

static void without_a_name_nothing_is_made(void) {
  begin();
  g_autofree char *path = g_build_filename(folder, "x", NULL);
  VekMetricReporter *reporters[] = {
      vek_metric_json_log_reporter_new(NULL, path, "a1", 1, 1),
      vek_metric_json_log_reporter_new("log", NULL, "a1", 1, 1),
      vek_metric_json_log_reporter_new(NULL, NULL, NULL, 0, 0),
  };
  for (gsize i = 0; i < G_N_ELEMENTS(reporters); i++) {
    flush_one(reporters[i], "a");
    flush(reporters[i]);
    g_assert_cmpint(G_OBJECT(reporters[i])->ref_count, ==, 1);
    g_object_unref(reporters[i]);
  }
  assert_folder(folder, "");
  end();
}

static void max_reports_and_rotate_shift_the_files(void) {
  static const char *const after[] = {
      "log.json=a",
      "log.json=ab",
      "log.json= log.json.1=abc",
      "log.json=d log.json.1=abc",
      "log.json=de log.json.1=abc",
      "log.json= log.json.1=def log.json.2=abc",
      "log.json=g log.json.1=def log.json.2=abc",
      "log.json=gh log.json.1=def log.json.2=abc",
      "log.json= log.json.1=ghi log.json.2=def",
  };
  begin();
  VekMetricReporter *reporter = reporter_new(3, 2);
  for (gsize i = 0; i < G_N_ELEMENTS(after); i++) {
    flush_and_settle(reporter, (char[]){(char)('a' + i), '\0'});
    assert_lines(after[i]);
  }
  drop(reporter);
  end();
}

static void folder_that_has_gone_is_made_again_at_a_rotation(void) {
  begin();
  g_autofree char *path = g_build_filename(folder, "x", "y", NULL);
  g_autofree char *parent = g_path_get_dirname(path);
  g_autofree char *file = g_build_filename(path, "log.json", NULL);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 1, 1);
  g_assert_cmpint(g_remove(file), ==, 0);
  g_assert_cmpint(g_rmdir(path), ==, 0);
  g_assert_cmpint(g_rmdir(parent), ==, 0);
  flush_and_settle(reporter, "a");
  assert_folder(path, "log.json: ");
  drop(reporter);
  end();
}

static void without_max_reports_the_file_is_never_rotated(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 2);
  for (int i = 0; i < 8; i++)
    flush_and_settle(reporter, (char[]){(char)('a' + i), '\0'});
  drop(reporter);
  assert_lines("log.json=abcdefgh");
  end();
}

static void without_rotate_the_full_file_is_deleted(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(2, 0);
  flush_and_settle(reporter, "a");
  flush_and_settle(reporter, "b");
  assert_lines("log.json=");
  flush_and_settle(reporter, "c");
  drop(reporter);
  assert_lines("log.json=c");
  end();
}

static void lines_that_wait_go_to_the_file_of_their_turn(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(2, 9);
  for (int i = 0; i < 5; i++)
    flush_one(reporter, (char[]){(char)('a' + i), '\0'});
  drop(reporter);
  assert_lines("log.json=e log.json.1=cd log.json.2=ab");
  end();
}

/* The chain of operations. */

static void record_end(gpointer data, GObject *reporter) {
  (void)data;
  (void)reporter;
  g_string_append(stream_record, "the reporter is gone\n");
}

static void one_write_and_flush_runs_at_a_time(void) {
  begin_scripted();
  VekMetricReporter *reporter = reporter_new(0, 0);
  assert_stream("open log.json afresh\n");
  flush_one(reporter, "a");
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 2);
  flush_one(reporter, "b");
  flush_one(reporter, "c");
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 2);

  g_object_weak_ref(G_OBJECT(reporter), record_end, NULL);
  drop(reporter);

  assert_stream(
      "write a\nflush\nwrite b\nflush\nwrite c\nflush\nthe reporter is gone\nclose at last\n");
  end();
}

static void rotation_runs_between_the_flush_and_the_next_write(void) {
  begin_scripted();
  folder_write(folder, "log.json", "old\n");
  VekMetricReporter *reporter = reporter_new(2, 1);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  flush_one(reporter, "c");
  g_object_weak_ref(G_OBJECT(reporter), record_end, NULL);
  drop(reporter);

  assert_stream(
      "open log.json that exists\n"
      "write a\nflush\nwrite b\nflush\nclose\nopen log.json afresh\nwrite c\nflush\n"
      "the reporter is gone\nclose at last\n");
  assert_folder(folder, "log.json.1: old\n");
  end();
}

static void next_flush_starts_a_new_chain(void) {
  begin_scripted();
  VekMetricReporter *reporter = reporter_new(0, 0);
  flush_and_settle(reporter, "a");
  assert_stream("open log.json afresh\nwrite a\nflush\n");
  flush_and_settle(reporter, "b");
  assert_stream("write b\nflush\n");
  drop(reporter);
  end();
}

static void dropped_reporter_cancels_what_it_started(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(0, 0);
  g_autoptr(GCancellable) cancellable = g_object_ref(last_cancellable);
  flush_and_settle(reporter, "a");
  g_assert_false(g_cancellable_is_cancelled(cancellable));
  drop(reporter);
  g_assert_true(g_cancellable_is_cancelled(cancellable));
  end();
}

static void dropped_reporter_still_writes_its_lines(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(2, 1);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  flush_one(reporter, "c");
  process_count(reporter, "never flushed", NULL, NULL, 0, 0);
  drop(reporter);
  assert_lines("log.json=c log.json.1=ab");
  end();
}

/* Failures. */

static void assert_warned(const char *function, const char *message) {
  assert_logged_from(SOURCE, function, G_LOG_LEVEL_WARNING, message);
}

/* What GIO says about a file that it cannot open. */
static void assert_open_failed(void) {
  g_autofree char *path = g_build_filename(folder, "log.json", NULL);
  g_autoptr(GFile) file = g_file_new_for_path(path);
  g_autoptr(GError) error = NULL;
  g_assert_null(G_FILE_GET_IFACE(file)->append_to(file, G_FILE_CREATE_NONE, NULL, &error));
  g_autofree char *message =
      g_strdup_printf("Could not append to file in %s: %s", path, error->message);
  assert_warned("open_log_file", message);
}

/* Lines that are kept cost more than a hundred bytes each. */
enum { N_LINES = 1000 };

static void flush_many(VekMetricReporter *reporter) {
  for (int i = 0; i < N_LINES; i++)
    flush_one(reporter, "x");
}

static void assert_inert(VekMetricReporter *reporter) {
  flush_one(reporter, "x"); /* what is made once and stays */
  gsize used = heap_get_used();
  flush_many(reporter);
  g_assert_cmpuint(heap_get_used(), <, used + N_LINES);
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 1);
  drop(reporter);
}

static void block(const char *name) {
  g_autofree char *path = g_build_filename(folder, name, NULL);
  g_assert_cmpint(g_mkdir(path, 0755), ==, 0);
  folder_write(path, "inside", "");
}

static void folder_that_cannot_be_made_is_logged(void) {
  begin();
  folder_write(folder, "file", "");
  g_autofree char *path = g_build_filename(folder, "file", "below", NULL);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 0, 0);
  g_autofree char *message = g_strdup_printf("Cannot create log dir \"%s\".", path);
  assert_warned("open_log_file", message);
  assert_inert(reporter);
  assert_folder(folder, "file: ");
  end();
}

static void file_that_cannot_be_opened_is_logged(void) {
  begin();
  block("log.json");
  VekMetricReporter *reporter = reporter_new(1, 1);
  assert_open_failed();
  assert_inert(reporter);
  assert_lines("log.json/");
  end();
}

static void failed_write_is_logged_and_counts_as_a_report(void) {
  begin();
  g_autofree char *path = g_build_filename(folder, "log.json", NULL);
  g_assert_cmpint(symlink("/dev/full", path), ==, 0);
  VekMetricReporter *reporter = reporter_new(2, 1);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  flush_one(reporter, "c");
  drop(reporter);

  for (int i = 0; i < 2; i++)
    assert_warned("on_log_written",
                  "Could not write log: Error writing to file: No space left on device");
  g_autofree char *c = lines("c");
  g_autofree char *description = g_strdup_printf("log.json: %slog.json.1 -> /dev/full\n", c);
  assert_folder(folder, description);
  end();
}

static void failed_write_is_flushed_all_the_same(void) {
  begin_scripted();
  write_outcome = (Outcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  VekMetricReporter *reporter = reporter_new(0, 0);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  drop(reporter);
  assert_stream("open log.json afresh\nwrite a\nflush\nwrite b\nflush\nclose at last\n");
  assert_warned("on_log_written", "Could not write log: as the test said");
  assert_warned("on_log_written", "Could not write log: as the test said");
  end();
}

/* A limit on the size of files stands for a disk that fills: what fits of a line is written. */
static void set_file_limit(rlim_t bytes) {
  struct rlimit limit;
  g_assert_cmpint(getrlimit(RLIMIT_FSIZE, &limit), ==, 0);
  limit.rlim_cur = MIN(bytes, limit.rlim_max);
  g_assert_cmpint(setrlimit(RLIMIT_FSIZE, &limit), ==, 0);
}

static void full_disk_cuts_the_line_and_later_ones_go_on(void) {
  begin();
  signal(SIGXFSZ, SIG_IGN);
  VekMetricReporter *reporter = reporter_new(4, 1);
  set_file_limit(77 + 15); /* one line and the beginning of another */
  flush_and_settle(reporter, "a");
  flush_and_settle(reporter, "b");
  flush_and_settle(reporter, "c");
  set_file_limit(RLIM_INFINITY);
  for (int i = 0; i < 2; i++)
    assert_warned("on_log_written", "Could not write log: Error writing to file: File too large");

  g_autofree char *a = lines("a");
  g_autofree char *d = lines("d");
  flush_and_settle(reporter, "d");
  g_autofree char *joined = g_strdup_printf("log.json: log.json.1: %s2023-11-14 22:1%s", a, d);
  assert_folder(folder, joined);
  flush_one(reporter, "e");
  drop(reporter);

  g_autofree char *e = lines("e");
  g_autofree char *fresh = g_strdup_printf("log.json: %slog.json.1: %s2023-11-14 22:1%s", e, a, d);
  assert_folder(folder, fresh);
  end();
}

static void failed_flush_is_logged_and_the_chain_goes_on(void) {
  begin_scripted();
  folder_write(folder, "log.json", "old\n");
  flush_outcome = (Outcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  VekMetricReporter *reporter = reporter_new(1, 1);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  drop(reporter);
  assert_stream(
      "open log.json that exists\nwrite a\nflush\nclose\n"
      "open log.json afresh\nwrite b\nflush\nclose\nopen log.json afresh\nclose at last\n");
  assert_warned("on_stream_flushed", "Could not flush output stream: as the test said");
  assert_warned("on_stream_flushed", "Could not flush output stream: as the test said");
  assert_folder(folder, "log.json.1: old\n");
  end();
}

static void failed_close_is_logged_and_rotation_goes_on(void) {
  begin_scripted();
  folder_write(folder, "log.json", "old\n");
  close_outcome = (Outcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  VekMetricReporter *reporter = reporter_new(1, 1);
  flush_and_settle(reporter, "a");
  assert_stream("open log.json that exists\nwrite a\nflush\nclose\nopen log.json afresh\n");
  assert_warned("rotate_file", "Could not close output stream: as the test said");
  assert_folder(folder, "log.json.1: old\n");
  close_outcome = (Outcome){0};
  flush_and_settle(reporter, "b");
  assert_stream("write b\nflush\nclose\nopen log.json afresh\n");
  drop(reporter);
  end();
}

static void cancelled_write_ends_all_writing(void) {
  begin_scripted();
  write_outcome = (Outcome){.cancels = TRUE};
  VekMetricReporter *reporter = reporter_new(1, 1);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  settle(reporter); /* its reference is let go */
  assert_logged_from(SOURCE, "on_log_written", G_LOG_LEVEL_DEBUG,
                     "Write on output stream was cancelled");
  flush_one(reporter, "c");
  assert_stream("open log.json afresh\nwrite a\n");

  drop(reporter);
  assert_stream("close at last\n");
  end();
}

static void cancelled_flush_ends_all_writing(void) {
  begin_scripted();
  flush_outcome = (Outcome){.cancels = TRUE};
  VekMetricReporter *reporter = reporter_new(1, 1);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  settle(reporter);
  assert_logged_from(SOURCE, "on_stream_flushed", G_LOG_LEVEL_DEBUG,
                     "Flush on output stream was cancelled");
  assert_stream("open log.json afresh\nwrite a\nflush\n"); /* nor is the file rotated */

  flush_and_settle(reporter, "c"); /* the next write is cancelled before it begins */
  assert_logged_from(SOURCE, "on_log_written", G_LOG_LEVEL_DEBUG,
                     "Write on output stream was cancelled");
  flush_one(reporter, "d");
  assert_stream("");
  drop(reporter);
  assert_stream("close at last\n");
  end();
}

/* Of an error, the code alone decides. */
static void code_of_a_cancelled_write_in_another_domain_counts_as_one(void) {
  begin_scripted();
  write_outcome = (Outcome){.domain = G_FILE_ERROR, .code = G_IO_ERROR_CANCELLED};
  VekMetricReporter *reporter = reporter_new(0, 0);
  flush_and_settle(reporter, "a");
  assert_logged_from(SOURCE, "on_log_written", G_LOG_LEVEL_DEBUG,
                     "Write on output stream was cancelled");
  assert_stream("open log.json afresh\nwrite a\n");
  drop(reporter);
  end();
}

static void code_of_a_cancelled_flush_in_another_domain_counts_as_one(void) {
  begin_scripted();
  flush_outcome = (Outcome){.domain = G_FILE_ERROR, .code = G_IO_ERROR_CANCELLED};
  VekMetricReporter *reporter = reporter_new(1, 1);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  settle(reporter);
  assert_logged_from(SOURCE, "on_stream_flushed", G_LOG_LEVEL_DEBUG,
                     "Flush on output stream was cancelled");
  assert_stream("open log.json afresh\nwrite a\nflush\n");

  /* Nothing was cancelled, so the next flush goes on where the chain ended. */
  flush_outcome = (Outcome){0};
  flush_and_settle(reporter, "c");
  assert_stream(
      "write b\nflush\nclose\nopen log.json afresh\n"
      "write c\nflush\nclose\nopen log.json afresh\n");
  drop(reporter);
  end();
}

static void file_that_cannot_be_opened_again_ends_all_writing(void) {
  begin();
  VekMetricReporter *reporter = reporter_new(1, 1);
  g_autofree char *path = g_build_filename(folder, "log.json", NULL);
  g_assert_cmpint(g_remove(path), ==, 0);
  block("log.json"); /* which cannot be moved onto the other, nor removed */
  block("log.json.1");
  flush_one(reporter, "a");
  gsize used = heap_get_used();
  flush_many(reporter);
  settle(reporter);
  assert_open_failed();
  g_assert_cmpuint(heap_get_used(), <, used + 50 * N_LINES);
  assert_inert(reporter);
  assert_lines("log.json/ log.json.1/");
  end();
}

static void folder_that_cannot_be_made_again_ends_all_writing(void) {
  begin();
  g_autofree char *path = g_build_filename(folder, "x", NULL);
  g_autofree char *file = g_build_filename(path, "log.json", NULL);
  VekMetricReporter *reporter = vek_metric_json_log_reporter_new("log", path, NULL, 1, 1);
  g_assert_cmpint(g_remove(file), ==, 0);
  g_assert_cmpint(g_rmdir(path), ==, 0);
  folder_write(folder, "x", "");
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  settle(reporter);
  g_autofree char *message = g_strdup_printf("Cannot create log dir \"%s\".", path);
  assert_warned("open_log_file", message);
  assert_inert(reporter);
  assert_folder(folder, "x: ");
  end();
}

/* A rotation logs what it fails to do, and whoever hears of it may flush the same reporter. */

static void flush_within_a_rotation_leaves_one_write_running(void) {
  begin_scripted();
  VekMetricReporter *reporter = reporter_new(1, 0);
  flush_one(reporter, "a");
  flush_one(reporter, "b");
  flushed_at_close = reporter;
  settle(reporter);
  assert_stream(
      "open log.json afresh\nwrite a\nflush\nclose\nopen log.json afresh\n"
      "flush\nclose\nopen log.json afresh\n" /* of b: its stream was being closed, or was closed */
      "write z\nflush\nclose\nopen log.json afresh\n");
  assert_logged_from_like(SOURCE, "on_log_written", G_LOG_LEVEL_WARNING,
                          "Could not write log: Stream *");
  drop(reporter);
  end();
}

static void flush_within_a_rotation_that_loses_the_file_ends_all_writing(void) {
  begin_scripted();
  VekMetricReporter *reporter = reporter_new(1, 0);
  open_outcome = (Outcome){.domain = G_IO_ERROR, .code = G_IO_ERROR_NO_SPACE};
  flush_one(reporter, "a");
  gsize used = heap_get_used();
  flush_many(reporter);
  flushed_at_close = reporter;
  settle(reporter);
  g_assert_cmpuint(heap_get_used(), <, used + 50 * N_LINES);
  assert_stream("open log.json afresh\nwrite a\nflush\nclose\nopen log.json afresh\n");
  assert_logged_from_like(SOURCE, "open_log_file", G_LOG_LEVEL_WARNING,
                          "Could not append to file in *: as the test said");
  assert_logged_from_like(SOURCE, "on_log_written", G_LOG_LEVEL_WARNING,
                          "Could not write log: Stream *");
  assert_inert(reporter);
  end();
}

/* Assertions: the completions are called as GIO never would. */

static void abort_on_foreign_data_of_a_write(void) {
  takes_completions = TRUE;
  flush_one(reporter_new(0, 0), "a");
  completion(g_object_new(SCRIPTED_TYPE_STREAM, NULL), NULL, g_cancellable_new());
}

static void abort_on_foreign_source_of_a_write(void) {
  takes_completions = TRUE;
  flush_one(reporter_new(0, 0), "a");
  completion(G_OBJECT(g_cancellable_new()), NULL, completion_data);
}

static void abort_on_foreign_data_of_a_flush(void) {
  flush_and_settle(reporter_new(0, 0), "a");
  completion(g_object_new(SCRIPTED_TYPE_STREAM, NULL), NULL, g_cancellable_new());
}

static void abort_on_foreign_source_of_a_flush(void) {
  flush_and_settle(reporter_new(0, 0), "a");
  completion(G_OBJECT(g_cancellable_new()), NULL, completion_data);
}

static void abort_on_a_flush_that_was_not_started(void) {
  flush_and_settle(reporter_new(0, 0), "a");
  completion(g_object_new(SCRIPTED_TYPE_STREAM, NULL), NULL, completion_data);
}

typedef struct {
  const char *path;
  void (*abort)(void);
  const char *message;
} AbortRow;

static const AbortRow abort_rows[] = {
    {"write-completion-asserts-its-data", abort_on_foreign_data_of_a_write,
     "on_log_written: assertion failed: (VEK_IS_METRIC_JSON_LOG_REPORTER(user_data))"},
    {"write-completion-asserts-its-source", abort_on_foreign_source_of_a_write,
     "on_log_written: assertion failed: (G_IS_OUTPUT_STREAM(source))"},
    {"flush-completion-asserts-its-data", abort_on_foreign_data_of_a_flush,
     "on_stream_flushed: assertion failed: (VEK_IS_METRIC_JSON_LOG_REPORTER(user_data))"},
    {"flush-completion-asserts-its-source", abort_on_foreign_source_of_a_flush,
     "on_stream_flushed: assertion failed: (G_IS_OUTPUT_STREAM(source))"},
    {"flush-completion-asserts-that-it-was-started", abort_on_a_flush_that_was_not_started,
     "on_stream_flushed: assertion failed: (self->io_operation_in_progress)"},
};

static void aborts_by_the_table(gconstpointer data) {
  const AbortRow *row = data;
  if (g_test_subprocess()) {
    const struct rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    stream_record = g_string_new(NULL); /* so no file is made */
    folder = g_strdup("/");
    row->abort();
    return;
  }

  g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_failed();
  g_autofree char *pattern = g_strdup_printf("*VEK:metrics:ERROR:" SOURCE ":*:%s*", row->message);
  g_test_trap_assert_stderr(pattern);
}

/* The type. */

static void type_is_a_plain_object_and_a_reporter(void) {
  GType type = VEK_TYPE_METRIC_JSON_LOG_REPORTER;
  g_assert_cmpstr(g_type_name(type), ==, "VekMetricJsonLogReporter");
  g_assert_true(g_type_parent(type) == G_TYPE_OBJECT);
  g_assert_true(g_type_is_a(type, VEK_TYPE_METRIC_REPORTER));
  g_assert_false(G_TYPE_IS_ABSTRACT(type));
  g_assert_false(G_TYPE_IS_FINAL(type));
}

static void properties_are_construct_only(void) {
  static const struct {
    const char *name, *nick;
    gboolean is_string;
  } rows[] = {
      {"dirname", "dirname", TRUE},         {"basename", "basename", TRUE},
      {"instance-id", "instance id", TRUE}, {"max-reports", "max-reports", FALSE},
      {"rotate", "rotate", FALSE},
  };
  g_autoptr(GTypeClass) klass = g_type_class_ref(VEK_TYPE_METRIC_JSON_LOG_REPORTER);
  guint n_properties;
  g_autofree GParamSpec **found =
      g_object_class_list_properties(G_OBJECT_CLASS(klass), &n_properties);
  g_assert_cmpuint(n_properties, ==, G_N_ELEMENTS(rows));
  for (guint i = 0; i < n_properties; i++) {
    g_assert_cmpstr(found[i]->name, ==, rows[i].name);
    g_assert_cmpstr(g_param_spec_get_nick(found[i]), ==, rows[i].nick);
    g_assert_cmpstr(g_param_spec_get_blurb(found[i]), ==, rows[i].nick);
    g_assert_cmphex(found[i]->flags, ==,
                    G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY | G_PARAM_STATIC_STRINGS);
    if (rows[i].is_string) {
      g_assert_true(G_IS_PARAM_SPEC_STRING(found[i]));
      g_assert_null(G_PARAM_SPEC_STRING(found[i])->default_value);
    } else {
      g_assert_true(G_IS_PARAM_SPEC_UINT(found[i]));
      g_assert_cmpuint(G_PARAM_SPEC_UINT(found[i])->minimum, ==, 0);
      g_assert_cmpuint(G_PARAM_SPEC_UINT(found[i])->maximum, ==, 4294967295);
      g_assert_cmpuint(G_PARAM_SPEC_UINT(found[i])->default_value, ==, 0);
    }
  }
}

static void properties_read_back(void) {
  begin();
  VekMetricReporter *reporter =
      vek_metric_json_log_reporter_new("log", folder, "a1", 4294967295, 7);
  g_autofree char *dirname = NULL, *basename = NULL, *instance_id = NULL;
  guint max_reports, rotate;
  g_object_get(reporter, "dirname", &dirname, "basename", &basename, "instance-id", &instance_id,
               "max-reports", &max_reports, "rotate", &rotate, NULL);
  g_assert_cmpstr(dirname, ==, folder);
  g_assert_cmpstr(basename, ==, "log");
  g_assert_cmpstr(instance_id, ==, "a1");
  g_assert_cmpuint(max_reports, ==, 4294967295);
  g_assert_cmpuint(rotate, ==, 7);
  g_object_unref(reporter);
  end();
}

static void unknown_property_warns(void) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_json_log_reporter_new(NULL, NULL, NULL, 0, 0);
  assert_unknown_property_warns(reporter);
}

#define ADD_ROWS(rows, test)                                                        \
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {                                  \
    g_autofree char *path = g_strconcat("/jsonlogreporter/", (rows)[i].path, NULL); \
    g_test_add_data_func(path, &(rows)[i], test);                                   \
  }

int main(int argc, char **argv) {
  g_test_init(&argc, &argv, NULL);
  log_capture_init();

  ADD_ROWS(count_rows, counts_by_the_table);
  ADD_ROWS(lost_rows, lost_dimensions_by_the_table);
  ADD_ROWS(timestamp_rows, timestamps_by_the_table);
  ADD_ROWS(value_rows, values_by_the_table);
  ADD_ROWS(string_rows, strings_by_the_table);
  ADD_ROWS(abort_rows, aborts_by_the_table);
  ADD_TEST("jsonlogreporter", all_members_of_a_counter_come_in_order);
  ADD_TEST("jsonlogreporter", twenty_six_units_are_known);
  ADD_TEST("jsonlogreporter", snapshot_without_samples_adds_nothing);
  ADD_TEST("jsonlogreporter", snapshot_with_samples_adds_four_objects);
  ADD_TEST("jsonlogreporter", data_points_of_a_snapshot_have_its_time);
  ADD_TEST("jsonlogreporter", unknown_unit_of_a_snapshot_is_left_out);
  ADD_TEST("jsonlogreporter", statistics_are_not_clamped_but_percentiles_are);
  ADD_TEST("jsonlogreporter", infinite_statistics_are_null);
  ADD_TEST("jsonlogreporter", eleven_dimensions_of_a_snapshot_are_lost_by_each_data_point);
  ADD_TEST("jsonlogreporter", data_points_keep_the_order_of_their_collection);
  ADD_TEST("jsonlogreporter", each_data_point_has_its_own_timestamp);
  ADD_TEST("jsonlogreporter", registry_pass_reaches_the_file);
  ADD_TEST("jsonlogreporter", line_begins_with_the_time_of_the_flush);
  ADD_TEST("jsonlogreporter", flush_with_nothing_collected_writes_nothing);
  ADD_TEST("jsonlogreporter", existing_lines_are_kept);
  ADD_TEST("jsonlogreporter", folder_is_made_with_its_parents);
  ADD_TEST("jsonlogreporter", without_a_name_nothing_is_made);
  ADD_TEST("jsonlogreporter", max_reports_and_rotate_shift_the_files);
  ADD_TEST("jsonlogreporter", folder_that_has_gone_is_made_again_at_a_rotation);
  ADD_TEST("jsonlogreporter", without_max_reports_the_file_is_never_rotated);
  ADD_TEST("jsonlogreporter", without_rotate_the_full_file_is_deleted);
  ADD_TEST("jsonlogreporter", lines_that_wait_go_to_the_file_of_their_turn);
  ADD_TEST("jsonlogreporter", one_write_and_flush_runs_at_a_time);
  ADD_TEST("jsonlogreporter", rotation_runs_between_the_flush_and_the_next_write);
  ADD_TEST("jsonlogreporter", next_flush_starts_a_new_chain);
  ADD_TEST("jsonlogreporter", dropped_reporter_cancels_what_it_started);
  ADD_TEST("jsonlogreporter", dropped_reporter_still_writes_its_lines);
  ADD_TEST("jsonlogreporter", folder_that_cannot_be_made_is_logged);
  ADD_TEST("jsonlogreporter", file_that_cannot_be_opened_is_logged);
  ADD_TEST("jsonlogreporter", failed_write_is_logged_and_counts_as_a_report);
  ADD_TEST("jsonlogreporter", failed_write_is_flushed_all_the_same);
  ADD_TEST("jsonlogreporter", full_disk_cuts_the_line_and_later_ones_go_on);
  ADD_TEST("jsonlogreporter", failed_flush_is_logged_and_the_chain_goes_on);
  ADD_TEST("jsonlogreporter", failed_close_is_logged_and_rotation_goes_on);
  ADD_TEST("jsonlogreporter", cancelled_write_ends_all_writing);
  ADD_TEST("jsonlogreporter", cancelled_flush_ends_all_writing);
  ADD_TEST("jsonlogreporter", code_of_a_cancelled_write_in_another_domain_counts_as_one);
  ADD_TEST("jsonlogreporter", code_of_a_cancelled_flush_in_another_domain_counts_as_one);
  ADD_TEST("jsonlogreporter", file_that_cannot_be_opened_again_ends_all_writing);
  ADD_TEST("jsonlogreporter", folder_that_cannot_be_made_again_ends_all_writing);
  ADD_TEST("jsonlogreporter", flush_within_a_rotation_leaves_one_write_running);
  ADD_TEST("jsonlogreporter", flush_within_a_rotation_that_loses_the_file_ends_all_writing);
  ADD_TEST("jsonlogreporter", type_is_a_plain_object_and_a_reporter);
  ADD_TEST("jsonlogreporter", properties_are_construct_only);
  ADD_TEST("jsonlogreporter", properties_read_back);
  ADD_TEST("jsonlogreporter", unknown_property_warns);

  return g_test_run();
}
