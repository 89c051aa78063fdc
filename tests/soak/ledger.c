#include "ledger.h"

#include <string.h>
#include <unistd.h>

static const char kPrefix[] = "metric-";

static void enter(Ledger *ledger, guint row, guint number, guint n_lines, double value) {
  g_assert_cmpuint(row, <, MAX_ROWS);
  ledger->n_lines += n_lines;
  guint slot = number % N_SLOTS;
  ledger->entries[row][slot].n_lines += n_lines;
  ledger->entries[row][slot].sum += value;
}

void output_expect(Output *output, guint row, guint number, guint n_lines, double value) {
  if (n_lines > 0)
    enter(&output->expected, row, number, n_lines, value);
}

/* A metric's name in a text, and what follows it. */
typedef struct {
  guint row;
  guint number;
  const char *rest; /* NULL if there is no name */
} Found;

static Found find_metric(const char *text) {
  Found found = {0};
  const char *name = strstr(text, kPrefix);
  if (!name)
    return found;
  char *end;
  found.row = (guint)g_ascii_strtoull(name + strlen(kPrefix), &end, 10);
  found.number = (guint)g_ascii_strtoull(end + 1, &end, 10);
  found.rest = end;
  return found;
}

static void take(Output *output, Found found, double value) {
  enter(&output->received, found.row, found.number, 1, value);
}

/* The number behind the next such mark. */
static double get_number_behind(const char *text, const char *mark) {
  return g_ascii_strtod(strstr(text, mark) + strlen(mark), NULL);
}

void output_take_carbon(Output *output, const char *line) {
  Found found = find_metric(line);
  if (!found.rest)
    return;
  gboolean is_figure = *found.rest != '.' || g_str_has_prefix(found.rest, ".average");
  take(output, found, is_figure ? get_number_behind(found.rest, " ") : 0);
}

void output_take_console(Output *output, const char *line) {
  Found found = find_metric(line);
  if (!found.rest)
    return;
  gboolean is_aggregated = g_str_has_prefix(found.rest, ": avg");
  take(output, found, get_number_behind(found.rest + (is_aggregated ? 1 : 0), ":"));
}

void output_take_csv(Output *output, const char *line) {
  Found found = find_metric(line);
  if (found.rest)
    take(output, found, get_number_behind(found.rest + 1, ",")); /* behind the dimensions */
}

void output_take_ranges(Output *output, const char *line) {
  Found found = find_metric(line);
  if (found.rest)
    take(output, found, get_number_behind(found.rest, ","));
}

void output_take_json(Output *output, const char *line) {
  for (Found found = find_metric(line); found.rest; found = find_metric(found.rest)) {
    const char *end = strstr(found.rest, "{\"MetricName\"");
    const char *sum = strstr(found.rest, "\"Sum\":");
    double value;
    if (*found.rest == '_') /* a quantile */
      value = 0;
    else if (sum && (!end || sum < end))
      value = get_number_behind(sum, ":") / get_number_behind(found.rest, "\"SampleCount\":");
    else
      value = get_number_behind(found.rest, "\"Value\":");
    take(output, found, value);
  }
}

void output_take_recorded(Output *output, const char *line) {
  Found found = find_metric(line);
  if (!found.rest || g_str_has_suffix(line, " []")) /* no ranges */
    return;
  double value;
  if (g_str_has_prefix(line, "aggregated"))
    value = get_number_behind(found.rest, " sum=") / get_number_behind(found.rest, " n=");
  else
    value = get_number_behind(found.rest, g_str_has_prefix(line, "timeline") ? "[" : " ");
  take(output, found, value);
}

char *take_lines(char *text, Output *output, TakeLine take) {
  for (char *end; (end = strchr(text, '\n')); text = end + 1) {
    *end = '\0';
    take(output, text);
  }
  return text;
}

void take_file(const char *folder, const char *name, Output *output, TakeLine take) {
  g_autofree char *path = g_build_filename(folder, name, NULL);
  g_autofree char *text = NULL;
  if (!g_file_get_contents(path, &text, NULL, NULL))
    return;
  g_assert_cmpint(truncate(path, 0), ==, 0);
  g_assert_cmpstr(take_lines(text, output, take), ==, "");
}

static char *describe(const Ledger *ledger, guint row, guint slot) {
  return g_strdup_printf("metric-%u-N, N modulo %u = %u: %u lines, sum %g", row, N_SLOTS, slot,
                         ledger->entries[row][slot].n_lines, ledger->entries[row][slot].sum);
}

void output_settle(Output *output) {
  Ledger *expected = &output->expected, *received = &output->received;
  for (guint row = 0; row < MAX_ROWS; row++)
    for (guint slot = 0; slot < N_SLOTS; slot++) {
      if (received->entries[row][slot].n_lines == expected->entries[row][slot].n_lines &&
          received->entries[row][slot].sum == expected->entries[row][slot].sum)
        continue;
      g_autofree char *wanted = describe(expected, row, slot);
      g_autofree char *found = describe(received, row, slot);
      g_error("%s: received %s; expected %s", output->name, found, wanted);
    }
  memset(expected->entries, 0, sizeof expected->entries);
  memset(received->entries, 0, sizeof received->entries);
}
