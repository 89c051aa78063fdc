#pragma once

/* What the tests of the JSON log share: a folder for each test, a reporter that writes there, and
 * streams in place of the file's, whose operations succeed or fail as a test says.
 *
 * A test calls begin_test() or begin_scripted_test() first and end_test() last. A reporter that it
 * has flushed goes by drop_reporter() before that.
 *
 * Linked into the program and exported from it, its functions take the place of GIO's
 * g_file_append_to(), g_output_stream_write_all_async() and g_output_stream_flush_async() for the
 * library too. They go on to GIO unless a test says otherwise, and fail if they get flags, another
 * priority than the default one, or no cancellable. */

#include <gio/gio.h>
#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/* When every test begins: 2023-11-14 22:13:20,004211. */
#define NOW G_GINT64_CONSTANT(1700000000004211)

/* The folder of the test that runs. */
extern char *test_folder;

/* Sets the clock and makes the folder. */
void begin_test(void);

/* The same for a test that has scripted streams, whose operations all succeed until it says
 * otherwise. */
void begin_scripted_test(void);

/* Removes the folder; scripted streams end. */
void end_test(void);

/* Makes a reporter that writes "log.json" in the folder and has no instance id. */
VekMetricReporter *log_reporter_new(guint max_reports, guint rotate);

/* The reporter's operations. */
void process_count(VekMetricReporter *reporter, const char *name, char **dimensions,
                   const char *unit, gint64 timestamp, gint64 count);
void flush_reporter(VekMetricReporter *reporter);

/* Collects one data point of this name, a count of 0 without a timestamp, and flushes it. */
void flush_line(VekMetricReporter *reporter, const char *name);

/* The lines that flush_line() writes at the time NOW, for names of one letter each. */
char *lines(const char *names);

/* Runs the main loop until the reporter waits for nothing: each operation holds a reference. */
void settle(VekMetricReporter *reporter);

/* Drops the last reference but the operations', which must not outlive them: runs the main loop
 * until the reporter is gone, and waits for the scripted streams to go. */
void drop_reporter(VekMetricReporter *reporter);

/* A stream in place of the file's. */
#define SCRIPTED_TYPE_STREAM (scripted_stream_get_type())
G_DECLARE_FINAL_TYPE(ScriptedStream, scripted_stream, SCRIPTED, STREAM, GFileOutputStream)

/* What an operation does: succeed, fail with this error, or cancel what it was started with. */
typedef struct {
  GQuark domain;
  int code; /* 0 for success */
  gboolean cancels;
} ScriptedOutcome;

/* What the test says of scripted streams, and what is done with them, one line an operation in the
 * order in which they are done:
 *
 *   open log.json afresh
 *   open log.json that exists
 *   write NAME        (of the line's first data point)
 *   flush
 *   close
 *   close at last     (by the last who held the stream) */
typedef struct {
  GString *record; /* NULL: files are opened for real */
  ScriptedOutcome open, write, flush, close;
  VekMetricReporter *flushed_at_close; /* by the next close, as a log writer might do it */
} Script;
extern Script script;

/* Of the reporter that opened a file last; borrowed. */
extern GCancellable *last_cancellable;

/* What the last write or flush was to call at its end. */
typedef struct {
  GAsyncReadyCallback callback;
  gpointer data;
} Completion;
extern Completion last_completion;

/* Set by a test, for writes not to be started; their completions are left to the test. */
extern gboolean writes_are_held_back;

G_END_DECLS
