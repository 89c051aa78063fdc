#pragma once

// The text of families, in either format.

#include "prometheusfamilies.hpp"
#include "prometheusreporter.h"

namespace vekin::prometheus {

struct Text {
  GBytes *bytes;  // NULL until it is whole
  gsize size;     // of the one before

  GString *begun;        // while it is being written
  guint family, sample;  // the next
  bool has_header;       // of that family
};

// Writes up to so many samples. Adds the names of families that show their first negative quantile
// to `negative`. Returns whether the text is whole.
bool text_write(Text &text, guint n_samples, GPtrArray *families, VekServicePrometheusFormat format,
                GHashTable *negative);

void text_clear(Text &text);

}  // namespace vekin::prometheus
