#pragma once

#include <vekmetrics-testing/recorder.h>

G_BEGIN_DECLS

/* Checks of a recorder's last pass. Each check exists twice: as a function that returns an error,
 * which other languages throw, and as a macro for C and C++ that ends the test, like
 * g_assert_cmpint(). The messages of both show the whole pass. */

/**
 * VEK_TESTING_ERROR:
 *
 * The domain of the errors of failed checks.
 */
#define VEK_TESTING_ERROR (vek_testing_error_quark())

/**
 * vek_testing_error_quark:
 *
 * Gets the domain of the errors of failed checks.
 *
 * Returns: the domain
 */
VEK_EXPORT
GQuark vek_testing_error_quark(void);

/**
 * VekTestingError:
 * @VEK_TESTING_ERROR_MISSING: there was no pass, or it did not report the metric
 * @VEK_TESTING_ERROR_DIFFERENT: the pass reported something other than expected
 *
 * What a failed check found.
 */
typedef enum { VEK_TESTING_ERROR_MISSING, VEK_TESTING_ERROR_DIFFERENT } VekTestingError;

/**
 * vek_testing_check_count:
 * @recorder: a recorder
 * @name: a counter's name
 * @dimensions: (nullable) (array zero-terminated=1): its alternating names and values
 * @count: the expected count
 * @error: return location for an error
 *
 * Checks the count that the last pass reported for a counter.
 *
 * Returns: whether it is as expected; %FALSE without an error if an argument is wrong
 */
VEK_EXPORT
gboolean vek_testing_check_count(VekTestingRecorder *recorder, const char *name, char **dimensions,
                                 gint64 count, GError **error);

/**
 * vek_testing_check_value:
 * @recorder: a recorder
 * @name: a gauge's or a meter's name
 * @dimensions: (nullable) (array zero-terminated=1): its alternating names and values
 * @value: the expected value or rate; only NaN matches NaN
 * @tolerance: the largest allowed difference, at least 0
 * @error: return location for an error
 *
 * Checks the value that the last pass reported for a gauge, or the rate of a meter.
 *
 * Returns: whether it is as expected; %FALSE without an error if an argument is wrong
 */
VEK_EXPORT
gboolean vek_testing_check_value(VekTestingRecorder *recorder, const char *name, char **dimensions,
                                 double value, double tolerance, GError **error);

/**
 * vek_testing_check_n_samples:
 * @recorder: a recorder
 * @name: a histogram's or a timer's name
 * @dimensions: (nullable) (array zero-terminated=1): its alternating names and values
 * @n_samples: the expected number of samples
 * @error: return location for an error
 *
 * Checks how many samples the last pass reported for a histogram or a timer. To check the samples
 * themselves, use [method@VekTesting.Recorder.get_snapshot].
 *
 * Returns: whether it is as expected; %FALSE without an error if an argument is wrong
 */
VEK_EXPORT
gboolean vek_testing_check_n_samples(VekTestingRecorder *recorder, const char *name,
                                     char **dimensions, gsize n_samples, GError **error);

/**
 * vek_testing_check_n_ranges:
 * @recorder: a recorder
 * @name: a timeline's name
 * @n_ranges: the expected number of ranges
 * @error: return location for an error
 *
 * Checks how many ranges the last pass reported for a timeline. To check the ranges themselves, use
 * [method@VekTesting.Recorder.get_ranges].
 *
 * Returns: whether it is as expected; %FALSE without an error if an argument is wrong
 */
VEK_EXPORT
gboolean vek_testing_check_n_ranges(VekTestingRecorder *recorder, const char *name, guint n_ranges,
                                    GError **error);

/**
 * vek_testing_check_nothing:
 * @recorder: a recorder
 * @name: a metric's name
 * @error: return location for an error
 *
 * Checks that there was a pass, and that it reported no metric with this name, of any kind and with
 * any dimensions.
 *
 * Returns: whether that is so; %FALSE without an error if an argument is wrong
 */
VEK_EXPORT
gboolean vek_testing_check_nothing(VekTestingRecorder *recorder, const char *name, GError **error);

/**
 * vek_testing_check_text:
 * @recorder: a recorder
 * @text: the expected text, as returned by [method@VekTesting.Recorder.get_text]
 * @error: return location for an error
 *
 * Checks everything that the last pass reported.
 *
 * Returns: whether it is as expected; %FALSE without an error if an argument is wrong
 */
VEK_EXPORT
gboolean vek_testing_check_text(VekTestingRecorder *recorder, const char *text, GError **error);

#ifndef __GI_SCANNER__

/* The macros take the arguments of the checks, without the error. They are variadic, so that
 * arguments with commas in braces need no parentheses. */
#define vek_testing_assert_count(...) vek_testing_assert_(vek_testing_check_count, __VA_ARGS__)
#define vek_testing_assert_value(...) vek_testing_assert_(vek_testing_check_value, __VA_ARGS__)
#define vek_testing_assert_n_samples(...) \
  vek_testing_assert_(vek_testing_check_n_samples, __VA_ARGS__)
#define vek_testing_assert_n_ranges(...) \
  vek_testing_assert_(vek_testing_check_n_ranges, __VA_ARGS__)
#define vek_testing_assert_nothing(...) vek_testing_assert_(vek_testing_check_nothing, __VA_ARGS__)
#define vek_testing_assert_text(...) vek_testing_assert_(vek_testing_check_text, __VA_ARGS__)

#define vek_testing_assert_(check, ...)                                                          \
  G_STMT_START {                                                                                 \
    GError *vek_testing_error_ = NULL;                                                           \
    if (!check(__VA_ARGS__, &vek_testing_error_))                                                \
      g_assertion_message(G_LOG_DOMAIN, __FILE__, __LINE__, __func__,                            \
                          vek_testing_error_ ? vek_testing_error_->message : "wrong arguments"); \
    g_clear_error(&vek_testing_error_);                                                          \
  }                                                                                              \
  G_STMT_END

#endif

G_END_DECLS
