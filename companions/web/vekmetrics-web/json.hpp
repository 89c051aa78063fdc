#pragma once

// Pieces of JSON text.

#include <glib.h>

namespace vekin::web {

// A string in quotes; bytes that are not UTF-8 are replaced.
void append_json_string(GString *text, const char *string);

// A number; "inf" or "-inf" in quotes; null for what is not a number.
void append_json_number(GString *text, gdouble number);

// Microseconds as seconds.
void append_json_seconds(GString *text, gint64 time);

}  // namespace vekin::web
