#pragma once

// Sockets that a server listens on.

#include <gio/gio.h>

namespace vekin::web {

GSocket *listen_on(GSocketAddress *address, GError **error);

// Listens on a Unix socket of this user alone. One that nobody listens on any more is replaced.
GSocket *listen_on_path(const char *path, GError **error);

}  // namespace vekin::web
