#include "page.hpp"

#include "common/internal.hpp"
#include "compression.hpp"
#include "negotiation.hpp"

#include <algorithm>
#include <span>

namespace vekin::web {

static constexpr gsize kSlice = 128 * 1024;  // of text; takes about a millisecond

struct Page {
  int ref_count;
  GBytes *text;
  const char *content_type;

  GChecksum *checksum;
  gsize n_summed;
  char *tags[2];  // plain, compressed; NULL before all is summed

  GZlibCompressor *compressor;  // while it is at work
  GByteArray *output;
  gsize n_compressed;
  GBytes *compressed;
};

Page *page_new(GBytes *text, const char *content_type) {
  auto *page = g_new0(Page, 1);
  page->ref_count = 1;
  page->text = g_bytes_ref(text);
  page->content_type = content_type;
  page->checksum = g_checksum_new(G_CHECKSUM_MD5);  // the fastest, and nothing is kept safe by it
  return page;
}

Page *page_ref(Page *page) {
  page->ref_count++;
  return page;
}

void page_unref(Page *page) {
  if (--page->ref_count > 0)
    return;
  g_bytes_unref(page->text);
  g_checksum_free(page->checksum);
  for (char *tag : page->tags)
    g_free(tag);
  g_clear_object(&page->compressor);
  g_clear_pointer(&page->output, g_byte_array_unref);
  g_clear_pointer(&page->compressed, g_bytes_unref);
  g_free(page);
}

GBytes *page_get_text(const Page *page) {
  return page->text;
}

// What comes next, up to the size of a slice.
static std::span<const guint8> get_slice(const Page *page, gsize n_done) {
  gsize size;
  auto *text = static_cast<const guint8 *>(g_bytes_get_data(page->text, &size));
  return {text + n_done, std::min(size - n_done, kSlice)};
}

static void sum_slice(Page *page) {
  auto slice = get_slice(page, page->n_summed);
  g_checksum_update(page->checksum, slice.data(), static_cast<gssize>(slice.size()));
  page->n_summed += slice.size();
  if (page->n_summed < g_bytes_get_size(page->text))
    return;
  const char *sum = g_checksum_get_string(page->checksum);
  page->tags[false] = g_strdup_printf("\"%s\"", sum);
  page->tags[true] = g_strdup_printf("\"%s-gzip\"", sum);
}

static void compress_slice(Page *page) {
  if (!page->compressor) {
    page->compressor = compression_new();
    page->output = g_byte_array_new();
  }
  auto slice = get_slice(page, page->n_compressed);
  page->n_compressed += slice.size();
  bool is_last = page->n_compressed == g_bytes_get_size(page->text);
  compression_append(page->compressor, slice, is_last, page->output);
  if (!is_last)
    return;
  page->compressed = g_byte_array_free_to_bytes(g_steal_pointer(&page->output));
  g_clear_object(&page->compressor);
}

bool page_work(Page *page, bool is_compressed) {
  if (!page->tags[is_compressed])
    sum_slice(page);
  else if (is_compressed && !page->compressed)
    compress_slice(page);
  return page->tags[is_compressed] && (!is_compressed || page->compressed);
}

void page_send(const Page *page, SoupServerMessage *message, bool is_compressed) {
  auto *request = soup_server_message_get_request_headers(message);
  auto *response = soup_server_message_get_response_headers(message);
  const char *tag = page->tags[is_compressed];
  soup_message_headers_replace(response, "ETag", tag);
  soup_message_headers_replace(response, "Vary", "Accept, Accept-Encoding");
  if (matches_tag(soup_message_headers_get_list(request, "If-None-Match"), tag)) {
    soup_server_message_set_status(message, SOUP_STATUS_NOT_MODIFIED, nullptr);
    return;
  }
  soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
  soup_message_headers_replace(response, "Content-Type", page->content_type);
  if (is_compressed)
    soup_message_headers_replace(response, "Content-Encoding", "gzip");
  soup_message_body_append_bytes(soup_server_message_get_response_body(message),
                                 is_compressed ? page->compressed : page->text);
}

}  // namespace vekin::web
