#include "listening.hpp"

#include "common/internal.hpp"
#include "connections.hpp"

#include <errno.h>
#include <gio/gunixsocketaddress.h>
#include <glib/gstdio.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/stat.h>
#include <utility>

namespace vekin::web {

// Of connections that wait to be accepted. Those beyond it have to wait a second or more before
// they are tried again, and the default is 10.
static constexpr int kBacklog = 128;

static GSocket *make_socket(GSocketAddress *address, GError **error) {
  return g_socket_new(g_socket_address_get_family(address), G_SOCKET_TYPE_STREAM,
                      G_SOCKET_PROTOCOL_DEFAULT, error);
}

// Whether there is a socket at a path that nobody listens on. Connecting to any other file is
// refused as well.
static bool is_abandoned(const char *path, GSocketAddress *address) {
  GStatBuf status;
  if (g_lstat(path, &status) != 0 || !S_ISSOCK(status.st_mode))
    return false;
  g_autoptr(GError) error = nullptr;
  g_autoptr(GSocket) socket = make_socket(address, nullptr);
  return socket && !g_socket_connect(socket, address, nullptr, &error) &&
         g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CONNECTION_REFUSED);
}

// The file that is made of a Unix socket has the mode of the socket, so that there is no moment at
// which others could connect.
static bool keep_private(GSocket *socket, GError **error) {
  if (fchmod(g_socket_get_fd(socket), S_IRWXU) == 0)
    return true;
  int code = errno;
  g_set_error_literal(error, G_IO_ERROR, g_io_error_from_errno(code), g_strerror(code));
  return false;
}

GSocket *listen_on(GSocketAddress *address, GError **error) {
  g_autoptr(GSocket) socket = make_socket(address, error);
  if (!socket)
    return nullptr;
  g_socket_set_listen_backlog(socket, kBacklog);
  if (!keep_private(socket, error) || !g_socket_bind(socket, address, TRUE, error) ||
      !g_socket_listen(socket, error))
    return nullptr;
  return g_steal_pointer(&socket);
}

GSocket *listen_on_path(const char *path, GError **error) {
  g_autoptr(GSocketAddress) address = g_unix_socket_address_new(path);
  // A long path is cut, and an empty one names no file.
  if (!*path ||
      !g_str_equal(g_unix_socket_address_get_path(G_UNIX_SOCKET_ADDRESS(address)), path)) {
    g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT,
                        "The path of a socket has 1 to 107 bytes");
    return nullptr;
  }
  if (is_abandoned(path, address))
    g_unlink(path);
  return listen_on(address, error);
}

struct SocketFile {
  char *path;  // absolute: the program may change its folder
  std::pair<dev_t, ino_t> identity;
};

static std::pair<dev_t, ino_t> identify(const char *path) {
  GStatBuf status = {};
  g_lstat(path, &status);
  return {status.st_dev, status.st_ino};
}

SocketFile *socket_file_new(const char *path) {
  auto *self = g_new(SocketFile, 1);
  *self = {g_canonicalize_filename(path, nullptr), identify(path)};
  return self;
}

void socket_file_free(gpointer file) {
  auto *self = as<SocketFile>(file);
  if (identify(self->path) == self->identity)
    g_unlink(self->path);
  g_free(self->path);
  g_free(self);
}

struct Listener {
  GSocket *socket;
  SoupServer *server;
  GSource *source;  // a connection, or the next try
  bool is_failing;
};

static void set_source(Listener *self, GSource *source, const char *name, GSourceFunc callback) {
  if (self->source) {
    g_source_destroy(self->source);
    g_source_unref(self->source);
  }
  self->source = source;
  g_source_set_name(source, name);
  g_source_set_callback(source, callback, self, nullptr);
  g_source_attach(source, g_main_context_get_thread_default());
}

// A connection that the client has reset has no address, and is closed.
static void serve(Listener *self, GSocket *socket) {
  g_autoptr(GSocketAddress) local = g_socket_get_local_address(socket, nullptr);
  g_autoptr(GSocketAddress) remote = g_socket_get_remote_address(socket, nullptr);
  if (!local || !remote)
    return;
  if (G_IS_INET_SOCKET_ADDRESS(local))
    g_socket_set_option(socket, IPPROTO_TCP, TCP_NODELAY, TRUE, nullptr);
  connection_set_socket(local, socket);
  g_autoptr(GSocketConnection) connection = g_socket_connection_factory_create_connection(socket);
  soup_server_accept_iostream(self->server, G_IO_STREAM(connection), local, remote, nullptr);
}

static void watch(Listener *self);

static gboolean on_retry(gpointer data) {
  watch(as<Listener>(data));
  return G_SOURCE_REMOVE;
}

static gboolean on_connection(GSocket *, GIOCondition, gpointer data) {
  auto *self = as<Listener>(data);
  g_autoptr(GError) error = nullptr;
  g_autoptr(GSocket) socket = g_socket_accept(self->socket, nullptr, &error);
  if (socket) {
    self->is_failing = false;
    serve(self, socket);
  } else if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_WOULD_BLOCK)) {
    if (!self->is_failing)
      vek_warning("Could not accept a connection: %s", error->message);
    self->is_failing = true;
    set_source(self, g_timeout_source_new(1000), "vekmetrics-web retry", on_retry);
  }
  return G_SOURCE_CONTINUE;
}

static void watch(Listener *self) {
  set_source(self, g_socket_create_source(self->socket, G_IO_IN, nullptr),
             "vekmetrics-web listener", G_SOURCE_FUNC(on_connection));
}

Listener *listener_new(GSocket *socket, SoupServer *server) {
  auto *self = g_new0(Listener, 1);
  self->socket = G_SOCKET(g_object_ref(socket));
  self->server = server;
  g_socket_set_blocking(socket, FALSE);
  watch(self);
  return self;
}

void listener_free(gpointer listener) {
  auto *self = as<Listener>(listener);
  g_source_destroy(self->source);
  g_source_unref(self->source);
  g_object_unref(self->socket);
  g_free(self);
}

}  // namespace vekin::web
