#pragma once

#include "common/internal.hpp"
#include "registry.h"

VEK_QUICK_TYPE_TEST(METRIC_REGISTRY, VekMetricRegistry, vek_metric_registry)

namespace vekin {

// Makes a metric of the type and gives it to the registry, or finds the one that is already there
// under its key, whatever its kind. The first variable argument is the name, the rest are pairs of
// property name and value as for g_object_new(), ended by NULL. Returns a reference for the
// caller.
VekMetric *create_metric(VekMetricRegistry *registry, GType type, ...) G_GNUC_NULL_TERMINATED;

// The same for a typed constructor, with the properties that its kind has of its own. Dimensions
// that are NULL are not passed: NULL in place of the property's name ends the list before it.
template <typename Kind, typename... Properties>
Kind *create_kind(VekMetricRegistry *registry, GType type, const char *name, const char *unit,
                  char **dimensions, Properties... properties) {
  auto *metric = create_metric(registry, type, name, "unit", unit, properties...,
                               dimensions ? "dimensions" : nullptr, dimensions, nullptr);
  return warned_cast<Kind>(metric, type);
}

}  // namespace vekin
