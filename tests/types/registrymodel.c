/* Random histories of a registry of counters, compared with a model. */

#include "support/fixture.h"
#include "support/modeltest.h"
#include "support/periodicpass.h"

/* Ways to spell a metric, some of which name the same one. */
static const struct {
  const char *recorded;
  const char *name;
  gboolean has_dimensions;
  char *dimensions[3];
  guint key;
} spellings[] = {
    {"a", "a", FALSE, {NULL}, 0},         {"c.b.a", "c.b.a", FALSE, {NULL}, 1},
    {"a{c=b}", "a", TRUE, {"c", "b"}, 1}, {"b.a{c}", "b.a", TRUE, {"c"}, 1},
    {"a{b=c}", "a", TRUE, {"b", "c"}, 2}, {"\"\"", "", FALSE, {NULL}, 3},
    {".a", ".a", FALSE, {NULL}, 4},       {"a{}", "a", TRUE, {NULL}, 4},
    {"a{\"\"}", "a", TRUE, {""}, 4},      {"c.b.a{}", "c.b.a", TRUE, {NULL}, 5},
};
enum { N_KEYS = 6, MAX_REPORTERS = 2 };

static char **get_dimensions(guint spelling) {
  return spellings[spelling].has_dimensions ? (char **)spellings[spelling].dimensions : NULL;
}

/* A metric as the model sees it, which lives while the table or the application holds it. */
typedef struct {
  VekMetricCounter *counter;
  guint spelling; /* that made it */
  guint n_held;
  gboolean is_in_table;
  gboolean is_active;
  gint64 count;
  gint64 time;
} Metric;

typedef struct {
  VekMetricRegistry *registry;
  gint64 now;
  GPtrArray *metrics; /* of Metric */
  Metric *table[N_KEYS];
  guint n_reporters;
  GString *records[MAX_REPORTERS];
} RegistryModel;

enum { ADVANCE, MAKE, DROP, ADD, LOOK_UP, MARK_INACTIVE, REGISTER, REPORT, PERIODIC_PASS, N_KINDS };

static gpointer begin(GRand *random) {
  (void)random;
  RegistryModel *model = g_new0(RegistryModel, 1);
  fixture_reset();
  model->registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  model->now = 1000;
  vek_testing_clock_set(model->now, 1);
  model->metrics = g_ptr_array_new_with_free_func(g_free);
  for (guint i = 0; i < MAX_REPORTERS; i++)
    model->records[i] = g_string_new(NULL);
  return model;
}

static void end(gpointer subject) {
  RegistryModel *model = subject;
  for (guint i = 0; i < model->metrics->len; i++) {
    const Metric *metric = model->metrics->pdata[i];
    for (guint j = 0; j < metric->n_held; j++)
      g_object_unref(metric->counter);
  }
  g_object_unref(model->registry);
  g_ptr_array_unref(model->metrics);
  for (guint i = 0; i < MAX_REPORTERS; i++)
    g_string_free(model->records[i], TRUE);
  g_free(model);
}

/* The number chooses a spelling, or a metric that is held, and what to add. */
static void draw(GRand *random, ModelOperation *operation) {
  operation->kind = g_rand_int_range(random, 0, N_KINDS);
  operation->number = g_rand_int_range(random, 0, 1000);
}

static char *describe(const ModelOperation *operation) {
  static const char *const names[] = {"advance",  "make",    "drop",
                                      "add",      "look up", "mark inactive",
                                      "register", "report",  "periodic pass"};
  return g_strdup_printf("%s number=%" G_GINT64_FORMAT, names[operation->kind], operation->number);
}

static void hold(RegistryModel *model, VekMetricCounter *counter, guint spelling) {
  Metric **place = &model->table[spellings[spelling].key];
  if (!*place) {
    Metric made = {counter, spelling, 0, TRUE, TRUE, 0, model->now};
    *place = g_memdup2(&made, sizeof made);
    g_ptr_array_add(model->metrics, *place);
  }
  (*place)->n_held++;
}

/* Forgets a metric that nobody holds. */
static void forget_if_gone(RegistryModel *model, Metric *metric) {
  if (metric->n_held == 0 && !metric->is_in_table)
    g_ptr_array_remove(model->metrics, metric);
}

static char *make(RegistryModel *model, guint spelling) {
  const Metric *known = model->table[spellings[spelling].key];
  VekMetricCounter *counter = vek_metric_registry_counter_new(
      model->registry, spellings[spelling].name, NULL, get_dimensions(spelling));
  gboolean is_other = known && counter != known->counter;
  hold(model, counter, spelling);
  return is_other ? g_strdup("made another metric") : NULL;
}

static char *look_up(RegistryModel *model, guint spelling) {
  const Metric *known = model->table[spellings[spelling].key];
  g_autoptr(VekMetric) found = vek_metric_registry_get_metric(
      model->registry, spellings[spelling].name, get_dimensions(spelling));
  if (found != (known ? VEK_METRIC(known->counter) : NULL))
    return g_strdup(found ? "found another metric" : "found none");
  if (known && vek_metric_is_active(found) != known->is_active)
    return g_strdup(known->is_active ? "is inactive" : "is active");
  return NULL;
}

/* The metric that is held, of all that are, which a number chooses; NULL if none is. */
static Metric *choose(RegistryModel *model, gint64 number) {
  for (guint i = 0; i < model->metrics->len; i++) {
    Metric *metric = model->metrics->pdata[((guint)number + i) % model->metrics->len];
    if (metric->n_held > 0)
      return metric;
  }
  return NULL;
}

static int compare_lines(gconstpointer a, gconstpointer b) {
  return g_strcmp0(*(char *const *)a, *(char *const *)b);
}

/* What each reporter gets of a pass, in order, after which a metric that nobody holds is inactive.
 */
static GPtrArray *expect_pass(RegistryModel *model) {
  GPtrArray *lines = g_ptr_array_new_with_free_func(g_free);
  for (guint key = 0; key < N_KEYS; key++) {
    Metric *metric = model->table[key];
    if (!metric || !metric->is_active)
      continue;
    g_ptr_array_add(
        lines, g_strdup_printf("a count %s %" G_GINT64_FORMAT " @%" G_GINT64_FORMAT,
                               spellings[metric->spelling].recorded, metric->count, metric->time));
    metric->is_active = metric->n_held > 0;
  }
  g_ptr_array_sort(lines, compare_lines);
  g_ptr_array_add(lines, g_strdup("a flush"));
  g_ptr_array_add(lines, NULL);
  return lines;
}

/* Compares what a recorder got with what it was to get, in whatever order. */
static char *compare_record(GString *record, GPtrArray *expected) {
  g_strchomp(record->str);
  g_auto(GStrv) lines = g_strsplit(record->str, "\n", -1);
  g_string_truncate(record, 0);
  guint n_lines = g_strv_length(lines);
  qsort(lines, n_lines > 0 ? n_lines - 1 : 0, sizeof *lines, compare_lines);
  if (g_strv_equal((const char *const *)lines, (const char *const *)expected->pdata))
    return NULL;
  g_autofree char *found = g_strjoinv("; ", lines);
  g_autofree char *due = g_strjoinv("; ", (char **)expected->pdata);
  return g_strdup_printf("reported '%s', not '%s'", found, due);
}

static char *report(RegistryModel *model) {
  g_autoptr(GPtrArray) expected = expect_pass(model);
  vek_metric_registry_report(model->registry, fixture.reporter);
  return compare_record(fixture.record, expected);
}

static void register_reporter(RegistryModel *model) {
  if (model->n_reporters == MAX_REPORTERS)
    return;
  g_autoptr(VekMetricReporter) reporter = record_to(model->records[model->n_reporters++], "a");
  vek_metric_registry_register_reporter(model->registry, reporter);
}

static char *run_pass(RegistryModel *model) {
  g_autofree char *difference = NULL;
  if (!find_timer(model->registry))
    return model->n_reporters > 0 ? g_strdup("has no timer") : NULL;
  g_autoptr(GPtrArray) expected = expect_pass(model);
  run_periodic_pass(model->registry);
  for (guint i = 0; i < model->n_reporters && !difference; i++)
    difference = compare_record(model->records[i], expected);
  for (guint key = 0; key < N_KEYS; key++) {
    Metric *metric = model->table[key];
    if (!metric || metric->is_active)
      continue;
    model->table[key] = NULL;
    metric->is_in_table = FALSE;
    forget_if_gone(model, metric);
  }
  return g_steal_pointer(&difference);
}

static char *apply(gpointer subject, const ModelOperation *operation) {
  RegistryModel *model = subject;
  guint spelling = (guint)operation->number % G_N_ELEMENTS(spellings);
  Metric *metric = choose(model, operation->number);
  switch (operation->kind) {
  case ADVANCE:
    model->now += operation->number;
    vek_testing_clock_set(model->now, 1);
    return NULL;
  case MAKE: return make(model, spelling);
  case LOOK_UP: return look_up(model, spelling);
  case REGISTER: register_reporter(model); return NULL;
  case REPORT: return report(model);
  case PERIODIC_PASS: return run_pass(model);
  }
  if (!metric)
    return NULL;

  switch (operation->kind) {
  case DROP:
    g_object_unref(metric->counter);
    metric->n_held--;
    forget_if_gone(model, metric);
    return NULL;
  case ADD:
    vek_metric_counter_add(metric->counter, operation->number);
    metric->count += operation->number;
    metric->time = model->now;
    return NULL;
  case MARK_INACTIVE:
    vek_metric_mark_inactive(VEK_METRIC(metric->counter));
    metric->is_active = FALSE;
    return NULL;
  }
  g_assert_not_reached();
}

TEST(random_histories_agree_with_a_model) {
  static const ModelTest test = {begin, draw, apply, end, describe};
  model_test_run(&test, 50000);
}
