#include "verdict.h"

#include <string.h>

void result_clear(Result *result) {
  g_strfreev(result->lines);
  g_strfreev(result->messages);
}

/* The effect of a fault; NULL if it has none. */
static const Effect *find_effect(const Scenario *scenario, const Plan *plan, const Fault *fault) {
  if (plan->halves)
    return NULL;
  for (const Effect *effect = scenario->effects; effect->function; effect++)
    if (g_str_equal(effect->function, fault->function))
      return effect;
  return NULL;
}

/* The number behind the first "p", as in "p1.requests"; 0 if the line has none. */
static guint get_pass(const char *line) {
  for (const char *p = line; (p = strchr(p, 'p')); p++)
    if (g_ascii_isdigit(p[1]))
      return (guint)g_ascii_strtoull(p + 1, NULL, 10);
  return 0;
}

/* A line that names no pass may be of any. */
static gboolean loses(Losers losers, guint fault, guint pass) {
  switch (losers) {
  case NO_PASS: return FALSE;
  case THIS_PASS: return pass == fault || pass == 0;
  case UP_TO_THIS_PASS: return pass <= fault;
  case LATER_PASSES: return pass > fault || pass == 0;
  case ONE_LINE_AND_LATER_PASSES: return pass >= fault || pass == 0;
  }
  g_assert_not_reached();
}

static gboolean may_be_lost(const Scenario *scenario, const Plan *plan, const char *line) {
  for (guint i = 0; i < faults_get_n_faults(); i++) {
    const Fault *fault = faults_get(i);
    const Effect *effect = find_effect(scenario, plan, fault);
    if (effect && (!effect->lines || g_pattern_match_simple(effect->lines, line)) &&
        loses(effect->losers, fault->pass, get_pass(line)))
      return TRUE;
  }
  return FALSE;
}

/* Whether the lines are the expected ones in their order, but for those that may be lost. Of lines
 * that look alike, any may be. */
static gboolean are_as_expected(const Scenario *scenario, const Plan *plan, char **expected,
                                char **lines) {
  if (!*expected)
    return !*lines;
  return (*lines && g_str_equal(*expected, *lines) &&
          are_as_expected(scenario, plan, expected + 1, lines + 1)) ||
         (may_be_lost(scenario, plan, *expected) &&
          are_as_expected(scenario, plan, expected + 1, lines));
}

static guint count_lines_of(guint pass, GStrv lines) {
  guint n = 0;
  for (char **line = lines; *line; line++)
    n += get_pass(*line) == pass;
  return n;
}

/* Whether more than a line for each fault is missing from a pass that loses no more. */
static gboolean is_short(const Scenario *scenario, const Plan *plan, const Fault *fault,
                         const Result *expected, const Result *result) {
  const Effect *effect = find_effect(scenario, plan, fault);
  return effect && effect->losers == ONE_LINE_AND_LATER_PASSES &&
         count_lines_of(fault->pass, result->lines) + faults_get_n_faults() <
             count_lines_of(fault->pass, expected->lines);
}

static guint count_matches(const char *pattern, GStrv texts) {
  guint n = 0;
  for (char **text = texts; *text; text++)
    n += g_pattern_match_simple(pattern, *text);
  return n;
}

static gboolean is_matched(GStrv patterns, const char *text) {
  for (char **pattern = patterns; *pattern; pattern++)
    if (g_pattern_match_simple(*pattern, text))
      return TRUE;
  return FALSE;
}

/* The patterns of all messages that may come, each as often as it may. */
static GStrv list_patterns(const Scenario *scenario, const Plan *plan) {
  g_autoptr(GString) patterns = g_string_new(scenario->messages);
  for (guint i = 0; i < faults_get_n_faults(); i++) {
    const Effect *effect = find_effect(scenario, plan, faults_get(i));
    if (effect && effect->messages)
      g_string_append_printf(patterns, "%s%s", patterns->len > 0 ? "|" : "", effect->messages);
  }
  return g_strsplit(patterns->str, "|", -1);
}

G_GNUC_PRINTF(2, 3) static void add(GPtrArray *wrongs, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  g_ptr_array_add(wrongs, g_strdup_vprintf(format, arguments));
  va_end(arguments);
}

GStrv find_wrongs(const Scenario *scenario, const Plan *plan, const Result *expected,
                  const Result *result) {
  GPtrArray *wrongs = g_ptr_array_new();
  if (!are_as_expected(scenario, plan, expected->lines, result->lines)) {
    g_autofree char *lines = g_strjoinv("\n", result->lines);
    add(wrongs, "wrong lines:\n%s", lines);
  }
  for (guint i = 0; i < faults_get_n_faults(); i++)
    if (is_short(scenario, plan, faults_get(i), expected, result))
      add(wrongs, "more than a line of pass %u was lost", faults_get(i)->pass);

  g_auto(GStrv) patterns = list_patterns(scenario, plan);
  for (char **message = result->messages; *message; message++)
    if (!is_matched(patterns, *message))
      add(wrongs, "logged: %s", *message);
  gboolean is_complete = g_strv_length(result->lines) == g_strv_length(expected->lines);
  for (char **pattern = patterns; *pattern; pattern++) {
    guint n = count_matches(*pattern, result->messages);
    if (n > count_matches(*pattern, patterns))
      add(wrongs, "logged too often: %s", *pattern);
    if (n == 0 && !is_complete && faults_get_n_faults() == 1)
      add(wrongs, "lines were lost without: %s", *pattern);
  }
  g_ptr_array_add(wrongs, NULL);
  return (GStrv)g_ptr_array_free(wrongs, FALSE);
}
