#pragma once

// Responses whose text is written slice by slice, between which the main loop goes on.

#include <libsoup/soup.h>

#include "extract.hpp"

namespace vekin::web {

struct Feeds;

// Works in the context that is thread-default now.
Feeds *feeds_new();

// Cuts the responses off that are not complete.
void feeds_free(Feeds *feeds);

// Begins a response and takes the extract over.
void feeds_add(Feeds *feeds, SoupServerMessage *message, Extract *extract, bool compressed);

}  // namespace vekin::web
