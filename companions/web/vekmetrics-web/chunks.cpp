#include "chunks.hpp"

#include "common/internal.hpp"

namespace vekin::web {

static void on_wrote_chunk(SoupServerMessage *, gpointer data) {
  auto *chunks = as<Chunks>(data);
  chunks->is_sending = false;
  chunks->on_sent(chunks);
}

static void on_over(SoupServerMessage *, gpointer data) {
  auto *chunks = as<Chunks>(data);
  chunks->on_closed(chunks);
}

// HTTP 1.0 has no chunks: there, the end of the connection is that of the response.
void chunks_announce(SoupServerMessage *message) {
  bool has_chunks = soup_server_message_get_http_version(message) != SOUP_HTTP_1_0;
  soup_message_headers_set_encoding(soup_server_message_get_response_headers(message),
                                    has_chunks ? SOUP_ENCODING_CHUNKED : SOUP_ENCODING_EOF);
  soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
}

void chunks_begin(Chunks &chunks, SoupServerMessage *message) {
  chunks_announce(message);
  chunks.message = SOUP_SERVER_MESSAGE(g_object_ref(message));
  soup_message_body_set_accumulate(soup_server_message_get_response_body(message), FALSE);
  g_signal_connect(message, "wrote-chunk", G_CALLBACK(on_wrote_chunk), &chunks);
  g_signal_connect(message, "finished", G_CALLBACK(on_over), &chunks);
  g_signal_connect(message, "disconnected", G_CALLBACK(on_over), &chunks);
}

void chunks_send(Chunks &chunks, GBytes *chunk) {
  chunks.is_sending = true;
  soup_message_body_append_bytes(soup_server_message_get_response_body(chunks.message), chunk);
  soup_server_message_unpause(chunks.message);
}

void chunks_end(Chunks &chunks) {
  soup_message_body_complete(soup_server_message_get_response_body(chunks.message));
  soup_server_message_unpause(chunks.message);
}

void chunks_clear(Chunks &chunks) {
  g_signal_handlers_disconnect_by_data(chunks.message, &chunks);
  g_object_unref(chunks.message);
}

}  // namespace vekin::web
