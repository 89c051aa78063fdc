#pragma once

// Messages that wait for their page to be compressed, slice by slice.

#include <libsoup/soup.h>

#include "page.hpp"

namespace vekin::web {

struct Waiting;

Waiting *waiting_new();

// Answers those who still wait that there is nothing.
void waiting_free(Waiting *waiting);

// Pauses a message and sends it the page when that is compressed.
void waiting_add(Waiting *waiting, SoupServerMessage *message, Page *page);

// Sends a text at once.
void send_text(SoupServerMessage *message, GBytes *text);

}  // namespace vekin::web
