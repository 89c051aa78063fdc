#pragma once

// The families that series make: which of them are shown, under which names, and in which order.

#include "prometheuspass.hpp"

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
  bool is_negative;  // whether it has shown a negative quantile
  const Series *of;  // the first of its names and units, which the help shows
  Figure figure;     // of that series
  GArray *samples;   // of Sample, by labels
  char *headers[2];  // the lines before the samples in each format; NULL before they are shown
};

// Arranges series into families, in no order. First come the reporter's own series, which have
// no prefix and are never left out; the others come in the order of their keys. Each that a format
// would confuse with one before it is left out, and a warning names both.
GPtrArray *make_families(std::span<Series *const> own, GPtrArray *series, const Policy &policy);

// The orders of the two formats: OpenMetrics names a counter without its "_total".
int compare_names(gconstpointer a, gconstpointer b);
int compare_sample_names(gconstpointer a, gconstpointer b);

}  // namespace vekin::prometheus
