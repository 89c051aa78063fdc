#pragma once

// The text of families, in either format.

#include "prometheusfamilies.hpp"
#include "prometheusreporter.h"

namespace vek::prometheus {

void append_families(GString *text, GPtrArray *families, VekServicePrometheusFormat format);

}  // namespace vek::prometheus
