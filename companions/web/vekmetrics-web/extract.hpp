#pragma once

// The passes of a history as JSON text, which is written in slices.

#include "history.hpp"

namespace vekin::web {

struct Extract;

// The passes after one of that number, as they are now.
Extract *extract_new(VekWebHistory *history, guint64 after);
void extract_free(Extract *extract);

// Appends a slice of the text. Returns whether it was the last.
bool extract_append_slice(Extract *extract, GString *text);

}  // namespace vekin::web
