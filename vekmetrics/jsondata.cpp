#include "jsondata.hpp"

#include "common/internal.hpp"
#include "dimension.h"
#include "metricdatum.h"

#include <algorithm>
#include <string_view>

static constexpr std::string_view known_units[] = {
    "Seconds",
    "Microseconds",
    "Milliseconds",
    "Bytes",
    "Kilobytes",
    "Megabytes",
    "Gigabytes",
    "Terabytes",
    "Bits",
    "Kilobits",
    "Megabits",
    "Gigabits",
    "Terabits",
    "Percent",
    "Count",
    "Bytes/Second",
    "Kilobytes/Second",
    "Megabytes/Second",
    "Gigabytes/Second",
    "Terabytes/Second",
    "Bits/Second",
    "Kilobits/Second",
    "Megabits/Second",
    "Gigabits/Second",
    "Terabits/Second",
    "Count/Second",
};
static_assert(std::size(known_units) == 26);

// The instance, then the metric's pairs; a name without a value is not one.
static GPtrArray *make_dimensions(const char *instance_id, char **dimensions) {
  auto *list = g_ptr_array_new_with_free_func(
      vekin::release_element<VekMetricDimension, vek_metric_dimension_unref>);
  if (instance_id)
    g_ptr_array_add(list, vek_metric_dimension_new("instance", instance_id));
  for (char **pair = dimensions; pair && pair[0] && pair[1]; pair += 2)
    g_ptr_array_add(list, vek_metric_dimension_new(pair[0], pair[1]));
  return list;
}

static bool is_known_unit(std::string_view unit) {
  return std::find(std::begin(known_units), std::end(known_units), unit) != std::end(known_units);
}

// Collects a data point that has all but its figures, and returns it, borrowed.
static VekMetricDatum *add_datum(GPtrArray **data, const char *name, GPtrArray *dimensions,
                                 const char *unit, gint64 timestamp) {
  auto *datum = vek_metric_datum_new(name);
  if (dimensions->len > 0)
    vek_metric_datum_set_dimensions(
        datum, reinterpret_cast<VekMetricDimension **>(dimensions->pdata), dimensions->len);
  vek_metric_datum_set_timestamp(datum, timestamp);
  if (unit && is_known_unit(unit))
    vek_metric_datum_set_unit(datum, unit);

  if (!*data)
    *data = g_ptr_array_new_with_free_func(
        vekin::release_element<VekMetricDatum, vek_metric_datum_unref>);
  g_ptr_array_add(*data, datum);
  return datum;
}

static void add_percentile(GPtrArray **data, const char *name, const char *suffix,
                           GPtrArray *dimensions, const char *unit, VekMetricSnapshot *snapshot,
                           gdouble quantile) {
  g_autofree char *full_name = g_strdup_printf("%s_%s", name, suffix);
  auto *datum =
      add_datum(data, full_name, dimensions, unit, vek_metric_snapshot_get_time(snapshot));
  vek_metric_datum_set_value(datum, vek_metric_snapshot_get_quantile(snapshot, quantile));
}

void vekin::add_value(GPtrArray **data, const char *instance_id, const char *name,
                      char **dimensions, const char *unit, gint64 timestamp, gdouble value) {
  g_autoptr(GPtrArray) list = make_dimensions(instance_id, dimensions);
  vek_metric_datum_set_value(add_datum(data, name, list, unit, timestamp), value);
}

void vekin::add_snapshot(GPtrArray **data, const char *instance_id, const char *name,
                         char **dimensions, const char *unit, VekMetricSnapshot *snapshot) {
  gsize n_samples = vek_metric_snapshot_get_n_samples(snapshot);
  if (n_samples == 0)
    return;

  g_autoptr(GPtrArray) list = make_dimensions(instance_id, dimensions);
  auto *datum = add_datum(data, name, list, unit, vek_metric_snapshot_get_time(snapshot));
  gdouble sum = vek_metric_snapshot_get_sum(snapshot);
  gdouble minimum = vek_metric_snapshot_get_min(snapshot);
  gdouble maximum = vek_metric_snapshot_get_max(snapshot);
  vek_metric_datum_set_statistic_values(datum, n_samples, sum, minimum, maximum);
  add_percentile(data, name, "p50", list, unit, snapshot, 0.5);
  add_percentile(data, name, "p90", list, unit, snapshot, 0.9);
  add_percentile(data, name, "p99", list, unit, snapshot, 0.99);
}
