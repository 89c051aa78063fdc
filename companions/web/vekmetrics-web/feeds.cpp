#include "feeds.hpp"

#include "chunks.hpp"
#include "common/internal.hpp"
#include "compression.hpp"
#include "readysource.hpp"

namespace vekin::web {

struct Feeds {
  GPtrArray *feeds;  // of Feed; the one that has waited for longest first
  GSource *source;   // ready while there are any whose next slice can be written
};

namespace {

struct Feed {
  Chunks chunks;
  Extract *extract;             // NULL after the last slice
  GZlibCompressor *compressor;  // or NULL
};

}  // namespace

static Feed *get_feed(const Feeds *self, guint i) {
  return as<Feed>(self->feeds->pdata[i]);
}

static void free_feed(gpointer data) {
  auto *feed = as<Feed>(data);
  chunks_clear(feed->chunks);
  g_clear_pointer(&feed->extract, extract_free);
  g_clear_object(&feed->compressor);
  g_free(feed);
}

static void on_sent(Chunks *chunks) {
  g_source_set_ready_time(as<Feeds>(chunks->owner)->source, 0);
}

static void on_closed(Chunks *chunks) {
  g_ptr_array_remove(as<Feeds>(chunks->owner)->feeds, chunks);
}

static GBytes *compress(GZlibCompressor *compressor, GString *slice, bool is_last) {
  auto *output = g_byte_array_new();
  std::span text(reinterpret_cast<const guint8 *>(slice->str), slice->len);
  compression_append(compressor, text, is_last, output);
  g_string_free(slice, TRUE);
  return g_byte_array_free_to_bytes(output);
}

// The compressor may keep a slice for later; then the feed stays ready.
static void send_slice(Feed *feed) {
  auto *text = g_string_new(nullptr);
  bool is_last = extract_append_slice(feed->extract, text);
  g_autoptr(GBytes) slice =
      feed->compressor ? compress(feed->compressor, text, is_last) : g_string_free_to_bytes(text);
  if (g_bytes_get_size(slice) > 0)
    chunks_send(feed->chunks, slice);
  if (!is_last)
    return;
  g_clear_pointer(&feed->extract, extract_free);
  chunks_end(feed->chunks);
}

// One slice in each turn of the main loop, of whichever feed.
static void on_ready(gpointer data) {
  auto *self = as<Feeds>(data);
  for (guint i = 0; i < self->feeds->len; i++) {
    auto *feed = get_feed(self, i);
    if (feed->chunks.is_sending || !feed->extract)
      continue;
    g_ptr_array_add(self->feeds, g_ptr_array_steal_index(self->feeds, i));
    g_source_set_ready_time(self->source, 0);
    send_slice(feed);
    return;
  }
}

Feeds *feeds_new() {
  auto *self = g_new0(Feeds, 1);
  self->feeds = g_ptr_array_new_with_free_func(free_feed);
  self->source = ready_source_new("vekmetrics-web feeds", G_PRIORITY_DEFAULT_IDLE, on_ready, self);
  return self;
}

void feeds_free(Feeds *self) {
  g_ptr_array_unref(self->feeds);
  ready_source_free(self->source);
  g_free(self);
}

void feeds_add(Feeds *self, SoupServerMessage *message, Extract *extract, bool compressed) {
  auto *feed = g_new0(Feed, 1);
  feed->chunks.owner = self;
  feed->chunks.on_sent = on_sent;
  feed->chunks.on_closed = on_closed;
  feed->extract = extract;
  feed->compressor = compressed ? compression_new() : nullptr;
  g_ptr_array_add(self->feeds, feed);
  chunks_begin(feed->chunks, message);
  g_source_set_ready_time(self->source, 0);
}

}  // namespace vekin::web
