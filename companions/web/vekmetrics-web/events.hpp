#pragma once

// Streams of server-sent events: each says that there is a further pass.

#include <libsoup/soup.h>

#include "connections.hpp"

namespace vekin::web {

inline constexpr guint kMaxStreams = kMaxConnections / 2;

struct Events;

// Works in the context that is thread-default now. Tells the connections when something has been
// sent.
Events *events_new(Connections *connections);

// Ends all streams.
void events_free(Events *events);

// Begins a stream; one too many takes the place of the oldest.
void events_add(Events *events, SoupServerMessage *message);

// Sends an event to each client; one that is slow gets the last event only.
void events_send(Events *events, GBytes *event);

}  // namespace vekin::web
