#pragma once

#include "recorder.hpp"

namespace vekin::testing {

// Puts the name, and the dimensions in braces, at the end of a text.
void append_identity(GString *text, const char *name, char **dimensions);

// Puts a number, with as many digits as it needs, at the end of a text.
void append_number(GString *text, gdouble number);

// Puts the call as a line, without its end, at the end of a text.
void append_call(GString *text, const Call &call, bool with_time);

}  // namespace vekin::testing
