#include "page.hpp"

#include "common/internal.hpp"
#include "compression.hpp"

#include <algorithm>

namespace vekin::web {

namespace {

constexpr gsize kSlice = 128 * 1024;  // of text; takes a few milliseconds

}  // namespace

struct Page {
  GBytes *text;
  char *tags[2];  // plain, compressed
  GBytes *compressed;

  GZlibCompressor *compressor;  // while it is at work
  GByteArray *output;
  gsize position;
};

Page *page_new(GBytes *text) {
  auto *page = g_rc_box_new0(Page);
  page->text = g_bytes_ref(text);
  g_autofree char *sum = g_compute_checksum_for_bytes(G_CHECKSUM_SHA256, text);
  page->tags[0] = g_strdup_printf("\"%.32s\"", sum);
  page->tags[1] = g_strdup_printf("\"%.32s-gzip\"", sum);
  return page;
}

Page *page_ref(Page *page) {
  return as<Page>(g_rc_box_acquire(page));
}

static void clear_page(gpointer data) {
  auto *page = as<Page>(data);
  g_bytes_unref(page->text);
  g_free(page->tags[0]);
  g_free(page->tags[1]);
  g_clear_pointer(&page->compressed, g_bytes_unref);
  g_clear_object(&page->compressor);
  g_clear_pointer(&page->output, g_byte_array_unref);
}

void page_unref(Page *page) {
  g_rc_box_release_full(page, clear_page);
}

GBytes *page_get_text(const Page *page) {
  return page->text;
}

const char *page_get_tag(const Page *page, bool compressed) {
  return page->tags[compressed];
}

GBytes *page_get_compressed(const Page *page) {
  return page->compressed;
}

bool page_compress_slice(Page *page) {
  if (page->compressed)
    return true;
  if (!page->compressor) {
    page->compressor = compression_new();
    page->output = g_byte_array_new();
  }

  gsize size;
  auto *text = static_cast<const char *>(g_bytes_get_data(page->text, &size));
  gsize slice = std::min(size - page->position, kSlice);
  bool is_last = page->position + slice == size;
  compression_append(page->compressor, text + page->position, slice, is_last, page->output);
  page->position += slice;
  if (!is_last)
    return false;
  page->compressed = g_byte_array_free_to_bytes(g_steal_pointer(&page->output));
  g_clear_object(&page->compressor);
  return true;
}

}  // namespace vekin::web
