#pragma once

/* A reporter that writes down every call it gets, as text that tests compare whole. */

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

#define RECORDING_TYPE_REPORTER (recording_reporter_get_type())
G_DECLARE_FINAL_TYPE(RecordingReporter, recording_reporter, RECORDING, REPORTER, GObject)

/* Makes a reporter that appends one line a call to the record: its label, the operation, and the
 * arguments, as in
 *
 *   a count requests host,h1 Count 1000 42
 *   a value load - - 1000 0.25
 *   a aggregated latency - Seconds 1000 n=3 sum=6 min=1 max=3
 *   a timeline render [2:300-420 1:100-250]
 *   a flush
 *
 * "-" stands for a NULL vector or unit, "()" for an empty vector and "''" for an empty unit. */
VekMetricReporter *recording_reporter_new(const char *label, GString *record);

/* Called at each call that the reporter gets, after it has been written down; NULL for none. */
typedef void (*RecordingCallback)(VekMetricReporter *reporter, gpointer data);
void recording_reporter_set_callback(RecordingReporter *reporter, RecordingCallback callback,
                                     gpointer data);

/* The last snapshot, borrowed; NULL before the first. */
VekMetricSnapshot *recording_reporter_get_snapshot(RecordingReporter *reporter);

/* Compares the record so far with the lines and empties it. */
#define assert_recorded(record, lines)           \
  G_STMT_START {                                 \
    g_assert_cmpstr((record)->str, ==, (lines)); \
    g_string_truncate((record), 0);              \
  }                                              \
  G_STMT_END

G_END_DECLS
