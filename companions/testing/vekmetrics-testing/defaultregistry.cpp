#include "defaultregistry.h"

#include "common/internal.hpp"

static GSList *pushed;  // the registries that were the default before, the last one first; owned

VekMetricRegistry *vek_testing_registry_push(void) {
  auto *before = vek_metric_registry_get_default();
  pushed = g_slist_prepend(pushed, g_object_ref(before));
  g_autoptr(VekMetricRegistry) fresh =
      VEK_METRIC_REGISTRY(g_object_new(VEK_TYPE_METRIC_REGISTRY, nullptr));
  vek_metric_registry_set_default(fresh);
  return fresh;
}

void vek_testing_registry_pop(void) {
  vek_return_if_fail(pushed != NULL);

  auto *before = vekin::as<VekMetricRegistry>(pushed->data);
  pushed = g_slist_delete_link(pushed, pushed);
  vek_metric_registry_set_default(before);
  g_object_unref(before);
}
