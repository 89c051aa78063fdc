#include "events.hpp"

#include "chunks.hpp"
#include "common/internal.hpp"

namespace vekin::web {

static constexpr guint kCommentSeconds = 30;

struct Events {
  Connections *connections;
  GPtrArray *streams;  // of Stream; the oldest first
  GBytes *event;       // the last one, or NULL
  GBytes *comment;
  GSource *timer;
};

namespace {

struct Stream {
  Chunks chunks;
  bool is_due;  // the last event is to be sent
};

}  // namespace

static void free_stream(gpointer data) {
  auto *stream = as<Stream>(data);
  chunks_clear(stream->chunks);
  g_free(stream);
}

static void on_closed(Chunks *chunks) {
  g_ptr_array_remove(as<Events>(chunks->owner)->streams, chunks);
}

static void send_event(Events *self, Stream *stream) {
  stream->is_due = stream->chunks.is_sending;
  if (!stream->is_due)
    chunks_send(stream->chunks, self->event);
}

static void on_sent(Chunks *chunks) {
  auto *self = as<Events>(chunks->owner);
  connections_note(self->connections, chunks->message);
  if (auto *stream = as<Stream>(chunks); stream->is_due)
    send_event(self, stream);
}

// So that nobody along the way takes a connection for idle.
static gboolean on_comment(gpointer data) {
  auto *self = as<Events>(data);
  for (guint i = 0; i < self->streams->len; i++)
    if (auto *stream = as<Stream>(self->streams->pdata[i]); !stream->chunks.is_sending)
      chunks_send(stream->chunks, self->comment);
  return G_SOURCE_CONTINUE;
}

Events *events_new(Connections *connections) {
  auto *self = g_new0(Events, 1);
  self->connections = connections;
  self->streams = g_ptr_array_new_with_free_func(free_stream);
  self->comment = g_bytes_new_static(":\n\n", 3);
  self->timer = g_timeout_source_new_seconds(kCommentSeconds);
  g_source_set_name(self->timer, "vekmetrics-web comments");
  g_source_set_callback(self->timer, on_comment, self, nullptr);
  g_source_attach(self->timer, g_main_context_get_thread_default());
  return self;
}

void events_free(Events *self) {
  g_source_destroy(self->timer);
  g_source_unref(self->timer);
  g_ptr_array_unref(self->streams);
  g_clear_pointer(&self->event, g_bytes_unref);
  g_bytes_unref(self->comment);
  g_free(self);
}

void events_add(Events *self, SoupServerMessage *message) {
  if (self->streams->len == kMaxStreams) {
    auto *oldest = as<Stream>(self->streams->pdata[0]);
    connection_shut_down(connection_get_socket(oldest->chunks.message));
    chunks_end(oldest->chunks);  // libsoup notices only when it writes
    g_ptr_array_remove_index(self->streams, 0);
  }
  auto *stream = g_new0(Stream, 1);
  stream->chunks.owner = self;
  stream->chunks.on_sent = on_sent;
  stream->chunks.on_closed = on_closed;
  g_ptr_array_add(self->streams, stream);
  chunks_begin(stream->chunks, message);
}

void events_send(Events *self, GBytes *event) {
  g_clear_pointer(&self->event, g_bytes_unref);
  self->event = g_bytes_ref(event);
  for (guint i = 0; i < self->streams->len; i++)
    send_event(self, as<Stream>(self->streams->pdata[i]));
}

}  // namespace vekin::web
