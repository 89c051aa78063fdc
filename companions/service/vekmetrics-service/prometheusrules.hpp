#pragma once

// How names, dimensions and numbers are written in the Prometheus text formats. Users' dashboards
// live on these rules: what a metric is called once it is called for good.

#include <glib.h>

namespace vekin::prometheus {

enum class Quotes { kept, escaped };

// Appends a family's name, put together from a prefix and a name of any bytes.
void append_name(GString *text, const char *prefix, const char *name);

// Makes the labels of alternating names and values, as in `disk="sda",host="h1"`: sorted, so that
// the same labels make the same text. Empty without dimensions.
char *make_labels(const char *const *dimensions);

// Appends a string of any bytes with backslashes and line feeds escaped, and quotes on demand; what
// is not UTF-8 becomes U+FFFD.
void append_escaped(GString *text, const char *string, Quotes quotes);

// A number that reads back to the same double, in few digits if it has few.
struct Number {
  char text[G_ASCII_DTOSTR_BUF_SIZE];

  explicit Number(gdouble value);
};

}  // namespace vekin::prometheus
