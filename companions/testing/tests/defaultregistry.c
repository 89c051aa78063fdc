#include "support.h"

TEST(pushed_registry_is_the_default_until_it_is_popped) {
  VekMetricRegistry *before = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  vek_metric_registry_set_default(before);
  g_autoptr(VekMetricCounter) requests =
      vek_metric_registry_counter_new(before, "requests", NULL, NULL);
  vek_metric_counter_inc(requests);

  VekMetricRegistry *outer = vek_testing_registry_push();
  g_assert_true(VEK_IS_METRIC_REGISTRY(outer));
  g_assert_true(outer != before);
  g_assert_true(vek_metric_registry_get_default() == outer);
  g_assert_null(vek_metric_registry_get_metric(outer, "requests", NULL));

  VekMetricRegistry *inner = vek_testing_registry_push();
  g_assert_true(inner != outer);
  g_assert_true(vek_metric_registry_get_default() == inner);
  vek_testing_registry_pop();
  g_assert_true(vek_metric_registry_get_default() == outer);
  vek_testing_registry_pop();
  g_assert_true(vek_metric_registry_get_default() == before);
  g_assert_cmpint(vek_metric_counter_get_count(requests), ==, 1);

  vek_metric_registry_set_default(NULL);
  g_assert_finalize_object(before);
}

TEST(popped_registry_goes_unless_somebody_holds_it) {
  VekMetricRegistry *registry = vek_testing_registry_push();
  g_object_add_weak_pointer(G_OBJECT(registry), (gpointer *)&registry);
  vek_testing_registry_pop();
  g_assert_null(registry);

  registry = g_object_ref(vek_testing_registry_push());
  vek_testing_registry_pop();
  g_assert_finalize_object(registry);
}

TEST(no_default_registry_before_is_no_matter) {
  vek_metric_registry_set_default(NULL);
  VekMetricRegistry *registry = vek_testing_registry_push();
  g_assert_true(vek_metric_registry_get_default() == registry);
  vek_testing_registry_pop();
  g_assert_true(VEK_IS_METRIC_REGISTRY(vek_metric_registry_get_default()));
  vek_metric_registry_set_default(NULL);
}

TEST(autoptr_pops_at_the_end_of_its_scope) {
  VekMetricRegistry *before = vek_metric_registry_get_default();
  {
    g_autoptr(VekTestingRegistry) outer = vek_testing_registry_push();
    {
      g_autoptr(VekTestingRegistry) inner = vek_testing_registry_push();
      g_assert_true(vek_metric_registry_get_default() == inner);
    }
    g_assert_true(vek_metric_registry_get_default() == outer);
  }
  g_assert_true(vek_metric_registry_get_default() == before);
}

TEST(default_that_the_test_replaced_goes_too) {
  VekMetricRegistry *before = vek_metric_registry_get_default();
  vek_testing_registry_push();
  VekMetricRegistry *own = g_object_new(VEK_TYPE_METRIC_REGISTRY, NULL);
  vek_metric_registry_set_default(own);
  vek_testing_registry_pop();
  g_assert_true(vek_metric_registry_get_default() == before);
  g_assert_finalize_object(own);
}

TEST(pop_without_a_push_is_refused) {
  VekMetricRegistry *before = vek_metric_registry_get_default();
  vek_testing_registry_pop();
  ASSERT_FAILED_CHECK("vek_testing_registry_pop", "pushed != NULL");
  g_assert_true(vek_metric_registry_get_default() == before);
}
