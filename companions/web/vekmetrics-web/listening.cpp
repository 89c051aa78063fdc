#include "listening.hpp"

#include <errno.h>
#include <gio/gunixsocketaddress.h>
#include <glib/gstdio.h>
#include <sys/stat.h>

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
  return G_SOCKET(g_object_ref(socket));
}

GSocket *listen_on_path(const char *path, GError **error) {
  g_autoptr(GSocketAddress) address = g_unix_socket_address_new(path);
  if (is_abandoned(path, address))
    g_unlink(path);
  return listen_on(address, error);
}

}  // namespace vekin::web
