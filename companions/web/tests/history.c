/* Tests of the passes that a VekWebServer keeps: what /vars.json says of them. */

#include <json-glib/json-glib.h>
#include <math.h>
#include <string.h>
#include <unistd.h>

#include "served.h"
#include "support/twothreads.h"

#define EPOCH (1700000000 * (gint64)G_USEC_PER_SEC)
#define MINUTE (60 * (gint64)G_USEC_PER_SEC)
#define DAY (24 * 60 * MINUTE)

static Served set_up_at_epoch(void) {
  vek_testing_clock_set(EPOCH, G_USEC_PER_SEC);
  Served served = set_up();
  listen_locally(&served);
  return served;
}

/* A pass over the registry. */
static void report(Served *served) {
  vek_metric_registry_report(fixture.registry, VEK_METRIC_REPORTER(served->reporter));
}

static void report_next(Served *served) {
  vek_testing_clock_advance(MINUTE);
  report(served);
}

static char *get_passes(Served *served, const char *query) {
  g_autofree char *lines = g_strdup_printf("GET /vars.json%s HTTP/1.0|Host: localhost", query);
  g_autoptr(GBytes) body = NULL;
  g_autofree char *answer = request(served, lines, &body);
  g_assert_true(g_str_has_prefix(answer, "HTTP/1.0 200 OK|"));
  return g_strndup(g_bytes_get_data(body, NULL), g_bytes_get_size(body));
}

/* The document after the query; its member or, if there are several, the one of that name. */
static char *get_member(Served *served, const char *query, const char *member, const char *name) {
  g_autofree char *text = get_passes(served, query);
  g_autoptr(JsonParser) parser = json_parser_new();
  g_autoptr(GError) error = NULL;
  json_parser_load_from_data(parser, text, -1, &error);
  g_assert_no_error(error);
  JsonNode *node =
      json_object_get_member(json_node_get_object(json_parser_get_root(parser)), member);
  if (!name)
    return json_to_string(node, FALSE);
  JsonArray *members = json_node_get_array(node);
  for (guint i = 0; i < json_array_get_length(members); i++) {
    JsonObject *object = json_array_get_object_element(members, i);
    if (g_str_equal(json_object_get_string_member(object, "name"), name))
      return json_to_string(json_array_get_element(members, i), FALSE);
  }
  return NULL;
}

static void assert_member(Served *served, const char *query, const char *member, const char *name,
                          const char *expected) {
  g_autofree char *found = get_member(served, query, member, name);
  g_assert_cmpstr(found, ==, expected);
}

TEST(document_says_what_it_shows) {
  g_auto(Served) served = set_up_at_epoch();
  g_autofree char *text = get_passes(&served, "");
  g_autofree char *start = g_strndup(strstr(text, "\"start\":\"") + strlen("\"start\":\""), 36);
  g_assert_true(g_uuid_string_is_valid(start));
  g_autofree char *expected = g_strdup_printf(
      "{\"version\":1,\"title\":\"test-history\",\"sources\":[\"process %d on %s\"],\"pass\":0,"
      "\"start\":\"%s\",\"times\":[[]],\"passes\":0,\"restarts\":[],\"metrics\":[],"
      "\"timelines\":[]}",
      getpid(), g_get_host_name(), start);
  g_assert_cmpstr(text, ==, expected);

  g_set_prgname(NULL);
  g_autofree char *nameless = get_passes(&served, "");
  g_assert_cmpstr(nameless, ==, expected); /* the name of the program's file */
  g_set_prgname("test-history");

  g_auto(Served) other = set_up_at_epoch();
  g_autofree char *other_text = get_passes(&other, "");
  g_assert_null(strstr(other_text, start));
}

TEST(every_kind_is_kept_with_its_figures) {
  g_auto(Served) served = set_up_at_epoch();
  char *dimensions[] = {"host", "a", "disk", "sda", NULL};
  g_autoptr(VekMetricCounter) counter =
      vek_metric_registry_counter_new(fixture.registry, "counter", "Count", dimensions);
  g_autoptr(VekMetricGauge) gauge =
      vek_metric_registry_gauge_new(fixture.registry, "gauge", NULL, 0, NULL);
  g_autoptr(VekMetricMeter) meter =
      vek_metric_registry_meter_new(fixture.registry, "meter", "Bytes", NULL);
  g_autoptr(VekMetricHistogram) histogram =
      vek_metric_registry_histogram_new(fixture.registry, "histogram", "", NULL, NULL);
  g_autoptr(VekMetricHistogram) change =
      vek_metric_registry_histogram_new(fixture.registry, "change", NULL, NULL, NULL);
  g_autoptr(VekMetricTimer) timer =
      vek_metric_registry_timer_new(fixture.registry, "timer", "Seconds", NULL, NULL);
  vek_metric_counter_add(counter, 5);
  vek_metric_gauge_set_value(gauge, 0.1);
  vek_metric_meter_mark(meter, 0);
  report(&served);
  vek_metric_counter_add(counter, -7);
  vek_metric_gauge_set_value(gauge, -1e300);
  vek_metric_meter_mark(meter, 120);
  for (int i = 0; i <= 10; i++)
    vek_metric_histogram_set(histogram, i);
  for (int i = -10; i <= 10; i++)
    vek_metric_histogram_set(change, i);
  vek_metric_timer_set_usec(timer, 250000);
  report_next(&served);

  assert_member(&served, "", "times", NULL, "[[1700000000,1700000060]]");
  assert_member(&served, "", "pass", NULL, "2");
  static const struct {
    const char *name, *expected;
  } rows[] = {
      {"counter",
       "{\"name\":\"counter\",\"dimensions\":[[\"host\",\"a\"],[\"disk\",\"sda\"]],"
       "\"kind\":\"counter\",\"unit\":\"Count\",\"times\":0,\"values\":[5,-2]}"},
      {"gauge",
       "{\"name\":\"gauge\",\"dimensions\":[],\"kind\":\"gauge\",\"unit\":null,\"times\":0,"
       "\"values\":[0.10000000000000001,-1.0000000000000001e+300]}"},
      {"meter",
       "{\"name\":\"meter\",\"dimensions\":[],\"kind\":\"meter\",\"unit\":\"Bytes\",\"times\":0,"
       "\"values\":[0,2]}"},
      {"histogram",
       "{\"name\":\"histogram\",\"dimensions\":[],\"kind\":\"histogram\",\"unit\":\"\",\"times\":0,"
       "\"statistics\":{\"samples\":[0,11],\"avg\":[null,5],\"min\":[null,0],\"max\":[null,10],"
       "\"p10\":[null,1],\"p50\":[null,5],\"p90\":[null,9],\"p99\":[null,9.9000000000000004]}}"},
      {"change",
       "{\"name\":\"change\",\"dimensions\":[],\"kind\":\"histogram\",\"unit\":null,\"times\":0,"
       "\"statistics\":{\"samples\":[0,21],\"avg\":[null,0],\"min\":[null,-10],\"max\":[null,10],"
       "\"p10\":[null,-8],\"p50\":[null,0],\"p90\":[null,8],\"p99\":[null,9.8000000000000007]}}"},
      {"timer",
       "{\"name\":\"timer\",\"dimensions\":[],\"kind\":\"timer\",\"unit\":\"Seconds\",\"times\":0,"
       "\"statistics\":{\"samples\":[0,1],\"avg\":[null,0.25],\"min\":[null,0.25],"
       "\"max\":[null,0.25],\"p10\":[null,0.25],\"p50\":[null,0.25],\"p90\":[null,0.25],"
       "\"p99\":[null,0.25]}}"},
  };
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++)
    assert_member(&served, "", "metrics", rows[i].name, rows[i].expected);
}

/* Brings a counter's value instead. */
static void bring_count(Served *served, const char *name, gint64 count) {
  VekMetricReporter *reporter = VEK_METRIC_REPORTER(served->reporter);
  VEK_METRIC_REPORTER_GET_IFACE(reporter)->process_count(reporter, name, NULL, NULL, 0, count);
}

#define GAUGE(name, dimensions, unit, values)                                            \
  "{\"name\":" name ",\"dimensions\":[" dimensions "],\"kind\":\"gauge\",\"unit\":" unit \
  ",\"times\":0,\"values\":[" values "]}"

TEST(values_that_json_cannot_say_are_told) {
  g_auto(Served) served = set_up_at_epoch();
  static const double values[] = {NAN, INFINITY, -INFINITY, -0.0, 9007199254740993.0, 5e-324};
  for (gsize i = 0; i < G_N_ELEMENTS(values); i++) {
    bring(&served, "x", NULL, NULL, values[i]);
    end_pass(&served);
  }
  g_autofree char *text = get_passes(&served, "");
  g_assert_nonnull(
      strstr(text, GAUGE("\"x\"", "", "null",
                         "null,\"inf\",\"-inf\",0,9007199254740992,4.9406564584124654e-324")));
}

TEST(strings_of_any_bytes_are_json) {
  g_auto(Served) served = set_up_at_epoch();
  char *dimensions[] = {"\xff", "\"\\", "a\nb", "\x01\x7f", "odd", NULL};
  bring(&served, "</script>\xc3", dimensions, "\xe2\x82", 1);
  end_pass(&served);
  g_autofree char *text = get_passes(&served, "");
  g_assert_nonnull(
      strstr(text, GAUGE("\"</script>\xef\xbf\xbd\"",
                         "[\"\xef\xbf\xbd\",\"\\\"\\\\\"],[\"a\\u000ab\",\"\\u0001\x7f\"]",
                         "\"\xef\xbf\xbd\xef\xbf\xbd\"", "1")));
}

TEST(metrics_that_differ_in_anything_are_apart) {
  g_auto(Served) served = set_up_at_epoch();
  char *host[] = {"host", "a", NULL}, *none[] = {NULL}, *odd[] = {"host", "a\1", NULL},
       *two[] = {"host", "a", "disk", "sda", NULL}, *joined[] = {"host", "a\1disk\1sda", NULL};
  bring(&served, "x", NULL, NULL, 1);
  bring(&served, "x", NULL, "", 2);
  bring(&served, "x", host, NULL, 3);
  bring(&served, "x", odd, NULL, 4);
  bring(&served, "x", two, NULL, 5);
  bring(&served, "x", joined, NULL, 6);
  bring(&served, NULL, none, NULL, 7);
  bring_count(&served, "x", 8);
  end_pass(&served);
  assert_logged_like("VEK:service", G_LOG_LEVEL_WARNING,
                     "To Prometheus x{} would be the same as x{}, *");
  g_autofree char *text = get_passes(&served, "");
  static const char *const expected[] = {
      GAUGE("\"x\"", "", "null", "1"),
      GAUGE("\"x\"", "", "\"\"", "2"),
      GAUGE("\"x\"", "[\"host\",\"a\"]", "null", "3"),
      GAUGE("\"x\"", "[\"host\",\"a\\u0001\"]", "null", "4"),
      GAUGE("\"x\"", "[\"host\",\"a\"],[\"disk\",\"sda\"]", "null", "5"),
      GAUGE("\"x\"", "[\"host\",\"a\\u0001disk\\u0001sda\"]", "null", "6"),
      GAUGE("\"\"", "", "null", "7"),
      "\"kind\":\"counter\",\"unit\":null,\"times\":0,\"values\":[8]}",
  };
  for (gsize i = 0; i < G_N_ELEMENTS(expected); i++)
    g_assert_nonnull(strstr(text, expected[i]));
}

TEST(metric_has_gaps_where_it_was_not_reported) {
  g_auto(Served) served = set_up_at_epoch();
  g_object_set(served.server, "history", 6, NULL);
  for (int pass = 1; pass <= 8; pass++) {
    if (pass == 2 || pass == 5)
      bring(&served, "x", NULL, NULL, pass);
    end_pass(&served);
    static const char *const expected[] = {"",
                                           "null,2",
                                           "null,2,null",
                                           "null,2,null,null",
                                           "null,2,null,null,5",
                                           "null,2,null,null,5,null",
                                           "2,null,null,5,null,null",
                                           "null,null,5,null,null,null"};
    g_autofree char *gauge = pass == 1 ? NULL
                                       : g_strdup_printf(
                                             "{\"name\":\"x\",\"dimensions\":[],"
                                             "\"kind\":\"gauge\",\"unit\":null,"
                                             "\"times\":0,\"values\":[%s]}",
                                             expected[pass - 1]);
    assert_member(&served, "", "metrics", "x", gauge);
  }
  for (int pass = 9; pass <= 11; pass++)
    end_pass(&served);
  assert_member(&served, "", "metrics", NULL, "[]");
}

static void assert_passes(Served *served, const char *query, const char *expected) {
  g_autofree char *found = get_member(served, query, "metrics", "x");
  g_autofree char *values = g_strdup_printf("\"values\":[%s]}", expected);
  g_test_message("%s", found);
  g_assert_true(g_str_has_suffix(found, values));
}

TEST(last_240_passes_are_kept) {
  g_auto(Served) served = set_up_at_epoch();
  for (int pass = 1; pass <= 500; pass++) {
    bring(&served, "x", NULL, NULL, pass);
    end_pass(&served);
  }
  g_autoptr(GString) expected = g_string_new("261");
  for (int pass = 262; pass <= 500; pass++)
    g_string_append_printf(expected, ",%d", pass);
  assert_passes(&served, "", expected->str);
}

TEST(history_can_be_changed) {
  g_auto(Served) served = set_up_at_epoch();
  guint history;
  g_object_get(served.server, "history", &history, NULL);
  g_assert_cmpuint(history, ==, 240);
  static const struct {
    guint history;
    const char *before, *expected;
  } rows[] = {
      {240, NULL, "1,2,3,4,5,6,7"},
      {2, "6,7", "13,14"},
      {3, "13,14", "19,20,21"},
      {9, "19,20,21", "20,21,22,23,24,25,26,27,28"},
      {1, "28", "35"},
  };
  int pass = 0;
  for (gsize i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_object_set(served.server, "history", rows[i].history, NULL);
    if (rows[i].before)
      assert_passes(&served, "", rows[i].before);
    for (int j = 0; j < 7; j++) {
      bring(&served, "x", NULL, NULL, ++pass);
      end_pass(&served);
    }
    assert_passes(&served, "", rows[i].expected);
  }
}

TEST(pass_under_way_takes_the_place_of_none) {
  g_auto(Served) served = set_up_at_epoch();
  g_object_set(served.server, "history", 2, NULL);
  for (int pass = 1; pass <= 3; pass++) {
    bring(&served, "x", NULL, NULL, pass);
    end_pass(&served);
  }
  bring(&served, "x", NULL, NULL, 4);
  assert_passes(&served, "", "2,3");
  g_object_set(served.server, "history", 1, NULL);
  assert_passes(&served, "", "3");
  end_pass(&served);
  assert_passes(&served, "", "4");
}

TEST(without_a_history_there_is_no_page) {
  g_auto(Served) served = set_up_at_epoch();
  end_pass(&served);
  g_object_set(served.server, "history", 0, NULL);
  static const char *const paths[] = {"/", "/vars.json", "/events", "/page.css"};
  for (gsize i = 0; i < G_N_ELEMENTS(paths); i++) {
    g_autofree char *lines = g_strdup_printf("GET %s HTTP/1.1|Host: localhost", paths[i]);
    assert_status(&served, lines, "HTTP/1.1 404 Not Found");
  }
  assert_status(&served, "GET /metrics HTTP/1.1|Host: localhost", "HTTP/1.1 200 OK");
  bring(&served, "x", NULL, NULL, 1);
  g_object_set(served.server, "history", 1, NULL);
  end_pass(&served);
  assert_member(&served, "", "metrics", NULL, "[]");
  bring(&served, "x", NULL, NULL, 2);
  end_pass(&served);
  assert_passes(&served, "", "2");
}

TEST(passes_after_a_number_are_sent_alone) {
  g_auto(Served) served = set_up_at_epoch();
  for (int pass = 1; pass <= 4; pass++) {
    bring(&served, "x", NULL, NULL, pass);
    end_pass(&served);
    vek_testing_clock_advance(MINUTE / 2);
  }
  assert_passes(&served, "?after=0", "1,2,3,4");
  assert_passes(&served, "?after=2", "3,4");
  assert_member(&served, "?after=2", "times", NULL, "[[1700000060,1700000090]]");
  assert_member(&served, "?after=2", "pass", NULL, "4");
  assert_passes(&served, "?after=4", "");
  assert_passes(&served, "?after=18446744073709551615", "");
  assert_member(&served, "?after=4", "times", NULL, "[[]]");
  static const char *const wrong[] = {"", "-1", "x", "1x", "18446744073709551616"};
  for (gsize i = 0; i < G_N_ELEMENTS(wrong); i++) {
    g_autofree char *lines =
        g_strdup_printf("GET /vars.json?after=%s HTTP/1.1|Host: localhost", wrong[i]);
    assert_status(&served, lines, "HTTP/1.1 400 Bad Request");
  }
}

TEST(times_never_go_back) {
  g_auto(Served) served = set_up_at_epoch();
  end_pass(&served);
  vek_testing_clock_set(EPOCH + 60 * MINUTE, G_USEC_PER_SEC + 1500);
  end_pass(&served);
  vek_testing_clock_set(EPOCH, G_USEC_PER_SEC + 1500 + MINUTE);
  end_pass(&served);
  end_pass(&served);
  vek_testing_clock_set(EPOCH + 70 * MINUTE, G_USEC_PER_SEC + 1500 + MINUTE);
  end_pass(&served);
  g_autofree char *text = get_passes(&served, "");
  g_assert_nonnull(
      strstr(text, "\"times\":[[1700000000,1700003600,1700003660,1700003660.000001,1700004200]]"));
}

static void assert_timelines(Served *served, const char *query, const char *expected) {
  g_autofree char *text = get_passes(served, query);
  g_autofree char *timelines = g_strdup_printf(",\"timelines\":[%s]}", expected);
  g_test_message("%s", text);
  g_assert_true(g_str_has_suffix(text, timelines));
}

TEST(ranges_are_in_lanes_by_time) {
  g_auto(Served) served = set_up_at_epoch();
  g_autoptr(VekMetricTimeline) timeline =
      vek_metric_registry_timeline_new(fixture.registry, "work");
  vek_metric_timeline_add_range(timeline, 2, EPOCH - 500000, EPOCH - 1);
  vek_metric_timeline_add_range(timeline, -1, EPOCH - 2000000, EPOCH - 1000000);
  vek_metric_timeline_add_range(timeline, 2, EPOCH - 3000000, EPOCH + 50);
  report(&served);
  bring_range(&served, "a\"", 7, EPOCH + 10, EPOCH + 5);
  vek_metric_timeline_add_range(timeline, 2, EPOCH - 4000000, EPOCH);
  report(&served);
  assert_timelines(&served, "",
                   "{\"name\":\"a\\\"\",\"dimensions\":[],\"clock\":\"wall\",\"lanes\":["
                   "{\"id\":\"7\",\"ranges\":[1700000000.00001,1700000000.000005]}]},"
                   "{\"name\":\"work\",\"dimensions\":[],\"clock\":\"wall\",\"lanes\":["
                   "{\"id\":\"-1\",\"ranges\":[1699999998,1699999999]},"
                   "{\"id\":\"2\",\"ranges\":[1699999996,1700000000,1699999997,1700000000.00005,"
                   "1699999999.5,1699999999.999999]}]}");
  assert_timelines(&served, "?after=1",
                   "{\"name\":\"a\\\"\",\"dimensions\":[],\"clock\":\"wall\",\"lanes\":["
                   "{\"id\":\"7\",\"ranges\":[1700000000.00001,1700000000.000005]}]},"
                   "{\"name\":\"work\",\"dimensions\":[],\"clock\":\"wall\",\"lanes\":["
                   "{\"id\":\"2\",\"ranges\":[1699999996,1700000000]}]}");
  assert_timelines(&served, "?after=2", "");
}

TEST(ranges_may_begin_together) {
  g_auto(Served) served = set_up_at_epoch();
  for (int i = 0; i < 100; i++)
    bring_range(&served, "x", 1, EPOCH, EPOCH);
  end_pass(&served);
  g_autoptr(GString) expected = g_string_new("1700000000,1700000000");
  for (int i = 1; i < 100; i++)
    g_string_append(expected, ",1700000000,1700000000");
  g_autofree char *timeline = g_strdup_printf(
      "{\"name\":\"x\",\"dimensions\":[],\"clock\":\"wall\",\"lanes\":["
      "{\"id\":\"1\",\"ranges\":[%s]}]}",
      expected->str);
  assert_timelines(&served, "", timeline);
}

TEST(ranges_of_another_clock_are_told) {
  g_auto(Served) served = set_up_at_epoch();
  bring_range(&served, "x", 1, -1500000, 5);
  bring_range(&served, "y", 1, EPOCH - 10000 * MINUTE, EPOCH + DAY);
  bring_range(&served, "z", 1, EPOCH, EPOCH + DAY + 1);
  end_pass(&served);
  assert_timelines(&served, "",
                   "{\"name\":\"x\",\"dimensions\":[],\"clock\":\"other\",\"lanes\":["
                   "{\"id\":\"1\",\"ranges\":[-1.5,0.000005]}]},"
                   "{\"name\":\"y\",\"dimensions\":[],\"clock\":\"wall\",\"lanes\":["
                   "{\"id\":\"1\",\"ranges\":[1699400000,1700086400]}]},"
                   "{\"name\":\"z\",\"dimensions\":[],\"clock\":\"other\",\"lanes\":["
                   "{\"id\":\"1\",\"ranges\":[1700000000,1700086400.000001]}]}");
}

TEST(timelines_are_shown_that_have_ranges) {
  g_auto(Served) served = set_up_at_epoch();
  g_autoptr(VekMetricTimeline) timeline =
      vek_metric_registry_timeline_new(fixture.registry, "empty");
  report(&served);
  assert_timelines(&served, "", "");
  bring_range(&served, NULL, 1, EPOCH, EPOCH + 1000000); /* of a timeline that was disposed */
  report(&served);
  assert_timelines(&served, "",
                   "{\"name\":\"\",\"dimensions\":[],\"clock\":\"wall\",\"lanes\":["
                   "{\"id\":\"1\",\"ranges\":[1700000000,1700000001]}]}");
}

TEST(passes_that_are_not_kept_any_more_leave_nothing) {
  g_auto(Served) served = set_up_at_epoch();
  bring(&served, "x", NULL, NULL, 1);
  bring_range(&served, "x", 1, 2, 3);
  for (int i = 0; i < 2; i++)
    g_object_set(served.server, "history", 0, NULL);
  bring(&served, "x", NULL, NULL, 2);
  bring_range(&served, "x", 1, 2, 3);
  end_pass(&served);
  g_object_set(served.server, "history", 5, NULL);
  assert_member(&served, "", "pass", NULL, "0");
  assert_member(&served, "", "metrics", NULL, "[]");
  assert_timelines(&served, "", "");
  bring(&served, "x", NULL, NULL, 3);
  end_pass(&served);
  assert_member(&served, "", "pass", NULL, "1");
  assert_passes(&served, "", "3");
  assert_timelines(&served, "", "");
}

TEST(ranges_go_with_their_pass) {
  g_auto(Served) served = set_up_at_epoch();
  g_object_set(served.server, "history", 2, NULL);
  bring_range(&served, "x", 1, 1, 2);
  end_pass(&served);
  end_pass(&served);
  g_autofree char *text = get_passes(&served, "");
  g_assert_nonnull(strstr(text, "\"name\":\"x\""));
  assert_timelines(&served, "?after=1", "");
  bring_range(&served, "y", 1, 1, 2);
  g_autofree char *during = get_passes(&served, "");
  g_assert_null(strstr(during, "\"name\":\"y\""));
  end_pass(&served);
  assert_timelines(&served, "",
                   "{\"name\":\"y\",\"dimensions\":[],\"clock\":\"other\",\"lanes\":["
                   "{\"id\":\"1\",\"ranges\":[0.000001,0.000002]}]}");
}

static guint count_commas(const char *text) {
  guint n = 0;
  while ((text = strchr(text, ',')))
    n++, text++;
  return n;
}

TEST(newest_20000_ranges_are_kept) {
  g_auto(Served) served = set_up_at_epoch();
  g_autoptr(VekMetricTimeline) timeline = vek_metric_registry_timeline_new(fixture.registry, "x");
  for (int pass = 0; pass < 5; pass++) {
    for (int i = 0; i < 6000; i++)
      vek_metric_timeline_add_range(timeline, 1, pass * 6000 + i, 0);
    report(&served);
  }
  for (int half = 0; half < 2; half++) {
    g_autofree char *text = get_passes(&served, "");
    char *ranges = strstr(text, "\"ranges\":[");
    g_assert_cmpuint(count_commas(ranges), ==, 2 * (half ? 20000 : 18000) - 1);
    g_assert_true(g_str_has_prefix(ranges, half ? "\"ranges\":[0.04," : "\"ranges\":[0.012,"));
    for (int i = 30000; i < 60000; i++)
      vek_metric_timeline_add_range(timeline, 1, i, 0);
    report(&served);
  }
  vek_metric_timeline_add_range(timeline, 1, 70000, 0);
  report(&served);
  g_autofree char *text = get_passes(&served, "");
  g_assert_nonnull(strstr(text, "\"ranges\":[0.07,0]")); /* those of a pass go together */
}

static gpointer run_passes(gpointer data) {
  Served *served = data;
  for (int pass = 0; pass < 300; pass++) {
    for (int i = 0; i < 20; i++) {
      g_autofree char *name = g_strdup_printf("gauge%d", i + pass / 20);
      bring(served, name, NULL, NULL, i);
    }
    bring_range(served, "x", 1, pass, pass + 1);
    end_pass(served);
  }
  return NULL;
}

TEST(passes_may_be_of_another_thread) {
  g_auto(Served) served = set_up_at_epoch();
  GThread *thread = g_thread_new("passes", run_passes, &served);
  for (int i = 0; i < 30; i++)
    g_free(get_passes(&served, ""));
  g_thread_join(thread);
  assert_member(&served, "", "pass", NULL, "300");
}

static void start_to_listen(gpointer served) {
  listen_locally(served);
}

static void set_history(gpointer data) {
  Served *served = data;
  g_object_set(served->server, "history", 2, NULL);
}

static void get_document(gpointer served) {
  g_free(get_passes(served, ""));
}

static void bring_value(gpointer served) {
  bring(served, "gauge", NULL, NULL, 1);
}

static void bring_range_of_one(gpointer served) {
  bring_range(served, "timeline", 1, 0, 1);
}

static void end_first_pass(gpointer served) {
  end_pass(served);
}

TEST(passes_of_another_thread_follow_what_the_server_does) {
  g_auto(Served) served = set_up();
  run_in_turn(start_to_listen, end_first_pass, &served);
  run_in_turn(set_history, bring_value, &served);
  run_in_turn(set_history, bring_range_of_one, &served);
  assert_member(&served, "", "pass", NULL, "1");

  g_auto(Served) other = set_up_at_epoch();
  run_in_turn(get_document, end_first_pass, &other);
}
