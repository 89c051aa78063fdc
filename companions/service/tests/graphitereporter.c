/* Tests of VekServiceGraphiteReporter, against servers of their own on loopback. */

#include "support/fixture.h"
#include "support/lineserver.h"

#include <float.h>
#include <math.h>
#include <string.h>

static char *make_name(GRand *rand) {
  static const char *const parts[] = {"a",  "Z",   "0",   "-", "_",  ".", "/",
                                      ",",  ";",   "=",   "%", "\"", "}", "~",
                                      "!",  "^",   "\\",  "é", "日", "ß", "\xf0\x9f\x92\xa1",
                                      "x1", "cpu", "time"};
  GString *name = g_string_new(NULL);
  for (int n = g_rand_int_range(rand, 1, 8); n > 0; n--)
    g_string_append(name, parts[g_rand_int_range(rand, 0, G_N_ELEMENTS(parts))]);
  return g_string_free(name, FALSE);
}

static char *make_name_or_none(GRand *rand) {
  switch (g_rand_int_range(rand, 0, 4)) {
  case 0: return NULL;
  case 1: return g_strdup("");
  default: return make_name(rand);
  }
}

/* Makes the same calls with random arguments for both. */
static void report_anything(GRand *rand, VekMetricReporter *one, VekMetricReporter *other) {
  g_autofree char *name = make_name(rand);
  g_autofree char *unit = make_name_or_none(rand);
  g_auto(GStrv) dimensions = NULL;
  if (g_rand_boolean(rand)) {
    guint n = 2 * (guint)g_rand_int_range(rand, 0, 3);
    dimensions = g_new0(char *, n + 1);
    for (guint i = 0; i < n; i++)
      dimensions[i] = make_name(rand);
  }
  gint64 bits = (gint64)((guint64)g_rand_int(rand) << 32 | g_rand_int(rand));
  static const double values[] = {0.0, -0.0, 0.5, 1e-7, -DBL_MAX, DBL_MIN, INFINITY, NAN};
  gboolean special = g_rand_boolean(rand);
  double value = special ? values[g_rand_int_range(rand, 0, G_N_ELEMENTS(values))]
                         : g_rand_double_range(rand, -1e12, 1e12);
  double samples[] = {value, g_rand_double(rand), g_rand_double(rand)};
  vek_testing_clock_set(bits, 0);
  g_autoptr(VekMetricSnapshot) snapshot =
      vek_metric_snapshot_new(samples, (gsize)g_rand_int_range(rand, 0, 4));

  int kind = g_rand_int_range(rand, 0, 3);
  VekMetricReporter *both[] = {one, other};
  for (guint i = 0; i < G_N_ELEMENTS(both); i++) {
    VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(both[i]);
    switch (kind) {
    case 0: iface->process_count(both[i], name, dimensions, unit, bits, bits); break;
    case 1: iface->process_value(both[i], name, dimensions, unit, bits, value); break;
    default: iface->process_aggregated(both[i], name, dimensions, unit, snapshot);
    }
  }
}

TEST(lines_are_those_of_the_carbon_reporter_byte_for_byte) {
  static const char *const prefixes[] = {NULL, "", "site", "a.b;c"};
  g_autoptr(GRand) rand = g_rand_new_with_seed(11);
  for (guint i = 0; i < G_N_ELEMENTS(prefixes); i++) {
    g_autoptr(LineServer) ours = line_server_new("127.0.0.1");
    g_autoptr(LineServer) theirs = line_server_new("127.0.0.1");
    VekMetricReporter *carbon =
        vek_metric_carbon_reporter_new(prefixes[i], theirs->address, theirs->port);
    line_server_accept(theirs);
    run_until(log_capture_get_n_waiting() > 0);
    assert_logged_like("VEK:metrics", G_LOG_LEVEL_INFO, "Established*");
    line_server_read(theirs);
    g_autoptr(VekMetricReporter) reporter = connect_reporter(ours, prefixes[i]);

    for (int n = 0; n < 500; n++)
      report_anything(rand, reporter, carbon);
    flush(reporter);
    flush(carbon);
    g_object_unref(carbon); /* it closes its connection when all is sent */
    run_until(theirs->ended);
    while (log_capture_get_n_waiting() > 0)
      assert_logged_like("VEK:metrics", G_LOG_LEVEL_DEBUG, "*");
    g_assert_cmpuint(theirs->received->len, >, 10000);
    assert_received(ours, theirs->received->str);
  }
}

TEST(what_would_break_a_line_becomes_an_underscore) {
  static const struct {
    const char *name;
    const char *written;
  } rows[] = {
      {"a b", "a_b"},
      {"a 1 2\nforged", "a_1_2_forged"},
      {"\r\n\t\v\f", "_____"},
      {"\x01\x1f\x7f", "___"},
      {"a\xc2\x85"
       "b\xc2\xa0"
       "c\xe2\x80\xa8"
       "d\xe3\x80\x80"
       "e",
       "a_b_c_d_e"},
      {"\xff"
       "a\xc3",
       "_a_"},
      {"\xc0\x8a", "__"}, /* a line feed in more bytes than it needs */
      {"é", "é"},
  };
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    const char *name = rows[i].name;
    const char *written = rows[i].written;
    g_autoptr(VekMetricReporter) reporter = connect_reporter(server, name);
    char *dimensions[] = {(char *)name, (char *)name, NULL};
    process_count_of(reporter, name, dimensions, name, 1);
    g_object_set(reporter, "tags", TRUE, NULL);
    process_count_of(reporter, name, dimensions, name, 1);
    flush(reporter);
    g_autofree char *expected = g_strdup_printf(
        "%s.%s.%s.%s.%s 1 1700000000\n%s.%s.%s;%s=%s 1 1700000000\n", written, written, written,
        written, written, written, written, written, written, written);
    assert_received(server, expected);
  }
}

TEST(metric_without_a_name_has_an_underscore) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, "site");
  send_count(reporter, NULL, 1);
  assert_received(server, "site._ 1 1700000000\n");
}

TEST(quantiles_add_a_line_each) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, "site");
  g_object_set(reporter, "quantiles",
               g_variant_new_parsed("[0.5, 0.99, 0.999, 0.05, 0.005, 0.1234567, 0.0, 1.0]"), NULL);
  vek_testing_clock_set(TIMESTAMP, 0);
  double samples[] = {1, 2, 3, 4, 5};
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new(samples, 5);
  char *dimensions[] = {"host", "h1", NULL};
  process_samples(reporter, "wait", dimensions, "s", snapshot);
  flush(reporter);

  assert_received(server,
                  "site.host.h1.s.wait.average 3.000000 1700000000\n"
                  "site.host.h1.s.wait.n_samples 5 1700000000\n"
                  "site.host.h1.s.wait.min 1.000000 1700000000\n"
                  "site.host.h1.s.wait.max 5.000000 1700000000\n"
                  "site.host.h1.s.wait.p50 3.000000 1700000000\n"
                  "site.host.h1.s.wait.p99 4.960000 1700000000\n"
                  "site.host.h1.s.wait.p999 4.996000 1700000000\n"
                  "site.host.h1.s.wait.p05 1.000000 1700000000\n"
                  "site.host.h1.s.wait.p005 1.000000 1700000000\n"
                  "site.host.h1.s.wait.p1234567 1.000000 1700000000\n"
                  "site.host.h1.s.wait.p00 1.000000 1700000000\n"
                  "site.host.h1.s.wait.p100 5.000000 1700000000\n");

  g_object_set(reporter, "quantiles", g_variant_new_parsed("[-0.0]"), NULL);
  process_samples(reporter, "w", NULL, NULL, snapshot);
  flush(reporter);
  assert_received(server,
                  "site.w.average 3.000000 1700000000\n"
                  "site.w.n_samples 5 1700000000\n"
                  "site.w.min 1.000000 1700000000\n"
                  "site.w.max 5.000000 1700000000\n"
                  "site.w.p00 1.000000 1700000000\n");

  g_object_set(reporter, "quantiles", NULL, NULL);
  process_samples(reporter, "w", NULL, NULL, snapshot);
  flush(reporter);
  assert_received(server,
                  "site.w.average 3.000000 1700000000\n"
                  "site.w.n_samples 5 1700000000\n"
                  "site.w.min 1.000000 1700000000\n"
                  "site.w.max 5.000000 1700000000\n");
}

TEST(dimensions_are_written_as_tags_on_demand) {
  static const struct {
    char *dimensions[5];
    const char *expected;
  } rows[] = {
      {{NULL}, "a_b.u_v.n_m 1 1700000000\n"},
      {{"host", "h1", NULL}, "a_b.u_v.n_m;host=h1 1 1700000000\n"},
      {{"host", "h1", "zone", "é", NULL}, "a_b.u_v.n_m;host=h1;zone=é 1 1700000000\n"},
      {{"a;!^=b", "c;!^=d", NULL}, "a_b.u_v.n_m;a____b=c_!^=d 1 1700000000\n"},
      {{"~a", "~b~", NULL}, "a_b.u_v.n_m;~a=_b~ 1 1700000000\n"},
      {{"", "", NULL}, "a_b.u_v.n_m;_=_ 1 1700000000\n"},
      {{"a", "~", NULL}, "a_b.u_v.n_m;a=_ 1 1700000000\n"},
      {{"host", "h1", "zone", NULL}, "a_b.u_v.n_m;host=h1 1 1700000000\n"},
  };
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, "a;b");
  g_object_set(reporter, "tags", TRUE, NULL);
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    process_count_of(reporter, "n;m", (char **)rows[i].dimensions, "u;v", 1);
    flush(reporter);
    assert_received(server, rows[i].expected);
  }

  process_count_of(reporter, "n", NULL, NULL, 1);
  g_object_set(reporter, "quantiles", g_variant_new_parsed("[0.5]"), NULL);
  vek_testing_clock_set(TIMESTAMP, 0);
  g_autoptr(VekMetricSnapshot) snapshot = vek_metric_snapshot_new((double[]){2}, 1);
  process_samples(reporter, "w", (char **)rows[1].dimensions, NULL, snapshot);
  flush(reporter);
  assert_received(server,
                  "a_b.n 1 1700000000\n"
                  "a_b.w.average;host=h1 2.000000 1700000000\n"
                  "a_b.w.n_samples;host=h1 1 1700000000\n"
                  "a_b.w.min;host=h1 2.000000 1700000000\n"
                  "a_b.w.max;host=h1 2.000000 1700000000\n"
                  "a_b.w.p50;host=h1 2.000000 1700000000\n");
}

TEST(properties_have_their_defaults_and_read_back) {
  g_autoptr(GObject) reporter =
      g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, "host", "127.0.0.1", NULL);
  g_autofree char *prefix = NULL, *host = NULL, *other_host = NULL;
  guint port, max_lines;
  gboolean tags;
  g_autoptr(GVariant) quantiles = NULL;
  g_object_get(reporter, "prefix", &prefix, "host", &host, "port", &port, "max-lines", &max_lines,
               "quantiles", &quantiles, "tags", &tags, NULL);
  g_assert_cmpstr(prefix, ==, NULL);
  g_assert_cmpstr(host, ==, "127.0.0.1");
  g_assert_cmpuint(port, ==, 2003);
  g_assert_cmpuint(max_lines, ==, 100000);
  g_assert_null(quantiles);
  g_assert_false(tags);
  assert_lines(VEK_METRIC_REPORTER(reporter), 0, 0, 0);
  g_assert_false(is_connected(VEK_METRIC_REPORTER(reporter)));

  g_object_run_dispose(reporter); /* it would try to connect */
  g_object_unref(reporter);
  reporter = g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, "prefix", "site", "host", "127.0.0.2",
                          "port", 1, "max-lines", 7, "tags", TRUE, "quantiles",
                          g_variant_new_parsed("[0.25]"), NULL);
  g_object_get(reporter, "prefix", &prefix, "host", &other_host, "port", &port, "max-lines",
               &max_lines, "quantiles", &quantiles, "tags", &tags, NULL);
  g_assert_cmpstr(prefix, ==, "site");
  g_assert_cmpstr(other_host, ==, "127.0.0.2");
  g_assert_cmpuint(port, ==, 1);
  g_assert_cmpuint(max_lines, ==, 7);
  g_autofree char *text = g_variant_print(quantiles, FALSE);
  g_assert_cmpstr(text, ==, "[0.25]");
  g_assert_true(tags);
  g_object_run_dispose(reporter);
  run_until_idle();
}

TEST(bad_arguments_are_refused) {
  static const struct {
    const char *host;
    guint port;
    const char *condition;
  } rows[] = {
      {NULL, 2003, "host != NULL && *host != '\\0'"},
      {"", 2003, "host != NULL && *host != '\\0'"},
      {"localhost", 0, "port > 0 && port <= G_MAXUINT16"},
      {"localhost", 65536, "port > 0 && port <= G_MAXUINT16"},
  };
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_assert_null(vek_service_graphite_reporter_new("site", rows[i].host, rows[i].port));
    g_autofree char *message = g_strdup_printf(
        "vek_service_graphite_reporter_new: assertion '%s' failed", rows[i].condition);
    assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL, message);
  }
  g_assert_false(vek_service_drain_is_busy(NULL));
  assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                "vek_service_drain_is_busy: assertion 'VEK_SERVICE_IS_DRAIN(drain)' failed");
}

TEST(reporter_without_a_host_does_nothing) {
  static const char *const hosts[] = {NULL, ""};
  for (guint i = 0; i < G_N_ELEMENTS(hosts); i++) {
    g_autoptr(VekMetricReporter) reporter =
        g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, "host", hosts[i], NULL);
    assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                  "vek_service_graphite_reporter_constructed: assertion 'self->host != NULL && "
                  "*self->host != '\\0'' failed");
    VekMetricReporterInterface *iface = VEK_METRIC_REPORTER_GET_IFACE(reporter);
    iface->process_count(reporter, NULL, NULL, NULL, TIMESTAMP, 1);
    iface->process_value(reporter, NULL, NULL, NULL, TIMESTAMP, 1.0);
    iface->process_aggregated(reporter, NULL, NULL, NULL, NULL);
    iface->flush(reporter);
    g_assert_false(is_busy(reporter));
    assert_lines(reporter, 0, 0, 0);
  }
}

TEST(properties_have_the_defaults_that_they_declare) {
  g_autoptr(GObject) reporter = g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, NULL);
  assert_logged_like("VEK:service", G_LOG_LEVEL_CRITICAL, "*self->host != NULL*");
  guint n_properties;
  g_autofree GParamSpec **properties =
      g_object_class_list_properties(G_OBJECT_GET_CLASS(reporter), &n_properties);
  g_assert_cmpuint(n_properties, ==, 10);
  for (guint i = 0; i < n_properties; i++) {
    g_auto(GValue) value = G_VALUE_INIT;
    g_object_get_property(reporter, properties[i]->name, &value);
    g_test_message("%s", properties[i]->name);
    g_assert_true(g_param_value_defaults(properties[i], &value));
  }
}

TEST(bad_property_values_are_refused_and_change_nothing) {
  g_autoptr(LineServer) server = line_server_new("127.0.0.1");
  g_autoptr(VekMetricReporter) reporter = connect_reporter(server, NULL);
  g_object_set(reporter, "max-lines", 5, "quantiles", g_variant_new_parsed("[0.5]"), NULL);

  static const char *const outside[] = {"[0.5, 1.1]", "[-0.1]", "[double 0, 2]"};
  for (guint i = 0; i < G_N_ELEMENTS(outside); i++) {
    g_object_set(reporter, "quantiles", g_variant_new_parsed(outside[i]), NULL);
    assert_logged("VEK:service", G_LOG_LEVEL_CRITICAL,
                  "vek_service_graphite_reporter_set_property: assertion "
                  "'are_from_0_to_1(quantiles)' failed");
  }
  double nan[] = {NAN};
  g_object_set(reporter, "quantiles",
               g_variant_new_fixed_array(G_VARIANT_TYPE_DOUBLE, nan, 1, sizeof *nan), NULL);
  assert_logged_like("VEK:service", G_LOG_LEVEL_CRITICAL, "*are_from_0_to_1*");
  g_object_set(reporter, "quantiles", g_variant_new_string("0.5"), NULL);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, "*'quantiles'*");
  g_object_set(reporter, "max-lines", 0, NULL);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, "*'max-lines'*");

  g_autoptr(GVariant) quantiles = NULL;
  guint max_lines;
  g_object_get(reporter, "quantiles", &quantiles, "max-lines", &max_lines, NULL);
  g_autofree char *text = g_variant_print(quantiles, FALSE);
  g_assert_cmpstr(text, ==, "[0.5]");
  g_assert_cmpuint(max_lines, ==, 5);

  static const struct {
    guint port, max_lines;
    const char *warning;
    guint port_then, max_lines_then;
  } rows[] = {
      {0, 1, "*'port'*", 2003, 1},
      {65536, 1, "*'port'*", 2003, 1},
      {1, 0, "*'max-lines'*", 1, 100000},
  };
  for (guint i = 0; i < G_N_ELEMENTS(rows); i++) {
    g_autoptr(GObject) other =
        g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, "host", "127.0.0.1", "port", rows[i].port,
                     "max-lines", rows[i].max_lines, NULL);
    assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, rows[i].warning);
    guint port;
    g_object_get(other, "port", &port, "max-lines", &max_lines, NULL);
    g_assert_cmpuint(port, ==, rows[i].port_then);
    g_assert_cmpuint(max_lines, ==, rows[i].max_lines_then);
    g_object_run_dispose(other);
    run_until_idle();
  }
}

TEST(unknown_property_warns) {
  g_autoptr(GObject) reporter =
      g_object_new(VEK_SERVICE_TYPE_GRAPHITE_REPORTER, "host", "127.0.0.1", NULL);
  assert_unknown_property_warns_in("VEK:service", reporter);
  g_object_run_dispose(reporter); /* it would try to connect */
  run_until_idle();
}

TEST(every_operation_is_set_but_that_for_timelines) {
  g_autoptr(GTypeClass) klass = g_type_class_ref(VEK_SERVICE_TYPE_GRAPHITE_REPORTER);
  VekMetricReporterInterface *iface = g_type_interface_peek(klass, VEK_TYPE_METRIC_REPORTER);
  g_assert_nonnull(iface->process_count);
  g_assert_nonnull(iface->process_value);
  g_assert_null(iface->process_timeline_samples);
  g_assert_nonnull(iface->process_aggregated);
  g_assert_nonnull(iface->flush);
}
