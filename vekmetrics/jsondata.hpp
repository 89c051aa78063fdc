#pragma once

#include "snapshot.h"

namespace vekin {

// Collecting for the JSON log: data points (of VekMetricDatum) are added to an array, which is NULL
// before the first. An instance id that is not NULL is the first dimension of each.

void add_value(GPtrArray **data, const char *instance_id, const char *name, char **dimensions,
               const char *unit, gint64 timestamp, gdouble value);

// One with the statistics and one for each percentile; none without samples.
void add_snapshot(GPtrArray **data, const char *instance_id, const char *name, char **dimensions,
                  const char *unit, VekMetricSnapshot *snapshot);

}  // namespace vekin
