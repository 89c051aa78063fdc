#pragma once

// The text of families, in either format.

#include "prometheusfamilies.hpp"
#include "prometheusreporter.h"

namespace vekin::prometheus {

// Adds the names of families that show their first negative quantile to `negative`.
void append_families(GString *text, GPtrArray *families, VekServicePrometheusFormat format,
                     GHashTable *negative);

}  // namespace vekin::prometheus
