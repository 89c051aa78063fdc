#include "waiting.hpp"

#include "common/internal.hpp"
#include "negotiation.hpp"

namespace vekin::web {

struct Waiting {
  GPtrArray *entries;
  GSource *compressing;  // while there are any
};

namespace {

struct Entry {
  Waiting *waiting;
  SoupServerMessage *message;
  Page *page;
};

}  // namespace

static void free_entry(gpointer data) {
  auto *entry = as<Entry>(data);
  g_signal_handlers_disconnect_by_data(entry->message, entry);
  g_object_unref(entry->message);
  page_unref(entry->page);
  g_free(entry);
}

static Entry *get_entry(const Waiting *self, guint i) {
  return as<Entry>(self->entries->pdata[i]);
}

// Lets a message go on with what it answers by now.
static void release(Waiting *self, guint i) {
  g_autoptr(SoupServerMessage) message =
      SOUP_SERVER_MESSAGE(g_object_ref(get_entry(self, i)->message));
  g_ptr_array_remove_index(self->entries, i);
  soup_server_message_unpause(message);
}

static void on_disconnected(SoupServerMessage *, gpointer data) {
  g_ptr_array_remove(as<Entry>(data)->waiting->entries, data);
}

static void send_text(SoupServerMessage *message, GBytes *text) {
  soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
  soup_message_body_append_bytes(soup_server_message_get_response_body(message), text);
}

static gboolean on_compress(gpointer data) {
  auto *self = as<Waiting>(data);
  if (self->entries->len > 0) {
    auto *page = page_ref(get_entry(self, 0)->page);
    bool is_compressed = page_compress_slice(page);
    for (guint i = self->entries->len; is_compressed && i-- > 0;) {
      if (get_entry(self, i)->page != page)
        continue;
      send_text(get_entry(self, i)->message, page_get_compressed(page));
      release(self, i);
    }
    page_unref(page);
  }
  if (self->entries->len > 0)
    return G_SOURCE_CONTINUE;
  g_clear_pointer(&self->compressing, g_source_unref);
  return G_SOURCE_REMOVE;
}

Waiting *waiting_new() {
  auto *self = g_new0(Waiting, 1);
  self->entries = g_ptr_array_new_with_free_func(free_entry);
  return self;
}

void waiting_free(Waiting *self) {
  if (self->compressing) {
    g_source_destroy(self->compressing);
    g_source_unref(self->compressing);
  }
  for (guint i = self->entries->len; i-- > 0;) {
    soup_server_message_set_status(get_entry(self, i)->message, SOUP_STATUS_SERVICE_UNAVAILABLE,
                                   nullptr);
    release(self, i);
  }
  g_ptr_array_unref(self->entries);
  g_free(self);
}

static void add_entry(Waiting *self, SoupServerMessage *message, Page *page) {
  auto *entry = g_new(Entry, 1);
  *entry = {self, SOUP_SERVER_MESSAGE(g_object_ref(message)), page_ref(page)};
  g_ptr_array_add(self->entries, entry);
  g_signal_connect(message, "disconnected", G_CALLBACK(on_disconnected), entry);
  soup_server_message_pause(message);
  if (self->compressing)
    return;
  self->compressing = g_idle_source_new();
  g_source_set_name(self->compressing, "vekmetrics-web compression");
  g_source_set_callback(self->compressing, on_compress, self, nullptr);
  g_source_attach(self->compressing, g_main_context_get_thread_default());
}

void waiting_serve(Waiting *self, SoupServerMessage *message, Page *page, const char *content_type,
                   const char *vary) {
  auto *request = soup_server_message_get_request_headers(message);
  auto *response = soup_server_message_get_response_headers(message);
  bool compressed = allows_gzip(soup_message_headers_get_list(request, "Accept-Encoding"));
  const char *tag = page_get_tag(page, compressed);
  soup_message_headers_replace(response, "ETag", tag);
  soup_message_headers_replace(response, "Vary", vary);
  if (matches_tag(soup_message_headers_get_list(request, "If-None-Match"), tag)) {
    soup_server_message_set_status(message, SOUP_STATUS_NOT_MODIFIED, nullptr);
    return;
  }
  soup_message_headers_replace(response, "Content-Type", content_type);
  if (!compressed) {
    send_text(message, page_get_text(page));
    return;
  }
  soup_message_headers_replace(response, "Content-Encoding", "gzip");
  if (page_compress_slice(page))
    send_text(message, page_get_compressed(page));
  else
    add_entry(self, message, page);
}

}  // namespace vekin::web
