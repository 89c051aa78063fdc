#pragma once

// The families that series make: which of them are shown, under which names, and in which order.

#include "prometheuspass.hpp"
#include "prometheusreporter.h"

#include <span>

namespace vekin::prometheus {

enum class Type { counter, gauge, summary, unknown };

// Which of a metric's figures a family shows.
enum class Figure { count, value, quantiles, average, min, max, n_samples };

struct Sample {
  const Series *series;
  Figure figure;
};

struct Family {
  char *name;
  char *sample_name;  // the same; with "_total" behind it if the family is a counter
  Type type;
  bool is_mixed;     // whether its metrics are of several types, which makes it unknown
  bool is_negative;  // whether it has shown a negative quantile
  const Series *of;  // the first of its names and units, which the help shows
  Figure figure;     // of that series
  GArray *samples;   // of Sample, by labels
};

// The families of a set of series. The first of those that a format would confuse are shown: the
// reporter's own series, which have no prefix, then the others in the order of their keys. Each
// that comes later is left out, and a warning names both.
struct Arrangement;

// Sorts `series`. The policy must live as long, and its prefix and declarations must not change.
Arrangement *arrangement_new(std::span<Series *const> own, GPtrArray *series, const Policy &policy);
void arrangement_free(Arrangement *arrangement);

// Change the set by one series, in a fraction of the time that arranging all takes. They return
// false, and the arrangement is of no more use, if that changes what is to become of others: one
// that was left out is to be shown, or the other way round, or a family is of several types.
bool arrangement_add(Arrangement *arrangement, const Series *series);
bool arrangement_remove(Arrangement *arrangement, const Series *series);

// The families in the order of a format.
GPtrArray *arrangement_get_families(const Arrangement *arrangement,
                                    VekServicePrometheusFormat format);

}  // namespace vekin::prometheus
