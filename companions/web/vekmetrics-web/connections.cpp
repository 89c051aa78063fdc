#include "connections.hpp"

#include "common/internal.hpp"

namespace vekin::web {

namespace {

struct Connection {
  GSocket *socket;
  gint64 time;  // when something last happened on it, on the monotonic clock
};

}  // namespace

struct Connections {
  SoupServer *server;
  GQueue queue;       // of Connection; the one that has been idle for longest first
  GHashTable *nodes;  // from socket to its node
  GSource *sweep;     // while there are any
};

static void free_connection(gpointer data) {
  auto *connection = as<Connection>(data);
  g_object_unref(connection->socket);
  g_free(connection);
}

static void drop(Connections *self, GList *node) {
  g_hash_table_remove(self->nodes, as<Connection>(node->data)->socket);
  free_connection(node->data);
  g_queue_delete_link(&self->queue, node);
}

// Returns whether there was any.
static bool drop_closed(Connections *self) {
  guint n_before = self->queue.length;
  for (GList *node = self->queue.head; node;) {
    auto *next = node->next;
    if (g_socket_is_closed(as<Connection>(node->data)->socket))
      drop(self, node);
    node = next;
  }
  return self->queue.length < n_before;
}

static void shut_down_first(Connections *self) {
  connection_shut_down(as<Connection>(self->queue.head->data)->socket);
  drop(self, self->queue.head);
}

static gboolean on_second(gpointer data) {
  auto *self = as<Connections>(data);
  drop_closed(self);
  gint64 oldest = g_get_monotonic_time() - kMaxIdleSeconds * G_USEC_PER_SEC;
  while (self->queue.head && as<Connection>(self->queue.head->data)->time <= oldest)
    shut_down_first(self);
  if (self->queue.head)
    return G_SOURCE_CONTINUE;
  g_clear_pointer(&self->sweep, g_source_unref);
  return G_SOURCE_REMOVE;
}

static void start_sweep(Connections *self) {
  self->sweep = g_timeout_source_new_seconds(1);
  g_source_set_name(self->sweep, "vekmetrics-web connections");
  g_source_set_callback(self->sweep, on_second, self, nullptr);
  g_source_attach(self->sweep, g_main_context_get_thread_default());
}

void connections_note(Connections *self, SoupServerMessage *message) {
  auto *socket = connection_get_socket(message);
  auto *node = as<GList>(g_hash_table_lookup(self->nodes, socket));
  if (node) {
    g_queue_unlink(&self->queue, node);
  } else {
    auto *connection = g_new0(Connection, 1);
    connection->socket = G_SOCKET(g_object_ref(socket));
    node = g_list_prepend(nullptr, connection);
    g_hash_table_insert(self->nodes, socket, node);
  }
  as<Connection>(node->data)->time = g_get_monotonic_time();
  g_queue_push_tail_link(&self->queue, node);

  if (self->queue.length > kMaxConnections && !drop_closed(self))
    shut_down_first(self);
  if (!self->sweep)
    start_sweep(self);
}

// So early because requests that cannot be read are answered without asking anyone.
static void on_started(SoupServer *, SoupServerMessage *message, gpointer data) {
  connection_end_with_answer(message);
  connections_note(as<Connections>(data), message);
}

Connections *connections_new(SoupServer *server) {
  auto *self = g_new0(Connections, 1);
  self->server = SOUP_SERVER(g_object_ref(server));
  self->nodes = g_hash_table_new(nullptr, nullptr);
  g_signal_connect(server, "request-started", G_CALLBACK(on_started), self);
  return self;
}

void connections_free(Connections *self) {
  g_signal_handlers_disconnect_by_data(self->server, self);
  if (self->sweep) {
    g_source_destroy(self->sweep);
    g_source_unref(self->sweep);
  }
  g_queue_clear_full(&self->queue, free_connection);
  g_hash_table_unref(self->nodes);
  g_object_unref(self->server);
  g_free(self);
}

void connection_end_with_answer(SoupServerMessage *message) {
  soup_message_headers_replace(soup_server_message_get_response_headers(message), "Connection",
                               "close");
}

static G_DEFINE_QUARK(vek_web_socket, socket);

void connection_set_socket(GSocketAddress *local_address, GSocket *socket) {
  g_object_set_qdata_full(G_OBJECT(local_address), socket_quark(), g_object_ref(socket),
                          g_object_unref);
}

GSocket *connection_get_socket(SoupServerMessage *message) {
  auto *address = soup_server_message_get_local_address(message);
  return as<GSocket>(g_object_get_qdata(G_OBJECT(address), socket_quark()));
}

void connection_shut_down(GSocket *socket) {
  g_socket_shutdown(socket, TRUE, TRUE, nullptr);
}

}  // namespace vekin::web
