#include <vekmetrics-service/vekmetrics-service.h>

#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "support/fixture.h"
#include "support/folder.h"
#include "support/heap.h"
#include "support/periodicpass.h"
#include "support/sessiontimer.h"
#include "support/tsan-tasks.h"

static void assert_refused(const char *function, const char *condition) {
  g_autofree char *message = g_strdup_printf("%s: assertion '%s' failed", function, condition);
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL, message);
}

/* A reporter that is busy for as long as the test wants it. */

#define SLOW_TYPE_REPORTER (slow_reporter_get_type())
G_DECLARE_FINAL_TYPE(SlowReporter, slow_reporter, SLOW, REPORTER, GObject)

struct _SlowReporter {
  GObject parent_instance;

  guint n_operations; /* so many are to be under way, one after each flush */
  gint priority;      /* of their ends */
  gboolean busy;
  guint n_flushes;
  void (*on_last_flush)(gpointer data); /* when no operation is left, unless NULL */
  gpointer data;
};

static void slow_reporter_reporter_init(VekMetricReporterInterface *iface);
static void slow_reporter_drain_init(VekServiceDrainInterface *iface);

G_DEFINE_TYPE_WITH_CODE(SlowReporter, slow_reporter, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(VEK_TYPE_METRIC_REPORTER, slow_reporter_reporter_init)
                            G_IMPLEMENT_INTERFACE(VEK_SERVICE_TYPE_DRAIN, slow_reporter_drain_init))

static gboolean on_operation_done(gpointer reporter) {
  SLOW_REPORTER(reporter)->busy = FALSE;
  return G_SOURCE_REMOVE;
}

static void slow_reporter_flush(VekMetricReporter *reporter) {
  SlowReporter *self = SLOW_REPORTER(reporter);
  g_assert_false(self->busy);
  self->n_flushes++;
  if (self->n_operations == 0) {
    if (self->on_last_flush)
      self->on_last_flush(self->data);
    return;
  }
  self->busy = TRUE;
  if (self->n_operations == G_MAXUINT) /* never to end */
    return;
  self->n_operations--;
  g_idle_add_full(self->priority, on_operation_done, self, NULL);
}

static void slow_reporter_reporter_init(VekMetricReporterInterface *iface) {
  iface->flush = slow_reporter_flush;
}

static gboolean slow_reporter_is_busy(VekServiceDrain *drain) {
  return SLOW_REPORTER(drain)->busy;
}

static void slow_reporter_drain_init(VekServiceDrainInterface *iface) {
  iface->is_busy = slow_reporter_is_busy;
}

static void slow_reporter_class_init(SlowReporterClass *klass) {
  (void)klass;
}

static void slow_reporter_init(SlowReporter *self) {
  (void)self;
}

static SlowReporter *slow_reporter_new(guint n_operations) {
  SlowReporter *self = g_object_new(SLOW_TYPE_REPORTER, NULL);
  self->n_operations = n_operations;
  self->priority = G_PRIORITY_DEFAULT_IDLE;
  return self;
}

/* What most tests need: a session with one recording reporter. */

static VekServiceSession *session_new(void) {
  VekServiceSession *session = vek_service_session_new(fixture.registry);
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  return session;
}

static void add_slow(VekServiceSession *session, SlowReporter *slow) {
  vek_service_session_add_reporter(session, VEK_METRIC_REPORTER(g_object_ref(slow)));
}

static void add_b(VekServiceSession *session) {
  vek_service_session_add_reporter(session, record_to(fixture.record, "b"));
}

static void count(const char *name) {
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, name, NULL, NULL);
  vek_metric_counter_inc(counter);
}

static gboolean is_registered(const char *name) {
  g_autoptr(VekMetric) metric = vek_metric_registry_get_metric(fixture.registry, name, NULL);
  return metric && vek_metric_is_active(metric);
}

TEST(every_reporter_sees_the_same_pass) {
  g_autoptr(VekServiceSession) session = session_new();
  add_b(session);
  g_autoptr(VekMetricTimeline) timeline =
      vek_metric_registry_timeline_new(fixture.registry, "render");
  vek_metric_timeline_add_range(timeline, 1, 2, 3);

  vek_service_session_report(session);
  assert_recorded(fixture.record,
                  "a timeline render [1:2..3]\nb timeline render [1:2..3]\na flush\nb flush\n");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a timeline render []\nb timeline render []\na flush\nb flush\n");
}

TEST(every_operation_is_handed_on) {
  g_autoptr(VekServiceSession) session = session_new();
  char *dimensions[] = {(char *)"host", (char *)"h1", NULL};
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "c", "Count", dimensions);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count c{host=h1} 0 Count @1000\na flush\n");
  vek_metric_mark_inactive(VEK_METRIC(counter));

  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "g", NULL, 0, NULL);
  vek_metric_gauge_set_value(gauge, 0.25);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a value g 0.25 @1000\na flush\n");
  vek_metric_mark_inactive(VEK_METRIC(gauge));

  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(fixture.registry, "h", NULL, NULL, NULL);
  vek_metric_histogram_set(histogram, 4.0);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a aggregated h n=1 sum=4 min=4 max=4 @1000\na flush\n");
}

TEST(reporter_without_operations_is_passed_over) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(0);
  add_slow(session, slow);
  count("requests");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_cmpuint(slow->n_flushes, ==, 1);
}

TEST(adding_a_reporter_twice_changes_nothing) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  g_assert_cmpuint(G_OBJECT(fixture.reporter)->ref_count, ==, 2);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(removing_tells_whether_it_was_there) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricReporter *reporter = fixture.reporter;
  g_assert_true(vek_service_session_remove_reporter(session, reporter));
  g_assert_false(vek_service_session_remove_reporter(session, reporter));
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "");
}

static void on_add_b(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  add_b(data);
}

TEST(reporter_added_in_a_pass_sees_the_next) {
  g_autoptr(VekServiceSession) session = session_new();
  on_recorded(fixture.reporter, on_add_b, session);
  count("requests");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  vek_service_session_report(session);
  assert_recorded(fixture.record,
                  "a count requests 1 @1000\nb count requests 1 @1000\na flush\nb flush\n");
}

static void on_remove(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  VekServiceSession *session = data;
  g_assert_true(vek_service_session_remove_reporter(session, VEK_METRIC_REPORTER(reporter)));
}

TEST(reporter_removed_in_a_pass_sees_its_end) {
  g_autoptr(VekServiceSession) session = session_new();
  on_recorded(fixture.reporter, on_remove, session);
  count("requests");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "");
}

TEST(passes_of_its_own_retire_no_kind) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricRegistry *registry = fixture.registry;
  char *dimensions[] = {(char *)"host", (char *)"h1", NULL};
  g_object_unref(vek_metric_registry_counter_new(registry, "counter", NULL, NULL));
  g_object_unref(
      vek_metric_registry_gauge_new(registry, "gauge that was never set", NULL, 0, NULL));
  g_object_unref(vek_metric_registry_gauge_new(registry, "gauge of intervals", NULL, 60, NULL));
  g_object_unref(vek_metric_registry_meter_new(registry, "meter", NULL, NULL));
  g_object_unref(vek_metric_registry_histogram_new(registry, "histogram", NULL, NULL, NULL));
  g_object_unref(vek_metric_registry_timer_new(registry, "timer", "Seconds", NULL, NULL));
  g_object_unref(vek_metric_registry_timeline_new(registry, "timeline"));
  g_object_unref(vek_metric_registry_counter_new(registry, "of a host", NULL, dimensions));

  static const char *const keys[] = {
      "counter",  "gauge that was never set", "gauge of intervals", "meter", "histogram", "timer",
      "timeline", "host.h1.of a host",
  };
  vek_service_session_report(session);
  for (guint i = 0; i < G_N_ELEMENTS(keys); i++)
    g_assert_true(is_registered(keys[i]));
  run_periodic_pass(registry);
  for (guint i = 0; i < G_N_ELEMENTS(keys); i++)
    g_assert_false(is_registered(keys[i]));
}

TEST(metric_made_again_after_an_own_pass_counts_on) {
  g_autoptr(VekServiceSession) session = session_new();
  count("requests");
  vek_service_session_report(session);
  count("requests");
  g_string_truncate(fixture.record, 0);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 2 @1000\na flush\n");
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
}

TEST(retired_metric_is_gone_when_the_pass_is) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricCounter *counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  g_object_add_weak_pointer(G_OBJECT(counter), (gpointer *)&counter);
  g_object_unref(counter);
  vek_service_session_report(session);
  g_assert_nonnull(counter);
  run_periodic_pass(fixture.registry);
  g_assert_null(counter);
}

static void on_count_and_let_go(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  VekMetricCounter *counter = data;
  vek_metric_counter_inc(counter);
  g_object_unref(counter);
}

TEST(what_is_counted_after_the_report_is_reported_next) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricCounter *counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  on_recorded(fixture.reporter, on_count_and_let_go, counter);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 0 @1000\na flush\n");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a flush\n");
}

/* What a constructor does first; then it waits for the end of the pass. */
static void on_ask(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  *(VekMetric **)data = g_object_new(VEK_TYPE_METRIC_COUNTER, "name", "requests", NULL);
}

TEST(metric_that_is_asked_for_in_a_pass_is_not_retired) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(VekMetric) asking = NULL;
  count("requests");
  on_recorded(fixture.reporter, on_ask, &asking);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_true(is_registered("requests"));

  g_clear_object(&asking);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_false(is_registered("requests"));
}

/* Two constructors ask for each of two metrics, and one of them is done at once. */
static void on_ask_twice(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  VekMetric **asking = data;
  for (int i = 0; i < 2; i++) {
    const char *name = i == 0 ? "requests" : "queries";
    asking[i] = g_object_new(VEK_TYPE_METRIC_COUNTER, "name", name, NULL);
    g_object_unref(g_object_new(VEK_TYPE_METRIC_COUNTER, "name", name, NULL));
  }
}

TEST(metrics_are_not_retired_while_anybody_asks_for_them) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetric *asking[2];
  count("requests");
  count("queries");
  on_recorded(fixture.reporter, on_ask_twice, asking);
  run_periodic_pass(fixture.registry);
  g_assert_true(is_registered("requests"));
  g_assert_true(is_registered("queries"));

  g_object_unref(asking[0]);
  g_object_unref(asking[1]);
  run_periodic_pass(fixture.registry);
  g_assert_false(is_registered("requests"));
  g_assert_false(is_registered("queries"));
  g_string_truncate(fixture.record, 0);
}

typedef struct {
  const char *name;
  char *dimensions[3];
  VekMetric *asking;
} Question;

static void on_ask_for_another(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  Question *question = data;
  question->asking = g_object_new(VEK_TYPE_METRIC_COUNTER, "name", question->name, "dimensions",
                                  question->dimensions, NULL);
}

TEST(metric_is_retired_though_another_is_asked_for) {
  Question questions[] = {
      {"requests", {"host", "h2", NULL}, NULL},
      {"queries", {"host", "h1", NULL}, NULL},
      {"quests", {"host", "h1re", NULL}, NULL},
  };
  for (guint i = 0; i < G_N_ELEMENTS(questions); i++) {
    fixture_reset();
    g_autoptr(VekServiceSession) session = session_new();
    char *dimensions[] = {(char *)"host", (char *)"h1", NULL};
    g_object_unref(vek_metric_registry_counter_new(fixture.registry, "requests", NULL, dimensions));
    on_recorded(fixture.reporter, on_ask_for_another, &questions[i]);
    run_periodic_pass(fixture.registry);
    assert_recorded(fixture.record, "a count requests{host=h1} 0 @1000\na flush\n");
    g_assert_null(vek_metric_registry_get_metric(fixture.registry, "requests", dimensions));
    g_object_unref(questions[i].asking);
  }
}

static void report_a_new_metric(void) {
  static guint n_metrics;
  g_autofree char *name = g_strdup_printf("metric-%u", n_metrics++);
  count(name);
  run_periodic_pass(fixture.registry);
  g_string_truncate(fixture.record, 0);
}

TEST(metrics_that_are_retired_leave_nothing_behind) {
  g_autoptr(VekServiceSession) session = session_new();
  assert_frees_all(report_a_new_metric);
}

TEST(metric_that_is_asked_for_once_it_is_retired_comes_back) {
  /* Registered first, it is flushed last. */
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) last = record_to(record, "last");
  vek_metric_registry_register_reporter(registry, last);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  g_autoptr(VekMetric) asking = NULL;
  /* A gauge that was never set: it reports nothing, and the flush is the only call. */
  g_object_unref(vek_metric_registry_gauge_new(registry, "requests", NULL, 0, NULL));

  on_recorded(last, on_ask, &asking);
  run_periodic_pass(registry);
  assert_recorded(record, "last flush\n");
  g_autoptr(VekMetric) found = vek_metric_registry_get_metric(registry, "requests", NULL);
  g_assert_nonnull(found);
  g_assert_true(vek_metric_is_active(found));
}

TEST(metric_that_the_program_retires_stays_retired) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  vek_metric_mark_inactive(VEK_METRIC(counter));
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
  count("requests");
  g_assert_false(vek_metric_is_active(VEK_METRIC(counter)));
}

static void set_period(VekServiceSession *session, guint period) {
  timer_id = 0;
  g_object_set(session, "period", period, NULL);
}

TEST(period_sets_passes_between_those_of_the_registry) {
  g_autoptr(VekServiceSession) session = session_new();
  guint period = 0;
  g_object_get(session, "period", &period, NULL);
  g_assert_cmpuint(period, ==, 60);

  set_period(session, 10);
  g_assert_cmpuint(timer_seconds, ==, 10);
  vek_testing_clock_advance(10 * G_USEC_PER_SEC);
  fire_timer();
  assert_recorded(fixture.record, "a flush\n");
  g_assert_cmpuint(timer_seconds, ==, 10);

  /* A pass of the registry starts it anew. */
  vek_testing_clock_advance(7 * G_USEC_PER_SEC);
  guint before = timer_id;
  run_periodic_pass(fixture.registry);
  g_assert_cmpuint(timer_id, !=, before);
  g_assert_cmpuint(timer_seconds, ==, 10);
  g_assert_null(g_main_context_find_source_by_id(NULL, before));
}

static void spend_a_microsecond(gboolean monotonic) {
  if (monotonic)
    vek_testing_clock_advance(1);
}

TEST(timer_is_of_the_whole_period_while_time_passes) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 1);
  vek_testing_clock_set_hook(spend_a_microsecond);
  fire_timer();
  vek_testing_clock_set_hook(NULL);
  g_assert_cmpuint(timer_seconds, ==, 1);
}

TEST(new_period_counts_from_the_last_pass) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_testing_clock_advance(5 * G_USEC_PER_SEC);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
  vek_testing_clock_advance(7 * G_USEC_PER_SEC);
  set_period(session, 10);
  g_assert_cmpuint(timer_seconds, ==, 3);
  set_period(session, 5);
  g_assert_cmpuint(timer_seconds, ==, 0);
  guint before = timer_id;
  set_period(session, 60);
  g_assert_cmpuint(timer_id, ==, 0);
  g_assert_null(g_main_context_find_source_by_id(NULL, before));
}

static VekServiceSession *ending;

static void finish_session(void) {
  vek_service_session_finish(ending, 60000);
  assert_recorded(fixture.record, "a flush\n");
}

static void let_go_of_session(void) {
  g_clear_object(&ending);
}

TEST(timer_that_fires_while_the_session_ends_does_nothing) {
  static void (*const ends[])(void) = {finish_session, let_go_of_session};
  for (guint i = 0; i < G_N_ELEMENTS(ends); i++) {
    ending = session_new();
    set_period(ending, 10);
    meanwhile = ends[i];
    fire_timer();
    meanwhile = NULL;
    assert_recorded(fixture.record, "");
    g_clear_object(&ending);
  }
}

static void on_fire_timer(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  fire_timer();
}

TEST(timer_that_fires_within_a_pass_does_nothing) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 10);
  on_recorded(fixture.reporter, on_fire_timer, session);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
}

static void on_notify(GObject *session, GParamSpec *pspec, gpointer data) {
  (void)session, (void)pspec;
  ++*(guint *)data;
}

static void set_and_get_period(guint thread, gpointer session) {
  guint period = 0;
  g_object_set(session, "period", 10 + thread, NULL);
  g_object_get(session, "period", &period, NULL);
  g_assert_cmpuint(period, >=, 10);
  g_assert_cmpuint(period, <, 12);
}

static void do_nothing(gpointer data) {
  (void)data;
}

TEST(threads_set_the_period_one_at_a_time) {
  g_autoptr(VekServiceSession) session = session_new();
  run_threads(2, set_and_get_period, do_nothing, session);
  guint period = 0;
  g_object_get(session, "period", &period, NULL);
  g_assert_cmpuint(timer_seconds, ==, period);
}

TEST(period_is_notified) {
  g_autoptr(VekServiceSession) session = session_new();
  guint n_notified = 0;
  g_signal_connect(session, "notify::period", G_CALLBACK(on_notify), &n_notified);
  g_object_set(session, "period", 30, NULL);
  g_assert_cmpuint(n_notified, ==, 1);
}

TEST(period_below_a_second_or_beyond_a_minute_is_refused) {
  g_autoptr(VekServiceSession) session = session_new();
  static const guint refused[] = {0, 61};
  for (guint i = 0; i < G_N_ELEMENTS(refused); i++) {
    guint period = 0;
    set_period(session, refused[i]);
    assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, "value * is invalid or out of range *");
    g_object_get(session, "period", &period, NULL);
    g_assert_cmpuint(period, ==, 60);
    g_assert_cmpuint(timer_id, ==, 0);
  }
}

TEST(last_pass_reaches_all_and_the_session_is_over) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 10);
  count("requests");
  VekMetricReporter *reporter = fixture.reporter;
  g_assert_true(vek_service_session_finish(session, 1000));
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  g_assert_null(g_main_context_find_source_by_id(NULL, timer_id));

  /* The registry lives on, without the session. */
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "");

  vek_service_session_add_reporter(session, g_object_ref(reporter));
  assert_refused("vek_service_session_add_reporter", "!session_is_over");
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_over(session)");
  g_assert_false(vek_service_session_remove_reporter(session, reporter));
  g_assert_true(vek_service_session_finish(session, 1000));
  assert_recorded(fixture.record, "");
}

TEST(registry_can_have_another_session_after_the_first) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_finish(session, 1000);
  g_string_truncate(fixture.record, 0);
  g_object_unref(session);
  session = vek_service_session_new(fixture.registry);
  add_b(session);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "b flush\n");
}

TEST(finish_waits_for_what_is_under_way) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(3);
  add_slow(session, slow);
  g_assert_true(vek_service_session_finish(session, 60000));
  g_assert_false(slow->busy);
  g_assert_null(g_main_context_find_source_by_id(NULL, wait_timer_id));
  /* In the last pass, and whenever it had become idle. */
  g_assert_cmpuint(slow->n_flushes, ==, 4);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(finish_waits_for_each_reporter) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) first = slow_reporter_new(1);
  g_autoptr(SlowReporter) second = slow_reporter_new(2);
  second->priority = G_PRIORITY_LOW;
  add_slow(session, first);
  add_slow(session, second);
  g_assert_true(vek_service_session_finish(session, 60000));
  g_assert_false(first->busy || second->busy);
  g_assert_cmpuint(first->n_flushes, ==, 2);
  g_assert_cmpuint(second->n_flushes, ==, 3);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(finish_names_who_is_late) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  g_autoptr(SlowReporter) other = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  add_slow(session, other);
  g_assert_false(vek_service_session_finish(session, 1));
  for (int i = 0; i < 2; i++)
    assert_logged("VEK:service", G_LOG_LEVEL_WARNING, "SlowReporter was not done in time");
  g_assert_cmpuint(slow->n_flushes, ==, 1);
  g_assert_cmpuint(G_OBJECT(slow)->ref_count, ==, 1);
  g_assert_false(vek_service_session_finish(session, 60000));
}

/* In place of the main loop's poll: nothing comes while it waits but the end of this operation. */
static SlowReporter *polled;
static guint n_polls;

static gint poll_for_slow(GPollFD *fds, guint n_fds, gint timeout) {
  g_assert_cmpuint(++n_polls, <, 10);
  if (timeout != 0)
    polled->busy = FALSE;
  return g_poll(fds, n_fds, 0);
}

TEST(finish_sleeps_while_it_waits) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  vek_service_session_finish_async(session, 60000, NULL, NULL, NULL);
  slow->n_operations = 0;
  polled = slow;
  n_polls = 0;
  g_main_context_set_poll_func(NULL, poll_for_slow);
  g_assert_true(vek_service_session_finish(session, 0));
  g_main_context_set_poll_func(NULL, NULL);
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  assert_recorded(fixture.record, "a flush\n");
}

static void on_finished(GObject *session, GAsyncResult *result, gpointer data) {
  g_autoptr(GError) error = NULL;
  gboolean drained =
      vek_service_session_finish_finish(VEK_SERVICE_SESSION(session), result, &error);
  g_string_append_printf(data, "%s %s\n", drained ? "drained" : "not drained",
                         error ? error->message : "-");
}

TEST(finish_async_leaves_the_loop_to_the_program) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(2);
  add_slow(session, slow);
  vek_service_session_finish_async(session, 60000, NULL, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  /* Who comes second waits, too. */
  vek_service_session_finish_async(session, 0, NULL, on_finished, fixture.record);
  g_assert_true(slow->busy);
  while (fixture.record->len < strlen("drained -\ndrained -\n"))
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, "drained -\ndrained -\n");

  vek_service_session_finish_async(session, 0, NULL, on_finished, fixture.record);
  while (fixture.record->len == 0)
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, "drained -\n");
}

TEST(cancelling_ends_the_wait) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  g_cancellable_cancel(cancellable);
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  while (fixture.record->len == 0)
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, "not drained Operation was cancelled\n");
  g_assert_false(vek_service_session_finish(session, 60000));
}

TEST(cancelling_ends_all_waits) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  for (int i = 0; i < 2; i++)
    vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  g_cancellable_cancel(cancellable);
  static const char *const ended =
      "not drained Operation was cancelled\nnot drained Operation was cancelled\n";
  while (fixture.record->len < strlen(ended))
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, ended);
}

TEST(each_reporter_is_released_when_it_is_done) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) busy = slow_reporter_new(G_MAXUINT);
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  add_slow(session, busy);
  add_slow(session, slow);
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  while (g_main_context_iteration(NULL, FALSE))
    ;
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  g_assert_cmpuint(G_OBJECT(slow)->ref_count, ==, 1);
  g_assert_cmpuint(G_OBJECT(busy)->ref_count, ==, 2);

  g_cancellable_cancel(cancellable);
  while (fixture.record->len == 0)
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, "not drained Operation was cancelled\n");
}

static void cancel_and_let_the_loop_run(gpointer cancellable) {
  g_cancellable_cancel(cancellable);
  while (g_main_context_iteration(NULL, FALSE))
    ;
}

TEST(wait_may_end_within_a_flush) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(GCancellable) cancellable = g_cancellable_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  slow->on_last_flush = cancel_and_let_the_loop_run;
  slow->data = cancellable;
  add_slow(session, slow);
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  while (fixture.record->len == 0)
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, "not drained Operation was cancelled\n");
  g_assert_false(vek_service_session_finish(session, 60000));
}

static void call_back(gpointer data) {
  VekServiceSession *session = data;
  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_in_pass(session)");
  g_assert_false(vek_service_session_finish(session, 0));
  assert_refused("vek_service_session_finish", "!session_is_in_pass(session)");
  vek_service_session_finish_async(session, 0, NULL, NULL, NULL);
  assert_refused("vek_service_session_finish_async", "!session_is_in_pass(session)");
  g_assert_false(vek_service_session_run(session, loop, 0));
  assert_refused("vek_service_session_run", "!session_is_in_pass(session)");
}

static void on_call_back(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  call_back(data);
}

TEST(nothing_is_reported_or_finished_within_a_pass) {
  g_autoptr(VekServiceSession) session = session_new();
  VekMetricReporter *reporter = fixture.reporter;
  on_recorded(reporter, on_call_back, session);
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");

  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "requests", NULL, NULL);
  on_recorded(reporter, on_call_back, session);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 0 @1000\na flush\n");
}

TEST(nothing_is_reported_or_finished_within_a_flush_at_the_end) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  slow->on_last_flush = call_back;
  slow->data = session;
  add_slow(session, slow);
  g_assert_true(vek_service_session_finish(session, 60000));
  g_assert_cmpuint(slow->n_flushes, ==, 2);
  assert_recorded(fixture.record, "a flush\n");
}

static gpointer report_elsewhere(gpointer session) {
  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "main_context.is_owned");
  g_assert_false(vek_service_session_finish(session, 0));
  assert_refused("vek_service_session_finish", "main_context.is_owned");
  vek_service_session_finish_async(session, 0, NULL, NULL, NULL);
  assert_refused("vek_service_session_finish_async", "main_context.is_owned");
  g_assert_false(vek_service_session_run(session, loop, 0));
  assert_refused("vek_service_session_run", "main_context.is_owned");
  return NULL;
}

TEST(cancelling_after_the_wait_does_nothing) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(SlowReporter) slow = slow_reporter_new(1);
  add_slow(session, slow);
  GCancellable *cancellable = g_cancellable_new();
  vek_service_session_finish_async(session, 60000, cancellable, on_finished, fixture.record);
  assert_recorded(fixture.record, "a flush\n");
  while (fixture.record->len == 0)
    g_main_context_iteration(NULL, TRUE);
  assert_recorded(fixture.record, "drained -\n");
  g_cancellable_cancel(cancellable);
  g_assert_false(g_main_context_iteration(NULL, FALSE));
  g_assert_finalize_object(cancellable);
}

TEST(main_context_is_free_after_each_call) {
  g_autoptr(VekServiceSession) session = session_new();
  vek_service_session_report(session);
  g_assert_false(g_main_context_is_owner(NULL));
  g_assert_true(vek_service_session_finish(session, 0));
  g_assert_false(g_main_context_is_owner(NULL));
}

TEST(nothing_is_reported_or_finished_on_another_thread) {
  g_autoptr(VekServiceSession) session = session_new();
  g_assert_true(g_main_context_acquire(NULL));
  g_thread_join(g_thread_new("elsewhere", report_elsewhere, session));
  g_main_context_release(NULL);
  assert_recorded(fixture.record, "");
}

TEST(registry_has_one_session) {
  g_autoptr(VekServiceSession) session = session_new();
  g_assert_null(vek_service_session_new(fixture.registry));
  assert_refused("vek_service_session_new", "!registry_has_session");
  vek_service_session_report(session);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(second_session_of_a_registry_is_over) {
  g_autoptr(VekServiceSession) first = session_new();
  g_autoptr(VekServiceSession) session =
      g_object_new(VEK_SERVICE_TYPE_SESSION, "registry", fixture.registry, NULL);
  vek_service_session_add_reporter(session, g_object_ref(fixture.reporter));
  assert_refused("vek_service_session_add_reporter", "!session_is_over");
  g_assert_false(vek_service_session_remove_reporter(session, fixture.reporter));
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_over(session)");
  g_assert_false(vek_service_session_finish(session, 60000));
  assert_recorded(fixture.record, "");
}

TEST(unknown_property_warns) {
  g_autoptr(VekServiceSession) session = session_new();
  assert_unknown_property_warns_in("VEK:service", session);
}

TEST(failed_checks_name_their_own_function) {
  g_autoptr(VekServiceSession) session = session_new();
  gpointer wrong = fixture.registry;
  g_assert_null(vek_service_session_new((VekMetricRegistry *)session));
  assert_refused("vek_service_session_new", "registry == NULL || VEK_IS_METRIC_REGISTRY(registry)");

  vek_service_session_add_reporter(session, NULL);
  assert_refused("vek_service_session_add_reporter", "VEK_IS_METRIC_REPORTER(reporter)");
  vek_service_session_add_reporter(session, wrong);
  assert_refused("vek_service_session_add_reporter", "VEK_IS_METRIC_REPORTER(reporter)");
  vek_service_session_add_reporter(wrong, g_object_ref(fixture.reporter));
  assert_refused("vek_service_session_add_reporter", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_cmpuint(G_OBJECT(fixture.reporter)->ref_count, ==, 2);

  g_assert_false(vek_service_session_remove_reporter(wrong, fixture.reporter));
  assert_refused("vek_service_session_remove_reporter", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_false(vek_service_session_remove_reporter(session, wrong));
  assert_refused("vek_service_session_remove_reporter", "VEK_IS_METRIC_REPORTER(reporter)");

  vek_service_session_report(NULL);
  assert_refused("vek_service_session_report", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_false(vek_service_session_finish(wrong, 0));
  assert_refused("vek_service_session_finish", "VEK_SERVICE_IS_SESSION(session)");
  vek_service_session_finish_async(wrong, 0, NULL, NULL, NULL);
  assert_refused("vek_service_session_finish_async", "VEK_SERVICE_IS_SESSION(session)");
  vek_service_session_finish_async(session, 0, wrong, NULL, NULL);
  assert_refused("vek_service_session_finish_async",
                 "cancellable == NULL || G_IS_CANCELLABLE(cancellable)");
  g_assert_false(vek_service_session_finish_finish(session, NULL, NULL));
  assert_refused("vek_service_session_finish_finish", "g_task_is_valid(result, session)");
  g_assert_false(vek_service_session_run(wrong, NULL, 0));
  assert_refused("vek_service_session_run", "VEK_SERVICE_IS_SESSION(session)");
  g_assert_false(vek_service_session_run(session, NULL, 0));
  assert_refused("vek_service_session_run", "loop != NULL");
  g_autoptr(GMainContext) context = g_main_context_new();
  g_autoptr(GMainLoop) loop = g_main_loop_new(context, FALSE);
  g_assert_false(vek_service_session_run(session, loop, 0));
  assert_refused("vek_service_session_run",
                 "g_main_loop_get_context(loop) == g_main_context_default()");
  g_assert_false(vek_service_drain_is_busy(wrong));
  assert_refused("vek_service_drain_is_busy", "VEK_SERVICE_IS_DRAIN(drain)");
}

TEST(session_that_is_let_go_of_ends_silently) {
  g_autoptr(VekServiceSession) session = session_new();
  set_period(session, 10);
  VekMetricReporter *reporter = fixture.reporter;
  g_clear_object(&session);
  assert_recorded(fixture.record, "");
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);
  g_assert_null(g_main_context_find_source_by_id(NULL, timer_id));
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "");
}

static void finish_a_new_session(void) {
  fixture_reset();
  g_autoptr(VekServiceSession) session = session_new();
  g_assert_true(vek_service_session_finish(session, 0));
}

TEST(finished_sessions_leave_nothing_behind) {
  assert_frees_all(finish_a_new_session);
}

TEST(disposed_session_is_over) {
  VekMetricRegistry *registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  g_object_add_weak_pointer(G_OBJECT(registry), (gpointer *)&registry);
  g_object_unref(registry);
  g_assert_nonnull(registry);
  gpointer weak = session;
  g_object_add_weak_pointer(G_OBJECT(session), &weak);
  g_object_run_dispose(G_OBJECT(session));
  g_assert_null(weak);
  g_assert_null(registry);
  vek_service_session_report(session);
  assert_refused("vek_service_session_report", "!session_is_over(session)");
  g_assert_false(vek_service_session_finish(session, 60000));
}

static void on_let_go_of_session(VekTestingRecorder *reporter, const char *line, gpointer data) {
  (void)line;
  g_signal_handlers_disconnect_by_data(reporter, data);
  g_object_unref(data);
}

TEST(session_that_is_let_go_of_in_a_pass_sees_its_end) {
  VekServiceSession *session = session_new();
  count("requests");
  on_recorded(fixture.reporter, on_let_go_of_session, session);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a count requests 1 @1000\na flush\n");
  count("requests");
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "");
}

TEST(metrics_are_made_while_nothing_has_a_session) {
  g_autoptr(VekMetricRegistry) registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekServiceSession) session = vek_service_session_new(registry);
  g_clear_object(&session);
  g_clear_object(&registry);
  count("requests");
  g_assert_true(is_registered("requests"));
}

TEST(metric_without_a_name_is_made) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(VekMetric) metric = g_object_new(VEK_TYPE_METRIC_COUNTER, NULL);
  g_assert_null(vek_metric_get_name(metric));
}

TEST(default_registry_is_meant_by_null) {
  g_autoptr(VekServiceSession) session = vek_service_session_new(NULL);
  g_autoptr(VekMetricRegistry) registry = NULL;
  g_object_get(session, "registry", &registry, NULL);
  g_assert_true(registry == vek_metric_registry_get_default());
  vek_metric_registry_set_default(NULL);
}

TEST(json_log_is_complete) {
  g_autoptr(VekServiceSession) session = session_new();
  char *folder = folder_new();
  vek_service_session_add_reporter(session,
                                   vek_metric_json_log_reporter_new("log", folder, NULL, 10, 1));
  count("requests");
  g_assert_true(vek_service_session_finish(session, 60000));
  assert_folder(folder,
                "log.json: 1970-01-01 00:00:00,001000 [{\"MetricName\":\"requests\",\"Timestamp\":"
                "\"1970-01-01T00:00:00Z\",\"Value\":1.0}]\n");
  folder_remove(folder);
  g_string_truncate(fixture.record, 0);
}

TEST(held_json_log_is_waited_for_and_named) {
  g_autoptr(VekServiceSession) session = session_new();
  char *folder = folder_new();
  g_autoptr(VekMetricReporter) held = vek_metric_json_log_reporter_new("log", folder, NULL, 10, 1);
  vek_service_session_add_reporter(session, g_object_ref(held));
  g_assert_false(vek_service_session_finish(session, 1));
  assert_logged("VEK:service", G_LOG_LEVEL_WARNING,
                "VekMetricJsonLogReporter was not done in time, or somebody else holds a reference "
                "to it");
  while (G_OBJECT(held)->ref_count > 1)
    g_main_context_iteration(NULL, TRUE);
  g_clear_object(&held);
  folder_remove(folder);
}

static gboolean on_incoming(GSocketService *service, GSocketConnection *connection, GObject *source,
                            gpointer data) {
  (void)service, (void)source;
  *(GSocketConnection **)data = g_object_ref(connection);
  return TRUE;
}

TEST(carbon_gets_what_waited_for_its_connection) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(GSocketConnection) connection = NULL;
  g_autoptr(GSocketService) service = g_socket_service_new();
  guint16 port = g_socket_listener_add_any_inet_port(G_SOCKET_LISTENER(service), NULL, NULL);
  g_assert_cmpuint(port, !=, 0);
  g_signal_connect(service, "incoming", G_CALLBACK(on_incoming), &connection);
  vek_service_session_add_reporter(session,
                                   vek_metric_carbon_reporter_new(NULL, "127.0.0.1", port));
  count("requests");
  g_assert_true(vek_service_session_finish(session, 60000));
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_INFO, "Established connection *");
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_DEBUG, "Sending message *");
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_DEBUG, "*succeeded (bytes_written: 13)");
  while (!connection)
    g_main_context_iteration(NULL, TRUE);

  char line[64] = "";
  GInputStream *input = g_io_stream_get_input_stream(G_IO_STREAM(connection));
  gsize n_read = 0;
  g_assert_true(g_input_stream_read_all(input, line, sizeof line - 1, &n_read, NULL, NULL));
  g_assert_cmpstr(line, ==, "requests 1 0\n");
}

static gboolean on_terminate_oneself(gpointer record) {
  g_string_append(record, "SIGTERM\n");
  kill(getpid(), SIGTERM);
  return G_SOURCE_REMOVE;
}

/* Sent before the wait begins, both signals would end the loop. */
static gboolean on_interrupt_the_wait(gpointer data) {
  SlowReporter *slow = data;
  if (slow->n_flushes == 0)
    return G_SOURCE_CONTINUE;
  kill(getpid(), SIGINT);
  return G_SOURCE_REMOVE;
}

TEST(signal_ends_the_loop_and_another_the_wait) {
  g_autoptr(VekServiceSession) session = session_new();
  g_autoptr(GMainLoop) loop = g_main_loop_new(NULL, FALSE);
  g_idle_add(on_terminate_oneself, fixture.record);
  g_assert_true(vek_service_session_run(session, loop, 60000));
  assert_recorded(fixture.record, "SIGTERM\na flush\n");

  g_object_unref(session);
  session = vek_service_session_new(fixture.registry);
  g_autoptr(SlowReporter) slow = slow_reporter_new(G_MAXUINT);
  add_slow(session, slow);
  g_idle_add(on_terminate_oneself, fixture.record);
  g_timeout_add(1, on_interrupt_the_wait, slow);
  g_assert_false(vek_service_session_run(session, loop, 60000));
  g_assert_cmpuint(slow->n_flushes, ==, 1);
  assert_recorded(fixture.record, "SIGTERM\n");

  static const int signals[] = {SIGINT, SIGTERM};
  for (guint i = 0; i < G_N_ELEMENTS(signals); i++) {
    struct sigaction action;
    g_assert_cmpint(sigaction(signals[i], NULL, &action), ==, 0);
    g_assert_true(action.sa_handler == SIG_DFL);
  }
}
