#pragma once

/* Calls of reporters with strings of any bytes, for fuzz targets, and what reads the output.
 *
 * The time stands still: RAW_TIME is the timestamp of all calls and the real time of the program.
 * A critical message aborts, and other messages are dropped. */

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

/* 2023-11-14 22:13:20. */
#define RAW_SECONDS "1700000000"
#define RAW_TIME G_GINT64_CONSTANT(1700000000000000)

/* A count of 42, a value of 0.5, a snapshot of one sample of 1.5, or the range 1 from 2 to 3. */
typedef enum { RAW_COUNT, RAW_VALUE, RAW_AGGREGATED, RAW_TIMELINE } RawKind;

typedef struct {
  RawKind kind;
  char *name;
  char **dimensions; /* NULL for none */
  char *unit;        /* NULL for none */
} RawCall;

/* The calls that bytes stand for, which are strings with a NUL between them: for each call its
 * options, its name, its unit if it has one, and its dimensions. Options are "c", "v", "a" or "t"
 * for its kind, "u" for a unit, "d" for each string of its dimensions, up to 20, and "e" for an
 * array of dimensions that may be empty.
 *
 * Returns: (element-type RawCall): the calls, up to 8 */
GPtrArray *raw_calls_new(const guint8 *bytes, gsize size);

/* Makes the calls, for a reporter that has an operation for them, and flushes. */
void raw_calls_report(GPtrArray *calls, VekMetricReporter *reporter);

/* A socket in the thread of the test, to which one reporter connects and sends lines. */
typedef struct _RawSink RawSink;
RawSink *raw_sink_new(void);
guint raw_sink_get_port(RawSink *sink);

/* Sends a count of 0 named "end" behind all that the reporter sends, and receives until then.
 *
 * Returns: all that came before its line, "end 0 SECONDS" */
char *raw_sink_receive(RawSink *sink, VekMetricReporter *reporter);

/* Checks each string of a JSON text, and replaces its quotation marks and escapes by what they
 * mean: a string STRING becomes "<STRING>". */
char *raw_json_decode(const char *text);

/* The same text for a string that it must mean. */
char *raw_json_string(const char *string);

G_END_DECLS
