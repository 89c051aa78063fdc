#pragma once

// The text of families, in either format.

#include "prometheusfamilies.hpp"
#include "prometheusreporter.h"

namespace vekin::prometheus {

// The text without its numbers, which is the same from pass to pass. It is in one piece, because
// memory is slow: a text of 10,000 metrics is put together from places that no cache holds.
struct Layout {
  GString *pieces;       // what comes before each number, without separators; NULL if empty
  GArray *lines;         // of Line
  guint family, sample;  // the next to be laid out
};

struct Text {
  GBytes *bytes;  // NULL until it is whole
  gsize size;     // of the one before
  Layout layout;  // made as the text is written

  GString *begun;  // while it is being written
  guint line;      // the next
  gsize piece;     // where that begins
  gsize header;    // where the lines before a family's samples begin, while none is shown
  gsize header_size;
};

// Writes up to so many lines. Adds the names of families that show their first negative quantile
// to `negative`. Returns whether the text is whole.
bool text_write(Text &text, guint n_lines, GPtrArray *families, VekServicePrometheusFormat format,
                GHashTable *negative);

// Drops the text, as after a pass.
void text_clear(Text &text);

// Drops the layout and the text, as after a change of the families.
void text_clear_layout(Text &text);

}  // namespace vekin::prometheus
