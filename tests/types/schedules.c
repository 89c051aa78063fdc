/* Random programs of several threads that create, update, look up, report and drop metrics of one
 * registry, register reporters with it, and let go of it. They take turns.
 *
 * SCHEDULE_OPERATIONS is how many operations run, 20000 if it is not set. SCHEDULE_SEED runs the
 * one program of that seed. */

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "turns.h"

#include <string.h>

#define N_NAMES 2
#define N_OPERATIONS 200 /* of a thread, at most */

/* Ranges, each with an id of its own, which a reporter sees once. */

static int n_ranges;
static int n_sightings[N_THREADS * N_OPERATIONS];

#define SPOTTER_TYPE_REPORTER (spotter_reporter_get_type())
G_DECLARE_FINAL_TYPE(SpotterReporter, spotter_reporter, SPOTTER, REPORTER, GObject)

struct _SpotterReporter {
  GObject parent_instance;
};

static void spotter_reporter_process_timeline_samples(VekMetricReporter *reporter, const char *name,
                                                      GSList *samples) {
  (void)reporter, (void)name;
  for (GSList *node = samples; node; node = node->next) {
    const VekMetricRange *range = node->data;
    g_assert_cmpint(g_atomic_int_add(&n_sightings[range->id], 1), ==, 0);
  }
}

static void spotter_reporter_flush(VekMetricReporter *reporter) {
  (void)reporter;
  turns_pass();
}

static void spotter_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_timeline_samples = spotter_reporter_process_timeline_samples;
  iface->flush = spotter_reporter_flush;
}

G_DEFINE_FINAL_TYPE_WITH_CODE(SpotterReporter, spotter_reporter, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                                    spotter_reporter_reporter_init))

static void spotter_reporter_class_init(SpotterReporterClass *klass) {
  (void)klass;
}

static void spotter_reporter_init(SpotterReporter *self) {
  (void)self;
}

/* Metrics. */

typedef enum { COUNTER, GAUGE, METER, HISTOGRAM, TIMER, TIMELINE, N_KINDS } Kind;

static const char *const names[N_KINDS][N_NAMES] = {
    {"counter-a", "counter-b"},     {"gauge-a", "gauge-b"}, {"meter-a", "meter-b"},
    {"histogram-a", "histogram-b"}, {"timer-a", "timer-b"}, {"timeline-a", "timeline-b"},
};

/* The unit of a counter is its number, which tells it from one that was made before under its key.
 * How often each was counted is known here, too. */
static int n_counters;
static int n_counted[N_THREADS * N_OPERATIONS];

static int *get_counted(gpointer counter) {
  return &n_counted[g_ascii_strtoll(vek_metric_get_unit(counter), NULL, 10)];
}

static VekMetricCounter *make_counter(VekMetricRegistry *registry, const char *name) {
  g_autofree char *unit = g_strdup_printf("%d", g_atomic_int_add(&n_counters, 1));
  return vek_metric_registry_counter_new(registry, name, unit, NULL);
}

static gpointer make(VekMetricRegistry *registry, Kind kind, const char *name) {
  switch (kind) {
  case COUNTER: return make_counter(registry, name);
  case GAUGE: return vek_metric_registry_gauge_new(registry, name, NULL, 1000, NULL);
  case METER: return vek_metric_registry_meter_new(registry, name, NULL, NULL);
  case HISTOGRAM: return vek_metric_registry_histogram_new(registry, name, NULL, NULL, NULL);
  case TIMER: return vek_metric_registry_timer_new(registry, name, "Seconds", NULL, NULL);
  default: return vek_metric_registry_timeline_new(registry, name);
  }
}

static void update(Kind kind, gpointer metric) {
  switch (kind) {
  case COUNTER:
    vek_metric_counter_inc(metric);
    g_atomic_int_inc(get_counted(metric));
    break;
  case GAUGE: vek_metric_gauge_add_value(metric, 1.0); break;
  case METER: vek_metric_meter_mark(metric, 1.0); break;
  case HISTOGRAM: vek_metric_histogram_set(metric, 1.0); break;
  case TIMER: vek_metric_timer_set_usec(metric, 1); break;
  default: vek_metric_timeline_add_range(metric, g_atomic_int_add(&n_ranges, 1), 2, 3);
  }
}

static void read_back(Kind kind, gpointer metric) {
  switch (kind) {
  case COUNTER: {
    int counted = g_atomic_int_get(get_counted(metric));
    g_assert_cmpint(vek_metric_counter_get_count(metric), >=, counted);
    break;
  }
  case GAUGE:
    g_assert_cmpfloat(vek_metric_gauge_get_value(metric, NULL), >=, 0.0);
    g_assert_cmpint(vek_metric_gauge_get_last_change_time(metric), >=, 0);
    break;
  case METER: g_assert_cmpfloat(vek_metric_meter_get_rate(metric), >=, 0.0); break;
  case HISTOGRAM:
  case TIMER: vek_metric_snapshot_unref(vek_metric_histogram_get_snapshot(metric)); break;
  default: g_assert_nonnull(vek_metric_get_name(metric));
  }
}

/* Programs. */

typedef struct {
  int number;
  guint32 seed;
  VekMetricRegistry *registry; /* a reference */
  gpointer metrics[N_KINDS][N_NAMES];
  guint n_done;
} Worker;

/* Whoever holds an active metric finds that one under its key. */
static void look_up(VekMetricRegistry *registry, const char *name, gpointer held) {
  g_autoptr(VekMetric) found = vek_metric_registry_get_metric(registry, name, NULL);
  if (held && found != held)
    g_assert_false(vek_metric_is_active(held));
}

static void report_once(VekMetricRegistry *registry) {
  g_autoptr(VekMetricReporter) reporter = g_object_new(SPOTTER_TYPE_REPORTER, NULL);
  vek_metric_registry_report(registry, reporter);
}

/* One that writes nowhere. */
static void register_another(VekMetricRegistry *registry) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_log_reporter_new(NULL, NULL);
  vek_metric_registry_register_reporter(registry, reporter);
}

static void operate(Worker *worker, GRand *random) {
  Kind kind = (Kind)g_rand_int_range(random, 0, N_KINDS);
  int i = g_rand_int_range(random, 0, N_NAMES);
  gpointer *metric = &worker->metrics[kind][i];
  switch (g_rand_int_range(random, 0, 24)) {
  case 0: report_once(worker->registry); break;
  case 1:
    if (worker->number == 0)
      run_periodic_pass(worker->registry);
    break;
  case 2: register_another(worker->registry); break;
  case 3: vek_testing_clock_advance(g_rand_int_range(random, 0, 2000000)); break;
  case 4:
  case 5:
  case 6: g_clear_object(metric); break;
  case 7:
  case 8:
  case 9: look_up(worker->registry, names[kind][i], *metric); break;
  case 10:
  case 11:
  case 12:
    if (*metric)
      read_back(kind, *metric);
    break;
  default:
    if (!*metric)
      *metric = make(worker->registry, kind, names[kind][i]);
    update(kind, *metric);
  }
}

static gpointer work(gpointer data) {
  Worker *worker = data;
  g_autoptr(GRand) random = g_rand_new_with_seed(worker->seed);
  turns_join(worker->number);
  for (int n = g_rand_int_range(random, 1, N_OPERATIONS); n > 0; n--, worker->n_done++)
    operate(worker, random);
  for (guint kind = 0; kind < N_KINDS; kind++)
    for (guint i = 0; i < N_NAMES; i++)
      g_clear_object(&worker->metrics[kind][i]);
  g_clear_object(&worker->registry);
  turns_leave();
  return NULL;
}

static void assert_counted(VekMetricRegistry *registry) {
  for (guint i = 0; i < N_NAMES; i++) {
    g_autoptr(VekMetric) found = vek_metric_registry_get_metric(registry, names[COUNTER][i], NULL);
    if (found)
      g_assert_cmpint(vek_metric_counter_get_count(VEK_METRIC_COUNTER(found)), ==,
                      *get_counted(found));
  }
}

/* GObject initialises classes under locks that are not replaced. */
static void initialise_classes(void) {
  for (Kind kind = 0; kind < N_KINDS; kind++)
    g_object_unref(make(fixture.registry, kind, names[kind][0]));
  report_once(fixture.registry);
  register_another(fixture.registry);
}

/* Returns how many operations were done. */
static guint run_program(guint32 seed) {
  g_test_message("SCHEDULE_SEED=%u", seed);
  initialise_classes();
  vek_testing_clock_set(1000, 1000);
  memset(n_counted, 0, sizeof n_counted);
  memset(n_sightings, 0, sizeof n_sightings);
  n_counters = n_ranges = 0;
  VekMetricRegistry *registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricReporter) reporter = g_object_new(SPOTTER_TYPE_REPORTER, NULL);
  vek_metric_registry_register_reporter(registry, reporter);

  turns_begin(seed);
  Worker workers[N_THREADS] = {0};
  GThread *threads[N_THREADS] = {NULL};
  for (int i = 0; i < N_THREADS; i++) {
    workers[i] =
        (Worker){.number = i, .seed = seed ^ (guint32)i, .registry = g_object_ref(registry)};
    if (i > 0)
      threads[i] = g_thread_new("work", work, &workers[i]);
  }
  gboolean ends_in_a_thread = seed % 2 == 0;
  if (ends_in_a_thread)
    g_clear_object(&registry);
  work(&workers[0]);

  guint n_done = workers[0].n_done;
  for (int i = 1; i < N_THREADS; i++) {
    g_thread_join(threads[i]);
    n_done += workers[i].n_done;
  }
  vek_testing_clock_set_hook(NULL);
  if (!ends_in_a_thread)
    assert_counted(registry);
  g_clear_object(&registry);
  g_assert_cmpint(G_OBJECT(reporter)->ref_count, ==, 1);
  return n_done;
}

TEST(program_of_a_seed_runs_the_same_again) {
  guint32 seed = (guint32)g_test_rand_int();
  guint n_done = run_program(seed);
  guint64 trace = turns_get_trace();
  g_assert_cmpuint(run_program(seed), ==, n_done);
  g_assert_cmphex(turns_get_trace(), ==, trace);
  run_program(seed + 1);
  g_assert_cmphex(turns_get_trace(), !=, trace);
}

TEST(whatever_threads_do_all_figures_are_theirs) {
  const char *seed = g_getenv("SCHEDULE_SEED");
  if (seed) {
    run_program((guint32)g_ascii_strtoull(seed, NULL, 10));
    return;
  }
  const char *wanted = g_getenv("SCHEDULE_OPERATIONS");
  guint64 n_wanted = wanted ? g_ascii_strtoull(wanted, NULL, 10) : 20000;
  guint64 n_done = 0;
  while (n_done < n_wanted)
    n_done += run_program((guint32)g_test_rand_int());
  g_test_message("%" G_GUINT64_FORMAT " operations", n_done);
}
