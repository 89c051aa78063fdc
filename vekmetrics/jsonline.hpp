#pragma once

#include <glib.h>

namespace vekin {

// A line of the JSON log: the current time in UTC, then the data points (of VekMetricDatum) as one
// JSON array, then a line feed. The caller frees it.
char *make_json_line(GPtrArray *data);

}  // namespace vekin
