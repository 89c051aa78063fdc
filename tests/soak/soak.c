/* A year of passes, while metrics come and go: all reporters and companions at work, in a registry
 * with registered reporters and in one with a session. What comes out at the other ends is counted,
 * and memory and descriptors must not grow.
 *
 * SOAK_PASSES is how many minutes pass, a multiple of 80: 800 if it is not set, and not less where
 * the heap is measured. A year has 525600. */

#include "lives.h"

#include "scrape.h"
#include "support/folder.h"
#include "support/heap.h"
#include "support/lineserver.h"
#include "support/periodicpass.h"
#include "support/sessiontimer.h"
#include "support/tsan-tasks.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum {
  N_ROTATED = 2,
  HISTORY = 30, /* passes that the web server keeps */
  SETTLE = 10,  /* turns between two readings of the files */
  SCRAPE = 40,  /* ... two scrapes, each in the middle, */
  READ = 8,     /* ... and two of the heap */
  ONE_OFF = 100,
  OUTAGE = 500,
};

#define HALF_MINUTE (30 * (gint64)G_USEC_PER_SEC)

static Output console = {"console", .lines_of_samples = 1, .has_figures = TRUE};
static Output carbon = {"carbon", .lines_of_samples = 4, .has_figures = TRUE};
static Output csv = {"CSV log", .lines_of_samples = 1, .has_figures = TRUE};
static Output json = {"JSON log", .lines_of_samples = 4, .has_figures = TRUE};
static Output ranges = {"timeline", .has_ranges = TRUE};
static Output recorded = {"recorder", .lines_of_samples = 1, .has_figures = TRUE,
                          .has_ranges = TRUE};
static Output graphite = {"graphite", .lines_of_samples = 4, .has_figures = TRUE};
static Output handed_on = {"session", .lines_of_samples = 1, .has_figures = TRUE,
                           .has_ranges = TRUE};

static Output *const registered[] = {&console, &carbon, &csv, &json, &ranges, &recorded};
static Output *const of_session[] = {&graphite, &handed_on};

typedef struct {
  char *folder;
  LineServer *carbon_server, *graphite_server;
  Population plain, in_session;
  VekMetricReporter *carbon, *json, *graphite;
  Served served;
  VekServiceSession *session;
} Soak;

static void on_printed(const char *text) {
  output_take_console(&console, text);
}

static void on_recorded_line(VekTestingRecorder *recorder, const char *line, gpointer output) {
  (void)recorder;
  output_take_recorded(output, line);
}

static VekMetricReporter *recorder_new(Output *output) {
  VekTestingRecorder *recorder = vek_testing_recorder_new();
  on_recorded(recorder, on_recorded_line, output);
  return VEK_METRIC_REPORTER(recorder);
}

static void register_reporter(Soak *self, VekMetricReporter *reporter) {
  vek_metric_registry_register_reporter(self->plain.registry, reporter);
  g_object_unref(reporter);
}

static void set_up_registered(Soak *self) {
  self->plain.registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  register_reporter(self, vek_metric_console_reporter_new());
  register_reporter(self, vek_metric_log_reporter_new("figures", self->folder));
  register_reporter(self, vek_metric_timeline_reporter_new("ranges", self->folder));
  register_reporter(self, recorder_new(&recorded));

  self->json = g_object_new(VEK_TYPE_METRIC_JSON_LOG_REPORTER, "basename", "log", "dirname",
                            self->folder, "max-reports", 8, "rotate", N_ROTATED, NULL);
  vek_metric_registry_register_reporter(self->plain.registry, self->json);

  self->carbon_server = line_server_new("127.0.0.1");
  self->carbon = vek_metric_carbon_reporter_new("site", "127.0.0.1", self->carbon_server->port);
  line_server_accept(self->carbon_server);
  run_until(log_capture_get_n_waiting() > 0);
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_INFO, "Established connection*");
  vek_metric_registry_register_reporter(self->plain.registry, self->carbon);

  self->served = set_up();
  g_object_set(self->served.server, "history", HISTORY, NULL);
  listen_locally(&self->served);
  vek_metric_registry_register_reporter(self->plain.registry,
                                        VEK_METRIC_REPORTER(self->served.reporter));
}

static void set_up_session(Soak *self) {
  self->in_session.registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  self->session = vek_service_session_new(self->in_session.registry);
  g_object_set(self->session, "period", 30, NULL);
  vek_service_session_add_reporter(self->session, recorder_new(&handed_on));

  self->graphite_server = line_server_new("127.0.0.1");
  self->graphite = g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, "host", "127.0.0.1", "port",
                                self->graphite_server->port, "tags", TRUE, NULL);
  line_server_accept(self->graphite_server);
  run_until(is_connected(self->graphite));
  vek_service_session_add_reporter(self->session, g_object_ref(self->graphite));
}

static void expect(const Population *population, Output *const *outputs, gsize n_outputs, Pass pass,
                   guint turn) {
  for (gsize i = 0; i < n_outputs; i++)
    population_expect(population, outputs[i], pass, turn);
}

/* Reads what was sent; the limit only ends a test in which lines are lost. */
static void receive_lines(LineServer *server, Output *output) {
  GSocket *socket = g_socket_connection_get_socket(server->connection);
  while (output->received.n_lines < output->expected.n_lines) {
    /* The kernel sends no further line before this side acknowledges the first. */
    g_socket_set_option(socket, IPPROTO_TCP, TCP_QUICKACK, TRUE, NULL);
    if (!g_socket_condition_timed_wait(socket, G_IO_IN, 30 * G_USEC_PER_SEC, NULL, NULL))
      output_settle(output);
    line_server_read_once(server, sizeof server->buffer);
    char *rest = take_lines(server->received->str, output, output_take_carbon);
    g_string_erase(server->received, 0, rest - server->received->str);
  }
}

static gboolean is_held_by_others(VekMetricReporter *reporter) {
  return g_atomic_int_get(&G_OBJECT(reporter)->ref_count) > 2;
}

/* The timer does not fire by itself then, however slow the machine is. */
static void run_only_pass(VekMetricRegistry *registry) {
  run_periodic_pass(registry);
  g_source_set_ready_time(find_timer(registry), -1);
}

/* A minute. */
static void run_turn(Soak *self, guint turn) {
  population_begin_turn(&self->plain, turn);
  population_begin_turn(&self->in_session, turn);

  vek_testing_clock_advance(HALF_MINUTE);
  fire_timer();
  expect(&self->in_session, of_session, G_N_ELEMENTS(of_session), OWN, turn);

  vek_testing_clock_advance(HALF_MINUTE);
  run_only_pass(self->plain.registry);
  run_only_pass(self->in_session.registry);
  expect(&self->plain, registered, G_N_ELEMENTS(registered), ALONE, turn);
  expect(&self->in_session, of_session, G_N_ELEMENTS(of_session), BEHIND, turn);

  while (is_held_by_others(self->carbon) || is_held_by_others(self->json))
    g_main_context_iteration(NULL, TRUE);
  receive_lines(self->carbon_server, &carbon);
  if (is_connected(self->graphite))
    receive_lines(self->graphite_server, &graphite);
}

static void settle_all(Soak *self) {
  take_file(self->folder, "figures.csv", &csv, output_take_csv);
  take_file(self->folder, "ranges.csv", &ranges, output_take_ranges);
  take_file(self->folder, "log.json", &json, output_take_json);
  for (guint i = 1; i <= N_ROTATED; i++) {
    g_autofree char *name = g_strdup_printf("log.json.%u", i);
    take_file(self->folder, name, &json, output_take_json);
  }
  for (gsize i = 0; i < G_N_ELEMENTS(registered); i++)
    output_settle(registered[i]);
  for (gsize i = 0; i < G_N_ELEMENTS(of_session); i++)
    output_settle(of_session[i]);
}

/* A pass for a reporter that is not registered: it takes the last report of a metric that the
 * program has let go of, and leaves the others. */
static void run_one_off(Soak *self) {
  g_autoptr(VekTestingRecorder) recorder = vek_testing_recorder_new();
  VekMetricCounter *counter =
      vek_metric_registry_counter_new(self->plain.registry, "metric-15-0", NULL, NULL);
  vek_metric_counter_inc(counter);
  g_object_unref(counter);
  vek_metric_registry_report(self->plain.registry, VEK_METRIC_REPORTER(recorder));
  gint64 count;
  g_assert_true(vek_testing_recorder_get_count(recorder, "metric-15-0", NULL, &count));
  g_assert_cmpint(count, ==, 1);
}

/* A server that is away for a turn. */
static void begin_outage(Soak *self) {
  line_server_close(self->graphite_server);
  run_until(get_delay() > 0);
  assert_outage(self->graphite_server, "The server closed it");
}

static void end_outage(Soak *self) {
  end_delay();
  line_server_accept(self->graphite_server);
  run_until(is_connected(self->graphite));
  assert_outage_over(self->graphite_server, 60, 0);
  receive_lines(self->graphite_server, &graphite);
}

static GPrintFunc print;

/* Shows what the process uses, and returns the number of its open files. */
static guint measure(guint turn, gsize heap) {
  guint n_files = count_open_files();
  g_autofree char *statm = NULL;
  g_assert_true(g_file_get_contents("/proc/self/statm", &statm, NULL, NULL));
  gsize resident = (gsize)atol(strchr(statm, ' ')) * (gsize)getpagesize();

  g_set_print_handler(print);
  g_test_message("%u passes: %zu bytes in use, %u open files, %zu KiB resident", turn, heap,
                 n_files, resident / 1024);
  g_set_print_handler(on_printed);
  return n_files;
}

static void run_turns(Soak *self, guint n_turns) {
  guint tenth = n_turns / 10, n_files[2] = {0};
  gsize least[] = {G_MAXSIZE, G_MAXSIZE}; /* of the heap, in each half: texts come and go */
  for (guint turn = 1; turn <= n_turns; turn++) {
    if (turn % OUTAGE == OUTAGE / 2)
      begin_outage(self);
    run_turn(self, turn);
    if (turn % OUTAGE == OUTAGE / 2)
      end_outage(self);
    if (turn % ONE_OFF == ONE_OFF / 2)
      run_one_off(self);
    if (turn % SCRAPE == SCRAPE / 2 && turn > HISTORY + MAX_PASSES)
      scrape(&self->served, HISTORY);
    if (turn % SETTLE == 0)
      settle_all(self);
    if (turn <= tenth)
      continue; /* some things are made once */

    guint half = turn > 5 * tenth;
    if (turn % READ == 0)
      least[half] = MIN(least[half], heap_get_used());
    if (turn % tenth == 0)
      n_files[half] = measure(turn, least[half]);
  }
  gsize drift = MAX(least[0], least[1]) - MIN(least[0], least[1]);
  g_assert_cmpuint(100 * drift, <=, least[0]);
  g_assert_cmpuint(n_files[1], ==, n_files[0]);
}

static void tear_down_all(Soak *self, guint last_turn) {
  /* Metrics that live still end, and no more begin. */
  for (guint i = 1; i <= MAX_PASSES; i++)
    run_turn(self, last_turn + i);
  g_clear_object(&self->graphite);
  g_assert_true(vek_service_session_finish(self->session, 100000));
  settle_all(self);

  g_object_unref(self->session);
  g_object_unref(self->in_session.registry);
  g_object_unref(self->plain.registry);
  g_object_unref(self->carbon);
  g_object_unref(self->json);
  tear_down(&self->served);
  line_server_free(self->carbon_server);
  line_server_free(self->graphite_server);
  folder_remove(self->folder);
}

TEST(each_metric_is_reported_as_often_as_due_and_nothing_grows) {
  const char *wanted = g_getenv("SOAK_PASSES");
  guint n_turns = wanted ? (guint)atoi(wanted) : 800;
  Soak soak = {.folder = folder_new(),
               .plain = {.stride = 1, .last_turn = n_turns},
               .in_session = {.stride = 3, .last_turn = n_turns}};
  heap_get_used(); /* it makes threads, before GIO needs the first */
  log_capture_set_debug_domain(NULL);
  vek_testing_clock_set(1700000000 * (gint64)G_USEC_PER_SEC, G_USEC_PER_SEC);
  print = g_set_print_handler(on_printed);
  set_up_registered(&soak);
  set_up_session(&soak);
  run_turns(&soak, n_turns);
  tear_down_all(&soak, n_turns);
  g_set_print_handler(print);
}
