#include "serverconnection.hpp"

using vekin::ServerConnection;

static constexpr guint kLongestDelay = 60;  // seconds

static void clear_source(GSource **source) {
  if (*source)
    g_source_destroy(*source);
  g_clear_pointer(source, g_source_unref);
}

static void disconnect(ServerConnection *self) {
  clear_source(&self->writable);
  clear_source(&self->readable);
  g_clear_object(&self->stream);
}

static void attach(GSource *source) {
  g_source_attach(source, g_main_context_get_thread_default());
}

static gboolean on_retry(gpointer user_data) {
  auto *self = vekin::as<ServerConnection>(user_data);
  clear_source(&self->retry);
  self->open();
  return G_SOURCE_REMOVE;
}

// After 1, 2, 4 seconds and so on, each shortened by up to a quarter, so that the programs that
// lost a server together do not all come back together.
static void fail(ServerConnection *self, const char *reason) {
  disconnect(self);
  guint seconds = MIN(1U << MIN(self->n_failures, 6U), kLongestDelay);
  guint delay = static_cast<guint>(g_random_int_range(static_cast<gint32>(seconds * 750),
                                                      static_cast<gint32>(seconds * 1000 + 1)));
  self->n_failures++;
  vek_debug("No connection to %s:%u, the next try is in %u ms: %s", self->host, self->port, delay,
            reason);
  self->retry = g_timeout_source_new(delay);
  g_source_set_callback(self->retry, on_retry, self, nullptr);
  attach(self->retry);
  self->on_lost(self->user_data, reason);
}

// Whether the server has closed its side, or the connection has broken. What a server says is read
// and thrown away.
static bool has_ended(ServerConnection *self) {
  char answer[1024];
  g_autoptr(GError) error = nullptr;
  gssize n_bytes = g_socket_receive_with_blocking(g_socket_connection_get_socket(self->stream),
                                                  answer, sizeof answer, FALSE, nullptr, &error);
  if (n_bytes > 0 || g_error_matches(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK))
    return false;
  fail(self, error ? error->message : "The server closed it");
  return true;
}

static gboolean on_readable(GSocket *, GIOCondition, gpointer user_data) {
  auto *self = vekin::as<ServerConnection>(user_data);
  auto *owner = g_object_ref(self->owner);  // the callback may release it
  has_ended(self);
  g_object_unref(owner);
  return G_SOURCE_CONTINUE;
}

static gboolean on_writable(GSocket *, GIOCondition, gpointer user_data) {
  auto *self = vekin::as<ServerConnection>(user_data);
  clear_source(&self->writable);
  self->on_ready(self->user_data);
  return G_SOURCE_REMOVE;
}

static void release_owner(gpointer user_data) {
  g_object_unref(vekin::as<ServerConnection>(user_data)->owner);
}

static GSource *watch(ServerConnection *self, GIOCondition condition, GSocketSourceFunc callback,
                      GDestroyNotify destroy) {
  GSocket *socket = g_socket_connection_get_socket(self->stream);
  GSource *source = g_socket_create_source(socket, condition, nullptr);
  g_source_set_callback(source, G_SOURCE_FUNC(callback), self, destroy);
  attach(source);
  return source;
}

static void on_connected(GObject *client, GAsyncResult *result, gpointer user_data) {
  auto *self = vekin::as<ServerConnection>(user_data);
  g_autoptr(GError) error = nullptr;
  g_autoptr(GSocketConnection) stream =
      g_socket_client_connect_finish(G_SOCKET_CLIENT(client), result, &error);
  if (self->connecting) {  // else it was closed meanwhile
    g_clear_object(&self->connecting);
    if (stream) {
      vek_debug("Connected to %s:%u", self->host, self->port);
      self->stream = g_steal_pointer(&stream);
      self->readable = watch(self, G_IO_IN, on_readable, nullptr);
      self->on_ready(self->user_data);
    } else {
      fail(self, error->message);
    }
  }
  release_owner(self);
}

void ServerConnection::open() {
  // An address of GIO keeps what a name was resolved to, so each connection has its own.
  g_autoptr(GSocketConnectable) address = g_network_address_new(host, port);
  g_autoptr(GSocketClient) client = g_socket_client_new();
  g_socket_client_set_enable_proxy(client, FALSE);  // those of the environment are for the web
  connecting = g_cancellable_new();
  g_object_ref(owner);
  g_socket_client_connect_async(client, address, connecting, on_connected, this);
}

void ServerConnection::close() {
  clear_source(&retry);
  disconnect(this);
  if (auto *cancellable = g_steal_pointer(&connecting)) {
    g_cancellable_cancel(cancellable);
    g_object_unref(cancellable);
  }
}

void ServerConnection::prove_good() {
  if (stream)
    n_failures = 0;
}

gsize ServerConnection::send(const char *text, gsize length) {
  // What is sent to a server that has closed is lost, so look first.
  if (has_ended(this))
    return 0;

  g_autoptr(GError) error = nullptr;
  gssize n_bytes = g_socket_send_with_blocking(g_socket_connection_get_socket(stream), text, length,
                                               FALSE, nullptr, &error);
  if (error && !g_error_matches(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK)) {
    fail(this, error->message);
    return 0;
  }
  gsize n_sent = error ? 0 : static_cast<gsize>(n_bytes);
  if (n_sent < length) {
    g_object_ref(owner);
    writable = watch(this, G_IO_OUT, on_writable, release_owner);
  }
  return n_sent;
}
