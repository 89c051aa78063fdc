#pragma once

// The connections of a server, within bounds: so many, and none on which nothing happens for long.

#include <libsoup/soup.h>

namespace vekin::web {

inline constexpr guint kMaxConnections = 100;
inline constexpr gint64 kMaxIdleSeconds = 120;
inline constexpr goffset kMaxBody = 64 * 1024;  // bytes

struct Connections;

// Watches the connections of a server until it is freed.
Connections *connections_new(SoupServer *server);
void connections_free(Connections *connections);

// Something happens on the connection of a message.
void connections_note(Connections *connections, SoupServerMessage *message);

// Lets a connection end with the answer to a request: libsoup 3.2 never closes one whose client
// leaves between two requests.
void connection_end_with_answer(SoupServerMessage *message);

// The socket of a message's connection. libsoup does not know it, so the connection's local address
// holds it.
void connection_set_socket(GSocketAddress *local_address, GSocket *socket);
GSocket *connection_get_socket(SoupServerMessage *message);

// Ends a connection that asks for too much; libsoup cleans up when it reads or writes next.
void connection_shut_down(GSocket *socket);

}  // namespace vekin::web
