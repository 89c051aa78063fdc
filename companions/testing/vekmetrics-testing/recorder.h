#pragma once

#include <vekmetrics/vekmetrics.h>

G_BEGIN_DECLS

#define VEK_TESTING_TYPE_RECORDER (vek_testing_recorder_get_type())

/**
 * VekTestingRecorder:
 *
 * A reporter that records the last pass for tests.
 *
 * A pass ends with its flush. Until then the recorder returns the previous pass.
 *
 * The text has one line for each call: the kind of call, the name with the dimensions in braces,
 * the figures, the unit, and the time in microseconds if [property@VekTesting.Recorder:times] is
 * set. Dimensions and unit are omitted if the metric has none. An empty vector is `{}`, and a
 * dimension without a value is written without `=`. Ranges are in the order of the call, the newest
 * first.
 *
 * ```
 * count requests{host=h1,zone=b} 42 Count @1000
 * value load 0.25 @1000
 * aggregated latency n=3 sum=6 min=1 max=3 Seconds @1000
 * timeline render [2:300..420 1:100..250]
 * ```
 *
 * Numbers have as many digits as are needed to read back the same number. A string is quoted and
 * escaped as in C if it is empty or contains spaces, control characters, bytes that are not UTF-8,
 * or any of `"\{}=,()@`. A missing name or snapshot is `(null)`. So each line is unambiguous.
 *
 * Use a recorder on the thread that runs the passes.
 */
VEK_EXPORT
G_DECLARE_FINAL_TYPE(VekTestingRecorder, vek_testing_recorder, VEK_TESTING, RECORDER, GObject)

/**
 * VekTestingRecorder:times:
 *
 * Whether each line ends in the time of the figures; %FALSE by default.
 */

/**
 * VekTestingRecorder::recorded:
 * @recorder: the recorder
 * @line: the call as a line of text, or `flush`
 *
 * Emitted after each call has been recorded, in the order of the calls. Handlers run within the
 * pass, which holds the registry's lock.
 */

/**
 * vek_testing_recorder_new:
 *
 * Creates a recorder. Register it, or pass it to [method@Vek.MetricRegistry.report].
 *
 * Returns: (transfer full): a new recorder
 */
VEK_EXPORT
VekTestingRecorder *vek_testing_recorder_new(void);

/**
 * vek_testing_recorder_get_text:
 * @recorder: a recorder
 *
 * Gets the last pass as text, with a line for each call, sorted by the metrics' keys: their
 * dimensions and then their name, joined by ".". Lines with the same key keep the order of the
 * calls.
 *
 * Returns: (transfer full) (nullable): the text, empty for an empty pass; %NULL if there was no
 *   pass, and after a failed check
 */
VEK_EXPORT
char *vek_testing_recorder_get_text(VekTestingRecorder *recorder);

/**
 * vek_testing_recorder_get_count:
 * @recorder: a recorder
 * @name: a counter's name
 * @dimensions: (nullable) (array zero-terminated=1): its alternating names and values
 * @count: (out) (optional): return location for the count; 0 if there is none
 *
 * Gets the count that the last pass reported for a counter.
 *
 * Returns: whether there was one; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_testing_recorder_get_count(VekTestingRecorder *recorder, const char *name,
                                        char **dimensions, gint64 *count);

/**
 * vek_testing_recorder_get_value:
 * @recorder: a recorder
 * @name: a gauge's or a meter's name
 * @dimensions: (nullable) (array zero-terminated=1): its alternating names and values
 * @value: (out) (optional): return location for the value or the rate; 0.0 if there is none
 *
 * Gets the value that the last pass reported for a gauge, or the rate of a meter.
 *
 * Returns: whether there was one; %FALSE after a failed check
 */
VEK_EXPORT
gboolean vek_testing_recorder_get_value(VekTestingRecorder *recorder, const char *name,
                                        char **dimensions, double *value);

/**
 * vek_testing_recorder_get_snapshot:
 * @recorder: a recorder
 * @name: a histogram's or a timer's name
 * @dimensions: (nullable) (array zero-terminated=1): its alternating names and values
 *
 * Gets the snapshot that the last pass reported for a histogram or a timer.
 *
 * Returns: (transfer none) (nullable): the snapshot, which the recorder owns until the next pass
 *   ends or it is cleared; %NULL if there was none, and after a failed check
 */
VEK_EXPORT
VekMetricSnapshot *vek_testing_recorder_get_snapshot(VekTestingRecorder *recorder, const char *name,
                                                     char **dimensions);

/**
 * vek_testing_recorder_get_ranges:
 * @recorder: a recorder
 * @name: a timeline's name
 *
 * Gets the ranges that the last pass reported for a timeline, the newest first.
 *
 * Returns: (transfer none) (nullable) (element-type VekMetricRange): the ranges, which the recorder
 *   owns until the next pass ends or it is cleared; %NULL if there were none, and after a failed
 *   check
 */
VEK_EXPORT
GSList *vek_testing_recorder_get_ranges(VekTestingRecorder *recorder, const char *name);

/**
 * vek_testing_recorder_clear:
 * @recorder: a recorder
 *
 * Forgets the last pass, as if there had been none.
 */
VEK_EXPORT
void vek_testing_recorder_clear(VekTestingRecorder *recorder);

G_END_DECLS
