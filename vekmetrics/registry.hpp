#pragma once

#include "registry.h"

namespace vekin {

// Makes a metric of the type and gives it to the registry, or finds the one that is already there
// under its key, whatever its kind. The first variable argument is the name, the rest are pairs of
// property name and value as for g_object_new(), ended by NULL. Returns a reference for the
// caller.
VekMetric *create_metric(VekMetricRegistry *registry, GType type, ...) G_GNUC_NULL_TERMINATED;

}  // namespace vekin
