/* Tests of VekMetricConsoleReporter. */

#include <math.h>
#include <vekmetrics/vekmetrics.h>

#include "support/decimalcomma.h"
#include "support/fixture.h"
#include "support/heap.h"

/* A vector of the strings that follow. */
#define DIMENSIONS(...) ((char *[]){__VA_ARGS__, NULL})
#define NO_DIMENSIONS ((char *[]){NULL})

static GString *printed; /* while a test catches what is printed */

static void on_print(const char *text) {
  g_string_append(printed, text);
}

/* Calls the function and compares what it prints meanwhile. Only meanwhile, because the test
 * framework prints the same way. */
static void assert_prints(void (*function)(VekMetricReporter *reporter),
                          VekMetricReporter *reporter, const char *expected) {
  printed = g_string_new(NULL);
  GPrintFunc previous = g_set_print_handler(on_print);
  function(reporter);
  g_set_print_handler(previous);
  g_autofree char *text = g_string_free(g_steal_pointer(&printed), FALSE);
  g_assert_cmpstr(text, ==, expected);
}

static void flush(VekMetricReporter *reporter) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->flush(reporter);
}

static void assert_flush_prints(VekMetricReporter *reporter, const char *expected) {
  assert_prints(flush, reporter, expected);
}

static void add_count(VekMetricReporter *reporter, const char *name, char **dimensions,
                      gint64 count) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, name, dimensions, NULL, 0,
                                                         count);
}

static void add_value(VekMetricReporter *reporter, const char *name, char **dimensions,
                      gdouble value) {
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_value(reporter, name, dimensions, NULL, 0,
                                                         value);
}

static void add_samples(VekMetricReporter *reporter, const char *name, const gdouble *samples,
                        gsize n_samples) {
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, n_samples);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(reporter, name, NULL, NULL, snapshot);
}

TEST(the_type_is_a_plain_object_that_reports) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  g_assert_cmpstr(G_OBJECT_TYPE_NAME(reporter), ==, "VekMetricConsoleReporter");
  g_assert_cmpuint(g_type_parent(G_OBJECT_TYPE(reporter)), ==, G_TYPE_OBJECT);
  g_assert_true(VEK_IS_METRIC_CONSOLE_REPORTER(reporter));
  g_assert_true(VEK_IS_METRIC_REPORTER(reporter));
  g_assert_cmpuint(G_OBJECT(reporter)->ref_count, ==, 1);

  guint n_properties = 0;
  g_free(g_object_class_list_properties(G_OBJECT_GET_CLASS(reporter), &n_properties));
  g_assert_cmpuint(n_properties, ==, 0);
}

TEST(a_flush_with_nothing_gathered_prints_nothing) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  assert_flush_prints(reporter, "");
}

static void add_one_of_each(VekMetricReporter *reporter) {
  add_count(reporter, "requests", NULL, 42);
  add_value(reporter, "load", NULL, 0.25);
  add_samples(reporter, "latency", NULL, 0);
}

TEST(gathering_prints_nothing) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  assert_prints(add_one_of_each, reporter, "");
}

TEST(a_flush_forgets_what_it_printed) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "requests", NULL, 42);
  assert_flush_prints(reporter, "general:\nrequests: 42\n\n");
  assert_flush_prints(reporter, "");
  add_count(reporter, "errors", NULL, 1);
  assert_flush_prints(reporter, "general:\nerrors: 1\n\n");
}

static void drop(VekMetricReporter *reporter) {
  g_object_unref(reporter);
}

TEST(lines_never_flushed_are_not_printed) {
  VekMetricReporter *reporter = vek_metric_console_reporter_new();
  add_one_of_each(reporter);
  assert_prints(drop, reporter, "");
}

TEST(metrics_with_and_without_dimensions_get_sections) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "requests", NULL, 42);
  add_value(reporter, "load", DIMENSIONS("host", "h1"), 0.25);
  assert_flush_prints(reporter,
                      "general:\n"
                      "requests: 42\n"
                      "\n"
                      "host=h1:\n"
                      "load: 0.250000\n"
                      "\n");
}

TEST(the_same_dimensions_share_one_header_and_lines_are_sorted_by_name) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "b", DIMENSIONS("host", "h1"), 1);
  add_value(reporter, "c", DIMENSIONS("host", "h1"), 2);
  add_count(reporter, "a", DIMENSIONS("host", "h1"), 3);
  assert_flush_prints(reporter,
                      "host=h1:\n"
                      "a: 3\n"
                      "b: 1\n"
                      "c: 2.000000\n"
                      "\n");
}

TEST(lines_are_ordered_by_bytes) {
  static const char *const names[] = {"é", "b", "a.b", "a", "B", "a-b", "", "10", "9"};
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  for (gsize i = 0; i < G_N_ELEMENTS(names); i++)
    add_count(reporter, names[i], NULL, i);
  assert_flush_prints(reporter,
                      "general:\n"
                      ": 6\n"
                      "10: 7\n"
                      "9: 8\n"
                      "B: 4\n"
                      "a: 3\n"
                      "a-b: 5\n"
                      "a.b: 2\n"
                      "b: 1\n"
                      "é: 0\n"
                      "\n");
}

TEST(lines_of_equal_names_stay_as_they_came) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  g_autoptr(GString) a = g_string_new(NULL);
  g_autoptr(GString) b = g_string_new(NULL);
  for (guint i = 0; i < 100; i++) {
    add_count(reporter, "b", NULL, i);
    add_count(reporter, "a", NULL, i);
    g_string_append_printf(a, "a: %u\n", i);
    g_string_append_printf(b, "b: %u\n", i);
  }
  g_autofree char *expected = g_strdup_printf("general:\n%s%s\n", a->str, b->str);
  assert_flush_prints(reporter, expected);
}

TEST(one_pair_comes_before_two_whatever_the_keys) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "two", DIMENSIONS("a", "a", "a", "a"), 2);
  add_count(reporter, "one", DIMENSIONS("z", "z"), 1);
  add_count(reporter, "none", NULL, 0);
  assert_flush_prints(reporter,
                      "general:\nnone: 0\n\n"
                      "z=z:\none: 1\n\n"
                      "a=a, a=a:\ntwo: 2\n\n");
}

TEST(sections_of_equal_length_are_ordered_by_the_bytes_of_their_keys) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "n", DIMENSIONS("é", "1"), 1);
  add_count(reporter, "n", DIMENSIONS("a", "2"), 2);
  add_count(reporter, "n", DIMENSIONS("a", "10"), 3);
  add_count(reporter, "n", DIMENSIONS("B", "1"), 4);
  /* "a!.1" is less than "a.10" though "a!" is more than "a". */
  add_count(reporter, "n", DIMENSIONS("a!", "1"), 5);
  assert_flush_prints(reporter,
                      "B=1:\nn: 4\n\n"
                      "a!=1:\nn: 5\n\n"
                      "a=10:\nn: 3\n\n"
                      "a=2:\nn: 2\n\n"
                      "é=1:\nn: 1\n\n");
}

TEST(order_is_by_bytes_in_every_locale) {
  if (!in_decimal_comma())
    return;
  lines_are_ordered_by_bytes();
  sections_of_equal_length_are_ordered_by_the_bytes_of_their_keys();
}

TEST(a_disposed_metric_is_shown_without_its_name) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "a", NULL, 1);
  add_count(reporter, NULL, NULL, 2);
  assert_flush_prints(reporter, "general:\n(null): 2\na: 1\n\n");
}

TEST(two_pairs_are_joined_in_the_header_and_in_the_key) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "b", DIMENSIONS("host", "h1", "os", "linux"), 1);
  add_count(reporter, "a", DIMENSIONS("host.h1.os.linux"), 2);
  assert_flush_prints(reporter, "host=h1, os=linux:\na: 2\nb: 1\n\n");
}

TEST(an_empty_vector_has_a_bare_header_and_comes_first) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "b", DIMENSIONS("!", "!"), 2);
  add_count(reporter, "c", NULL, 3);
  add_count(reporter, "d", NO_DIMENSIONS, 4);
  assert_flush_prints(reporter,
                      ":\nd: 4\n\n"
                      "general:\nc: 3\n\n"
                      "!=!:\nb: 2\n\n");
}

TEST(the_dimension_general_shares_the_section_of_its_creator) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "b", NULL, 1);
  add_count(reporter, "a", DIMENSIONS("general"), 2);
  assert_flush_prints(reporter, "general:\na: 2\nb: 1\n\n");

  add_count(reporter, "a", DIMENSIONS("general"), 2);
  add_count(reporter, "b", NULL, 1);
  add_count(reporter, "c", DIMENSIONS("!", "!"), 3);
  add_count(reporter, "d", DIMENSIONS("zoo"), 4);
  assert_flush_prints(reporter,
                      ":\na: 2\nb: 1\n\n"
                      ":\nd: 4\n\n"
                      "!=!:\nc: 3\n\n");
}

TEST(an_odd_string_is_in_the_key_but_not_in_the_header) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "odd", DIMENSIONS("host", "h1", "os"), 1);
  add_count(reporter, "joined", DIMENSIONS("host.h1", "os"), 2); /* the same key */
  add_count(reporter, "even", DIMENSIONS("host", "h1"), 3);
  add_count(reporter, "pairs", DIMENSIONS("a", "a", "a", "a"), 4);
  assert_flush_prints(reporter,
                      "host=h1:\neven: 3\n\n"
                      "host=h1:\njoined: 2\nodd: 1\n\n"
                      "a=a, a=a:\npairs: 4\n\n");
}

TEST(empty_strings_share_the_key_of_the_empty_vector) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "b", DIMENSIONS(""), 1);
  add_count(reporter, "c", NULL, 2);
  add_count(reporter, "a", NO_DIMENSIONS, 3);
  assert_flush_prints(reporter,
                      "general:\nc: 2\n\n"
                      ":\na: 3\nb: 1\n\n");
}

TEST(empty_strings_in_pairs_are_printed) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "a", DIMENSIONS("", "", "os", ""), 1);
  assert_flush_prints(reporter, "=, os=:\na: 1\n\n");
}

TEST(counts_are_printed_in_full) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "a", NULL, -5);
  add_count(reporter, "b", NULL, G_MAXINT64);
  add_count(reporter, "c", NULL, G_MININT64);
  assert_flush_prints(reporter,
                      "general:\n"
                      "a: -5\n"
                      "b: 9223372036854775807\n"
                      "c: -9223372036854775808\n"
                      "\n");
}

TEST(values_are_printed_with_six_decimals) {
  static const gdouble values[] = {0.25, -1.0 / 3.0, 2e-7, 6e-7, 1e15, -0.0, INFINITY, -INFINITY};
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  for (gsize i = 0; i < G_N_ELEMENTS(values); i++)
    add_value(reporter, "v", NULL, values[i]);
  assert_flush_prints(reporter,
                      "general:\n"
                      "v: 0.250000\n"
                      "v: -0.333333\n"
                      "v: 0.000000\n"
                      "v: 0.000001\n"
                      "v: 1000000000000000.000000\n"
                      "v: -0.000000\n"
                      "v: inf\n"
                      "v: -inf\n"
                      "\n");
}

TEST(samples_are_printed_as_one_line_of_statistics) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  const gdouble three[] = {3, 1, 2};
  const gdouble many[] = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 51};
  add_samples(reporter, "a", three, G_N_ELEMENTS(three));
  add_samples(reporter, "b", many, G_N_ELEMENTS(many));
  add_samples(reporter, "c", NULL, 0);
  assert_flush_prints(reporter,
                      "general:\n"
                      "a: avg: 2.000000, n samples: 3, max: 3.000000, min: 1.000000, "
                      "p10: 1.000000, p50: 2.000000, p90: 2.800000\n"
                      "b: avg: 18.000000, n samples: 12, max: 51.000000, min: 10.000000, "
                      "p10: 11.100000, p50: 15.500000, p90: 19.900000\n"
                      "c: avg: 0.000000, n samples: 0, max: 0.000000, min: 0.000000, "
                      "p10: 0.000000, p50: 0.000000, p90: 0.000000\n"
                      "\n");
}

TEST(samples_with_dimensions_go_to_their_section) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new((const gdouble[]){2}, 1);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_aggregated(
      reporter, "latency", DIMENSIONS("host", "h1"), "Seconds", snapshot);
  assert_flush_prints(reporter,
                      "host=h1:\n"
                      "latency: avg: 2.000000, n samples: 1, max: 2.000000, min: 2.000000, "
                      "p10: 2.000000, p50: 2.000000, p90: 2.000000\n"
                      "\n");
}

TEST(units_and_times_are_not_printed) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  iface->process_count(reporter, "a", NULL, "Count", 1000, 42);
  iface->process_value(reporter, "b", NULL, "Percent", G_MAXINT64, 0.5);
  assert_flush_prints(reporter, "general:\na: 42\nb: 0.500000\n\n");
}

TEST(per_cent_signs_are_printed_as_they_are) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "100%s", NULL, 1);
  add_value(reporter, "%n%", DIMENSIONS("%d", "%%"), 1);
  assert_flush_prints(reporter,
                      "general:\n100%s: 1\n\n"
                      "%d=%%:\n%n%: 1.000000\n\n");
}

TEST(control_characters_are_printed_as_they_are) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_count(reporter, "\x1b[2J", DIMENSIONS("user", "\x1b]0;title\a"), 1);
  add_count(reporter, "a: 2\nb", NULL, 1);
  assert_flush_prints(reporter,
                      "general:\na: 2\nb: 1\n\n"
                      "user=\x1b]0;title\a:\n\x1b[2J: 1\n\n");
}

TEST(the_reporter_copies_what_it_keeps) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  char name[] = "load";
  char host[] = "host";
  char h1[] = "h1";
  char *dimensions[] = {host, h1, NULL};
  add_value(reporter, name, dimensions, 0.25);
  name[0] = host[0] = h1[0] = '?';
  dimensions[0] = NULL;
  assert_flush_prints(reporter, "host=h1:\nload: 0.250000\n\n");
}

TEST(timelines_produce_no_output) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
  g_assert_true(iface->process_count != NULL);
  g_assert_true(iface->process_value != NULL);
  g_assert_true(iface->process_timeline_samples == NULL);
  g_assert_true(iface->process_aggregated != NULL);
  g_assert_true(iface->flush != NULL);
}

static VekMetricRegistry *registry; /* of the report that a test catches */

static void report(VekMetricReporter *reporter) {
  vek_metric_registry_report(registry, reporter);
}

TEST(a_registry_is_printed_whole) {
  registry = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(registry, "requests", "Count", NULL);
  vek_metric_counter_add(counter, 42);
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(registry, "load", NULL, 0, DIMENSIONS("host", "h1"));
  vek_metric_gauge_set_value(gauge, 0.25);
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(registry, "render");
  vek_metric_timeline_add_range(timeline, 1, 100, 250);

  assert_prints(report, reporter,
                "general:\n"
                "requests: 42\n"
                "\n"
                "host=h1:\n"
                "load: 0.250000\n"
                "\n");
  g_clear_object(&registry);
}

TEST(without_a_print_handler_standard_output_is_written) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  if (g_test_subprocess()) {
    add_count(reporter, "requests", NULL, 42);
    add_value(reporter, "load", DIMENSIONS("host", "h1"), 0.25);
    flush(reporter);
    return;
  }
  g_test_trap_subprocess(NULL, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_passed();
  g_test_trap_assert_stdout("*general:\nrequests: 42\n\nhost=h1:\nload: 0.250000\n\n*");
  g_test_trap_assert_stderr("");
}

static void gather_and_unref(void) {
  g_autoptr(VekMetricReporter) reporter = vek_metric_console_reporter_new();
  add_one_of_each(reporter);
  add_count(reporter, "requests", DIMENSIONS("host", "h1"), 42);
}

TEST(finalizing_frees_what_was_not_flushed) {
  assert_frees_all(gather_and_unref);
}

static VekMetricReporter *long_lived;

static void gather_and_flush(void) {
  add_one_of_each(long_lived);
  add_count(long_lived, "requests", DIMENSIONS("host", "h1"), 42);
  assert_flush_prints(long_lived,
                      "general:\n"
                      "latency: avg: 0.000000, n samples: 0, max: 0.000000, min: 0.000000, "
                      "p10: 0.000000, p50: 0.000000, p90: 0.000000\n"
                      "load: 0.250000\n"
                      "requests: 42\n"
                      "\n"
                      "host=h1:\n"
                      "requests: 42\n"
                      "\n");
}

TEST(a_flush_frees_what_it_printed) {
  long_lived = vek_metric_console_reporter_new();
  assert_frees_all(gather_and_flush);
  g_clear_object(&long_lived);
}
