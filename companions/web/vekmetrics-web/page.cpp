#include "page.hpp"

#include "common/internal.hpp"

#include <string.h>
#include <algorithm>

namespace vekin::web {

namespace {

constexpr gsize kSlice = 128 * 1024;  // of text; takes a few milliseconds
constexpr int kLevel = 1;             // shrinks such texts to a tenth, three times as fast as 6

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
    page->compressor = g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP, kLevel);
    page->output = g_byte_array_new();
  }

  gsize size;
  auto *text = static_cast<const guint8 *>(g_bytes_get_data(page->text, &size));
  gsize end = std::min(size, page->position + kSlice);
  auto flags = end == size ? G_CONVERTER_INPUT_AT_END : G_CONVERTER_NO_FLAGS;
  while (page->position < end || end == size) {
    guint8 buffer[16 * 1024];
    gsize n_read = 0, n_written = 0;
    auto result = g_converter_convert(G_CONVERTER(page->compressor), text + page->position,
                                      end - page->position, buffer, sizeof buffer, flags, &n_read,
                                      &n_written, nullptr);
    vek_assert(result != G_CONVERTER_ERROR);  // there is input or its end, and room
    page->position += n_read;
    g_byte_array_append(page->output, buffer, static_cast<guint>(n_written));
    if (result == G_CONVERTER_FINISHED) {
      page->compressed = g_byte_array_free_to_bytes(g_steal_pointer(&page->output));
      g_clear_object(&page->compressor);
      return true;
    }
  }
  return false;
}

}  // namespace vekin::web
