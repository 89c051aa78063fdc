#pragma once

#include "common/internal.hpp"

namespace vekin {

// The text of lines: a key for each metric, and from it a line for each of its figures.
struct GraphiteLines {
  GString *key;
  GString *tags;  // what goes behind a suffix
  GString *line;

  void init();
  void clear();

  // Begins the lines of a metric.
  void begin(const char *prefix, bool tagged, const char *name, char **dimensions,
             const char *unit);

  // "key value seconds" and a line feed, with a suffix to the key. It is good until the next.
  const GString *make(const char *suffix, const char *value, gint64 timestamp);
};

// The suffix of a quantile: its decimals, at least two.
struct QuantileSuffix {
  char text[32];

  explicit QuantileSuffix(gdouble quantile);
};

}  // namespace vekin
