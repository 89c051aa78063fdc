// Tests of VekMetric. They are in C++ because vek_metric_report() is private.

#include <vekmetrics/metric.hpp>

#include "support/fixture.h"
#include "support/heap.h"

// A metric kind that counts its reports and keeps the arguments of the last.
struct Probe {
  VekMetric parent_instance;

  guint n_reports;
  VekMetric *reported;
  GSList *reporters;
};

struct ProbeClass {
  VekMetricClass parent_class;
};

G_DEFINE_TYPE(Probe, probe, VEK_TYPE_METRIC)

static void probe_report(VekMetric *metric, GSList *reporters) {
  auto *self = reinterpret_cast<Probe *>(metric);
  self->n_reports++;
  self->reported = metric;
  self->reporters = reporters;
}

static void probe_class_init(ProbeClass *klass) {
  VEK_METRIC_CLASS(klass)->report = probe_report;
}

static void probe_init(Probe *) {}

static const char *kHost[] = {"host", "h1", nullptr};

static VekMetric *probe_new() {
  return VEK_METRIC(g_object_new(probe_get_type(), "name", "requests", "unit", "Count",
                                 "dimensions", kHost, nullptr));
}

TEST(the_type_is_an_abstract_object) {
  g_assert_cmpstr(g_type_name(VEK_TYPE_METRIC), ==, "VekMetric");
  g_assert_cmpuint(g_type_parent(VEK_TYPE_METRIC), ==, G_TYPE_OBJECT);
  g_assert_true(G_TYPE_IS_ABSTRACT(VEK_TYPE_METRIC));
}

TEST(instantiating_the_base_type_fails) {
  if (g_test_subprocess()) {
    g_object_new(VEK_TYPE_METRIC, "name", "requests", nullptr);
    return;
  }
  g_test_trap_subprocess(nullptr, 0, G_TEST_SUBPROCESS_DEFAULT);
  g_test_trap_assert_failed();
  g_test_trap_assert_stderr("*cannot create instance of abstract*'VekMetric'*");
}

TEST(the_base_type_has_no_report_of_its_own) {
  auto *klass = static_cast<VekMetricClass *>(g_type_class_ref(VEK_TYPE_METRIC));
  g_assert_true(klass->report == nullptr);
  g_type_class_unref(klass);
}

TEST(properties_are_as_documented) {
  constexpr guint kConstructOnly =
      G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY | G_PARAM_STATIC_STRINGS;
  constexpr guint kConstruct = G_PARAM_READWRITE | G_PARAM_CONSTRUCT | G_PARAM_STATIC_STRINGS;
  const struct {
    const char *name;
    GType type;
    guint flags;
  } expected[] = {
      {"name", G_TYPE_STRING, kConstructOnly},
      {"unit", G_TYPE_STRING, kConstructOnly},
      {"dimensions", G_TYPE_STRV, kConstructOnly},
      {"active", G_TYPE_BOOLEAN, kConstruct},
  };

  auto *klass = static_cast<GObjectClass *>(g_type_class_ref(VEK_TYPE_METRIC));
  guint n_properties = 0;
  g_free(g_object_class_list_properties(klass, &n_properties));
  g_assert_cmpuint(n_properties, ==, G_N_ELEMENTS(expected));
  for (guint i = 0; i < n_properties; i++) {
    const char *name = expected[i].name;
    GParamSpec *property = g_object_class_find_property(klass, name);
    g_assert_nonnull(property);
    g_assert_cmpuint(property->param_id, ==, i + 1);
    g_assert_cmpuint(property->value_type, ==, expected[i].type);
    g_assert_cmphex(property->flags, ==, expected[i].flags);
    g_assert_cmpstr(g_param_spec_get_nick(property), ==, name);
    g_assert_cmpstr(g_param_spec_get_blurb(property), ==, name);
  }

  auto get_default = [klass](const char *name) {
    return g_param_spec_get_default_value(g_object_class_find_property(klass, name));
  };
  g_assert_null(g_value_get_string(get_default("name")));
  g_assert_null(g_value_get_string(get_default("unit")));
  g_assert_null(g_value_get_boxed(get_default("dimensions")));
  g_assert_true(g_value_get_boolean(get_default("active")));
  g_type_class_unref(klass);
}

TEST(a_bare_metric_has_the_defaults) {
  g_autoptr(VekMetric) metric = VEK_METRIC(g_object_new(probe_get_type(), nullptr));
  g_assert_null(vek_metric_get_name(metric));
  g_assert_null(vek_metric_get_unit(metric));
  g_assert_null(vek_metric_get_dimensions(metric));
  g_assert_true(vek_metric_is_active(metric));
}

TEST(a_metric_keeps_copies) {
  char name[] = "requests";
  char unit[] = "Count";
  char host[] = "host";
  char h1[] = "h1";
  char *dimensions[] = {host, h1, nullptr};
  g_autoptr(VekMetric) metric = VEK_METRIC(g_object_new(probe_get_type(), "name", name, "unit",
                                                        unit, "dimensions", dimensions, nullptr));
  name[0] = unit[0] = host[0] = h1[0] = '?';

  g_assert_cmpstr(vek_metric_get_name(metric), ==, "requests");
  g_assert_cmpstr(vek_metric_get_unit(metric), ==, "Count");
  const char *expected[] = {"host", "h1", nullptr};
  g_assert_cmpstrv(vek_metric_get_dimensions(metric), expected);
}

TEST(reading_properties_gives_copies) {
  g_autoptr(VekMetric) metric = probe_new();
  g_autofree char *name = nullptr;
  g_autofree char *unit = nullptr;
  g_auto(GStrv) dimensions = nullptr;
  gboolean active = FALSE;
  g_object_get(metric, "name", &name, "unit", &unit, "dimensions", &dimensions, "active", &active,
               nullptr);
  g_assert_cmpstr(name, ==, "requests");
  g_assert_cmpstr(unit, ==, "Count");
  g_assert_cmpstrv(dimensions, kHost);
  g_assert_true(active);

  g_assert_true(name != vek_metric_get_name(metric));
  g_assert_true(unit != vek_metric_get_unit(metric));
  g_assert_true(dimensions != vek_metric_get_dimensions(metric));
  g_assert_true(dimensions[0] != vek_metric_get_dimensions(metric)[0]);
}

TEST(getters_lend_what_the_metric_owns) {
  g_autoptr(VekMetric) metric = probe_new();
  g_assert_true(vek_metric_get_name(metric) == vek_metric_get_name(metric));
  g_assert_true(vek_metric_get_unit(metric) == vek_metric_get_unit(metric));
  g_assert_true(vek_metric_get_dimensions(metric) == vek_metric_get_dimensions(metric));
}

TEST(without_dimensions_there_is_no_vector) {
  g_autoptr(VekMetric) metric =
      VEK_METRIC(g_object_new(probe_get_type(), "name", "requests", nullptr));
  g_assert_null(vek_metric_get_dimensions(metric));
}

TEST(an_empty_vector_stays_an_empty_vector) {
  char *dimensions[] = {nullptr};
  g_autoptr(VekMetric) metric = VEK_METRIC(
      g_object_new(probe_get_type(), "name", "requests", "dimensions", dimensions, nullptr));
  g_assert_nonnull(vek_metric_get_dimensions(metric));
  g_assert_cmpuint(g_strv_length(vek_metric_get_dimensions(metric)), ==, 0);
}

TEST(the_identity_cannot_be_written_afterwards) {
  g_autoptr(VekMetric) metric = probe_new();
  g_object_set(metric, "name", "other", nullptr);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, "*\"name\"*after construction*");
  g_object_set(metric, "unit", "other", nullptr);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, "*\"unit\"*after construction*");
  g_object_set(metric, "dimensions", nullptr, nullptr);
  assert_logged_like("GLib-GObject", G_LOG_LEVEL_WARNING, "*\"dimensions\"*after construction*");

  g_assert_cmpstr(vek_metric_get_name(metric), ==, "requests");
  g_assert_cmpstr(vek_metric_get_unit(metric), ==, "Count");
  g_assert_cmpstrv(vek_metric_get_dimensions(metric), kHost);
}

TEST(active_can_be_written_at_any_time) {
  g_autoptr(VekMetric) metric =
      VEK_METRIC(g_object_new(probe_get_type(), "active", FALSE, nullptr));
  g_assert_false(vek_metric_is_active(metric));
  g_object_set(metric, "active", TRUE, nullptr);
  g_assert_true(vek_metric_is_active(metric));
}

TEST(marking_inactive_clears_the_flag_and_the_property) {
  g_autoptr(VekMetric) metric = probe_new();
  vek_metric_mark_inactive(metric);

  g_assert_false(vek_metric_is_active(metric));
  gboolean active = TRUE;
  g_object_get(metric, "active", &active, nullptr);
  g_assert_false(active);

  vek_metric_mark_inactive(metric);
  g_assert_false(vek_metric_is_active(metric));
}

TEST(marking_inactive_notifies_nobody) {
  g_autoptr(VekMetric) metric = probe_new();
  guint n_notifications = 0;
  auto on_notify = +[](GObject *, GParamSpec *, gpointer data) { ++*static_cast<guint *>(data); };
  g_signal_connect(metric, "notify::active", G_CALLBACK(on_notify), &n_notifications);

  vek_metric_mark_inactive(metric);
  g_assert_cmpuint(n_notifications, ==, 0);
}

TEST(an_unknown_property_id_warns_and_changes_nothing) {
  g_autoptr(VekMetric) metric = probe_new();
  auto *klass = static_cast<GObjectClass *>(g_type_class_peek(VEK_TYPE_METRIC));
  GParamSpec *property = g_object_class_find_property(klass, "name");
  g_auto(GValue) value = G_VALUE_INIT;
  g_value_init(&value, G_TYPE_STRING);
  g_value_set_static_string(&value, "other");

  klass->set_property(G_OBJECT(metric), 5, &value, property);
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_WARNING,
                     "*metric.cpp:*: invalid property id 5 for \"name\" of type 'GParamString' in "
                     "'Probe'");
  klass->get_property(G_OBJECT(metric), 0, &value, property);
  assert_logged_like("VEK:metrics", G_LOG_LEVEL_WARNING,
                     "*metric.cpp:*: invalid property id 0 for \"name\" of type 'GParamString' in "
                     "'Probe'");

  g_assert_cmpstr(g_value_get_string(&value), ==, "other");
  g_assert_cmpstr(vek_metric_get_name(metric), ==, "requests");
  g_assert_cmpstr(vek_metric_get_unit(metric), ==, "Count");
  g_assert_cmpstrv(vek_metric_get_dimensions(metric), kHost);
  g_assert_true(vek_metric_is_active(metric));
}

TEST(reporting_to_no_reporters_asks_nobody) {
  g_autoptr(VekMetric) metric = probe_new();
  vek_metric_report(metric, nullptr);
  g_assert_cmpuint(reinterpret_cast<Probe *>(metric)->n_reports, ==, 0);
}

TEST(reporting_calls_the_kind_once_with_the_same_arguments) {
  g_autoptr(VekMetric) metric = probe_new();
  auto *probe = reinterpret_cast<Probe *>(metric);
  g_autoptr(GSList) reporters = g_slist_prepend(nullptr, nullptr);
  reporters = g_slist_prepend(reporters, nullptr);

  vek_metric_report(metric, reporters);
  g_assert_cmpuint(probe->n_reports, ==, 1);
  g_assert_true(probe->reported == metric);
  g_assert_true(probe->reporters == reporters);
}

TEST(reporting_does_not_ask_whether_the_metric_is_active) {
  g_autoptr(VekMetric) metric = probe_new();
  g_autoptr(GSList) reporters = g_slist_prepend(nullptr, nullptr);
  vek_metric_mark_inactive(metric);
  vek_metric_report(metric, reporters);
  g_assert_cmpuint(reinterpret_cast<Probe *>(metric)->n_reports, ==, 1);
}

// The cast is by hand: the macro would warn on its own account.
static void assert_all_checks_fail(gpointer instance) {
  auto *metric = static_cast<VekMetric *>(instance);
  g_autoptr(GSList) reporters = g_slist_prepend(nullptr, nullptr);
  const char *condition = "VEK_IS_METRIC(metric)";

  g_assert_null(vek_metric_get_name(metric));
  assert_failed_check("vek_metric_get_name", condition);
  g_assert_null(vek_metric_get_unit(metric));
  assert_failed_check("vek_metric_get_unit", condition);
  g_assert_null(vek_metric_get_dimensions(metric));
  assert_failed_check("vek_metric_get_dimensions", condition);
  g_assert_false(vek_metric_is_active(metric));
  assert_failed_check("vek_metric_is_active", condition);
  vek_metric_mark_inactive(metric);
  assert_failed_check("vek_metric_mark_inactive", condition);
  vek_metric_report(metric, nullptr);
  assert_failed_check("vek_metric_report", condition);
  vek_metric_report(metric, reporters);
  assert_failed_check("vek_metric_report", condition);
}

TEST(null_fails_every_check_and_gives_neutral_values) {
  assert_all_checks_fail(nullptr);
}

TEST(another_object_fails_every_check_and_gives_neutral_values) {
  g_autoptr(GObject) object = G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr));
  assert_all_checks_fail(object);
}

TEST(a_disposed_metric_has_no_identity) {
  g_autoptr(VekMetric) metric = probe_new();
  for (guint i = 0; i < 2; i++) {
    run_dispose(metric);
    g_assert_null(vek_metric_get_name(metric));
    g_assert_null(vek_metric_get_unit(metric));
    g_assert_null(vek_metric_get_dimensions(metric));
    g_assert_true(vek_metric_is_active(metric));
  }
}

TEST(dispose_reaches_the_parent) {
  g_autoptr(VekMetric) metric = probe_new();
  run_dispose(metric);
}

static void make_and_unref() {
  g_object_unref(probe_new());
}

TEST(a_metric_frees_its_strings) {
  assert_frees_all(make_and_unref);
}
