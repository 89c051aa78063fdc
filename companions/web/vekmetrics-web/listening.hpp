#pragma once

// Sockets that a server listens on.

#include <libsoup/soup.h>

namespace vekin::web {

GSocket *listen_on(GSocketAddress *address, GError **error);

// Listens on a Unix socket of this user alone. One that nobody listens on any more is replaced.
GSocket *listen_on_path(const char *path, GError **error);

// The file of a Unix socket. Freeing it removes the file, unless another one has taken its place.
struct SocketFile;
SocketFile *socket_file_new(const char *path);
void socket_file_free(gpointer file);

// Hands each connection to the server. libsoup would accept no more after the first that it cannot
// accept, for lack of descriptors; here, that one is tried again after a second.
struct Listener;
Listener *listener_new(GSocket *socket, SoupServer *server);
void listener_free(gpointer listener);

}  // namespace vekin::web
