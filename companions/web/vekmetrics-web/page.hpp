#pragma once

// A text as it is served: with its entity tag, and compressed once.

#include <libsoup/soup.h>

namespace vekin::web {

struct Page;

// The content type must live as long.
Page *page_new(GBytes *text, const char *content_type);
Page *page_ref(Page *page);
void page_unref(Page *page);

GBytes *page_get_text(const Page *page);

// Does a slice of the work that comes before the page, or the compressed page, can be sent. Returns
// whether all is done.
bool page_work(Page *page, bool is_compressed);

// Answers a request with the page, or tells it that it has the page already.
void page_send(const Page *page, SoupServerMessage *message, bool is_compressed);

}  // namespace vekin::web
