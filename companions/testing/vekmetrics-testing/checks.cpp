#include "checks.h"

#include "callline.hpp"
#include "common/internal.hpp"
#include "common/numbers.hpp"
#include "recorder.hpp"

using vekin::testing::Kind;

// Fails with a message, which it takes over and adds the pass to.
static gboolean fail(VekTestingRecorder *recorder, VekTestingError code, GString *message,
                     GError **error) {
  g_autofree char *text = vek_testing_recorder_get_text(recorder);
  if (!text)
    g_string_append(message, "; there was no pass");
  else if (!*text)
    g_string_append(message, "; the pass brought nothing");
  else
    g_string_append_printf(message, "; the pass brought:\n%s", g_strchomp(text));
  g_set_error_literal(error, VEK_TESTING_ERROR, code, message->str);
  g_string_free(message, TRUE);
  return FALSE;
}

static gboolean fail_missing(VekTestingRecorder *recorder, const char *what, const char *name,
                             char **dimensions, GError **error) {
  auto *message = g_string_new("no ");
  g_string_append(message, what);
  g_string_append(message, " of ");
  vekin::testing::append_identity(message, name, dimensions);
  return fail(recorder, VEK_TESTING_ERROR_MISSING, message, error);
}

static gboolean fail_different(VekTestingRecorder *recorder, const char *what, const char *name,
                               char **dimensions, const char *found, const char *expected,
                               GError **error) {
  auto *message = g_string_new(what);
  g_string_append(message, " of ");
  vekin::testing::append_identity(message, name, dimensions);
  g_string_append_printf(message, ": %s, expected %s", found, expected);
  return fail(recorder, VEK_TESTING_ERROR_DIFFERENT, message, error);
}

GQuark vek_testing_error_quark(void) {
  return g_quark_from_static_string("vek-testing-error-quark");
}

gboolean vek_testing_check_count(VekTestingRecorder *recorder, const char *name, char **dimensions,
                                 gint64 count, GError **error) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(name != NULL, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  auto *call = find_call(recorder, Kind::Count, name, dimensions);
  if (!call)
    return fail_missing(recorder, "count", name, dimensions, error);
  if (call->count != count)
    return fail_different(recorder, "count", name, dimensions, vekin::Decimal(call->count).text,
                          vekin::Decimal(count).text, error);
  return TRUE;
}

gboolean vek_testing_check_value(VekTestingRecorder *recorder, const char *name, char **dimensions,
                                 double value, double tolerance, GError **error) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(name != NULL, FALSE);
  vek_return_val_if_fail(tolerance >= 0, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  auto *call = find_call(recorder, Kind::Value, name, dimensions);
  if (!call)
    return fail_missing(recorder, "value", name, dimensions, error);

  // Equal infinities have no difference, and NaN is not even equal to itself.
  double found = call->value;
  if (found == value || (found != found && value != value) ||
      (found - value <= tolerance && value - found <= tolerance))
    return TRUE;
  g_autoptr(GString) expected = g_string_new(nullptr);
  vekin::testing::append_number(expected, value);
  if (tolerance > 0) {
    g_string_append(expected, " within ");
    vekin::testing::append_number(expected, tolerance);
  }
  g_autoptr(GString) brought = g_string_new(nullptr);
  vekin::testing::append_number(brought, found);
  return fail_different(recorder, "value", name, dimensions, brought->str, expected->str, error);
}

gboolean vek_testing_check_n_samples(VekTestingRecorder *recorder, const char *name,
                                     char **dimensions, gsize n_samples, GError **error) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(name != NULL, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  auto *call = find_call(recorder, Kind::Aggregated, name, dimensions);
  if (!call || !call->snapshot)
    return fail_missing(recorder, "samples", name, dimensions, error);
  gsize found = vek_metric_snapshot_get_n_samples(call->snapshot);
  if (found != n_samples)
    return fail_different(recorder, "number of samples", name, dimensions,
                          vekin::Decimal(found).text, vekin::Decimal(n_samples).text, error);
  return TRUE;
}

gboolean vek_testing_check_n_ranges(VekTestingRecorder *recorder, const char *name, guint n_ranges,
                                    GError **error) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(name != NULL, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  auto *call = find_call(recorder, Kind::Timeline, name, nullptr);
  if (!call)
    return fail_missing(recorder, "ranges", name, nullptr, error);
  guint found = g_slist_length(call->ranges);
  if (found != n_ranges)
    return fail_different(recorder, "number of ranges", name, nullptr, vekin::Decimal(found).text,
                          vekin::Decimal(n_ranges).text, error);
  return TRUE;
}

gboolean vek_testing_check_nothing(VekTestingRecorder *recorder, const char *name, GError **error) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(name != NULL, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  bool passed = vekin::testing::had_pass(recorder);
  if (passed && !vekin::testing::has_name(recorder, name))
    return TRUE;
  auto *message = g_string_new("expected nothing of ");
  vekin::testing::append_identity(message, name, nullptr);
  return fail(recorder, passed ? VEK_TESTING_ERROR_DIFFERENT : VEK_TESTING_ERROR_MISSING, message,
              error);
}

gboolean vek_testing_check_text(VekTestingRecorder *recorder, const char *text, GError **error) {
  vek_return_val_if_fail(VEK_TESTING_IS_RECORDER(recorder), FALSE);
  vek_return_val_if_fail(text != NULL, FALSE);
  vek_return_val_if_fail(error == NULL || *error == NULL, FALSE);

  g_autofree char *found = vek_testing_recorder_get_text(recorder);
  if (g_strcmp0(found, text) == 0)
    return TRUE;
  auto *message = g_string_new("expected ");
  g_string_append_printf(message, *text ? "this:\n%s" : "nothing%s", text);
  return fail(recorder, found ? VEK_TESTING_ERROR_DIFFERENT : VEK_TESTING_ERROR_MISSING, message,
              error);
}
