#include "reporterlist.hpp"

namespace vekin {

static gpointer copy_reference(gconstpointer reporter, gpointer) {
  return g_object_ref(const_cast<gpointer>(reporter));
}

static GPtrArray *copy_list(GPtrArray *list) {
  auto *copy = reporter_list_new();
  g_ptr_array_extend(copy, list, copy_reference, nullptr);
  return copy;
}

GPtrArray *reporter_list_new() {
  return g_ptr_array_new_with_free_func(g_object_unref);
}

GPtrArray *reporter_list_with(GPtrArray *list, VekMetricReporter *reporter) {
  auto *copy = copy_list(list);
  g_ptr_array_add(copy, g_object_ref(reporter));
  return copy;
}

GPtrArray *reporter_list_without(GPtrArray *list, VekMetricReporter *reporter) {
  auto *copy = copy_list(list);
  g_ptr_array_remove(copy, reporter);
  return copy;
}

}  // namespace vekin
