#include "jsonlog.h"

#include "support/fixture.h"
#include "support/folder.h"
#include "support/replace.h"
#include "support/tsan-tasks.h"

char *test_folder;
Script script;
GCancellable *last_cancellable;
Completion last_completion;
gboolean writes_are_held_back;

static GMutex streams_lock; /* guards the number of streams */
static GCond streams_changed;
static int n_streams;

struct _ScriptedStream {
  GFileOutputStream parent_instance;
};

G_DEFINE_TYPE(ScriptedStream, scripted_stream, G_TYPE_FILE_OUTPUT_STREAM)

static gboolean act(ScriptedOutcome outcome, GCancellable *cancellable, GError **error) {
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
  g_string_append_printf(script.record, "write %s\n", parts[3]);
  return act(script.write, cancellable, error) ? (gssize)count : -1;
}

static gboolean scripted_stream_flush(GOutputStream *stream, GCancellable *cancellable,
                                      GError **error) {
  if (!g_output_stream_is_closing(stream)) { /* closing flushes too */
    g_string_append(script.record, "flush\n");
    return act(script.flush, cancellable, error);
  }
  return TRUE;
}

static gboolean scripted_stream_close(GOutputStream *stream, GCancellable *cancellable,
                                      GError **error) {
  (void)stream;
  g_string_append_printf(script.record, "close%s\n", cancellable ? "" : " at last");
  if (script.flushed_at_close)
    flush_line(g_steal_pointer(&script.flushed_at_close), "z");
  return act(script.close, cancellable, error);
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

/* In place of GIO's. */

GFileOutputStream *g_file_append_to(GFile *file, GFileCreateFlags flags, GCancellable *cancellable,
                                    GError **error) {
  g_assert_cmpint(flags, ==, G_FILE_CREATE_NONE);
  g_assert_true(G_IS_CANCELLABLE(cancellable));
  last_cancellable = cancellable;
  if (!script.record)
    return G_FILE_GET_IFACE(file)->append_to(file, flags, cancellable, error);

  g_autofree char *name = g_file_get_basename(file);
  g_string_append_printf(script.record, "open %s %s\n", name,
                         g_file_query_exists(file, NULL) ? "that exists" : "afresh");
  return act(script.open, cancellable, error) ? g_object_new(SCRIPTED_TYPE_STREAM, NULL) : NULL;
}

void g_output_stream_write_all_async(GOutputStream *stream, const void *buffer, gsize count,
                                     int io_priority, GCancellable *cancellable,
                                     GAsyncReadyCallback callback, gpointer user_data) {
  g_assert_cmpint(io_priority, ==, G_PRIORITY_DEFAULT);
  g_assert_true(G_IS_CANCELLABLE(cancellable));
  last_completion.callback = callback;
  last_completion.data = user_data;
  if (writes_are_held_back)
    return;
  NEXT(g_output_stream_write_all_async)
  (stream, buffer, count, io_priority, cancellable, callback, user_data);
}

void g_output_stream_flush_async(GOutputStream *stream, int io_priority, GCancellable *cancellable,
                                 GAsyncReadyCallback callback, gpointer user_data) {
  g_assert_cmpint(io_priority, ==, G_PRIORITY_DEFAULT);
  g_assert_true(G_IS_CANCELLABLE(cancellable));
  last_completion.callback = callback;
  last_completion.data = user_data;
  NEXT(g_output_stream_flush_async)(stream, io_priority, cancellable, callback, user_data);
}

void begin_test(void) {
  vek_testing_clock_set(NOW, 1);
  test_folder = folder_new();
}

void begin_scripted_test(void) {
  begin_test();
  script.record = g_string_new(NULL);
  script.open = script.write = script.flush = script.close = (ScriptedOutcome){0};
}

void end_test(void) {
  if (script.record)
    g_string_free(g_steal_pointer(&script.record), TRUE);
  folder_remove(test_folder);
}

VekMetricReporter *log_reporter_new(guint max_reports, guint rotate) {
  return vek_metric_json_log_reporter_new("log", test_folder, NULL, max_reports, rotate);
}

void process_count(VekMetricReporter *reporter, const char *name, char **dimensions,
                   const char *unit, gint64 timestamp, gint64 count) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, name, dimensions, unit,
                                                         timestamp, count);
}

void flush_reporter(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

void flush_line(VekMetricReporter *reporter, const char *name) {
  process_count(reporter, name, NULL, NULL, 0, 0);
  flush_reporter(reporter);
}

char *lines(const char *names) {
  GString *text = g_string_new(NULL);
  for (const char *name = names; *name; name++)
    g_string_append_printf(text,
                           "2023-11-14 22:13:20,004211 "
                           "[{\"MetricName\":\"%c\",\"Timestamp\":null,\"Value\":0.0}]\n",
                           *name);
  return g_string_free(text, FALSE);
}

void settle(VekMetricReporter *reporter) {
  while (g_atomic_int_get((int *)&G_OBJECT(reporter)->ref_count) > 1)
    g_main_context_iteration(NULL, TRUE);
}

void drop_reporter(VekMetricReporter *reporter) {
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  g_object_unref(reporter);
  while (reporter)
    g_main_context_iteration(NULL, TRUE);
  wait_for_streams();
}
