#pragma once

// A family: the samples that the text shows under one name.

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
  bool is_mixed;     // whether its metrics are of several types, which makes it unknown
  bool is_negative;  // whether it has shown a negative quantile
  const Series *of;  // the first of its names and units, which the help shows
  Figure figure;     // of that series
  GArray *samples;   // of Sample, by labels
};

// What the formats keep for a family, as its name and these behind it.
std::span<const char *const> get_reserved(Type type);

// Takes the name.
Family *family_new(char *name, Type type);
void family_free(gpointer family);

// Adds a sample of a type behind the others.
void family_append(Family *family, const Sample &sample, Type type);

// Sorts the samples, or moves the one that was added last to where it belongs among the others.
void family_sort(Family *family);
void family_sort_last(Family *family);

// Removes one of the samples, which are sorted.
void family_remove(Family *family, const Sample &sample);

}  // namespace vekin::prometheus
