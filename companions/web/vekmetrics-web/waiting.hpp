#pragma once

// Messages that wait for their page to be compressed, slice by slice.

#include <libsoup/soup.h>

#include "page.hpp"

namespace vekin::web {

struct Waiting;

Waiting *waiting_new();

// Answers those who still wait that there is nothing.
void waiting_free(Waiting *waiting);

// Answers a message with a page: that the client has it, or as it prefers it. It may have to wait
// until the page is compressed. `vary` names the headers that chose the page.
void waiting_serve(Waiting *waiting, SoupServerMessage *message, Page *page,
                   const char *content_type, const char *vary);

}  // namespace vekin::web
