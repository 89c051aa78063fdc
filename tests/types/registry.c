/* Tests of VekMetricRegistry. */

#include "support/fixture.h"
#include "support/periodicpass.h"
#include "support/replace.h"

#include <string.h>

/* Called before this thread next takes a lock for reading; a test sets it. */
static __thread void (*before_reading)(void);

/* In place of GLib's, which it calls. */
void g_rw_lock_reader_lock(GRWLock *lock) {
  void (*function)(void) = before_reading;
  before_reading = NULL;
  if (function)
    function();
  NEXT(g_rw_lock_reader_lock)(lock);
}

#define STRV(...) ((char *[]){__VA_ARGS__, NULL})

static VekMetricRegistry *registry_new(void) {
  return g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
}

static VekMetricCounter *counter_new(VekMetricRegistry *registry, const char *name) {
  return vek_metric_registry_counter_new(registry, name, NULL, NULL);
}

/* Makes a counter that only the registry holds. */
static void add_dropped_counter(VekMetricRegistry *registry, const char *name) {
  g_object_unref(counter_new(registry, name));
}

static VekMetric *find(VekMetricRegistry *registry, const char *key) {
  return vek_metric_registry_get_metric(registry, key, NULL);
}

static void assert_not_found(VekMetricRegistry *registry, const char *key) {
  g_assert_null(find(registry, key));
}

static void assert_found(VekMetricRegistry *registry, const char *key, gboolean active) {
  g_autoptr(VekMetric) metric = find(registry, key);
  g_assert_nonnull(metric);
  g_assert_cmpint(vek_metric_is_active(metric), ==, active);
}

static guint get_ref_count(gpointer object) {
  return G_OBJECT(object)->ref_count;
}

TEST(type_is_a_plain_object) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  GObjectClass *klass = G_OBJECT_GET_CLASS(registry);

  g_assert_cmpstr(G_OBJECT_TYPE_NAME(registry), ==, "VekMetricRegistry");
  g_assert_cmpstr(g_type_name(g_type_parent(VEK_TYPE_METRIC_REGISTRY)), ==, "GObject");

  guint n_properties, n_signals;
  g_autofree GParamSpec **properties = g_object_class_list_properties(klass, &n_properties);
  g_autofree guint *signals = g_signal_list_ids(VEK_TYPE_METRIC_REGISTRY, &n_signals);
  g_assert_cmpuint(n_properties, ==, 0);
  g_assert_cmpuint(n_signals, ==, 0);
}

TEST(same_name_and_dimensions_give_the_same_object) {
  g_autoptr(VekMetricRegistry) registry = registry_new();

  g_autoptr(VekMetricCounter) first =
      vek_metric_registry_counter_new(registry, "requests", "Count", STRV("host", "h1"));
  g_assert_cmpuint(get_ref_count(first), ==, 2);
  g_autoptr(VekMetricCounter) second =
      vek_metric_registry_counter_new(registry, "requests", "Bytes", STRV("host", "h1"));

  g_assert_true(second == first);
  g_assert_cmpuint(get_ref_count(first), ==, 3);
  g_assert_cmpstr(vek_metric_get_unit(VEK_METRIC(second)), ==, "Count");
}

TEST(key_is_the_dimensions_then_the_name) {
  const struct {
    const char *name;
    char **dimensions;
    const char *key;
  } rows[] = {
      {"latency", NULL, "latency"},
      {"latency", STRV("host", "h1", "disk", "sda"), "host.h1.disk.sda.latency"},
      {"latency", STRV("host"), "host.latency"},
      {"latency", STRV("host", ""), "host..latency"},
      {"latency", (char *[]){NULL}, ".latency"},
      {"", NULL, ""},
      {"", STRV("host", "h1"), "host.h1."},
      {"a.b", STRV("c.d", "e"), "c.d.e.a.b"},
  };

  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(VekMetricRegistry) registry = registry_new();
    g_autoptr(VekMetricCounter) counter =
        vek_metric_registry_counter_new(registry, rows[i].name, NULL, rows[i].dimensions);

    g_autoptr(VekMetric) by_key = find(registry, rows[i].key);
    g_assert_true(by_key == VEK_METRIC(counter));
    g_autoptr(VekMetric) by_parts =
        vek_metric_registry_get_metric(registry, rows[i].name, rows[i].dimensions);
    g_assert_true(by_parts == VEK_METRIC(counter));
  }
}

TEST(keys_of_any_length_are_told_apart) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GPtrArray) counters = g_ptr_array_new_with_free_func(g_object_unref);
  g_autoptr(GString) value = g_string_new(NULL);

  for (guint i = 0; i < 300; i++) {
    VekMetricCounter *counter =
        vek_metric_registry_counter_new(registry, "requests", NULL, STRV("host", value->str));
    g_assert_cmpuint(get_ref_count(counter), ==, 2); /* a new one */
    g_ptr_array_add(counters, counter);
    g_string_append_c(value, 'x');
  }
  for (guint i = 300; i-- > 0;) {
    g_string_truncate(value, i);
    g_autofree char *key = g_strdup_printf("host.%s.requests", value->str);
    g_autoptr(VekMetric) by_key = find(registry, key);
    g_assert_true(by_key == g_ptr_array_index(counters, i));
  }
}

TEST(metrics_whose_strings_join_to_the_same_text_are_one) {
  g_autoptr(VekMetricRegistry) registry = registry_new();

  g_autoptr(VekMetricCounter) a =
      vek_metric_registry_counter_new(registry, "a", NULL, STRV("b", "c"));
  g_autoptr(VekMetricCounter) c =
      vek_metric_registry_counter_new(registry, "c", NULL, STRV("b", "a"));
  g_autoptr(VekMetricCounter) joined = counter_new(registry, "b.c.a");

  g_assert_true(a != c);
  g_assert_true(joined == a);
}

TEST(metric_of_another_kind_is_returned_after_a_warning) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(registry, "requests", NULL, 0, NULL);

  g_autoptr(GObject) found = G_OBJECT(counter_new(registry, "requests"));
  assert_invalid_cast("VekMetricGauge", "VekMetricCounter");
  g_assert_true(found == G_OBJECT(gauge));
  g_assert_cmpuint(get_ref_count(gauge), ==, 3);
}

TEST(metric_without_a_name_aborts) {
  if (g_test_subprocess()) {
    g_autoptr(VekMetricRegistry) registry = registry_new();
    vek_metric_registry_timeline_new(registry, NULL);
    return;
  }
  g_test_trap_subprocess(NULL, 0, 0);
  g_test_trap_assert_failed();
  g_test_trap_assert_stderr(
      "*VEK:metrics:ERROR:../vekmetrics/registry:85:get_key: assertion failed: (name != NULL)\n*");
}

TEST(unknown_key_gives_null_and_logs_nothing) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(VekMetricCounter) counter = counter_new(registry, "requests");

  assert_not_found(registry, "request");
  g_assert_null(vek_metric_registry_get_metric(registry, "requests", STRV("host", "h1")));
  assert_nothing_logged();
}

TEST(found_metric_comes_with_a_reference_of_its_own) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(VekMetricCounter) counter = counter_new(registry, "requests");

  VekMetric *found = find(registry, "requests");
  g_assert_cmpuint(get_ref_count(counter), ==, 3);
  g_object_unref(found);
  g_assert_cmpuint(get_ref_count(counter), ==, 2);
}

TEST(registries_are_apart) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(VekMetricRegistry) other = registry_new();
  g_autoptr(VekMetricCounter) counter = counter_new(registry, "requests");

  assert_not_found(other, "requests");
}

static guint timeout_seconds;
static guint n_timeouts;

/* In place of GLib's, for the library. */
guint g_timeout_add_seconds(guint interval, GSourceFunc function, gpointer data) {
  timeout_seconds = interval;
  n_timeouts++;
  return g_timeout_add_seconds_full(G_PRIORITY_DEFAULT, interval, function, data, NULL);
}

TEST(first_reporter_installs_exactly_one_timer) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) first = record_to(record, "a");
  g_autoptr(VekMetricReporter) second = record_to(record, "b");
  guint n_before = n_timeouts;

  vek_metric_registry_register_reporter(registry, first);
  g_assert_cmpuint(n_timeouts, ==, n_before + 1);
  g_assert_cmpuint(timeout_seconds, ==, 60);
  GSource *timer = find_timer(registry);
  g_assert_nonnull(timer);

  vek_metric_registry_register_reporter(registry, second);
  vek_metric_registry_register_reporter(registry, first);
  g_assert_cmpuint(n_timeouts, ==, n_before + 1);
  g_assert_true(find_timer(registry) == timer);
}

TEST(timer_goes_to_the_default_context_even_under_another) {
  g_autoptr(GMainContext) context = g_main_context_new();

  g_main_context_push_thread_default(context);
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  g_main_context_pop_thread_default(context);

  g_assert_null(g_main_context_find_source_by_user_data(context, fixture.registry));
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(timer_repeats) {
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);

  run_periodic_pass(fixture.registry);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record,
                  "a flush\n"
                  "a flush\n");
}

TEST(timer_holds_no_reference_and_goes_with_the_registry) {
  VekMetricRegistry *registry = registry_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) reporter = record_to(record, "a");

  vek_metric_registry_register_reporter(registry, reporter);
  g_autoptr(GSource) timer = g_source_ref(find_timer(registry));
  g_assert_cmpuint(get_ref_count(registry), ==, 1);
  g_object_unref(registry);
  g_assert_true(g_source_is_destroyed(timer));
}

TEST(without_a_reporter_nothing_is_reported_or_removed) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  guint n_before = n_timeouts;
  add_dropped_counter(registry, "dropped");
  g_autoptr(VekMetricCounter) retired = counter_new(registry, "retired");
  vek_metric_mark_inactive(VEK_METRIC(retired));

  g_assert_null(find_timer(registry));
  g_assert_cmpuint(n_timeouts, ==, n_before);
  g_assert_false(g_main_context_iteration(NULL, FALSE));
  assert_found(registry, "dropped", TRUE);
  assert_found(registry, "retired", FALSE);
}

TEST(pass_with_an_empty_list_only_removes) {
  g_autoptr(VekMetricRegistry) empty = registry_new();
  add_dropped_counter(empty, "dropped");
  g_autoptr(VekMetricCounter) retired = counter_new(empty, "retired");
  vek_metric_mark_inactive(VEK_METRIC(retired));

  /* A registry without reporters has no timer: it is given the callback of one that has. */
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  GSource *timer = find_timer(fixture.registry);
  GSourceFunc callback;
  gpointer data;
  timer->callback_funcs->get(timer->callback_data, timer, &callback, &data);
  g_assert_true(data == fixture.registry);
  g_assert_true(callback(empty));

  assert_recorded(fixture.record, "");
  assert_found(empty, "dropped", TRUE);
  assert_not_found(empty, "retired");
}

TEST(pass_reports_each_metric_once_however_many) {
  for (guint n = 0; n <= 260; n++) { /* a pass takes them by the batch of 128 */
    fixture_reset();
    g_autoptr(GPtrArray) held = g_ptr_array_new_with_free_func(g_object_unref);
    for (guint i = 0; i < n; i++) {
      g_autofree char *name = g_strdup_printf("%u", i);
      g_ptr_array_add(held, vek_metric_registry_counter_new(fixture.registry, name, NULL, NULL));
    }

    fixture_report();
    g_auto(GStrv) lines = g_strsplit(fixture.record->str, "\n", -1);
    g_assert_cmpuint(g_strv_length(lines), ==, n + 2); /* the flush and the empty end */
    g_assert_cmpstr(lines[n], ==, "a flush");
    for (guint i = 0; i < n; i++) {
      g_autofree char *line = g_strdup_printf("a count %u 0 @1000", i);
      g_assert_true(g_strv_contains((const char *const *)lines, line));
    }
  }
}

static VekMetricRegistry *registered_with;
static VekMetricReporter *late_reporter;

static void register_late_reporter(void) {
  vek_metric_registry_register_reporter(registered_with, late_reporter);
}

TEST(reporter_registered_as_a_pass_begins_waits_for_the_next) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) a = record_to(record, "a");
  g_autoptr(VekMetricReporter) b = record_to(record, "b");

  vek_metric_registry_register_reporter(registry, a);
  registered_with = registry;
  late_reporter = b;
  before_reading = register_late_reporter;
  run_periodic_pass(registry);
  assert_recorded(record, "a flush\n");
  run_periodic_pass(registry);
  assert_recorded(record, "b flush\na flush\n");
}

static gboolean look_up_read;

static void note_reading(void) {
  look_up_read = TRUE;
}

TEST(look_up_takes_the_lock_for_reading) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  look_up_read = FALSE;
  before_reading = note_reading;
  g_assert_null(vek_metric_registry_get_metric(registry, "a", NULL));
  g_assert_true(look_up_read);
}

TEST(reporter_registered_last_is_called_first) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) a = record_to(record, "a");
  g_autoptr(VekMetricReporter) b = record_to(record, "b");
  g_autoptr(VekMetricReporter) c = record_to(record, "c");
  g_autoptr(VekMetricCounter) counter = counter_new(registry, "requests");

  vek_metric_registry_register_reporter(registry, a);
  vek_metric_registry_register_reporter(registry, b);
  vek_metric_registry_register_reporter(registry, c);
  run_periodic_pass(registry);

  assert_recorded(record,
                  "c count requests 0 @1000\n"
                  "b count requests 0 @1000\n"
                  "a count requests 0 @1000\n"
                  "c flush\n"
                  "b flush\n"
                  "a flush\n");
}

TEST(reporter_registered_twice_is_called_twice) {
  g_autoptr(VekMetricCounter) counter = counter_new(fixture.registry, "requests");

  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  g_assert_cmpuint(get_ref_count(fixture.reporter), ==, 3);
  run_periodic_pass(fixture.registry);

  assert_recorded(fixture.record,
                  "a count requests 0 @1000\n"
                  "a count requests 0 @1000\n"
                  "a flush\n"
                  "a flush\n");
}

TEST(dropped_metric_is_reported_a_last_time_and_removed) {
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  VekMetricCounter *counter = counter_new(fixture.registry, "requests");
  g_object_add_weak_pointer(G_OBJECT(counter), (gpointer *)&counter);

  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record,
                  "a count requests 0 @1000\n"
                  "a flush\n");
  assert_found(fixture.registry, "requests", TRUE);

  vek_metric_counter_inc(counter);
  g_object_unref(counter);
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record,
                  "a count requests 1 @1000\n"
                  "a flush\n");
  assert_not_found(fixture.registry, "requests");
  g_assert_null(counter);

  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a flush\n");
}

TEST(one_off_pass_marks_but_leaves_removal_to_the_timer) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) registered = record_to(record, "registered");
  g_autoptr(VekMetricReporter) other = record_to(record, "other");
  vek_metric_registry_register_reporter(registry, registered);
  add_dropped_counter(registry, "requests");

  vek_metric_registry_report(registry, other);
  assert_recorded(record,
                  "other count requests 0 @1000\n"
                  "other flush\n");
  assert_found(registry, "requests", FALSE);

  vek_metric_registry_report(registry, other);
  assert_recorded(record, "other flush\n");
  assert_found(registry, "requests", FALSE);

  run_periodic_pass(registry);
  assert_recorded(record, "registered flush\n");
  assert_not_found(registry, "requests");
}

TEST(inactive_metric_is_never_made_active_again) {
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  g_autoptr(VekMetricCounter) retired = counter_new(fixture.registry, "requests");
  vek_metric_mark_inactive(VEK_METRIC(retired));

  g_autoptr(VekMetricCounter) again = counter_new(fixture.registry, "requests");
  g_assert_true(again == retired);
  assert_found(fixture.registry, "requests", FALSE);

  /* Held by the application, and removed all the same. */
  run_periodic_pass(fixture.registry);
  assert_recorded(fixture.record, "a flush\n");
  assert_not_found(fixture.registry, "requests");
  g_assert_cmpuint(get_ref_count(retired), ==, 2);

  g_autoptr(VekMetricCounter) fresh = counter_new(fixture.registry, "requests");
  g_assert_true(fresh != retired);
  assert_found(fixture.registry, "requests", TRUE);
}

static void record_state_of_requests(VekTestingRecorder *recorder, const char *line,
                                     gpointer data) {
  (void)recorder;
  (void)line;
  (void)data;
  g_autoptr(VekMetric) metric = find(fixture.registry, "requests");
  g_string_append(fixture.record, vek_metric_is_active(metric) ? "active\n" : "inactive\n");
}

/* The look-ups also show that a pass lets other readers in, its flushes included. */
TEST(metric_is_marked_after_its_report_and_before_the_flush) {
  on_recorded(fixture.reporter, record_state_of_requests, NULL);
  add_dropped_counter(fixture.registry, "requests");

  fixture_report();
  assert_recorded(fixture.record,
                  "a count requests 0 @1000\n"
                  "active\n"
                  "a flush\n"
                  "inactive\n");
}

typedef struct {
  VekMetricRegistry *registry;
  VekMetric *taken;
} Taker;

static void take_requests(VekTestingRecorder *recorder, const char *line, gpointer data) {
  (void)recorder;
  (void)line;
  Taker *taker = data;
  if (!taker->taken)
    taker->taken = find(taker->registry, "requests");
}

TEST(metric_taken_up_during_its_report_stays_active) {
  Taker taker = {fixture.registry, NULL};
  on_recorded(fixture.reporter, take_requests, &taker);
  add_dropped_counter(fixture.registry, "requests");

  fixture_report();
  g_assert_true(vek_metric_is_active(taker.taken));
  g_object_unref(taker.taken);
}

static gboolean add_requests(gpointer registry) {
  add_dropped_counter(registry, "requests");
  return G_SOURCE_REMOVE;
}

static void plan_requests(VekTestingRecorder *recorder, const char *line, gpointer registry) {
  (void)recorder, (void)line;
  g_idle_add(add_requests, registry);
}

TEST(reporter_has_a_metric_made_once_its_pass_is_over) {
  on_recorded(fixture.reporter, plan_requests, fixture.registry);
  fixture_report();
  assert_not_found(fixture.registry, "requests");
  g_assert_true(g_main_context_iteration(NULL, FALSE));
  assert_found(fixture.registry, "requests", TRUE);
}

TEST(one_off_pass_without_metrics_flushes_once) {
  fixture_report();
  assert_recorded(fixture.record, "a flush\n");
  g_assert_null(find_timer(fixture.registry));
}

static void drop_once(VekTestingRecorder *recorder, const char *line, gpointer data) {
  (void)line;
  gboolean *held = data;
  if (*held)
    g_object_unref(recorder);
  *held = FALSE;
}

TEST(one_off_pass_holds_its_reporter) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricCounter) counter = counter_new(registry, "requests");
  VekMetricReporter *reporter = record_to(record, "a");
  g_object_add_weak_pointer(G_OBJECT(reporter), (gpointer *)&reporter);
  gboolean held = TRUE;
  on_recorded(reporter, drop_once, &held);

  vek_metric_registry_report(registry, reporter);
  assert_recorded(record,
                  "a count requests 0 @1000\n"
                  "a flush\n");
  g_assert_false(held);
  g_assert_null(reporter);
}

TEST(dispose_lets_go_of_metrics_and_reporters) {
  g_autoptr(VekMetricCounter) held = counter_new(fixture.registry, "held");
  VekMetricCounter *dropped = counter_new(fixture.registry, "dropped");
  g_object_add_weak_pointer(G_OBJECT(dropped), (gpointer *)&dropped);
  g_object_unref(dropped);
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);
  vek_metric_registry_register_reporter(fixture.registry, fixture.reporter);

  run_dispose(fixture.registry);
  g_assert_null(dropped);
  g_assert_cmpuint(get_ref_count(held), ==, 1);
  g_assert_true(vek_metric_is_active(VEK_METRIC(held)));
  g_assert_cmpuint(get_ref_count(fixture.reporter), ==, 1);
  g_assert_null(find_timer(fixture.registry));
  assert_recorded(fixture.record, "");

  run_dispose(fixture.registry);
  assert_nothing_logged();
}

TEST(failed_checks_change_nothing) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  g_autoptr(GObject) object = g_object_new(G_TYPE_OBJECT, NULL);
  VekMetricRegistry *wrong_registry = (gpointer)object;
  VekMetricReporter *wrong_reporter = (gpointer)object;

  VekMetricRegistry *bad_registries[] = {NULL, wrong_registry};
  for (gsize i = 0; i < G_N_ELEMENTS(bad_registries); i++) {
    /* The first check that fails is the only one that is logged. */
    g_assert_null(vek_metric_registry_get_metric(bad_registries[i], NULL, NULL));
    assert_failed_check("vek_metric_registry_get_metric", "VEK_IS_METRIC_REGISTRY(registry)");
    vek_metric_registry_register_reporter(bad_registries[i], NULL);
    assert_failed_check("vek_metric_registry_register_reporter",
                        "VEK_IS_METRIC_REGISTRY(registry)");
    vek_metric_registry_report(bad_registries[i], NULL);
    assert_failed_check("vek_metric_registry_report", "VEK_IS_METRIC_REGISTRY(registry)");
  }

  g_assert_null(vek_metric_registry_get_metric(registry, NULL, STRV("host", "h1")));
  assert_failed_check("vek_metric_registry_get_metric", "name != NULL");

  VekMetricReporter *bad_reporters[] = {NULL, wrong_reporter};
  for (gsize i = 0; i < G_N_ELEMENTS(bad_reporters); i++) {
    vek_metric_registry_register_reporter(registry, bad_reporters[i]);
    assert_failed_check("vek_metric_registry_register_reporter",
                        "VEK_IS_METRIC_REPORTER(reporter)");
    vek_metric_registry_report(registry, bad_reporters[i]);
    assert_failed_check("vek_metric_registry_report", "VEK_IS_METRIC_REPORTER(reporter)");
  }

  g_assert_null(find_timer(registry));
  g_assert_cmpuint(get_ref_count(registry), ==, 1);
  g_assert_cmpuint(get_ref_count(object), ==, 1);
}

TEST(default_registry_is_made_once_and_borrowed) {
  VekMetricRegistry *registry = vek_metric_registry_get_default();
  g_assert_true(VEK_IS_METRIC_REGISTRY(registry));
  g_assert_true(vek_metric_registry_get_default() == registry);
  g_assert_cmpuint(get_ref_count(registry), ==, 1);

  vek_metric_registry_set_default(NULL);
}

TEST(setting_the_default_again_changes_no_reference_count) {
  g_autoptr(VekMetricRegistry) registry = registry_new();

  vek_metric_registry_set_default(registry);
  g_assert_cmpuint(get_ref_count(registry), ==, 2);
  vek_metric_registry_set_default(registry);
  g_assert_cmpuint(get_ref_count(registry), ==, 2);
  g_assert_true(vek_metric_registry_get_default() == registry);

  vek_metric_registry_set_default(NULL);
  g_assert_cmpuint(get_ref_count(registry), ==, 1);
}

TEST(default_of_null_drops_the_old_and_a_fresh_one_follows) {
  VekMetricRegistry *old = vek_metric_registry_get_default();
  add_dropped_counter(old, "requests");
  g_object_add_weak_pointer(G_OBJECT(old), (gpointer *)&old);

  vek_metric_registry_set_default(NULL);
  g_assert_null(old);
  assert_not_found(vek_metric_registry_get_default(), "requests");

  vek_metric_registry_set_default(NULL);
  vek_metric_registry_set_default(NULL);
}

static void note_default(gpointer data, GObject *gone) {
  (void)gone;
  VekMetricRegistry **seen = data;
  *seen = vek_metric_registry_get_default();
}

TEST(new_default_is_in_place_before_the_old_one_goes) {
  g_autoptr(VekMetricRegistry) registry = registry_new();
  VekMetricRegistry *seen = NULL;
  g_object_weak_ref(G_OBJECT(vek_metric_registry_get_default()), note_default, &seen);

  vek_metric_registry_set_default(registry);
  g_assert_true(seen == registry);

  vek_metric_registry_set_default(NULL);
}

enum { N_ROUNDS = 200 };

static struct {
  VekMetricCounter *shared;
  guint n_periodic_passes;
} storm;

static void update_shared(guint round) {
  (void)round;
  vek_metric_counter_inc(storm.shared);
}

static void create_shared(guint round) {
  (void)round;
  g_autoptr(VekMetricCounter) counter = counter_new(fixture.registry, "shared");
  vek_metric_counter_add(counter, 1000);
}

static void look_shared_up(guint round) {
  (void)round;
  g_autoptr(VekMetric) metric = find(fixture.registry, "shared");
  vek_metric_counter_add(VEK_METRIC_COUNTER(metric), 1000000);
}

static void create_and_drop(guint round) {
  g_autofree char *name = g_strdup_printf("dropped-%u", round);
  add_dropped_counter(fixture.registry, name);
}

static void report_once(guint round) {
  (void)round;
  fixture_report();
}

static void (*const jobs[])(guint round) = {
    update_shared, create_shared, look_shared_up, create_and_drop, report_once,
};

static void do_job(guint thread, gpointer data) {
  (void)data;
  for (guint round = 0; round < N_ROUNDS; round++)
    jobs[thread](round);
}

static void run_periodic_pass_meanwhile(gpointer data) {
  (void)data;
  if (storm.n_periodic_passes == N_ROUNDS)
    return; /* without an end, passes would keep those waiting who create */
  run_periodic_pass(fixture.registry);
  storm.n_periodic_passes++;
}

static guint count_flushes(const GString *record) {
  guint n = 0;
  for (const char *at = record->str; (at = strstr(at, "flush\n")); at++)
    n++;
  return n;
}

static void register_own(guint thread, gpointer reporters) {
  vek_metric_registry_register_reporter(fixture.registry,
                                        ((VekMetricReporter **)reporters)[thread]);
}

static void report_meanwhile(gpointer reporters) {
  (void)reporters;
  fixture_report();
}

TEST(threads_register_reporters_one_at_a_time) {
  g_autoptr(GString) b = g_string_new(NULL);
  g_autoptr(GString) c = g_string_new(NULL);
  VekMetricReporter *reporters[] = {record_to(b, "b"), record_to(c, "c")};
  run_threads(G_N_ELEMENTS(reporters), register_own, report_meanwhile, reporters);
  run_periodic_pass(fixture.registry);
  for (guint i = 0; i < G_N_ELEMENTS(reporters); i++)
    g_object_unref(reporters[i]);
  assert_recorded(b, "b flush\n");
  assert_recorded(c, "c flush\n");
}

TEST(threads_lose_nothing) {
  g_autoptr(GString) record = g_string_new(NULL);
  g_autoptr(VekMetricReporter) reporter = record_to(record, "periodic");
  vek_metric_registry_register_reporter(fixture.registry, reporter);
  g_autoptr(VekMetricCounter) shared = counter_new(fixture.registry, "shared");
  storm.shared = shared;
  storm.n_periodic_passes = 0;

  run_threads(G_N_ELEMENTS(jobs), do_job, run_periodic_pass_meanwhile, NULL);
  run_periodic_pass(fixture.registry);

  g_assert_cmpuint(count_flushes(record), ==, storm.n_periodic_passes + 1);
  g_assert_cmpuint(count_flushes(fixture.record), ==, N_ROUNDS);
  /* Each dropped metric was reported, to one reporter at least, and is gone. */
  for (guint i = 0; i < N_ROUNDS; i++) {
    g_autofree char *part = g_strdup_printf("count dropped-%u ", i);
    g_assert_true(strstr(record->str, part) || strstr(fixture.record->str, part));
  }
  g_string_truncate(record, 0);
  run_periodic_pass(fixture.registry);
  assert_recorded(record,
                  "periodic count shared 200200200 @1000\n"
                  "periodic flush\n");
}
