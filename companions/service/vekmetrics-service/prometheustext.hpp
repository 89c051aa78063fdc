#pragma once

// The text of families, in either format.

#include "prometheusfamilies.hpp"
#include "prometheusreporter.h"

namespace vekin::prometheus {

void append_families(GString *text, GPtrArray *families, VekServicePrometheusFormat format);

}  // namespace vekin::prometheus
