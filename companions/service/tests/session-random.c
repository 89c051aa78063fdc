/* Random programs: threads that count on metrics which they drop and make again, passes of both
 * kinds meanwhile, reporters that come and go, and an end at a random moment. All that was counted
 * before the end must have been reported, and nothing twice.
 *
 * RANDOM_PROGRAMS is how many programs run: 2000 if it is not set. */

#include <vekmetrics-service/vekmetrics-service.h>

#include "support/fixture.h"
#include "support/periodicpass.h"

#include <stdlib.h>

#define N_THREADS 3
#define N_NAMES 2

typedef enum { COUNTER, GAUGE, TIMELINE, N_KINDS } Kind;
static const char *const names[N_KINDS][N_NAMES] = {
    {"counter-a", "counter-b"}, {"gauge-a", "gauge-b"}, {"timeline-a", "timeline-b"}};

/* A reporter that adds up what it is given. A metric that is made again counts from 0, and its unit
 * tells it from the one before: each constructor is called with another one. */

#define LEDGER_TYPE_REPORTER (ledger_reporter_get_type())
G_DECLARE_FINAL_TYPE(LedgerReporter, ledger_reporter, LEDGER, REPORTER, GObject)

struct _LedgerReporter {
  GObject parent_instance;

  GHashTable *last; /* what each metric reported last, by its name and unit */
  gint64 n_ranges;
};

static void ledger_reporter_reporter_init(VekMetricReporterInterface *iface);

G_DEFINE_TYPE_WITH_CODE(LedgerReporter, ledger_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER,
                                              ledger_reporter_reporter_init))

static void enter(VekMetricReporter *reporter, const char *name, const char *unit, gint64 figure) {
  gint64 *entry = g_new(gint64, 1);
  *entry = figure;
  g_hash_table_insert(LEDGER_REPORTER(reporter)->last, g_strconcat(name, " ", unit, NULL), entry);
}

static void ledger_reporter_process_count(VekMetricReporter *reporter, const char *name,
                                          char **dimensions, const char *unit, gint64 timestamp,
                                          gint64 count) {
  (void)dimensions, (void)timestamp;
  enter(reporter, name, unit, count);
}

static void ledger_reporter_process_value(VekMetricReporter *reporter, const char *name,
                                          char **dimensions, const char *unit, gint64 timestamp,
                                          double value) {
  (void)dimensions, (void)timestamp;
  enter(reporter, name, unit, (gint64)value);
}

static void ledger_reporter_process_timeline_samples(VekMetricReporter *reporter, const char *name,
                                                     GSList *samples) {
  (void)name;
  LEDGER_REPORTER(reporter)->n_ranges += g_slist_length(samples);
}

static void ledger_reporter_flush(VekMetricReporter *reporter) {
  (void)reporter;
}

static void ledger_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->process_count = ledger_reporter_process_count;
  iface->process_value = ledger_reporter_process_value;
  iface->process_timeline_samples = ledger_reporter_process_timeline_samples;
  iface->flush = ledger_reporter_flush;
}

static void ledger_reporter_finalize(GObject *object) {
  g_hash_table_unref(LEDGER_REPORTER(object)->last);
  G_OBJECT_CLASS(ledger_reporter_parent_class)->finalize(object);
}

static void ledger_reporter_class_init(LedgerReporterClass *klass) {
  G_OBJECT_CLASS(klass)->finalize = ledger_reporter_finalize;
}

static void ledger_reporter_init(LedgerReporter *self) {
  self->last = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free);
}

static LedgerReporter *ledger_reporter_new(void) {
  return g_object_new(LEDGER_TYPE_REPORTER, NULL);
}

static gint64 ledger_reporter_get_total(LedgerReporter *self) {
  gint64 total = self->n_ranges;
  GHashTableIter iter;
  gpointer figure;
  g_hash_table_iter_init(&iter, self->last);
  while (g_hash_table_iter_next(&iter, NULL, &figure))
    total += *(gint64 *)figure;
  return total;
}

/* Whatever both know of, they know alike. */
static void assert_agrees(LedgerReporter *late, LedgerReporter *whole) {
  GHashTableIter iter;
  gpointer key;
  gpointer figure;
  g_hash_table_iter_init(&iter, late->last);
  while (g_hash_table_iter_next(&iter, &key, &figure)) {
    gint64 *expected = g_hash_table_lookup(whole->last, key);
    g_assert_nonnull(expected);
    g_assert_cmpint(*(gint64 *)figure, ==, *expected);
  }
}

/* A program. */

typedef struct {
  VekMetricRegistry *registry;
  gint64 counted; /* by all threads, atomic */
  gint stopped;
} Program;

typedef struct {
  Program *program;
  guint32 seed;
  guint thread;
} Worker;

static gpointer make(Worker *worker, Kind kind, const char *name, guint n_made) {
  VekMetricRegistry *registry = worker->program->registry;
  char unit[32];
  g_snprintf(unit, sizeof unit, "%u/%u", worker->thread, n_made);
  switch (kind) {
  case COUNTER: return vek_metric_registry_counter_new(registry, name, unit, NULL);
  case GAUGE: return vek_metric_registry_gauge_new(registry, name, unit, 0, NULL);
  default: return vek_metric_registry_timeline_new(registry, name);
  }
}

static void count(Program *program, Kind kind, gpointer metric) {
  switch (kind) {
  case COUNTER: vek_metric_counter_inc(metric); break;
  case GAUGE: vek_metric_gauge_add_value(metric, 1.0); break;
  default: vek_metric_timeline_add_range(metric, 1, 2, 3);
  }
  __atomic_fetch_add(&program->counted, 1, __ATOMIC_SEQ_CST);
}

static gpointer work(gpointer data) {
  Worker *worker = data;
  Program *program = worker->program;
  g_autoptr(GRand) rand = g_rand_new_with_seed(worker->seed);
  gpointer metrics[N_KINDS][N_NAMES] = {0};
  guint n_steps = (guint)g_rand_int_range(rand, 1, 60);

  for (guint step = 0; step < n_steps && !g_atomic_int_get(&program->stopped); step++) {
    Kind kind = (Kind)g_rand_int_range(rand, 0, N_KINDS);
    guint i = (guint)g_rand_int_range(rand, 0, N_NAMES);
    gpointer *metric = &metrics[kind][i];
    switch (g_rand_int_range(rand, 0, 4)) {
    case 0: g_clear_object(metric); break;
    case 1: g_thread_yield(); break;
    default:
      if (!*metric)
        *metric = make(worker, kind, names[kind][i], step);
      count(program, kind, *metric);
    }
  }
  for (guint kind = 0; kind < N_KINDS; kind++)
    for (guint i = 0; i < N_NAMES; i++)
      g_clear_object(&metrics[kind][i]);
  return NULL;
}

typedef struct {
  VekServiceSession *session;
  guint n_visits;
} Visitor;

/* Reporters come and go on other threads, too. */
static gpointer visit(gpointer data) {
  Visitor *visitor = data;
  g_autoptr(LedgerReporter) ledger = ledger_reporter_new();
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(ledger);
  while (visitor->n_visits-- > 0) {
    vek_service_session_add_reporter(visitor->session, g_object_ref(reporter));
    g_thread_yield();
    g_assert_true(vek_service_session_remove_reporter(visitor->session, reporter));
  }
  return NULL;
}

static void run_program(void) {
  Program program = {.registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL)};
  VekServiceSession *session = vek_service_session_new(program.registry);
  g_object_set(session, "period", (guint)g_test_rand_int_range(1, 61), NULL);
  g_autoptr(LedgerReporter) whole = ledger_reporter_new();
  g_autoptr(LedgerReporter) late = ledger_reporter_new();
  vek_service_session_add_reporter(session, g_object_ref(VEK_METRIC_REPORTER(whole)));

  GThread *threads[N_THREADS];
  Worker workers[N_THREADS];
  for (guint i = 0; i < N_THREADS; i++) {
    workers[i] = (Worker){.program = &program, .seed = (guint32)g_test_rand_int(), .thread = i};
    threads[i] = g_thread_new("work", work, &workers[i]);
  }

  Visitor visitor = {.session = session, .n_visits = (guint)g_test_rand_int_range(0, 10)};
  GThread *visitor_thread = g_thread_new("visit", visit, &visitor);

  gboolean late_is_there = FALSE;
  for (int n_steps = g_test_rand_int_range(0, 12); n_steps > 0; n_steps--) {
    switch (g_test_rand_int_range(0, 6)) {
    case 0: vek_service_session_report(session); break;
    case 1:
    case 2: run_periodic_pass(program.registry); break;
    case 3:
      /* One that has been away starts anew: what it knows of metrics that went meanwhile is old. */
      if (late_is_there) {
        g_assert_true(vek_service_session_remove_reporter(session, VEK_METRIC_REPORTER(late)));
        g_object_unref(late);
        late = ledger_reporter_new();
      } else {
        vek_service_session_add_reporter(session, g_object_ref(VEK_METRIC_REPORTER(late)));
      }
      late_is_there = !late_is_there;
      break;
    default: g_thread_yield();
    }
  }

  g_thread_join(visitor_thread);
  gint64 before = __atomic_load_n(&program.counted, __ATOMIC_SEQ_CST);
  g_assert_true(vek_service_session_finish(session, 1000));
  g_atomic_int_set(&program.stopped, TRUE);
  for (guint i = 0; i < N_THREADS; i++)
    g_thread_join(threads[i]);

  gint64 total = ledger_reporter_get_total(whole);
  g_assert_cmpint(total, >=, before);
  g_assert_cmpint(total, <=, program.counted);
  assert_agrees(late, whole);
  g_object_unref(session);
  g_object_unref(program.registry);
}

TEST(nothing_is_lost_and_nothing_doubled) {
  const char *wanted = g_getenv("RANDOM_PROGRAMS");
  guint n_programs = wanted ? (guint)atoi(wanted) : 2000;
  for (guint i = 0; i < n_programs; i++)
    run_program();
  g_test_message("%u programs", n_programs);
}
