#pragma once

// A text as it is served: with its entity tag, and compressed once.

#include <gio/gio.h>

namespace vekin::web {

struct Page;

Page *page_new(GBytes *text);
Page *page_ref(Page *page);
void page_unref(Page *page);

GBytes *page_get_text(const Page *page);

// The quoted tag of the text's contents; that of the compressed text differs.
const char *page_get_tag(const Page *page, bool compressed);

// The compressed text; NULL while it is not there.
GBytes *page_get_compressed(const Page *page);

// Compresses a slice. Returns whether the compressed text is there.
bool page_compress_slice(Page *page);

}  // namespace vekin::web
