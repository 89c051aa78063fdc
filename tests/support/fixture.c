#include "support/fixture.h"

#include <string.h>
#include <unistd.h>

Fixture fixture;

typedef struct {
  char *name;
  void (*run)(void);
  void (*run_row)(gconstpointer row); /* in place of run */
  gconstpointer row;
} TestCase;
static GSList *tests; /* kept: GLib frees the data of those alone that it runs */

static void set_up(void) {
  fixture.registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  fixture.record = g_string_new(NULL);
  fixture.reporter = record_to(fixture.record, "a");
}

static void tear_down(void) {
  g_object_unref(fixture.registry);
  g_object_unref(fixture.reporter);
  g_string_free(fixture.record, TRUE);
}

static void run_test(gconstpointer data) {
  const TestCase *test = data;
  vek_testing_clock_set(1000, 1000);
  set_up();
  if (test->run)
    test->run();
  else
    test->run_row(test->row);
  tear_down();
  vek_testing_clock_set_hook(NULL);
  assert_nothing_logged();
}

static void keep(TestCase test) {
  tests = g_slist_prepend(tests, g_memdup2(&test, sizeof test));
}

void register_test(const char *name, void (*run)(void)) {
  keep((TestCase){.name = g_strdelimit(g_strdup(name), "_", '-'), .run = run});
}

void register_rows(gconstpointer rows, gsize n, gsize size, void (*run)(gconstpointer row)) {
  for (gsize i = 0; i < n; i++) {
    gconstpointer row = (const char *)rows + i * size;
    keep((TestCase){.name = g_strdup(*(const char *const *)row), .run_row = run, .row = row});
  }
}

int main(int argc, char **argv) {
  /* GLib 2.74 still hands small records out of slices of its own, and threads of the C library keep
   * blocks for reuse, unless told otherwise before the program begins. */
  if (!g_getenv("G_SLICE")) {
    g_setenv("G_SLICE", "always-malloc", TRUE);
    g_setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", TRUE);
    execvp(argv[0], argv);
  }

  g_test_init(&argc, &argv, NULL);
  log_capture_init();
  g_autofree char *program = g_path_get_basename(argv[0]);
  const char *group = program + strlen("test-");
  tests = g_slist_reverse(tests);
  for (GSList *node = tests; node; node = node->next) {
    const TestCase *test = node->data;
    g_autofree char *path = g_strdup_printf("/%s/%s", group, test->name);
    g_test_add_data_func(path, test, run_test);
  }
  return g_test_run();
}

void fixture_reset(void) {
  tear_down();
  set_up();
}

void fixture_report(void) {
  vek_metric_registry_report(fixture.registry, fixture.reporter);
}

typedef struct {
  GString *record;
  char *label;
} Labelled;

static void append_line(VekTestingRecorder *recorder, const char *line, gpointer data) {
  (void)recorder;
  const Labelled *labelled = data;
  g_string_append_printf(labelled->record, "%s %s\n", labelled->label, line);
}

static void free_labelled(gpointer data, GClosure *closure) {
  (void)closure;
  Labelled *labelled = data;
  g_free(labelled->label);
  g_free(labelled);
}

VekMetricReporter *record_to(GString *record, const char *label) {
  VekTestingRecorder *recorder = g_object_new(VEK_TESTING_TYPE_RECORDER, "times", TRUE, NULL);
  Labelled labelled = {record, g_strdup(label)};
  g_signal_connect_data(recorder, "recorded", G_CALLBACK(append_line),
                        g_memdup2(&labelled, sizeof labelled), free_labelled, 0);
  return VEK_METRIC_REPORTER(recorder);
}

void report_to(gpointer metric, GSList *reporters) {
  VEK_METRIC_GET_CLASS(metric)->report(VEK_METRIC(metric), reporters);
}

void assert_invalid_cast(const char *from, const char *to) {
  g_autofree char *message = g_strdup_printf("invalid cast from '%s' to '%s'", from, to);
  assert_logged("GLib-GObject", G_LOG_LEVEL_WARNING, message);
}

GParamSpec *assert_construct_only_property(GType type, const char *name) {
  g_autoptr(GTypeClass) klass = g_type_class_ref(type);
  GParamSpec *pspec = g_object_class_find_property(G_OBJECT_CLASS(klass), name);
  g_assert_nonnull(pspec);
  g_assert_cmpstr(g_type_name(pspec->owner_type), ==, g_type_name(type));
  g_assert_cmpstr(g_param_spec_get_nick(pspec), ==, name);
  g_assert_cmpstr(g_param_spec_get_blurb(pspec), ==, name);
  g_assert_cmphex(pspec->flags, ==,
                  G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY | G_PARAM_STATIC_STRINGS);
  return pspec;
}

void run_dispose(gpointer object) {
  gpointer weak = object;
  g_object_add_weak_pointer(object, &weak);
  g_object_run_dispose(object);
  g_assert_null(weak);
}

void assert_unknown_property_warns_in(const char *domain, gpointer object) {
  GObjectClass *klass = G_OBJECT_GET_CLASS(object);
  g_autoptr(GParamSpec) pspec = g_param_spec_ref_sink(
      g_param_spec_boolean("unknown", "unknown", "unknown", FALSE, G_PARAM_READWRITE));
  g_auto(GValue) value = G_VALUE_INIT;
  g_value_init(&value, G_TYPE_BOOLEAN);
  g_autofree char *pattern =
      g_strdup_printf("*: invalid property id 99 for \"unknown\" of type 'GParamBoolean' in '%s'",
                      G_OBJECT_TYPE_NAME(object));

  klass->set_property(object, 99, &value, pspec);
  assert_logged_like(domain, G_LOG_LEVEL_WARNING, pattern);
  klass->get_property(object, 99, &value, pspec);
  assert_logged_like(domain, G_LOG_LEVEL_WARNING, pattern);
}

static gint n_real_readings;
static gint n_monotonic_readings;

static void count_reading(gboolean monotonic) {
  g_atomic_int_inc(monotonic ? &n_monotonic_readings : &n_real_readings);
}

void count_readings(void) {
  n_real_readings = 0;
  n_monotonic_readings = 0;
  vek_testing_clock_set_hook(count_reading);
}

guint get_real_readings(void) {
  return g_atomic_int_get(&n_real_readings);
}

guint get_monotonic_readings(void) {
  return g_atomic_int_get(&n_monotonic_readings);
}

static gint n_readers;
static guint n_overlaps;

/* Lets others run while a clock is read, so that they meet if no lock keeps them apart. It does so
 * now and then: on a busy machine, a thread that yields waits for all other processes. */
static void count_overlap(gboolean monotonic) {
  static __thread guint n_readings;
  (void)monotonic;
  if (g_atomic_int_add(&n_readers, 1) > 0)
    g_atomic_int_inc(&n_overlaps);
  if (n_readings++ % 32 == 0)
    g_thread_yield();
  g_atomic_int_add(&n_readers, -1);
}

typedef struct {
  void (*work)(guint thread, gpointer data);
  gpointer data;
  GMutex *gate;
  gint *n_done;
  guint thread;
} Worker;

static gpointer run_worker(gpointer data) {
  const Worker *worker = data;
  g_mutex_lock(worker->gate);
  g_mutex_unlock(worker->gate);
  worker->work(worker->thread, worker->data);
  g_atomic_int_inc(worker->n_done);
  return NULL;
}

guint run_threads(guint n, void (*work)(guint thread, gpointer data),
                  void (*meanwhile)(gpointer data), gpointer data) {
  GMutex gate;
  g_mutex_init(&gate);
  gint n_done = 0;
  g_autofree Worker *workers = g_new(Worker, n);
  g_autofree GThread **threads = g_new(GThread *, n);

  n_overlaps = 0;
  vek_testing_clock_set_hook(count_overlap);
  g_mutex_lock(&gate);
  for (guint i = 0; i < n; i++) {
    workers[i] = (Worker){work, data, &gate, &n_done, i};
    threads[i] = g_thread_new("worker", run_worker, &workers[i]);
  }
  g_mutex_unlock(&gate);

  while (g_atomic_int_get(&n_done) < (gint)n) {
    meanwhile(data);
    g_thread_yield();
  }
  for (guint i = 0; i < n; i++)
    g_thread_join(threads[i]);
  meanwhile(data);
  vek_testing_clock_set_hook(NULL);
  g_mutex_clear(&gate);
  return n_overlaps;
}

typedef struct {
  void (*work)(guint thread, gpointer metric);
  gpointer metric;
} Traffic;

static void use_metric(guint thread, gpointer data) {
  const Traffic *traffic = data;
  traffic->work(thread, traffic->metric);
}

static void report_meanwhile(gpointer data) {
  (void)data;
  fixture_report();
}

guint fixture_run_threads(guint n, void (*work)(guint thread, gpointer metric), gpointer metric) {
  Traffic traffic = {work, metric};
  return run_threads(n, use_metric, report_meanwhile, &traffic);
}
